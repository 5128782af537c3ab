#include "TVLIDOM_Helper.h"

namespace {

template <typename Predicate>
TVLIDOM_Element findFirst(const TVLIDOM_Node& start, const I18NString& name, Predicate accepts) {
    for (TVLIDOM_Node at = start; !at.isNull(); at = TVLIDOM_Helper::nextInDocumentOrder(at, start)) {
        if (!TVLIDOM_Helper::isElementNamed(at, name)) continue;
        const TVLIDOM_Element element(at);
        if (accepts(element)) return element;
    }
    return {};
}

}  // namespace

TVLIDOM_Element TVLIDOM_Helper::findFirstElementWithName(const TVLIDOM_Node& start, const I18NString& name) {
    return findFirst(start, name, [](const TVLIDOM_Element&) { return true; });
}

TVLIDOM_Element TVLIDOM_Helper::findFirstElementWithAttribute(const TVLIDOM_Node& start,
                                                              const I18NString& name,
                                                              const I18NString& attribute,
                                                              const I18NString& value) {
    return findFirst(start, name, [&](const TVLIDOM_Element& element) {
        return element.getAttribute(attribute) == value;
    });
}

bool TVLIDOM_Helper::isElementNamed(const TVLIDOM_Node& node, const I18NString& name) {
    return node.getNodeType() == TVLIDOM_Node::ELEMENT_NODE && node.hasNodeName(name);
}

TVLIDOM_Node TVLIDOM_Helper::nextInDocumentOrder(const TVLIDOM_Node& node, const TVLIDOM_Node& root) {
    const TVLIDOM_Node child = node.getFirstChild();
    if (!child.isNull()) return child;
    for (TVLIDOM_Node at = node; at != root; at = at.getParentNode()) {
        const TVLIDOM_Node sibling = at.getNextSibling();
        if (!sibling.isNull()) return sibling;
    }
    return {};
}
