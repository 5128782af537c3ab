// A parsed XML document, and the life of the document model.
//
// Purpose: TVLIDOM_Document holds the tree that TVLIDOM_Parser fills; TVLIDOM_DOMImplementation starts and
//   ends the XML library.
// Ownership: a document owns its nodes. terminate() takes the trees of all documents that still exist with
//   it; they are empty afterwards.
// Threads: initialize() and terminate() on the main thread, while no other thread uses a document. Documents
//   may be created and destroyed on any thread.
// Units: none.
// Errors: an empty document has a null root.
#pragma once

#include <memory>

#include "TVLIDOM_Node.h"
#include "XmlTree.h"

class TVLIDOM_Document {
  public:
    TVLIDOM_Document();
    ~TVLIDOM_Document();
    TVLIDOM_Document(const TVLIDOM_Document&) = delete;
    TVLIDOM_Document& operator=(const TVLIDOM_Document&) = delete;

    TVLIDOM_Element getDocumentElement() const;
    // Takes a tree, in place of the one before; null for none.
    void adopt(std::unique_ptr<XmlTree> tree);

  private:
    std::unique_ptr<XmlTree> m_tree;
};

class TVLIDOM_DOMImplementation {
  public:
    static void initialize();
    static void terminate();
};
