#include "TVLIDOM_Node.h"

#include <string>

#include "TVLIDOM_Helper.h"
#include "XmlTree.h"

namespace {

static_assert(static_cast<int>(XmlNodeType::element) == TVLIDOM_Node::ELEMENT_NODE);
static_assert(static_cast<int>(XmlNodeType::text) == TVLIDOM_Node::TEXT_NODE);
static_assert(static_cast<int>(XmlNodeType::cdata) == TVLIDOM_Node::CDATA_SECTION_NODE);

std::string_view nameOf(const XmlNode& node) {
    switch (node.type) {
        case XmlNodeType::text:
            return "#text";
        case XmlNodeType::cdata:
            return "#cdata-section";
        case XmlNodeType::comment:
            return "#comment";
        case XmlNodeType::document:
            return "#document";
        default:
            return node.words;
    }
}

std::string_view valueOf(const XmlNode& node) {
    switch (node.type) {
        case XmlNodeType::element:
        case XmlNodeType::document:
            return {};
        case XmlNodeType::instruction:
            return static_cast<const XmlInstruction&>(node).data;
        default:
            return node.words;
    }
}

bool holdsOthers(const XmlNode& node) {
    return node.type == XmlNodeType::element || node.type == XmlNodeType::document;
}

}  // namespace

int TVLIDOM_Node::getNodeType() const {
    return m_node == nullptr ? 0 : static_cast<int>(m_node->type);
}

I18NString TVLIDOM_Node::getNodeName() const {
    return m_node == nullptr ? std::string() : std::string(nameOf(*m_node));
}

bool TVLIDOM_Node::hasNodeName(const I18NString& name) const {
    return m_node == nullptr ? name.empty() : nameOf(*m_node) == name.str();
}

I18NString TVLIDOM_Node::getNodeValue() const {
    return m_node == nullptr ? std::string() : std::string(valueOf(*m_node));
}

TVLIDOM_Node TVLIDOM_Node::getFirstChild() const {
    if (m_node == nullptr || !holdsOthers(*m_node)) return {};
    return TVLIDOM_Node(static_cast<const XmlElement*>(m_node)->firstChild);
}

TVLIDOM_Node TVLIDOM_Node::getNextSibling() const {
    return TVLIDOM_Node(m_node == nullptr ? nullptr : m_node->next);
}

TVLIDOM_Node TVLIDOM_Node::getParentNode() const {
    return TVLIDOM_Node(m_node == nullptr ? nullptr : m_node->parent);
}

TVLIDOM_Element::TVLIDOM_Element(const TVLIDOM_Node& node)
    : TVLIDOM_Node(node.getNodeType() == ELEMENT_NODE ? node : TVLIDOM_Node()) {}

I18NString TVLIDOM_Element::getAttribute(const I18NString& name) const {
    if (isNull()) return {};
    const XmlAttribute* attribute = static_cast<const XmlElement*>(node())->firstAttribute;
    while (attribute != nullptr && attribute->name != name.str())
        attribute = attribute->next;
    return attribute == nullptr ? std::string() : std::string(attribute->value);
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
