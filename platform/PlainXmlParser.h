// The XML library's parser, held to documents that mean what they show.
//
// Purpose: reads a document and its internal DTD subset and refuses, with a text and its place, what depends
//   on anything outside the document or makes a small document big: external entities, entities that are not
//   declared in it, references to parameter entities, default attribute values, long entities, many expansions
//   of entities. Declarations that can do neither are read over.
// Ownership: as the library's parser.
// Threads: one thread at a time.
// Units: lengths in UTF-16 units.
// Errors: parse() throws what the library throws; all that is refused is a SAXParseException with its place.
#pragma once

#include <cstddef>
#include <string>
#include <vector>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/util/SecurityManager.hpp>

class PlainXmlParser : public xercesc::XercesDOMParser {
  public:
    // Each is enough for any document written by hand. Together the first two bound what entities can add to a
    // document, the third what declared attributes cost each element.
    static constexpr std::size_t kMaxEntityExpansions = 100;
    static constexpr std::size_t kMaxEntityLength = 100000;
    static constexpr std::size_t kMaxAttributesOfElement = 100;

    PlainXmlParser();

    // What the document itself refuses is told with its place, too.
    void XMLDecl(const XMLCh* version, const XMLCh* encoding, const XMLCh* standalone,
                 const XMLCh* actualEncoding) override;
    void doctypeDecl(const xercesc::DTDElementDecl& element, const XMLCh* publicId, const XMLCh* systemId,
                     bool hasInternalSubset, bool hasExternalSubset) override;

    void startIntSubset() override;
    void endIntSubset() override;
    void entityDecl(const xercesc::DTDEntityDecl& entity, bool isParameterEntity, bool isIgnored) override;
    void attDef(const xercesc::DTDElementDecl& element, const xercesc::DTDAttDef& attribute,
                bool isIgnored) override;

    // These declarations have no effect; the library would keep a copy of each with the document.
    void elementDecl(const xercesc::DTDElementDecl& /*element*/, bool /*isIgnored*/) override {}
    void startAttList(const xercesc::DTDElementDecl& /*element*/) override {}
    void endAttList(const xercesc::DTDElementDecl& /*element*/) override {}
    void notationDecl(const xercesc::XMLNotationDecl& /*notation*/, bool /*isIgnored*/) override {}

    void error(unsigned int code, const XMLCh* domain, xercesc::XMLErrorReporter::ErrTypes type,
               const XMLCh* words, const XMLCh* systemId, const XMLCh* publicId, XMLFileLoc line,
               XMLFileLoc column) override;
    xercesc::InputSource* resolveEntity(xercesc::XMLResourceIdentifier* resource) override;

  private:
    template <typename Step>
    void placed(Step step) const;
    [[noreturn]] void refuse(const std::string& words) const;
    void trapReferences(const xercesc::DTDEntityDecl& entity, bool isParameterEntity);

    xercesc::SecurityManager m_limits;
    bool m_inSubset = false;
    std::vector<xercesc::DTDEntityDecl*> m_trapped;  // general entities; the library owns them
};
