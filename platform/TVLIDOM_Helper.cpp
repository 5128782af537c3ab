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
        m_at = child;
        return;
    }
    // What follows the start is none of the walk's.
    while (m_at != m_start && m_at.getNextSibling().isNull())
        m_at = m_at.getParentNode();
    m_at = m_at == m_start ? TVLIDOM_Node() : m_at.getNextSibling();
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
