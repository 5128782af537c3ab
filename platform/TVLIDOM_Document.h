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

#include "TVLIDOM_Node.h"

namespace xercesc_3_2 {
class DOMDocument;
}

class TVLIDOM_Document {
  public:
    TVLIDOM_Document();
    ~TVLIDOM_Document();
    TVLIDOM_Document(const TVLIDOM_Document&) = delete;
    TVLIDOM_Document& operator=(const TVLIDOM_Document&) = delete;

    TVLIDOM_Element getDocumentElement() const;
    // Takes ownership of a tree, in place of the one before.
    void adopt(xercesc_3_2::DOMDocument* tree);

  private:
    xercesc_3_2::DOMDocument* m_tree = nullptr;  // owned
};

class TVLIDOM_DOMImplementation {
  public:
    static void initialize();
    static void terminate();
};
