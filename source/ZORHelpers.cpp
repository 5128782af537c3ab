#include "ZORHelpers.h"

#include <algorithm>

void ZORHelpers::getElemText(const TVLIDOM_Element& element, I18NString& text) {
    for (TVLIDOM_Node child = element.getFirstChild(); !child.isNull(); child = child.getNextSibling()) {
        if (child.getNodeType() != TVLIDOM_Node::TEXT_NODE) continue;
        I18NString value = child.getNodeValue();
        if (!value.empty()) text = std::move(value);
    }
}

void ZORHelpers::fixPathDelimiters(std::string& path) {
    std::replace(path.begin(), path.end(), '\\', '/');
}

void ZORHelpers::stripTrailingSlash(std::string& path) {
    const std::size_t last = path.find_last_not_of('/');
    path.erase(last == std::string::npos ? 0 : last + 1);
}

void ZORHelpers::stripLastDir(std::string& path) {
    const std::size_t separator = path.find_last_of("/\\");
    if (separator != std::string::npos) path.erase(separator);
}

std::string ZORHelpers::nextLine(const std::string& text, std::size_t& at, std::size_t most) {
    const std::size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
    const std::size_t from = at;
    at = std::min(end, from + most);
    return text.substr(from, at - from);
}
