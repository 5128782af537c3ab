#include "PlainExpansion.h"

#include "ZORPropertyInserter.h"

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
