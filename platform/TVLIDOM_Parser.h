// Parses XML from a stream into a document.
//
// Purpose: well-formed documents without validation and without namespace processing: names stay as written.
// No
//   external entity, DTD or schema is ever loaded; a document that asks for one, or whose entities expand
//   beyond a bound, is an error.
// Ownership: keeps nothing of stream or document.
// Threads: one thread at a time.
// Errors: parse() returns 0 and getErrorString() is one line: "line L, column C: message".
#pragma once

#include "I18NString.h"
#include "PLXInputStream.h"
#include "TVLIDOM_Document.h"

class TVLIDOM_Parser {
  public:
    // 1 on success. On failure the document is left as it was.
    int parse(PLXInputStream& stream, TVLIDOM_Document& document);
    const I18NString& getErrorString() const { return m_error; }

  private:
    I18NString m_error;
};
