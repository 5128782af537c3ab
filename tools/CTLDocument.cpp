#include "CTLDocument.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax/Locator.hpp>

#include "PLXInputStream.h"
#include "PlainXmlParser.h"
#include "TVLFile.h"
#include "TVLIDOM_Helper.h"
#include "TVLIDOM_Parser.h"
#include "XmlMemory.h"

namespace {

constexpr const char* kBlanks = " \t\r\n";

// The text for the service's own parser.
class TextInput : public PLXInputStream {
  public:
    explicit TextInput(const std::string& text) : m_text(text) {}

    int read(TVLByteBuffer& buffer, int count) override { return read(buffer.data(), count); }
    int read(char* buffer, int count) override {
        const std::size_t got = std::min(m_text.size() - m_at, static_cast<std::size_t>(count));
        m_text.copy(buffer, got, m_at);
        m_at += got;
        return got == 0 ? -1 : static_cast<int>(got);
    }
    int read() override { return m_at == m_text.size() ? -1 : static_cast<unsigned char>(m_text[m_at++]); }
    void close() override {}
    bool canUnread() override { return false; }

  private:
    const std::string& m_text;
    std::size_t m_at = 0;
};

// A tag that has been read.
struct Tag {
    bool isStart = true;
    CTLPlace behind;
};

// Notes where tags end, in the order of the document.
class PlacingParser : public PlainXmlParser {
  public:
    const std::vector<Tag>& tags() const { return m_tags; }

    void startElement(const xercesc::XMLElementDecl& element, unsigned int uri, const XMLCh* prefix,
                      const xercesc::RefVectorOf<xercesc::XMLAttr>& attributes, XMLSize_t attributeCount,
                      bool isEmpty, bool isRoot) override {
        m_tags.push_back({true, here()});
        PlainXmlParser::startElement(element, uri, prefix, attributes, attributeCount, isEmpty, isRoot);
    }
    void endElement(const xercesc::XMLElementDecl& element, unsigned int uri, bool isRoot,
                    const XMLCh* prefix) override {
        m_tags.push_back({false, here()});
        PlainXmlParser::endElement(element, uri, isRoot, prefix);
    }

  private:
    CTLPlace here() const {
        const xercesc::Locator* const locator = scanner().getLocator();
        return {static_cast<std::size_t>(locator->getLineNumber()),
                static_cast<std::size_t>(locator->getColumnNumber())};
    }

    std::vector<Tag> m_tags;
};

// Opens a node to tell it from others.
class NodeKey : public TVLIDOM_Node {
  public:
    explicit NodeKey(const TVLIDOM_Node& node) : TVLIDOM_Node(node) {}
    const void* key() const { return node(); }
};

// The walk goes on behind it.
TVLIDOM_Element nextElement(TVLIDOM_Walk& walk) {
    while (walk.node().getNodeType() != TVLIDOM_Node::ELEMENT_NODE)
        walk.advance();
    const TVLIDOM_Element element(walk.node());
    walk.advance();
    return element;
}

std::string readAll(std::FILE* file) {
    std::string text;
    std::string block(65536, '\0');
    while (text.size() <= static_cast<std::size_t>(TVLFile::kMostOfADocument)) {
        const std::size_t got = std::fread(block.data(), 1, block.size(), file);
        if (got == 0) break;
        text.append(block, 0, got);
    }
    return text;
}

// How many of the parser's characters a byte of UTF-8 begins.
std::size_t charactersOf(char byte) {
    const auto value = static_cast<unsigned char>(byte);
    if ((value & 0xC0U) == 0x80U) return 0;
    return value >= 0xF0U ? 2 : 1;
}

}  // namespace

CTLDocument::Cursor::Cursor(const std::string& text) : m_text(text) {
    // A mark at the beginning is no character.
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) m_offset = 3;
}

void CTLDocument::Cursor::step() {
    const char byte = m_text[m_offset++];
    const bool isPair = byte == '\r' && m_offset < m_text.size() && m_text[m_offset] == '\n';
    if (isPair) return;
    if (byte == '\n' || byte == '\r') {
        m_place = {m_place.line + 1, 1};
    } else {
        m_place.column += charactersOf(byte);
    }
}

std::size_t CTLDocument::Cursor::moveTo(const CTLPlace& place) {
    const auto isBefore = [&] {
        return m_place.line < place.line || (m_place.line == place.line && m_place.column < place.column);
    };
    while (m_offset < m_text.size() && isBefore())
        step();
    while (m_offset < m_text.size() && charactersOf(m_text[m_offset]) == 0)
        step();
    return m_offset;
}

CTLPlace CTLDocument::Cursor::moveTo(std::size_t offset) {
    while (m_offset < offset && m_offset < m_text.size())
        step();
    return m_place;
}

CTLDocument::CTLDocument(const std::filesystem::path& file) : m_file(file.string()) {
    std::string why;
    const TVLFilePtr stream = TVLFile::openForReading(m_file.c_str(), TVLFile::kMostOfADocument, &why);
    m_isThere = stream || errno != ENOENT;
    m_error.rule = "xml";
    m_error.file = m_file;
    if (!stream) {
        m_error.text = "cannot be read: " + why;
        return;
    }
    m_text = readAll(stream.get());
    parse();
}

void CTLDocument::parse() {
    TVLIDOM_Parser judge;
    TextInput input(m_text);
    if (judge.parse(input, m_document) != 1) return setError(judge.getErrorString().str());
    place();
}

// "line L, column C: words", the place becomes the finding's own.
void CTLDocument::setError(const std::string& words) {
    unsigned long line = 0;
    unsigned long column = 0;
    int length = 0;
    if (std::sscanf(words.c_str(), "line %lu, column %lu: %n", &line, &column, &length) < 2) length = 0;
    m_error.place = {line, column};
    m_error.text = words.substr(static_cast<std::size_t>(length));
}

// A second time, for the places; what could hold this up was refused the first time.
void CTLDocument::place() {
    const XmlMemory::Parse memory;
    PlacingParser parser;
    parser.parse(xercesc::MemBufInputSource(reinterpret_cast<const XMLByte*>(m_text.data()), m_text.size(),
                                            "document"));
    m_document.adopt(parser.takeTree());
    std::vector<std::size_t> open;
    TVLIDOM_Walk walk(root());
    Cursor ends(m_text);
    Cursor starts(m_text);
    for (const Tag& tag : parser.tags()) {
        const std::size_t behind = ends.moveTo(tag.behind);
        if (!tag.isStart) {
            m_elements[open.back()].end = behind;
            open.pop_back();
            continue;
        }
        Element element;
        element.handle = nextElement(walk);
        element.begin = behind;
        findBegin(element, tag.behind, starts);
        if (!open.empty()) element.process = m_elements[open.back()].process;
        open.push_back(m_elements.size());
        addElement(element);
    }
}

void CTLDocument::addElement(Element element) {
    if (element.handle.hasNodeName("process")) element.process = m_elements.size();
    m_indices.emplace(NodeKey(element.handle).key(), m_elements.size());
    m_elements.push_back(element);
}

// No "<" is in a tag but the one that it begins with. What comes from an entity begins where it is referred to.
void CTLDocument::findBegin(Element& element, const CTLPlace& behind, Cursor& starts) const {
    const std::string tag = "<" + element.handle.getTagName().str();
    const std::size_t begin = element.begin == 0 ? std::string::npos : m_text.rfind('<', element.begin - 1);
    const bool isFound = begin != std::string::npos && m_text.compare(begin, tag.size(), tag) == 0;
    if (isFound) element.begin = begin;
    element.place = isFound ? starts.moveTo(begin) : behind;
}

CTLDocument::Kind CTLDocument::kind() const {
    const std::string name = isParsed() ? root().getTagName().str() : std::string();
    if (name == "bootstrap") return Kind::Bootstrap;
    if (name == "logConfiguration") return Kind::Logging;
    if (name == "startupConfiguration") return Kind::Startup;
    return Kind::Unknown;
}

bool CTLDocument::isCurrent() const {
    const TVLFilePtr stream = TVLFile::openForReading(m_file.c_str(), TVLFile::kMostOfADocument);
    if (!stream) return m_text.empty();
    return readAll(stream.get()) == m_text;
}

const CTLDocument::Element& CTLDocument::elementOf(const TVLIDOM_Node& node) const {
    const auto found = m_indices.find(NodeKey(node).key());
    return found == m_indices.end() ? m_elements.front() : m_elements[found->second];
}

const CTLDocument::Element& CTLDocument::elementAt(std::size_t offset) const {
    const Element* innermost = &m_elements.front();
    for (const Element& element : m_elements) {
        if (element.begin > offset) break;
        if (offset < element.end) innermost = &element;
    }
    return *innermost;
}

// The document is well-formed, so that a tag is names, equals signs and quoted values.
std::size_t CTLDocument::attributeIn(const Element& element, const std::string& attribute) const {
    std::size_t at = m_text.find_first_of(" \t\r\n/>", element.begin);
    while (at < m_text.size()) {
        at = m_text.find_first_not_of(kBlanks, at);
        if (at == std::string::npos || m_text[at] == '/' || m_text[at] == '>') break;
        const std::size_t nameEnd = m_text.find_first_of(" \t\r\n=", at);
        if (nameEnd == std::string::npos) break;
        if (m_text.compare(at, nameEnd - at, attribute) == 0) return at;
        const std::size_t quote = m_text.find_first_of("\"'", nameEnd);
        if (quote == std::string::npos) break;
        const std::size_t valueEnd = m_text.find(m_text[quote], quote + 1);
        at = valueEnd == std::string::npos ? valueEnd : valueEnd + 1;
    }
    return std::string::npos;
}

CTLPlace CTLDocument::placeOf(const Element& element, const std::string& attribute) const {
    const std::size_t at = attribute.empty() ? std::string::npos : attributeIn(element, attribute);
    if (at == std::string::npos) return element.place;
    const std::string before = m_text.substr(element.begin, at - element.begin);
    const CTLPlace moved = Cursor(before).moveTo(before.size());
    if (moved.line == 1) return {element.place.line, element.place.column + moved.column - 1};
    return {element.place.line + moved.line - 1, moved.column};
}

std::string CTLDocument::childOf(const Element& element) const {
    if (element.process == kNone) return {};
    return m_elements[element.process].handle.getAttribute("name").str();
}

CTLFinding CTLDocument::at(CTLFinding::Severity severity, const std::string& rule,
                           const TVLIDOM_Element& element, const std::string& attribute,
                           const std::string& text) const {
    const Element& where = elementOf(element);
    return {severity, rule, m_file, placeOf(where, attribute), childOf(where), text};
}
