#include "CTLFindings.h"

#include <algorithm>
#include <map>
#include <tuple>

namespace {

// Texts come from documents, which may hold anything: nothing of it may reach a terminal as a command, or break a line.
std::string oneLine(const std::string& text) {
    constexpr const char* kDigits = "0123456789abcdef";
    std::string line;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= 0x20 && byte != 0x7f) {
            line += character;
        } else if (character == '\n') {
            line += "\\n";
        } else {
            line += std::string("\\x") + kDigits[byte / 16] + kDigits[byte % 16];
        }
    }
    return line;
}

bool isSame(const CTLFinding& left, const CTLFinding& right) {
    return left.place.line == right.place.line && left.place.column == right.place.column &&
           left.text == right.text && left.file == right.file;
}

}  // namespace

void CTLFindings::add(CTLFinding finding) {
    const bool isError = finding.severity == CTLFinding::Severity::Error;
    if (isFull()) {
        ++(isError ? m_errors : m_warnings);
        return;
    }
    finding.text = oneLine(finding.text);
    finding.file = oneLine(finding.file);
    finding.child = oneLine(finding.child);
    const auto same = [&](const CTLFinding& other) { return isSame(finding, other); };
    if (std::any_of(m_findings.begin(), m_findings.end(), same)) return;
    ++(isError ? m_errors : m_warnings);
    m_findings.push_back(std::move(finding));
}

bool CTLFindings::has(const std::string& file, std::size_t line) const {
    return std::any_of(m_findings.begin(), m_findings.end(), [&](const CTLFinding& finding) {
        return finding.file == file && finding.place.line == line;
    });
}

std::vector<CTLFinding> CTLFindings::sorted() const {
    std::map<std::string, std::size_t> order;
    for (const CTLFinding& finding : m_findings)
        order.emplace(finding.file, order.size());
    std::vector<CTLFinding> findings = m_findings;
    const auto key = [&](const CTLFinding& finding) {
        return std::make_tuple(order[finding.file], finding.place.line, finding.place.column);
    };
    std::stable_sort(findings.begin(), findings.end(),
                     [&](const CTLFinding& left, const CTLFinding& right) { return key(left) < key(right); });
    return findings;
}
