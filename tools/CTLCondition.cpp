#include "CTLCondition.h"

#include <cstddef>
#include <map>
#include <vector>

namespace {

// More than these no administrator writes.
constexpr std::size_t kMostParts = 16;
constexpr std::size_t kLongest = 256;

// The values of the properties that have few.
const std::map<std::string, std::vector<std::string>>& domains() {
    static const std::map<std::string, std::vector<std::string>> all{{"ip_protocol", {"IPv6"}},
                                                                     {"java_vendor", {"", "Orv", "Sun"}}};
    return all;
}

struct Part {
    bool isReference = false;
    std::string text;  // or the reference's name
};

std::vector<Part> partsOf(const std::string& text) {
    std::vector<Part> parts;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t begin = text.find("${", at);
        const std::size_t end = begin == std::string::npos ? begin : text.find('}', begin);
        if (end == std::string::npos) {
            parts.push_back({false, text.substr(at)});
            break;
        }
        parts.push_back({false, text.substr(at, begin - at)});
        parts.push_back({true, text.substr(begin + 2, end - begin - 2)});
        at = end + 1;
    }
    return parts;
}

// Where in the value a part may end that begins at one of these places.
std::vector<bool> endsOf(const Part& part, const std::vector<bool>& begins, const std::string& value) {
    std::vector<bool> ends(value.size() + 1, false);
    const auto domain = domains().find(part.text);
    const bool isAny = part.isReference && domain == domains().end();
    const std::vector<std::string> texts =
        part.isReference && !isAny ? domain->second : std::vector<std::string>{part.text};
    for (std::size_t begin = 0; begin <= value.size(); ++begin) {
        if (!begins[begin]) continue;
        for (std::size_t end = begin; isAny && end <= value.size(); ++end)
            ends[end] = true;
        for (const std::string& text : texts) {
            if (!isAny && value.compare(begin, text.size(), text) == 0) ends[begin + text.size()] = true;
        }
    }
    return ends;
}

}  // namespace

bool CTLCondition::canHold(const std::string& condName, const std::string& condValue) {
    const std::vector<Part> parts = partsOf(condName);
    if (parts.size() > kMostParts || condValue.size() > kLongest) return true;
    std::vector<bool> reached(condValue.size() + 1, false);
    reached[0] = true;
    for (const Part& part : parts)
        reached = endsOf(part, reached, condValue);
    return reached.back();
}
