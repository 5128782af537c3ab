// The XML library's parser, held to documents that mean what they show.
//
// Purpose: reads a document and its internal DTD subset and refuses, with a text and its place, what depends
//   on anything outside the document or makes a small document big: external entities, entities that are not
//   declared in it, references to parameter entities, default attribute values, many expansions of entities.
//   Declarations that can do neither are read over. It also refuses what would keep the library busy for longer than
//   the length of the document suggests: a long document type declaration, many different names.
// Ownership: as the library's parser.
// Threads: one thread at a time.
// Units: lengths in bytes of the document.
// Errors: parse() throws what the library throws; all that is refused is a SAXParseException with its place.
#pragma once

#include <cstddef>
#include <string>
#include <vector>
#include <xercesc/dom/DOMException.hpp>
#include <xercesc/util/SecurityManager.hpp>

#include "XmlTreeParser.h"

class PlainXmlParser : public XmlTreeParser {
  public:
    // Each is enough for any document written by hand. Together the first two bound what entities can add to a
    // document; the second also bounds content models, in which the library compares each name with each other. The
    // third bounds what declared attributes cost each element.
    static constexpr std::size_t kMaxEntityExpansions = 100;
    static constexpr std::size_t kMaxSubset = 32768;
    static constexpr std::size_t kMaxAttributesOfElement = 100;
    // The library looks for each name among all the names before it.
    static constexpr std::size_t kMaxNames = 1000;
    // The library looks for each attribute among those before it in the tag, and tells of a tag at its end. Until then
    // the memory that it takes shows how many there are: at most eight times for each. Twice that for kMaxNames
    // attributes means more of them than that, and no two of one tag share a name.
    static constexpr std::size_t kMemoryOfAttribute = 16;
    // What the parser's source should give it at once: the length of the subset is looked at between two blocks, so
    // that one or two blocks more can pass.
    static constexpr std::size_t kBlock = 8192;

    PlainXmlParser();

    // For the parser's source, around each block: before it is read, and how many bytes it had.
    void beginBlock() const;
    void endBlock(std::size_t bytes) { m_subsetLength += bytes; }

    void startElement(const xercesc::XMLElementDecl& element, unsigned int uri, const XMLCh* prefix,
                      const xercesc::RefVectorOf<xercesc::XMLAttr>& attributes, XMLSize_t attributeCount,
                      bool isEmpty, bool isRoot) override;

    void XMLDecl(const XMLCh* version, const XMLCh* encoding, const XMLCh* standalone,
                 const XMLCh* actualEncoding) override;
    void doctypeDecl(const xercesc::DTDElementDecl& element, const XMLCh* publicId, const XMLCh* systemId,
                     bool hasInternalSubset, bool hasExternalSubset) override;

    void startIntSubset() override;
    void endIntSubset() override;
    void entityDecl(const xercesc::DTDEntityDecl& entity, bool isParameterEntity, bool isIgnored) override;
    void attDef(const xercesc::DTDElementDecl& element, const xercesc::DTDAttDef& attribute,
                bool isIgnored) override;

    void error(unsigned int code, const XMLCh* domain, xercesc::XMLErrorReporter::ErrTypes type,
               const XMLCh* words, const XMLCh* systemId, const XMLCh* publicId, XMLFileLoc line,
               XMLFileLoc column) override;
    xercesc::InputSource* resolveEntity(xercesc::XMLResourceIdentifier* resource) override;

  private:
    [[noreturn]] void refuse(const std::string& words) const;
    [[noreturn]] void refuseNames() const;
    [[noreturn]] void refuseAs(xercesc::DOMException::ExceptionCode code) const;
    void trapReferences(const xercesc::DTDEntityDecl& entity, bool isParameterEntity);

    xercesc::SecurityManager m_limits;
    bool m_inSubset = false;
    std::size_t m_subsetLength = 0;                  // what was read since it began
    std::vector<xercesc::DTDEntityDecl*> m_trapped;  // general entities; the library owns them
};
