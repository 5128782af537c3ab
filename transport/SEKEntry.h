// The common frame of all entry points.
//
// Purpose: runs the work of one call, turns what it throws into a result and a detail text, and keeps the
//   text where the caller looks for it: at the handle, or, for calls without a live handle, at the calling
//   thread.
// Ownership: texts handed out through a details argument are heap memory for SEK_CryptoFree.
// Threads: any; the thread's own text is seen by that thread only.
// Units: none.
// Errors: nothing is thrown. The result is the work's own, the failure's code, or SEK_Failed.
#pragma once

#include <exception>
#include <memory>
#include <string>
#include <utility>

#include "SEKErrors.h"
#include "SEKLibrary.h"
#include "SEKSocket.h"
#include "SEK_Crypto_Interface.h"

namespace SEKEntry {

// The text of the last failure of this thread's calls without a live handle.
std::string& threadDetails();

// Where the text of a call on that socket is kept; null stands for no live handle.
std::string& placeOfDetails(SEKSocket* socket);

// Puts a copy of the text, or null for an empty one, where the caller wants it; a null place is fine.
void handOut(const std::string& text, char** details) noexcept;

// Stores a text as one printable line, without failing itself: when memory is short, a shorter text must do.
void keep(std::string& place, const char* text) noexcept;

// What the library does not offer: leaves the text "not supported" at the handle, or at the thread.
long refuse(void* handle, char** details = nullptr) noexcept;

template <typename Work>
long guarded(std::string& details, Work&& work) noexcept {
    try {
        const long result = std::forward<Work>(work)();
        details.clear();
        return result;
    } catch (const SEKFailure& failure) {
        keep(details, failure.what());
        return failure.code();
    } catch (const std::exception& error) {
        keep(details, SEKErrors::reasonOf(error));
        return SEK_Failed;
    }
}

// A call that belongs to no handle. Its text also goes out through `details`.
template <typename Work>
long forThread(char** details, Work&& work) noexcept {
    const long result = guarded(threadDetails(), std::forward<Work>(work));
    handOut(threadDetails(), details);
    return result;
}

// The socket of a live handle; throws for anything else.
std::shared_ptr<SEKSocket> socketOf(void* handle);

// A call on a handle. The work gets the socket and returns the result.
template <typename Work>
long forHandle(void* handle, Work&& work) noexcept {
    std::shared_ptr<SEKSocket> socket;
    const long found = guarded(threadDetails(), [&] {
        SEKLibrary::instance().requireInitialized();
        socket = socketOf(handle);
        return long{SEK_Ok};
    });
    if (found != SEK_Ok) return found;
    return guarded(socket->details, [&] { return std::forward<Work>(work)(*socket); });
}

}  // namespace SEKEntry
