// The XML library's parser, whose events become an XmlTree.
//
// Purpose: builds the document as it is read. The library's own tree takes some five times the memory.
//   Each run of characters, however it is spelled, is one text; a CDATA section is always a node of its own.
// Ownership: as the library's parser; the tree is handed over with takeTree().
// Threads: one thread at a time.
// Units: none.
// Errors: parse() throws what the library throws, and std::bad_alloc.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <xercesc/internal/XMLScanner.hpp>
#include <xercesc/parsers/SAXParser.hpp>

#include "TVLIDOM_Text.h"
#include "XmlMemory.h"
#include "XmlTree.h"

class XmlTreeParser : public xercesc::SAXParser {
  public:
    XmlTreeParser();

    // What has been built; the parser has none afterwards and is of no more use.
    std::unique_ptr<XmlTree> takeTree() { return std::move(m_tree); }

    void startElement(const xercesc::XMLElementDecl& element, unsigned int uri, const XMLCh* prefix,
                      const xercesc::RefVectorOf<xercesc::XMLAttr>& attributes, XMLSize_t attributeCount,
                      bool isEmpty, bool isRoot) override;
    void endElement(const xercesc::XMLElementDecl& element, unsigned int uri, bool isRoot,
                    const XMLCh* prefix) override;
    void docCharacters(const XMLCh* characters, XMLSize_t length, bool isCdata) override;
    void ignorableWhitespace(const XMLCh* characters, XMLSize_t length, bool isCdata) override {
        docCharacters(characters, length, isCdata);
    }
    void docComment(const XMLCh* comment) override;
    void docPI(const XMLCh* target, const XMLCh* data) override;

  protected:
    // The base class gives it away for reading only, and cannot set all that there is to be set.
    xercesc::XMLScanner& scanner() const { return const_cast<xercesc::XMLScanner&>(getScanner()); }
    // How many different names elements and attributes have had so far.
    std::size_t nameCount() const { return m_names.size(); }
    // How often the library has taken memory since it last told of something.
    std::size_t takenUntold() const { return XmlMemory::taken() - m_takenBefore; }
    void told() { m_takenBefore = XmlMemory::taken(); }

  private:
    struct NameHash {
        using is_transparent = void;
        std::size_t operator()(TVLIDOM_Text::XmlView name) const {
            return std::hash<TVLIDOM_Text::XmlView>()(name);
        }
    };

    std::string_view kept(TVLIDOM_Text::XmlView text) {
        return m_tree->keep(TVLIDOM_Text::fromXml(text).str());
    }
    std::string_view nameOf(TVLIDOM_Text::XmlView name);
    void append(XmlNode& node, XmlNodeType type, std::string_view words);
    void endText();

    std::size_t m_takenBefore = 0;
    std::unique_ptr<XmlTree> m_tree = std::make_unique<XmlTree>();
    XmlElement* m_parent = &m_tree->document();
    XmlNode* m_last = nullptr;       // the last child of m_parent so far
    TVLIDOM_Text::XmlString m_text;  // characters of which more may follow
    // Each name is kept once.
    std::unordered_map<TVLIDOM_Text::XmlString, std::string_view, NameHash, std::equal_to<>> m_names;
};
