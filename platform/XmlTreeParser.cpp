#include "XmlTreeParser.h"

#include <xercesc/framework/XMLAttr.hpp>
#include <xercesc/framework/XMLElementDecl.hpp>

XmlTreeParser::XmlTreeParser() : SAXParser(nullptr, &XmlMemory::instance()) {
    scanner().setDocHandler(this);
    scanner().setDocTypeHandler(this);
    scanner().setErrorReporter(this);
    scanner().setEntityHandler(this);
}

void XmlTreeParser::startElement(const xercesc::XMLElementDecl& element, unsigned int uri,
                                 const XMLCh* prefix,
                                 const xercesc::RefVectorOf<xercesc::XMLAttr>& attributes,
                                 XMLSize_t attributeCount, bool isEmpty, bool isRoot) {
    auto& node = m_tree->make<XmlElement>();
    append(node, XmlNodeType::element, nameOf(element.getFullName()));
    XmlAttribute** place = &node.firstAttribute;
    for (XMLSize_t i = 0; i < attributeCount; ++i) {
        auto& attribute = m_tree->make<XmlAttribute>();
        attribute.name = nameOf(attributes.elementAt(i)->getName());
        attribute.value = kept(attributes.elementAt(i)->getValue());
        *place = &attribute;
        place = &attribute.next;
    }
    m_parent = &node;
    m_last = nullptr;
    if (isEmpty) endElement(element, uri, isRoot, prefix);
}

void XmlTreeParser::endElement(const xercesc::XMLElementDecl& /*element*/, unsigned int /*uri*/,
                               bool /*isRoot*/, const XMLCh* /*prefix*/) {
    told();
    endText();
    m_last = m_parent;
    m_parent = m_parent->parent;
}

void XmlTreeParser::docCharacters(const XMLCh* characters, XMLSize_t length, bool isCdata) {
    told();
    if (m_parent == &m_tree->document()) return;
    const TVLIDOM_Text::XmlView text(characters, length);
    if (!isCdata) {
        m_text += text;
    } else {
        append(m_tree->make<XmlNode>(), XmlNodeType::cdata, kept(text));
    }
}

void XmlTreeParser::docComment(const XMLCh* comment) {
    append(m_tree->make<XmlNode>(), XmlNodeType::comment, kept(comment));
}

void XmlTreeParser::docPI(const XMLCh* target, const XMLCh* data) {
    auto& node = m_tree->make<XmlInstruction>();
    node.data = kept(data == nullptr ? TVLIDOM_Text::XmlView() : data);
    append(node, XmlNodeType::instruction, kept(target));
}

std::string_view XmlTreeParser::nameOf(TVLIDOM_Text::XmlView name) {
    const auto known = m_names.find(name);
    if (known != m_names.end()) return known->second;
    return m_names.emplace(name, kept(name)).first->second;
}

void XmlTreeParser::append(XmlNode& node, XmlNodeType type, std::string_view words) {
    told();
    endText();
    node.type = type;
    node.words = words;
    node.parent = m_parent;
    (m_last == nullptr ? m_parent->firstChild : m_last->next) = &node;
    m_last = &node;
}

void XmlTreeParser::endText() {
    if (m_text.empty()) return;
    const std::string_view words = kept(m_text);
    m_text.clear();
    append(m_tree->make<XmlNode>(), XmlNodeType::text, words);
}
