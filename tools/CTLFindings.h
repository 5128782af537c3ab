// What a check has found.
//
// Purpose: collects mistakes with their places, in the order of the files and lines; says how bad the worst is.
// Ownership: owns its texts.
// Threads: as any value.
// Units: lines and columns from 1 on, columns in characters; 0 where a file has no such place.
// Errors: none. Beyond kMost only counts are kept, so that a document of nothing but mistakes costs no more.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

struct CTLPlace {
    std::size_t line = 0;
    std::size_t column = 0;
};

struct CTLFinding {
    enum class Severity { Warning, Error };

    Severity severity = Severity::Error;
    std::string rule;  // for machines: which check has found it
    std::string file;
    CTLPlace place;
    std::string child;  // empty when it is about no single one
    std::string text;   // one line
};

class CTLFindings {
  public:
    static constexpr std::size_t kMost = 1000;

    // The same text at the same place is one finding, as long as findings are kept.
    void add(CTLFinding finding);
    // From now on only counts are kept.
    bool isFull() const { return m_findings.size() >= kMost; }
    // Whether something was found in that line.
    bool has(const std::string& file, std::size_t line) const;

    // By file, in the order in which files first occurred, then by place.
    std::vector<CTLFinding> sorted() const;
    std::size_t errors() const { return m_errors; }
    std::size_t warnings() const { return m_warnings; }

  private:
    std::vector<CTLFinding> m_findings;
    std::size_t m_errors = 0;
    std::size_t m_warnings = 0;
};
