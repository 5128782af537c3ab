#include "CTLTextPattern.h"

namespace {

constexpr std::string_view kEllipsis = "…";

std::string_view trimmedRight(std::string_view text) {
    const std::size_t last = text.find_last_not_of(" \n");
    return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

// How long the place for a value is that begins there; 0: there is none.
std::size_t placeAt(std::string_view text, std::size_t at, bool isFormat) {
    if (!isFormat) return text.substr(at).starts_with(kEllipsis) ? kEllipsis.size() : 0;
    if (text[at] != '%') return 0;
    const std::size_t conversion = at + (text.substr(at).starts_with("%l") ? 2 : 1);
    const bool isOne =
        conversion < text.size() && std::string_view("sdx").find(text[conversion]) != std::string_view::npos;
    return isOne ? conversion + 1 - at : 0;
}

}  // namespace

CTLTextPattern::CTLTextPattern(std::string_view text, bool isFormat) : m_pieces(1) {
    text = trimmedRight(text);
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t place = placeAt(text, at, isFormat);
        if (place == 0) {
            m_pieces.back() += text[at++];
        } else {
            m_pieces.emplace_back();
            at += place;
        }
    }
}

// A value at the end may be empty, and the blank before it is then at the text's end.
bool CTLTextPattern::matches(std::string_view text, std::vector<std::string>* values) const {
    text = trimmedRight(text);
    return matchesWhole(text, values) ||
           (m_pieces.back().empty() && matchesWhole(std::string(text) + " ", values));
}

bool CTLTextPattern::matchesWhole(std::string_view text, std::vector<std::string>* values) const {
    if (!text.starts_with(m_pieces.front())) return false;
    if (values != nullptr) values->clear();
    std::size_t at = m_pieces.front().size();
    for (std::size_t i = 1; i < m_pieces.size(); ++i) {
        const std::string& piece = m_pieces[i];
        const bool isLast = i + 1 == m_pieces.size();
        if (isLast && text.size() < at + piece.size()) return false;
        const std::size_t end = isLast ? text.size() - piece.size() : text.find(piece, at);
        if (end == std::string_view::npos || text.substr(end, piece.size()) != piece) return false;
        if (values != nullptr) values->emplace_back(text.substr(at, end - at));
        at = end + piece.size();
    }
    return at == text.size();
}

std::size_t CTLTextPattern::ownLetters() const {
    std::size_t letters = 0;
    for (const std::string& piece : m_pieces)
        letters += piece.size();
    return letters;
}
