// The property table and ${name} substitution.
//
// Purpose: one process-wide map from property name to text, and the expansion of references to it.
// Ownership: created on first use, lives until the process ends; entries are replaced, never removed.
// Threads: written on the main thread before other threads exist, read by any thread afterwards without a
//   lock.
// Units: names are compared bytewise.
// Errors: none; an unknown or unterminated reference stays in the text as it is.
#pragma once

#include <functional>
#include <map>
#include <string>

class ZORPropertyInserter {
  public:
    virtual ~ZORPropertyInserter();

    static ZORPropertyInserter* getInstance();

    void add(const char* name, const char* value);
    // The value, owned by the table and valid until the entry is next changed; null when there is no such
    // entry.
    const char* get(const char* name) const;
    const std::map<std::string, std::string, std::less<>>& all() const { return m_properties; }
    // Expands the references in `text`, and those in the values that come in, left to right. The time taken
    // is proportional to the text and to all that is inserted. Deliberate: a value that refers to itself
    // never ends; see ZORPropertyInserterTest.AValueThatRefersToItselfNeverEnds.
    void insertProperties(std::string& text) const;
    // A text of its own in place of the changed one, from the one table.
    static std::string expanded(const char* text);

  private:
    friend class TestAccess;

    ZORPropertyInserter() = default;
    std::string expand(const std::string& text) const;

    static ZORPropertyInserter* m_pInstance;

    std::map<std::string, std::string, std::less<>> m_properties;
};
