// A document with the places of what is in it.
//
// Purpose: reads a document once, as the service would open and parse it, and knows where in the file each element and
//   attribute stands, and to which child it belongs.
// Ownership: owns the text and the tree.
// Threads: one thread at a time.
// Units: offsets in bytes of the text; lines and columns from 1 on, columns in characters.
// Errors: a file that cannot be read or parsed has an error text, with the parser's place, and no elements.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <unordered_map>
#include <vector>

#include "CTLFindings.h"
#include "TVLIDOM_Document.h"

class CTLDocument {
  public:
    enum class Kind { Unknown, Bootstrap, Logging, Startup };

    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    struct Element {
        TVLIDOM_Element handle;
        std::size_t process = kNone;  // the index of the "process" that it is in or is
        std::size_t begin = 0;        // of its start tag
        std::size_t end = 0;          // behind its end tag
        CTLPlace place;
    };

    // Goes through a text from its beginning to its end, so that the places of a long line take no longer than the line.
    class Cursor {
      public:
        explicit Cursor(const std::string& text);
        // Both are never before the last ones; the offset reached.
        std::size_t moveTo(const CTLPlace& place);
        CTLPlace moveTo(std::size_t offset);

      private:
        void step();

        const std::string& m_text;
        std::size_t m_offset = 0;
        CTLPlace m_place{1, 1};
    };

    explicit CTLDocument(const std::filesystem::path& file);
    CTLDocument(const CTLDocument&) = delete;
    CTLDocument& operator=(const CTLDocument&) = delete;

    const std::string& file() const { return m_file; }
    const std::string& text() const { return m_text; }
    bool isThere() const { return m_isThere; }
    bool isParsed() const { return !m_elements.empty(); }
    // Why it could not be read or parsed.
    const CTLFinding& error() const { return m_error; }
    // By the name of its root.
    Kind kind() const;
    // Whether the file still holds what was read.
    bool isCurrent() const;

    TVLIDOM_Element root() const { return m_document.getDocumentElement(); }
    // In the order of the document.
    const std::vector<Element>& elements() const { return m_elements; }
    const Element& elementOf(const TVLIDOM_Node& node) const;  // the root for what is none of them
    // The innermost element with that byte in it.
    const Element& elementAt(std::size_t offset) const;

    // Where the attribute's name begins; the element's own place when it has no such attribute.
    CTLPlace placeOf(const Element& element, const std::string& attribute) const;
    // The name of the "process" that the element is in or is; empty when there is none.
    std::string childOf(const Element& element) const;

    // A finding at an element, or at one of its attributes.
    CTLFinding at(CTLFinding::Severity severity, const std::string& rule, const TVLIDOM_Element& element,
                  const std::string& attribute, const std::string& text) const;

  private:
    void parse();
    void place();
    void addElement(Element element);
    void findBegin(Element& element, const CTLPlace& behind, Cursor& starts) const;
    void setError(const std::string& words);
    std::size_t attributeIn(const Element& element, const std::string& attribute) const;

    std::string m_file;
    std::string m_text;
    bool m_isThere = false;
    CTLFinding m_error;
    TVLIDOM_Document m_document;
    std::vector<Element> m_elements;
    std::unordered_map<const void*, std::size_t> m_indices;  // of the elements, by their nodes
};
