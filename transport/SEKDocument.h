// A strict reader for the small XML documents that callers pass in.
//
// Purpose: reads an optional declaration, one root element, and child elements that hold text only; that is
//   the form of every document of this interface. Anything else (comments, CDATA, document types, deeper
//   nesting, unknown references) is refused, so no XML library and none of its loading of external parts is
//   needed.
// Ownership: a value type.
// Threads: immutable once parsed.
// Units: none.
// Errors: parse throws SEKFailure with the reason and the place (a byte offset) in the document.
#pragma once

#include <map>
#include <string>

class SEKDocument {
  public:
    static SEKDocument parse(const std::string& text);

    const std::string& rootName() const { return m_rootName; }
    const std::map<std::string, std::string>& attributes() const { return m_attributes; }  // of the root
    const std::map<std::string, std::string>& children() const { return m_children; }      // name to text

  private:
    std::string m_rootName;
    std::map<std::string, std::string> m_attributes;
    std::map<std::string, std::string> m_children;
    friend class SEKDocumentReader;
};
