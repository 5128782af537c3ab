#include "PlainXmlParser.h"

#include <xercesc/dom/DOMException.hpp>
#include <xercesc/framework/XMLErrorCodes.hpp>
#include <xercesc/framework/XMLValidityCodes.hpp>
#include <xercesc/internal/XMLScanner.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/util/XMLResourceIdentifier.hpp>
#include <xercesc/util/XMLUni.hpp>
#include <xercesc/validators/DTD/DTDAttDef.hpp>
#include <xercesc/validators/DTD/DTDElementDecl.hpp>
#include <xercesc/validators/DTD/DTDEntityDecl.hpp>

#include "TVLIDOM_Text.h"
#include "XmlMemory.h"

namespace {

constexpr const char* kParameterEntities = "references to parameter entities are not supported: ";
constexpr const char* kDefaultValues = "default attribute values are not supported";

std::string quoted(const XMLCh* name) {
    return "\"" + TVLIDOM_Text::fromXml(name).str() + "\"";
}

// Nobody asks for an element by its identifier, and the library's table of them is slow when its hash function does
// not tell them apart. A name token is read in the same way and gets into no table.
void forgetIdentifier(const xercesc::DTDAttDef& attribute) {
    auto& declared = const_cast<xercesc::DTDAttDef&>(attribute);  // the scanner's own, which is not const
    declared.setType(xercesc::XMLAttDef::NmToken);
}

}  // namespace

PlainXmlParser::PlainXmlParser() : XercesDOMParser(nullptr, &XmlMemory::instance()) {
    setValidationScheme(Val_Never);
    setDoNamespaces(false);
    setDoSchema(false);
    setLoadExternalDTD(false);
    setLoadSchema(false);
    setCreateEntityReferenceNodes(false);
    setDisableDefaultEntityResolution(true);
    m_limits.setEntityExpansionLimit(kMaxEntityExpansions);
    setSecurityManager(&m_limits);
    getScanner()->setErrorReporter(this);
    getScanner()->setEntityHandler(this);
}

void PlainXmlParser::beginBlock() const {
    if (!m_inSubset || m_subsetLength <= kMaxSubset) return;
    refuse("the document type declaration has more than " + std::to_string(kMaxSubset) + " bytes");
}

void PlainXmlParser::countName(const XMLCh* name) {
    if (m_names.find(NameView(name)) != m_names.end()) return;
    m_names.emplace(name);
    if (m_names.size() <= kMaxNames) return;
    refuse("more than " + std::to_string(kMaxNames) + " different names of elements and attributes");
}

void PlainXmlParser::startElement(const xercesc::XMLElementDecl& element, unsigned int uri,
                                  const XMLCh* prefix,
                                  const xercesc::RefVectorOf<xercesc::XMLAttr>& attributes,
                                  XMLSize_t attributeCount, bool isEmpty, bool isRoot) {
    countName(element.getFullName());
    for (XMLSize_t i = 0; i < attributeCount; ++i)
        countName(attributes.elementAt(i)->getName());
    XercesDOMParser::startElement(element, uri, prefix, attributes, attributeCount, isEmpty, isRoot);
}

void PlainXmlParser::XMLDecl(const XMLCh* version, const XMLCh* encoding, const XMLCh* standalone,
                             const XMLCh* actualEncoding) {
    placed([&] { XercesDOMParser::XMLDecl(version, encoding, standalone, actualEncoding); });
}

// With an external subset an undeclared entity might be declared there, and the library would leave references
// to it out of the text. Nothing outside is read, so the document counts as one without.
void PlainXmlParser::doctypeDecl(const xercesc::DTDElementDecl& element, const XMLCh* publicId,
                                 const XMLCh* systemId, bool hasInternalSubset, bool hasExternalSubset) {
    placed([&] {
        XercesDOMParser::doctypeDecl(element, publicId, systemId, hasInternalSubset, hasExternalSubset);
    });
    getScanner()->setHasNoDTD(true);
}

// Only a validating scanner tells of an undeclared parameter entity; see error().
void PlainXmlParser::startIntSubset() {
    XercesDOMParser::startIntSubset();
    m_inSubset = true;
    m_subsetLength = 0;
    getScanner()->setValidationScheme(xercesc::XMLScanner::Val_Always);
}

void PlainXmlParser::endIntSubset() {
    XercesDOMParser::endIntSubset();
    m_inSubset = false;
    getScanner()->setValidationScheme(xercesc::XMLScanner::Val_Never);
    for (xercesc::DTDEntityDecl* const entity : m_trapped)
        entity->setIsExternal(false);
    m_trapped.clear();
}

void PlainXmlParser::entityDecl(const xercesc::DTDEntityDecl& entity, bool isParameterEntity,
                                bool isIgnored) {
    if (isIgnored) return;  // the first declaration counts
    trapReferences(entity, isParameterEntity);
}

// Within the subset the library expands entities without a bound and tells nobody: parameter entities, and
// general ones in default values. An external entity it asks for, or refuses in a default value. So all are
// external there; general entities become what they are when the subset ends.
void PlainXmlParser::trapReferences(const xercesc::DTDEntityDecl& entity, bool isParameterEntity) {
    auto& trapped = const_cast<xercesc::DTDEntityDecl&>(entity);  // the scanner's own, which is not const
    if (isParameterEntity) {
        trapped.setSystemId(entity.getName());  // all that resolveEntity() is told
    } else if (!entity.isExternal()) {
        m_trapped.push_back(&trapped);
    }
    trapped.setIsExternal(true);
}

void PlainXmlParser::attDef(const xercesc::DTDElementDecl& element, const xercesc::DTDAttDef& attribute,
                            bool /*isIgnored*/) {
    using xercesc::XMLAttDef;
    const XMLAttDef::DefAttTypes kind = attribute.getDefaultType();
    if (kind != XMLAttDef::Implied && kind != XMLAttDef::Required) refuse(kDefaultValues);
    if (attribute.getType() == XMLAttDef::ID) forgetIdentifier(attribute);
    if (element.getAttDefList().getAttDefCount() > kMaxAttributesOfElement) {
        refuse("element " + quoted(element.getFullName()) + " has more than " +
               std::to_string(kMaxAttributesOfElement) + " declared attributes");
    }
}

// Stops at the first error. Of what breaks the document's own rules only an undeclared entity counts.
void PlainXmlParser::error(unsigned int code, const XMLCh* domain, xercesc::XMLErrorReporter::ErrTypes type,
                           const XMLCh* words, const XMLCh* systemId, const XMLCh* publicId, XMLFileLoc line,
                           XMLFileLoc column) {
    if (type == xercesc::XMLErrorReporter::ErrType_Warning) return;
    const bool isValidity = xercesc::XMLString::equals(domain, xercesc::XMLUni::fgValidityDomain);
    if (isValidity && code == xercesc::XMLValid::VC_EntityNotFound) {
        refuse(kParameterEntities + TVLIDOM_Text::fromXml(words).str());
    }
    if (isValidity) return;
    if (m_inSubset && code == xercesc::XMLErrs::NoExtRefsInAttValue) refuse(kDefaultValues);
    throw xercesc::SAXParseException(words, publicId, systemId, line, column);
}

xercesc::InputSource* PlainXmlParser::resolveEntity(xercesc::XMLResourceIdentifier* resource) {
    const std::string name = TVLIDOM_Text::fromXml(resource->getSystemId()).str();
    if (m_inSubset) refuse(kParameterEntities + ("\"%" + name + ";\""));
    refuse("external entities are not loaded: \"" + name + "\"");
}

template <typename Step>
void PlainXmlParser::placed(Step step) const {
    try {
        step();
    } catch (const xercesc::DOMException& exception) {
        throw xercesc::SAXParseException(exception.getMessage(), *getScanner()->getLocator());
    }
}

void PlainXmlParser::refuse(const std::string& words) const {
    throw xercesc::SAXParseException(TVLIDOM_Text::toXml(words).c_str(), *getScanner()->getLocator());
}
