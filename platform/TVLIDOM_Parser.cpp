#include "TVLIDOM_Parser.h"

#include <algorithm>
#include <cstddef>
#include <new>
#include <xercesc/dom/DOMException.hpp>
#include <xercesc/sax/InputSource.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/util/BinInputStream.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/XMLException.hpp>

#include "PlainXmlParser.h"
#include "TVLIDOM_Text.h"
#include "XmlMemory.h"

namespace {

constexpr const char* kOutOfMemory = "line 0, column 0: out of memory";

// Feeds the parser from a stream, block by block.
class StreamBytes : public xercesc::BinInputStream {
  public:
    StreamBytes(PLXInputStream& stream, PlainXmlParser& parser) : m_stream(stream), m_parser(parser) {}

    XMLFilePos curPos() const override { return m_position; }
    const XMLCh* getContentType() const override { return nullptr; }

    XMLSize_t readBytes(XMLByte* const buffer, const XMLSize_t count) override {
        m_parser.beginBlock();
        const auto most = static_cast<int>(std::min<XMLSize_t>(count, PlainXmlParser::kBlock));
        const int got = m_stream.read(reinterpret_cast<char*>(buffer), most);
        if (got < 1) return 0;
        m_position += static_cast<XMLFilePos>(got);
        m_parser.endBlock(static_cast<std::size_t>(got));
        return static_cast<XMLSize_t>(got);
    }

  private:
    PLXInputStream& m_stream;
    PlainXmlParser& m_parser;
    XMLFilePos m_position = 0;
};

class StreamSource : public xercesc::InputSource {
  public:
    StreamSource(PLXInputStream& stream, PlainXmlParser& parser) : m_stream(stream), m_parser(parser) {}
    // The caller owns the result, as the interface has it.
    xercesc::BinInputStream* makeStream() const override { return new StreamBytes(m_stream, m_parser); }

  private:
    PLXInputStream& m_stream;
    PlainXmlParser& m_parser;
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

}  // namespace

int TVLIDOM_Parser::parse(PLXInputStream& stream, TVLIDOM_Document& document) {
    return parseAll(stream, document, {}) ? 1 : 0;
}

int TVLIDOM_Parser::parse(TVLFileStream& file, TVLIDOM_Document& document) {
    return parseAll(file, document, file.error()) ? 1 : 0;
}

bool TVLIDOM_Parser::parseAll(PLXInputStream& stream, TVLIDOM_Document& document,
                              const std::string& streamError) {
    const XmlMemory::Parse memory;
    try {
        PlainXmlParser parser;
        parser.parse(StreamSource(stream, parser));
        if (streamError.empty()) {
            document.adopt(parser.takeTree());
            return true;
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
        m_error = kOutOfMemory;
    } catch (const std::bad_alloc&) {
        m_error = kOutOfMemory;
    }
    // A stream that breaks off looks like its end to the library.
    if (!streamError.empty()) m_error = streamError;
    return false;
}
