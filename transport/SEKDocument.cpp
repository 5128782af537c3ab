#include "SEKDocument.h"

#include <expat.h>

#include <exception>
#include <memory>
#include <new>
#include <string_view>
#include <type_traits>

#include "SEKErrors.h"

namespace {

// From 2.9 on Expat has other names for these two and warns of the old ones.
std::string placeIn(XML_Parser parser) {
#if XML_MAJOR_VERSION > 2 || XML_MINOR_VERSION >= 9
    const auto line = XML_GetCurrentLineNumber64(parser);
    const auto column = XML_GetCurrentColumnNumber64(parser);
#else
    const auto line = XML_GetCurrentLineNumber(parser);
    const auto column = XML_GetCurrentColumnNumber(parser);
#endif
    return "line " + std::to_string(line) + ", column " + std::to_string(column + 1) + ": ";
}

// Between a namespace and a name in what Expat reports; no namespace can contain it.
constexpr char separator = '\n';

struct ParserFreer {
    void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};
using ParserPtr = std::unique_ptr<std::remove_pointer_t<XML_Parser>, ParserFreer>;

struct QualifiedName {
    explicit QualifiedName(std::string_view reported) {
        const std::size_t end = reported.rfind(separator);
        if (end != std::string_view::npos) space = reported.substr(0, end);
        local = reported.substr(end == std::string_view::npos ? 0 : end + 1);
    }
    std::string_view space;
    std::string_view local;
};

std::string trimmed(const std::string& text) {
    constexpr const char* blanks = " \t\r\n";
    const std::size_t begin = text.find_first_not_of(blanks);
    if (begin == std::string::npos) return "";
    return text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

}  // namespace

// One pass over a text. Expat calls back from C, which no exception may cross: a callback that fails leaves its
// reason and stops the parser.
class SEKDocumentReader {
  public:
    SEKDocumentReader() : m_parser(XML_ParserCreateNS(nullptr, separator)) {
        if (m_parser == nullptr) throw std::bad_alloc();
        XML_Parser parser = m_parser.get();
        XML_SetUserData(parser, this);
        XML_SetElementHandler(parser, onStart, onEnd);
        XML_SetCharacterDataHandler(parser, onText);
        XML_SetStartDoctypeDeclHandler(parser, onDocumentType);
        XML_SetEntityDeclHandler(parser, onEntity);
        XML_SetSkippedEntityHandler(parser, onSkippedEntity);
    }

    SEKDocument read(const std::string& text) {
        if (text.size() > SEKDocument::sizeLimitBytes) throw SEKFailure("the document is too large");
        if (XML_Parse(m_parser.get(), text.data(), static_cast<int>(text.size()), XML_TRUE) != XML_STATUS_OK)
            throw SEKFailure(reason());
        return m_document;
    }

  private:
    std::string reason() const {
        const XML_Parser parser = m_parser.get();
        const std::string place = placeIn(parser);
        if (!m_refusal.empty()) return "document refused, " + place + m_refusal;
        const char* const words = XML_ErrorString(XML_GetErrorCode(parser));
        return "document not well-formed, " + place + (words != nullptr ? words : "unknown error");
    }

    void refuse(const char* why) {
        m_refusal = why;
        XML_StopParser(m_parser.get(), XML_FALSE);
    }

    template <typename Work>
    static void guarded(void* self, Work&& work) noexcept {
        SEKDocumentReader& reader = *static_cast<SEKDocumentReader*>(self);
        try {
            work(reader);
        } catch (const std::exception&) {
            // Short enough to need no memory of its own.
            reader.refuse("no memory");
        }
    }

    static void XMLCALL onStart(void* self, const char* name, const char** /*attributes*/) {
        guarded(self, [&](SEKDocumentReader& reader) { reader.start(QualifiedName(name)); });
    }
    static void XMLCALL onEnd(void* self, const char* name) {
        guarded(self, [&](SEKDocumentReader& reader) { reader.end(QualifiedName(name)); });
    }
    static void XMLCALL onText(void* self, const char* text, int length) {
        guarded(self, [&](SEKDocumentReader& reader) {
            reader.take(std::string_view(text, static_cast<std::size_t>(length)));
        });
    }
    static void XMLCALL onDocumentType(void* self, const char* /*name*/, const char* systemId,
                                       const char* /*publicId*/, int /*hasSubset*/) {
        guarded(self, [&](SEKDocumentReader& reader) {
            if (systemId != nullptr) reader.refuse("a document type outside the document");
        });
    }
    static void XMLCALL onEntity(void* self, const char* /*name*/, int isParameter, const char* value,
                                 int /*length*/, const char* /*base*/, const char* /*systemId*/,
                                 const char* /*publicId*/, const char* /*notation*/) {
        guarded(self, [&](SEKDocumentReader& reader) {
            if (isParameter != 0) reader.refuse("a parameter entity");
            if (value == nullptr) reader.refuse("an entity outside the document");
            if (++reader.m_entities > SEKDocument::entityLimit) reader.refuse("too many entities");
        });
    }
    static void XMLCALL onSkippedEntity(void* self, const char* /*name*/, int /*isParameter*/) {
        guarded(self, [](SEKDocumentReader& reader) { reader.refuse("an entity that is not declared"); });
    }

    void start(const QualifiedName& name) {
        if (++m_depth > SEKDocument::depthLimit) refuse("elements nested too deeply");
        if (m_depth == 1) {
            m_document.m_rootName = name.local;
            m_document.m_rootNamespace = name.space;
        }
        if (m_depth == 2) m_text.clear();
    }

    // Entities can make much of a small document.
    void take(std::string_view text) {
        m_textBytes += text.size();
        if (m_textBytes > SEKDocument::sizeLimitBytes) return refuse("too much text");
        if (m_depth == 2) m_text += text;
    }

    void end(const QualifiedName& name) {
        const bool isOurs = name.space.empty() || name.space == m_document.m_rootNamespace;
        if (m_depth == 2 && isOurs) m_document.m_children.emplace(name.local, trimmed(m_text));
        --m_depth;
    }

    ParserPtr m_parser;
    SEKDocument m_document;
    int m_depth = 0;     // 1 within the root
    int m_entities = 0;  // declared
    std::size_t m_textBytes = 0;
    std::string m_text;  // of the child element that is being read, that of deeper elements left out
    std::string m_refusal;
};

SEKDocument SEKDocument::parse(const std::string& text) {
    return SEKDocumentReader().read(text);
}
