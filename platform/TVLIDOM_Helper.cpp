#include "TVLIDOM_Helper.h"

namespace {

template <typename Predicate>
TVLIDOM_Element findFirst(const TVLIDOM_Node& start, const I18NString& name, Predicate accepts) {
    for (TVLIDOM_Walk walk(start); !walk.node().isNull(); walk.advance()) {
        if (!TVLIDOM_Helper::isElementNamed(walk.node(), name)) continue;
        const TVLIDOM_Element element(walk.node());
        if (accepts(element)) return element;
    }
    return {};
}

}  // namespace

void TVLIDOM_Walk::advance() {
    const TVLIDOM_Node child = m_at.getFirstChild();
    if (!child.isNull()) {
        m_parents.push_back(m_at);
        m_at = child;
        return;
    }
    // The start has no parent here, and what follows it is none of the walk's.
    while (!m_parents.empty()) {
        const TVLIDOM_Node sibling = m_at.getNextSibling();
        m_at = sibling.isNull() ? m_parents.back() : sibling;
        if (!sibling.isNull()) return;
        m_parents.pop_back();
    }
    m_at = {};
}

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
