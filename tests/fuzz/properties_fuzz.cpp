// Any text with references, against the rules written down plainly. The input's first three lines are the
// values of the properties a, b and c; a value refers to nothing itself, since a circle of references never
// ends.

#include <algorithm>
#include <array>
#include <string>

#include "FuzzTarget.h"
#include "ZORPropertyInserter.h"

namespace {

constexpr std::array<const char*, 3> kNames{"a", "b", "c"};

std::string takeLine(std::string& text) {
    const std::size_t end = text.find('\n');
    std::string line = text.substr(0, end);
    text.erase(0, end == std::string::npos ? end : end + 1);
    return line;
}

std::string withoutReferences(std::string value) {
    for (std::size_t at = value.find("${"); at != std::string::npos; at = value.find("${"))
        value.erase(at, 1);
    return value;
}

std::string plainlyExpanded(std::string text) {
    std::size_t resume = 0;
    for (std::size_t at = text.find("${"); at != std::string::npos; at = text.find("${", resume)) {
        const std::size_t end = text.find('}', at + 2);
        if (end == std::string::npos) break;
        const std::string name = text.substr(at + 2, end - at - 2);
        const char* const value = ZORPropertyInserter::getInstance()->get(name.c_str());
        if (value == nullptr) {
            resume = end;
        } else {
            text.replace(at, end + 1 - at, value);
        }
    }
    return text;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzTarget::logEverythingToNowhere();
    std::string text = FuzzTarget::textOf(data, size);
    // Texts come from documents and arguments, which hold no zero.
    text.resize(std::min(text.find('\0'), text.size()));
    for (const char* const name : kNames)
        ZORPropertyInserter::getInstance()->add(name, withoutReferences(takeLine(text)).c_str());
    std::string expanded = text;
    ZORPropertyInserter::getInstance()->insertProperties(expanded);
    FuzzTarget::require(expanded == plainlyExpanded(text), "a text expands as the rules say");
    return 0;
}
