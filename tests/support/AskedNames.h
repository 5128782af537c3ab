// The names that the code under test asks a document for.
//
// Purpose: the executable is linked so that every look at an attribute, and every comparison of a node's name, arrives
//   here first and is noted; the answer is the document's as ever.
// Ownership: notes while it exists; one at a time.
// Threads: one.
#pragma once

#include <set>
#include <string>

#include "TVLIDOM_Node.h"

class AskedNames {
  public:
    AskedNames();
    ~AskedNames();
    AskedNames(const AskedNames&) = delete;
    AskedNames& operator=(const AskedNames&) = delete;

    const std::set<std::string>& elements() const { return m_elements; }
    const std::set<std::string>& attributes() const { return m_attributes; }  // "element attribute"

    // For the replaced calls only.
    static AskedNames* current();
    void noteElement(const I18NString& name) { m_elements.insert(name.str()); }
    void noteAttribute(const TVLIDOM_Element& element, const I18NString& name);

  private:
    std::set<std::string> m_elements;
    std::set<std::string> m_attributes;
};
