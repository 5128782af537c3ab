#include "CTLTime.h"

#include <cstdint>
#include <limits>
#include <regex>

namespace {

constexpr int kMostDigits = 9;  // fit whatever they are

std::tm localParts(std::time_t time) {
    std::tm parts{};
    localtime_r(&time, &parts);
    return parts;
}

// None when the calendar has no such moment: mktime would make another one of it.
std::optional<std::time_t> moment(std::tm parts) {
    parts.tm_isdst = -1;
    const std::tm asked = parts;
    const std::time_t time = std::mktime(&parts);
    const bool isSame = parts.tm_year == asked.tm_year && parts.tm_mon == asked.tm_mon &&
                        parts.tm_mday == asked.tm_mday && asked.tm_hour < 24 && asked.tm_min < 60 &&
                        asked.tm_sec < 61;
    return isSame ? std::optional(time) : std::nullopt;
}

std::optional<std::time_t> midnight(std::time_t now, int daysBefore) {
    std::tm parts = localParts(now);
    parts.tm_mday -= daysBefore;
    parts.tm_hour = parts.tm_min = parts.tm_sec = 0;
    parts.tm_isdst = -1;
    return std::mktime(&parts);
}

std::int64_t secondsOf(char unit) {
    switch (unit) {
        case 's':
            return 1;
        case 'm':
            return 60;
        case 'h':
            return 3600;
        case 'd':
            return 86400;
        default:
            return std::int64_t{7} * 86400;
    }
}

std::optional<std::time_t> ago(const std::string& number, char unit, std::time_t now) {
    if (number.size() > kMostDigits) return std::nullopt;
    const std::int64_t before = std::stoll(number) * secondsOf(unit);
    return before > now ? std::time_t{0} : static_cast<std::time_t>(now - before);
}

int numberOf(const std::ssub_match& digits) {
    return digits.matched ? std::stoi(digits.str()) : 0;
}

}  // namespace

namespace CTLTime {

std::optional<std::time_t> parse(const std::string& text, std::time_t now) {
    static const std::regex span("([0-9]+)([smhdw])( ago)?");
    static const std::regex written(
        "(?:([0-9]{4})-([0-9]{1,2})-([0-9]{1,2}))?[ T]?(?:([0-9]{1,2}):([0-9]{2})(?::([0-9]{2}))?)?");
    std::smatch match;
    if (text == "today") return midnight(now, 0);
    if (text == "yesterday") return midnight(now, 1);
    if (std::regex_match(text, match, span)) return ago(match[1], match[2].str().front(), now);
    if (!std::regex_match(text, match, written) || (!match[1].matched && !match[4].matched))
        return std::nullopt;
    std::tm parts = localParts(now);
    if (match[1].matched) {
        parts.tm_year = numberOf(match[1]) - 1900;
        parts.tm_mon = numberOf(match[2]) - 1;
        parts.tm_mday = numberOf(match[3]);
    }
    parts.tm_hour = numberOf(match[4]);
    parts.tm_min = numberOf(match[5]);
    parts.tm_sec = numberOf(match[6]);
    return moment(parts);
}

}  // namespace CTLTime
