#include "CTLText.h"

#include <array>
#include <cstdio>

namespace {

constexpr const char* kDigits = "0123456789abcdef";

std::string withDecimals(double value, int decimals) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.*f", decimals, value);
    return text.data();
}

std::string twoDigits(long long value) {
    return (value < 10 ? "0" : "") + std::to_string(value);
}

// How many bytes the character has that begins here; 0 when it is none that may be shown.
std::size_t shownLength(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    if (first < 0x80) return first >= 0x20 && first != 0x7f ? 1 : 0;
    const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || text.size() < length) return 0;
    for (std::size_t index = 1; index < length; ++index) {
        if ((static_cast<unsigned char>(text[index]) & 0xc0U) != 0x80) return 0;
    }
    // The second set of control characters.
    return first == 0xc2 && static_cast<unsigned char>(text[1]) < 0xa0 ? 0 : length;
}

std::string escapedByte(char byte) {
    switch (byte) {
        case '\r':
            return "\\r";
        case '\n':
            return "\\n";
        case '\t':
            return "\\t";
        case '\\':
        case '"':
            return {'\\', byte};
        default:
            break;
    }
    const auto value = static_cast<unsigned char>(byte);
    if (value >= 0x20 && value < 0x7f) return {byte};
    return {'\\', 'x', kDigits[value / 16], kDigits[value % 16]};
}

}  // namespace

namespace CTLText {

std::string printable(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const std::size_t length = shownLength(text);
        if (length == 0) {
            shown += '?';
        } else {
            shown += text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return shown;
}

std::string escaped(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes)
        text += escapedByte(byte);
    return text;
}

std::string hexadecimal(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        text += {kDigits[value / 16], kDigits[value % 16]};
    }
    return text;
}

std::string age(std::int64_t seconds) {
    const auto whole = static_cast<long long>(seconds < 0 ? 0 : seconds);
    if (whole < 60) return std::to_string(whole) + " s";
    if (whole < 3600) return std::to_string(whole / 60) + " min " + twoDigits(whole % 60) + " s";
    if (whole < 86400) return std::to_string(whole / 3600) + " h " + twoDigits(whole / 60 % 60) + " min";
    return std::to_string(whole / 86400) + " d " + twoDigits(whole / 3600 % 24) + " h";
}

std::string size(std::int64_t bytes) {
    constexpr double kMega = 1e6;
    if (bytes < 1000000) return std::to_string((bytes + 500) / 1000) + " kB";
    return withDecimals(static_cast<double>(bytes) / kMega, 1) + " MB";
}

std::string duration(std::int64_t microseconds) {
    const auto value = static_cast<double>(microseconds);
    if (microseconds < 10000) return withDecimals(value / 1e3, 2) + " ms";
    if (microseconds < 1000000) return withDecimals(value / 1e3, 0) + " ms";
    return withDecimals(value / 1e6, 1) + " s";
}

std::string localTime(std::time_t time) {
    std::tm parts{};
    localtime_r(&time, &parts);
    std::array<char, 64> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts)};
}

std::string utc(std::time_t time) {
    std::tm parts{};
    gmtime_r(&time, &parts);
    std::array<char, 64> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

}  // namespace CTLText
