#include "SEKDocument.h"

#include <cstddef>
#include <string_view>

#include "SEKErrors.h"

namespace {

using Attributes = std::map<std::string, std::string>;

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}
bool isNameStart(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == ':' || c < '\0' ||
           c == '\x7f';
}
bool isNameCharacter(char c) {
    return isNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

std::string trimmed(const std::string& text) {
    std::size_t begin = 0;
    std::size_t end = text.size();
    while (begin < end && isBlank(text[begin]))
        ++begin;
    while (end > begin && isBlank(text[end - 1]))
        --end;
    return text.substr(begin, end - begin);
}

}  // namespace

// One pass over the text; m_at is always the next byte to read.
class SEKDocumentReader {
  public:
    explicit SEKDocumentReader(std::string_view text) : m_text(text) {}

    SEKDocument read() {
        SEKDocument document;
        readDeclaration();
        skipBlanks();
        bool closed = false;
        document.m_rootName = readStartTag(document.m_attributes, closed);
        while (!closed)
            closed = readChildOrEnd(document);
        skipBlanks();
        if (m_at != m_text.size()) refuse("text after the root element");
        return document;
    }

  private:
    [[noreturn]] void refuse(const std::string& reason) const {
        throw SEKFailure("document not well-formed at byte " + std::to_string(m_at) + ": " + reason);
    }
    bool startsWith(std::string_view mark) const { return m_text.substr(m_at, mark.size()) == mark; }
    bool take(std::string_view mark) {
        if (!startsWith(mark)) return false;
        m_at += mark.size();
        return true;
    }
    void require(std::string_view mark) {
        if (!take(mark)) refuse("\"" + std::string(mark) + "\" expected");
    }
    char next() const { return m_at < m_text.size() ? m_text[m_at] : '\0'; }
    bool skipBlanks() {
        const std::size_t before = m_at;
        while (isBlank(next()))
            ++m_at;
        return m_at != before;
    }

    void readDeclaration() {
        if (!take("<?xml")) return;
        Attributes declaration;
        readAttributes(declaration);
        require("?>");
        if (declaration["version"] != "1.0") refuse("unknown XML version");
        const std::string encoding = declaration["encoding"];
        if (!encoding.empty() && encoding != "UTF-8" && encoding != "utf-8") refuse("encoding is not UTF-8");
    }

    std::string readName() {
        const std::size_t begin = m_at;
        if (!isNameStart(next())) refuse("name expected");
        while (m_at < m_text.size() && isNameCharacter(m_text[m_at]))
            ++m_at;
        return std::string(m_text.substr(begin, m_at - begin));
    }

    void readAttributes(Attributes& attributes) {
        while (skipBlanks() && isNameStart(next())) {
            const std::string name = readName();
            skipBlanks();
            require("=");
            skipBlanks();
            const char quote = next();
            if (quote != '"' && quote != '\'') refuse("quotation mark expected");
            ++m_at;
            const std::string value = readTextUntil(quote);
            ++m_at;
            if (!attributes.emplace(name, value).second) refuse("attribute " + name + " given twice");
        }
    }

    std::string readStartTag(Attributes& attributes, bool& closed) {
        require("<");
        std::string name = readName();
        readAttributes(attributes);
        closed = take("/>");
        if (!closed) require(">");
        return name;
    }

    // True when the root's end tag was read.
    bool readChildOrEnd(SEKDocument& document) {
        skipBlanks();
        if (take("</")) {
            readEndOf(document.m_rootName);
            return true;
        }
        Attributes ignored;
        bool closed = false;
        const std::string name = readStartTag(ignored, closed);
        std::string text;
        if (!closed) {
            text = trimmed(readTextUntil('<'));
            require("</");
            readEndOf(name);
        }
        if (!document.m_children.emplace(name, text).second) refuse("element " + name + " given twice");
        return false;
    }

    void readEndOf(const std::string& name) {
        if (readName() != name) refuse("end tag of " + name + " expected");
        skipBlanks();
        require(">");
    }

    std::string readTextUntil(char end) {
        std::string text;
        while (next() != end) {
            const char c = next();
            if (m_at == m_text.size()) refuse("the document ends too early");
            if (c == '<' || (c >= '\0' && c < ' ' && !isBlank(c))) refuse("unexpected character");
            text += c == '&' ? readReference() : c;
            if (c != '&') ++m_at;
        }
        return text;
    }

    char readReference() {
        static constexpr std::pair<std::string_view, char> known[] = {
            {"&lt;", '<'}, {"&gt;", '>'}, {"&amp;", '&'}, {"&quot;", '"'}, {"&apos;", '\''}};
        for (const auto& [mark, character] : known) {
            if (take(mark)) return character;
        }
        refuse("unknown reference");
    }

    std::string_view m_text;
    std::size_t m_at = 0;
};

SEKDocument SEKDocument::parse(const std::string& text) {
    return SEKDocumentReader(text).read();
}
