#include "CTLLogLine.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <system_error>

namespace {

// "Sat Nov 21 23:13:06 2026  INFO  t[1a2b] Logger text", in UTC. A log can have hundreds of thousands of lines, so this is
// done by the columns.
constexpr std::size_t kStamp = 24;
constexpr std::size_t kLevel = 26;
constexpr std::size_t kThread = 32;
constexpr std::array<std::string_view, 12> kMonths{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr std::array<std::string_view, 5> kLevels{"FATAL", "ERROR", "WARN", "INFO", "DEBUG"};

// The number in so many columns, a blank before it or not; -1 when it is none.
int numberIn(std::string_view text, std::size_t at, std::size_t columns) {
    std::string_view digits = text.substr(at, columns);
    if (digits.front() == ' ') digits.remove_prefix(1);
    int number = -1;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return error == std::errc() && end == digits.data() + digits.size() ? number : -1;
}

bool readTime(std::string_view stamp, std::time_t& time) {
    const auto month = std::find(kMonths.begin(), kMonths.end(), stamp.substr(4, 3));
    if (month == kMonths.end() || stamp[13] != ':' || stamp[16] != ':') return false;
    std::tm when{};
    when.tm_year = numberIn(stamp, 20, 4) - 1900;
    when.tm_mon = static_cast<int>(month - kMonths.begin());
    when.tm_mday = numberIn(stamp, 8, 2);
    when.tm_hour = numberIn(stamp, 11, 2);
    when.tm_min = numberIn(stamp, 14, 2);
    when.tm_sec = numberIn(stamp, 17, 2);
    if (when.tm_year < 0 || when.tm_mday < 1 || when.tm_hour < 0 || when.tm_min < 0 || when.tm_sec < 0)
        return false;
    time = timegm(&when);
    return true;
}

bool isHexadecimal(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

}  // namespace

bool CTLLogLine::parse(const std::string& line, CTLLogLine& into) {
    const std::string_view text = line;
    if (text.size() < kThread + 4 || text.substr(kStamp, 2) != "  " || text.substr(kThread, 2) != "t[")
        return false;
    std::string_view level = text.substr(kLevel, 5);
    if (level.back() == ' ') level.remove_suffix(1);
    const std::size_t threadEnd = text.find("] ", kThread);
    if (threadEnd == std::string_view::npos ||
        std::find(kLevels.begin(), kLevels.end(), level) == kLevels.end())
        return false;
    const std::string_view thread = text.substr(kThread + 2, threadEnd - kThread - 2);
    const std::size_t logger = threadEnd + 2;
    const std::size_t loggerEnd = text.find(' ', logger);
    std::time_t when = 0;
    if (loggerEnd == std::string_view::npos || loggerEnd == logger || !isHexadecimal(thread) ||
        !readTime(text.substr(0, kStamp), when))
        return false;
    into = {when, std::string(level), std::string(thread),
            std::string(text.substr(logger, loggerEnd - logger)), std::string(text.substr(loggerEnd + 1))};
    return true;
}

std::vector<CTLLogLine> CTLLogLine::read(std::istream& log) {
    std::vector<CTLLogLine> lines;
    CTLLogLine next;
    for (std::string line; std::getline(log, line);) {
        if (parse(line, next)) {
            lines.push_back(next);
        } else if (!lines.empty()) {
            lines.back().text += "\n" + line;
        }
    }
    return lines;
}
