// References to properties, ${name}, in the texts of documents.
//
// Purpose: says which of them nobody defines, and what may have been meant. What becomes of a text is asked of the
//   service's own table; only names that it may define at other times are listed here.
// Ownership: owns the names that somebody else defines.
// Threads: one thread at a time.
// Units: bytes.
// Errors: none.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

class CTLReferences {
  public:
    // `elsewhere`: what is defined on the daemon's command line.
    explicit CTLReferences(const std::set<std::string>& elsewhere) : m_elsewhere(elsewhere) {}

    // Every name that the service may define by itself.
    static const std::set<std::string>& ofTheService();
    // The names in references of a text as it stands.
    static std::vector<std::string> namesIn(const std::string& text);
    // How long the longest of the values is when what they refer to among each other has been replaced; infinite when
    // one refers to itself, because the service would then never end.
    static double longestOf(const std::map<std::string, std::string>& values, std::string& name);

    // What is left of a text's references when the service has replaced those that it knows.
    std::vector<std::string> unknownIn(const std::string& text) const;
    // What is wrong with such a name.
    std::string complaint(const std::string& name) const;
    // Whether it is a slip of the pen, and no name of the administrator's own.
    bool isSlip(const std::string& name) const;

  private:
    std::set<std::string> known() const;

    std::set<std::string> m_elsewhere;
};
