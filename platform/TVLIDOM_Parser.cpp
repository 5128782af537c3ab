#include "TVLIDOM_Parser.h"

#include <algorithm>
#include <limits>
#include <xercesc/dom/DOMException.hpp>
#include <xercesc/internal/XMLScanner.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/sax/ErrorHandler.hpp>
#include <xercesc/sax/InputSource.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/util/BinInputStream.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLEntityResolver.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLResourceIdentifier.hpp>
#include <xercesc/validators/DTD/DTDEntityDecl.hpp>

#include "TVLIDOM_Text.h"

namespace {

// Enough for any document written by hand; a document that multiplies itself stops here.
constexpr XMLSize_t kMaxEntityExpansions = 100;

// Feeds the parser from a stream.
class StreamBytes : public xercesc::BinInputStream {
  public:
    explicit StreamBytes(PLXInputStream& stream) : m_stream(stream) {}

    XMLFilePos curPos() const override { return m_position; }
    const XMLCh* getContentType() const override { return nullptr; }

    XMLSize_t readBytes(XMLByte* const buffer, const XMLSize_t count) override {
        const auto most = static_cast<int>(std::min<XMLSize_t>(count, std::numeric_limits<int>::max()));
        const int got = m_stream.read(reinterpret_cast<char*>(buffer), most);
        if (got < 1) return 0;
        m_position += static_cast<XMLFilePos>(got);
        return static_cast<XMLSize_t>(got);
    }

  private:
    PLXInputStream& m_stream;
    XMLFilePos m_position = 0;
};

class StreamSource : public xercesc::InputSource {
  public:
    explicit StreamSource(PLXInputStream& stream) : m_stream(stream) {}
    // The caller owns the result, as the interface has it.
    xercesc::BinInputStream* makeStream() const override { return new StreamBytes(m_stream); }

  private:
    PLXInputStream& m_stream;
};

std::string oneLine(const I18NString& text) {
    std::string line = text.str();
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    return line;
}

// An error that the library tells without a place in the document.
std::string withoutPlace(const XMLCh* message) {
    return "line 0, column 0: " + oneLine(TVLIDOM_Text::fromXml(message));
}

// Stops at the first error, fatal or not, and keeps its place and words.
class FirstError : public xercesc::ErrorHandler {
  public:
    void warning(const xercesc::SAXParseException& /*exception*/) override {}
    void error(const xercesc::SAXParseException& exception) override { throw exception; }
    void fatalError(const xercesc::SAXParseException& exception) override { throw exception; }
    void resetErrors() override {}
};

// Refuses everything outside the document itself.
class NothingOutside : public xercesc::XMLEntityResolver {
  public:
    xercesc::InputSource* resolveEntity(xercesc::XMLResourceIdentifier* resource) override {
        const std::string text = "external entities are not loaded: \"" +
                                 TVLIDOM_Text::fromXml(resource->getSystemId()).str() + "\"";
        throw xercesc::SAXParseException(TVLIDOM_Text::toXml(text).c_str(), *resource->getLocator());
    }
};

// Refuses the declarations that make a small document big and that the bound on entity expansions does not
// count: parameter entities, which multiply each other, and attributes, whose default values expand entities
// without a bound and are added to every element.
class PlainParser : public xercesc::XercesDOMParser {
  public:
    void entityDecl(const xercesc::DTDEntityDecl& entity, const bool isParameterEntity,
                    const bool isIgnored) override {
        if (isParameterEntity) refuse("parameter entities are not supported");
        XercesDOMParser::entityDecl(entity, isParameterEntity, isIgnored);
    }

    // The document refuses versions and names of document types that the scanner lets pass.
    void XMLDecl(const XMLCh* const version, const XMLCh* const encoding, const XMLCh* const standalone,
                 const XMLCh* const actualEncoding) override {
        placed([&] { XercesDOMParser::XMLDecl(version, encoding, standalone, actualEncoding); });
    }

    void doctypeDecl(const xercesc::DTDElementDecl& element, const XMLCh* const publicId,
                     const XMLCh* const systemId, const bool hasInternalSubset,
                     const bool hasExternalSubset) override {
        placed([&] {
            XercesDOMParser::doctypeDecl(element, publicId, systemId, hasInternalSubset, hasExternalSubset);
        });
    }

    void startAttList(const xercesc::DTDElementDecl& /*element*/) override {
        refuse("attribute declarations are not supported");
    }

  private:
    // An error of the document, told with its place.
    template <typename Step>
    void placed(Step step) const {
        try {
            step();
        } catch (const xercesc::DOMException& exception) {
            throw xercesc::SAXParseException(exception.getMessage(), *getScanner()->getLocator());
        }
    }

    [[noreturn]] void refuse(const char* words) const {
        throw xercesc::SAXParseException(TVLIDOM_Text::toXml(words).c_str(), *getScanner()->getLocator());
    }
};

void configure(xercesc::XercesDOMParser& parser) {
    parser.setValidationScheme(xercesc::XercesDOMParser::Val_Never);
    parser.setDoNamespaces(false);
    parser.setDoSchema(false);
    parser.setLoadExternalDTD(false);
    parser.setLoadSchema(false);
    parser.setCreateEntityReferenceNodes(false);
    parser.setDisableDefaultEntityResolution(true);
}

}  // namespace

int TVLIDOM_Parser::parse(PLXInputStream& stream, TVLIDOM_Document& document) {
    return parse(stream, document, {});
}

int TVLIDOM_Parser::parse(TVLFileStream& file, TVLIDOM_Document& document) {
    return parse(file, document, file.error());
}

int TVLIDOM_Parser::parse(PLXInputStream& stream, TVLIDOM_Document& document,
                          const std::string& streamError) {
    FirstError errors;
    NothingOutside resolver;
    xercesc::SecurityManager limits;
    limits.setEntityExpansionLimit(kMaxEntityExpansions);
    PlainParser parser;
    configure(parser);
    parser.setErrorHandler(&errors);
    parser.setXMLEntityResolver(&resolver);
    parser.setSecurityManager(&limits);
    try {
        parser.parse(StreamSource(stream));
        if (streamError.empty()) {
            document.adopt(parser.adoptDocument());
            return 1;
        }
    } catch (const xercesc::SAXParseException& exception) {
        m_error = "line " + std::to_string(exception.getLineNumber()) + ", column " +
                  std::to_string(exception.getColumnNumber()) + ": " +
                  oneLine(TVLIDOM_Text::fromXml(exception.getMessage()));
    } catch (const xercesc::SAXException& exception) {
        m_error = withoutPlace(exception.getMessage());
    } catch (const xercesc::XMLException& exception) {
        m_error = withoutPlace(exception.getMessage());
    } catch (const xercesc::DOMException& exception) {
        m_error = withoutPlace(exception.getMessage());
    } catch (const xercesc::OutOfMemoryException&) {
        m_error = "line 0, column 0: out of memory";
    }
    // A stream that breaks off looks like its end to the library.
    if (!streamError.empty()) m_error = streamError;
    return 0;
}
