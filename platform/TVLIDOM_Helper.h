// Searches in a document.
//
// Purpose: walk the nodes below a start node in document order, depth first.
// Ownership: handles as in TVLIDOM_Node.
// Threads: one thread at a time for a walk; TVLIDOM_Helper has no state.
// Units: none.
// Errors: null when nothing is found or the start is null. No recursion: depth does not matter.
#pragma once

#include "TVLIDOM_Node.h"

// Goes through a node and all below it, the node itself first.
class TVLIDOM_Walk {
  public:
    explicit TVLIDOM_Walk(const TVLIDOM_Node& start) : m_start(start), m_at(start) {}

    const TVLIDOM_Node& node() const { return m_at; }  // null at the end
    void advance();

  private:
    TVLIDOM_Node m_start;
    TVLIDOM_Node m_at;
};

class TVLIDOM_Helper {
  public:
    // The first element of that name, the start node included.
    static TVLIDOM_Element findFirstElementWithName(const TVLIDOM_Node& start, const I18NString& name);
    // The first element of that name whose attribute has the value, the start node included.
    static TVLIDOM_Element findFirstElementWithAttribute(const TVLIDOM_Node& start, const I18NString& name,
                                                         const I18NString& attribute,
                                                         const I18NString& value);

    static bool isElementNamed(const TVLIDOM_Node& node, const I18NString& name);
};
