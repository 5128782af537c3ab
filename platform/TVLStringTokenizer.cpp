#include "TVLStringTokenizer.h"

#include <utility>

TVLStringTokenizer::TVLStringTokenizer(std::string text, std::string delimiters)
    : m_text(std::move(text)), m_delimiters(std::move(delimiters)) {}

bool TVLStringTokenizer::hasMoreTokens() const {
    return m_text.find_first_not_of(m_delimiters, m_position) != std::string::npos;
}

std::string TVLStringTokenizer::nextToken() {
    const std::size_t begin = m_text.find_first_not_of(m_delimiters, m_position);
    if (begin == std::string::npos) return {};
    const std::size_t end = m_text.find_first_of(m_delimiters, begin);
    m_position = end == std::string::npos ? m_text.size() : end;
    return m_text.substr(begin, m_position - begin);
}
