// Any text with references, against the rules written down plainly. The input's first three lines are the
// values of the properties a, b and c. A circle of references never ends, so no value may bring more dollar
// signs than the reference to it had, and none may bring both halves of a reference.

#include <algorithm>
#include <string>

#include "FuzzService.h"
#include "PlainExpansion.h"
#include "ZORPropertyInserter.h"

namespace {

std::string without(char unwanted, std::string value) {
    value.erase(std::remove(value.begin(), value.end(), unwanted), value.end());
    return value;
}

// At most one, the first.
std::string withOneDollar(const std::string& value) {
    const std::size_t first = value.find('$');
    if (first == std::string::npos) return value;
    return value.substr(0, first + 1) + without('$', value.substr(first + 1));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzService::logEverythingToNowhere();
    std::string text = FuzzTarget::textOf(data, size);
    // Texts come from documents and arguments, which hold no zero.
    text = FuzzTarget::untilZero(text);
    ZORPropertyInserter* const properties = ZORPropertyInserter::getInstance();
    properties->add("a", without('$', FuzzTarget::takeLine(text)).c_str());
    properties->add("b", withOneDollar(without('{', FuzzTarget::takeLine(text))).c_str());
    properties->add("c", without('$', FuzzTarget::takeLine(text)).c_str());
    std::string expanded = text;
    properties->insertProperties(expanded);
    FuzzTarget::require(expanded == plainlyExpanded(text), "a text expands as the rules say");
    return 0;
}
