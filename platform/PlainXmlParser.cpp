#include "PlainXmlParser.h"

#include <xercesc/framework/XMLErrorCodes.hpp>
#include <xercesc/framework/XMLValidityCodes.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/util/XMLChar.hpp>
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

PlainXmlParser::PlainXmlParser() {
    setValidationScheme(Val_Never);
    setDoNamespaces(false);
    setDoSchema(false);
    setLoadExternalDTD(false);
    setLoadSchema(false);
    setDisableDefaultEntityResolution(true);
    m_limits.setEntityExpansionLimit(kMaxEntityExpansions);
    setSecurityManager(&m_limits);
}

void PlainXmlParser::beginBlock() const {
    if (m_inSubset && m_subsetLength > kMaxSubset) {
        refuse("the document type declaration has more than " + std::to_string(kMaxSubset) + " bytes");
    }
    if (!m_inSubset && takenUntold() > kMaxNames * kMemoryOfAttribute) refuseNames();
}

void PlainXmlParser::startElement(const xercesc::XMLElementDecl& element, unsigned int uri,
                                  const XMLCh* prefix,
                                  const xercesc::RefVectorOf<xercesc::XMLAttr>& attributes,
                                  XMLSize_t attributeCount, bool isEmpty, bool isRoot) {
    XmlTreeParser::startElement(element, uri, prefix, attributes, attributeCount, isEmpty, isRoot);
    if (nameCount() > kMaxNames) refuseNames();
}

void PlainXmlParser::refuseNames() const {
    refuse("more than " + std::to_string(kMaxNames) + " different names of elements and attributes");
}

// The scanner reads a version that it does not know as the first.
void PlainXmlParser::XMLDecl(const XMLCh* version, const XMLCh* /*encoding*/, const XMLCh* /*standalone*/,
                             const XMLCh* /*actualEncoding*/) {
    using xercesc::XMLString;
    using xercesc::XMLUni;
    if (version == nullptr || *version == 0 || XMLString::equals(version, XMLUni::fgVersion1_0)) return;
    if (XMLString::equals(version, XMLUni::fgVersion1_1)) return;
    refuseAs(xercesc::DOMException::NOT_SUPPORTED_ERR);
}

// With an external subset an undeclared entity might be declared there, and the library would leave references
// to it out of the text. Nothing outside is read, so the document counts as one without.
void PlainXmlParser::doctypeDecl(const xercesc::DTDElementDecl& element, const XMLCh* /*publicId*/,
                                 const XMLCh* /*systemId*/, bool /*hasInternalSubset*/,
                                 bool /*hasExternalSubset*/) {
    const XMLCh* const name = element.getFullName();
    const XMLSize_t length = xercesc::XMLString::stringLen(name);
    const bool isVersion11 = scanner().getXMLVersion() == xercesc::XMLReader::XMLV1_1;
    const bool isQualified = isVersion11 ? xercesc::XMLChar1_1::isValidQName(name, length)
                                         : xercesc::XMLChar1_0::isValidQName(name, length);
    if (!isQualified) refuseAs(xercesc::DOMException::NAMESPACE_ERR);
    scanner().setHasNoDTD(true);
}

// Only a validating scanner tells of an undeclared parameter entity; see error().
void PlainXmlParser::startIntSubset() {
    m_inSubset = true;
    m_subsetLength = 0;
    scanner().setValidationScheme(xercesc::XMLScanner::Val_Always);
}

void PlainXmlParser::endIntSubset() {
    m_inSubset = false;
    told();
    scanner().setValidationScheme(xercesc::XMLScanner::Val_Never);
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

void PlainXmlParser::refuse(const std::string& words) const {
    throw xercesc::SAXParseException(TVLIDOM_Text::toXml(words).c_str(), *scanner().getLocator());
}

// In the words of the document object model.
void PlainXmlParser::refuseAs(xercesc::DOMException::ExceptionCode code) const {
    const xercesc::DOMException exception(static_cast<short>(code));
    throw xercesc::SAXParseException(exception.getMessage(), *scanner().getLocator());
}
