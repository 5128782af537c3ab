// A reader for the small XML documents that callers pass in.
//
// Purpose: reads a document with Expat, namespaces included, and keeps what the documents of this interface consist
//   of: the root element and the texts of its child elements. Whatever else is well-formed (comments, character
//   references, CDATA sections, a byte order mark, prefixes, text between the elements, deeper elements) is accepted
//   and passed over. Nothing outside the document is ever read.
// Ownership: a value type.
// Threads: immutable once parsed.
// Units: bytes.
// Errors: parse throws SEKFailure with line, column and Expat's words, or with the limit that was reached. A reference
//   to something outside the document is a failure: it must not pass for an empty text.
#pragma once

#include <cstddef>
#include <map>
#include <string>

class SEKDocument {
  public:
    static constexpr std::size_t sizeLimitBytes = 64U << 10U;  // of the document, and of all text in it
    static constexpr int depthLimit = 100;
    static constexpr int entityLimit = 16;  // declared ones: each may nest in another

    static SEKDocument parse(const std::string& text);

    const std::string& rootName() const { return m_rootName; }            // without its prefix
    const std::string& rootNamespace() const { return m_rootNamespace; }  // empty for none
    // Name to text, blanks around it taken off, of the root's child elements in its namespace or in none. A name
    // that occurs more than once is there as often.
    const std::multimap<std::string, std::string>& children() const { return m_children; }

  private:
    std::string m_rootName;
    std::string m_rootNamespace;
    std::multimap<std::string, std::string> m_children;
    friend class SEKDocumentReader;
};
