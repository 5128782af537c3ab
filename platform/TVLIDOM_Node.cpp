#include "TVLIDOM_Node.h"

#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMNode.hpp>

#include "TVLIDOM_Helper.h"
#include "TVLIDOM_Text.h"

int TVLIDOM_Node::getNodeType() const {
    return m_node == nullptr ? 0 : m_node->getNodeType();
}

I18NString TVLIDOM_Node::getNodeName() const {
    return m_node == nullptr ? I18NString() : TVLIDOM_Text::fromXml(m_node->getNodeName());
}

bool TVLIDOM_Node::hasNodeName(const I18NString& name) const {
    return m_node == nullptr ? name.empty() : TVLIDOM_Text::equals(m_node->getNodeName(), name);
}

I18NString TVLIDOM_Node::getNodeValue() const {
    return m_node == nullptr ? I18NString() : TVLIDOM_Text::fromXml(m_node->getNodeValue());
}

TVLIDOM_Node TVLIDOM_Node::getFirstChild() const {
    return TVLIDOM_Node(m_node == nullptr ? nullptr : m_node->getFirstChild());
}

TVLIDOM_Node TVLIDOM_Node::getNextSibling() const {
    return TVLIDOM_Node(m_node == nullptr ? nullptr : m_node->getNextSibling());
}

TVLIDOM_Node TVLIDOM_Node::getParentNode() const {
    return TVLIDOM_Node(m_node == nullptr ? nullptr : m_node->getParentNode());
}

TVLIDOM_Element::TVLIDOM_Element(const TVLIDOM_Node& node)
    : TVLIDOM_Node(node.getNodeType() == ELEMENT_NODE ? node : TVLIDOM_Node()) {}

I18NString TVLIDOM_Element::getAttribute(const I18NString& name) const {
    if (isNull()) return {};
    const auto* const element = static_cast<const xercesc::DOMElement*>(node());
    return TVLIDOM_Text::fromXml(element->getAttribute(TVLIDOM_Text::toXml(name).c_str()));
}

I18NString TVLIDOM_Element::getTextContent() const {
    std::string text;
    for (TVLIDOM_Walk walk(*this); !walk.node().isNull(); walk.advance()) {
        const int type = walk.node().getNodeType();
        if (type == TEXT_NODE || type == CDATA_SECTION_NODE) text += walk.node().getNodeValue().str();
    }
    return text;
}

TVLIDOM_NodeList TVLIDOM_Element::getElementsByTagName(const I18NString& name) const {
    TVLIDOM_NodeList found;
    TVLIDOM_Walk walk(*this);
    for (walk.advance(); !walk.node().isNull(); walk.advance()) {
        if (TVLIDOM_Helper::isElementNamed(walk.node(), name)) found.add(walk.node());
    }
    return found;
}

TVLIDOM_NodeList TVLIDOM_Element::getChildNodes() const {
    TVLIDOM_NodeList children;
    for (TVLIDOM_Node child = getFirstChild(); !child.isNull(); child = child.getNextSibling()) {
        children.add(child);
    }
    return children;
}

TVLIDOM_Node TVLIDOM_NodeList::item(std::size_t index) const {
    return index < m_nodes.size() ? m_nodes[index] : TVLIDOM_Node();
}
