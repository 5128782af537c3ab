#include "CTLLogLine.h"

#include <cstring>
#include <regex>

namespace {

// "Sat Nov 21 23:13:06 2026  INFO  t[1a2b] Logger text", in UTC.
const std::regex& shape() {
    static const std::regex head(
        R"(^([A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] [0-9:]{8} [0-9]{4})  ([A-Z]{4,5}) {1,2}t\[([0-9a-f]+)\] (\S+) )");
    return head;
}

}  // namespace

bool CTLLogLine::parse(const std::string& line, CTLLogLine& into) {
    std::smatch match;
    if (!std::regex_search(line, match, shape())) return false;
    std::tm when{};
    if (strptime(match[1].str().c_str(), "%a %b %d %H:%M:%S %Y", &when) == nullptr) return false;
    into = {timegm(&when), match[2], match[3], match[4], match.suffix()};
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
