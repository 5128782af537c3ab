#include "SEKErrors.h"

#include <openssl/err.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace SEKErrors {

std::string systemReason(int error) {
    const char* words = strerrordesc_np(error);
    return words != nullptr ? words : "system error " + std::to_string(error);
}

namespace {

std::string describe(unsigned long code, const char* data) {
    if (ERR_SYSTEM_ERROR(code)) return systemReason(ERR_GET_REASON(code));
    const char* words = ERR_reason_error_string(code);
    std::string text = words != nullptr ? words : "OpenSSL error " + std::to_string(code);
    if (data != nullptr && *data != '\0') text += std::string(" (") + data + ")";
    return text;
}

}  // namespace

std::string tlsReason() {
    const char* data = nullptr;
    int flags = 0;
    // The oldest entry is nearest to the cause; the later ones only tell who passed it on.
    const unsigned long code = ERR_get_error_all(nullptr, nullptr, nullptr, &data, &flags);
    std::string text =
        code == 0 ? "unknown error" : describe(code, (flags & ERR_TXT_STRING) != 0 ? data : nullptr);
    ERR_clear_error();
    return text;
}

const char* reasonOf(const std::exception& error) noexcept {
    return dynamic_cast<const std::bad_alloc*>(&error) != nullptr ? "no memory" : error.what();
}

char* copyText(const std::string& text) noexcept {
    char* copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy != nullptr) std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

}  // namespace SEKErrors
