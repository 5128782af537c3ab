#include "SEKEntry.h"

#include <algorithm>

namespace SEKEntry {

std::string& threadDetails() {
    thread_local std::string text;
    return text;
}

std::string& placeOfDetails(SEKSocket* socket) {
    return socket != nullptr ? socket->details : threadDetails();
}

void handOut(const std::string& text, char** details) noexcept {
    if (details != nullptr) *details = text.empty() ? nullptr : SEKErrors::copyText(text);
}

void keep(std::string& place, const char* text) noexcept {
    try {
        place = text;
        // Callers write the text into one line of a log, and parts of it come from documents and addresses.
        std::replace_if(
            place.begin(), place.end(),
            [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }, ' ');
    } catch (const std::exception&) {
        place.clear();
        place.append("no memory", std::min<std::size_t>(place.capacity(), 9));
    }
}

long refuse(void* handle, char** details) noexcept {
    const std::shared_ptr<SEKSocket> socket = SEKLibrary::instance().find(handle);
    std::string& place = placeOfDetails(socket.get());
    keep(place, "not supported");
    handOut(place, details);
    return SEK_NotSupported;
}

std::shared_ptr<SEKSocket> socketOf(void* handle) {
    std::shared_ptr<SEKSocket> socket = SEKLibrary::instance().find(handle);
    if (socket == nullptr)
        throw SEKFailure(handle == nullptr ? "null handle" : "not a handle of this library");
    return socket;
}

}  // namespace SEKEntry
