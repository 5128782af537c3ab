// A document that is kept in a file.
//
// Purpose: the one way from an opened file to a parsed document, and to whoever must hear that there is none.
// Ownership: keeps nothing of file or document.
// Threads: one thread at a time.
// Units: none.
// Errors: false, when the caller has been told which of the two it was.
#pragma once

#include <functional>

#include "TVLFileStream.h"
#include "TVLIDOM_Document.h"

namespace TVLDocumentFile {

// Who is told what; the words are the parser's. What they throw passes through.
struct Complaints {
    std::function<void()> cannotOpen;
    std::function<void(const char* words)> cannotParse;
};

// Without success the document is left as it was.
bool read(TVLFileStream& file, TVLIDOM_Document& document, const Complaints& complaints);

}  // namespace TVLDocumentFile
