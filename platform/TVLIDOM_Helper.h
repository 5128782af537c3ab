// Searches in a document.
//
// Purpose: walk the nodes below a start node in document order, depth first.
// Ownership, threads: static members without state; handles as in TVLIDOM_Node.
// Units: none.
// Errors: null when nothing is found or the start is null. No recursion: depth does not matter.
#pragma once

#include "TVLIDOM_Node.h"

class TVLIDOM_Helper {
  public:
    // The first element of that name, the start node included.
    static TVLIDOM_Element findFirstElementWithName(const TVLIDOM_Node& start, const I18NString& name);
    // The first element of that name whose attribute has the value, the start node included.
    static TVLIDOM_Element findFirstElementWithAttribute(const TVLIDOM_Node& start, const I18NString& name,
                                                         const I18NString& attribute,
                                                         const I18NString& value);

    static bool isElementNamed(const TVLIDOM_Node& node, const I18NString& name);
    // The node that follows `node` within the tree of `root`.
    static TVLIDOM_Node nextInDocumentOrder(const TVLIDOM_Node& node, const TVLIDOM_Node& root);
};
