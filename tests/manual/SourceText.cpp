#include "SourceText.h"

#include <algorithm>
#include <cctype>
#include <regex>

SourceText::SourceText(const std::string& code) : m_source(code) {
    while (m_at < m_source.size()) {
        if (isAt("//") || (m_lineIsEmpty && isAt("#"))) {
            skipLine();
        } else if (isAt("/*")) {
            skipComment();
        } else if (isAt("'") &&
                   (m_code.empty() || std::isalnum(static_cast<unsigned char>(m_code.back())) == 0)) {
            readCharacter();
        } else if (isAt("\"")) {
            readString();
        } else {
            keepCode(m_source[m_at++]);
        }
    }
    finishLiteral();
}

// With the lines that continue it.
void SourceText::skipLine() {
    while (m_at < m_source.size() && (m_source[m_at] != '\n' || m_source[m_at - 1] == '\\'))
        ++m_at;
}

void SourceText::skipComment() {
    m_at = m_source.find("*/", m_at) + 2;
}

void SourceText::readCharacter() {
    for (++m_at; m_source[m_at] != '\''; ++m_at) {
        if (m_source[m_at] == '\\') ++m_at;
    }
    ++m_at;
}

void SourceText::readString() {
    if (!m_inLiteral) m_literals.emplace_back();
    m_inLiteral = true;
    std::string& text = m_literals.back().text;
    for (++m_at; m_source[m_at] != '"'; ++m_at) {
        if (m_source[m_at] != '\\') {
            text += m_source[m_at];
            continue;
        }
        ++m_at;
        const bool isBlank = m_source[m_at] == 'n' || m_source[m_at] == 't';
        text += isBlank ? ' ' : m_source[m_at];
    }
    ++m_at;
}

void SourceText::keepCode(char c) {
    if (c == '\n') m_lineIsEmpty = true;
    if (std::isspace(static_cast<unsigned char>(c)) != 0) return;
    m_lineIsEmpty = false;
    finishLiteral();
    m_code += c;
}

void SourceText::finishLiteral() {
    if (!m_inLiteral) return;
    m_inLiteral = false;
    static const std::regex logged("log\\(ZOR_([A-Z]+),$");
    const std::string before = m_code.substr(m_code.size() - std::min<std::size_t>(m_code.size(), 30));
    std::smatch match;
    if (std::regex_search(before, match, logged)) m_literals.back().level = match[1];
    if (before.ends_with("getLogger(")) m_loggers.push_back(m_literals.back().text);
    m_code += "\"\"";
}
