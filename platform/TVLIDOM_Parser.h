// Parses XML from a stream into a document.
//
// Purpose: well-formed documents without validation and without namespace processing: names stay as written.
//   Nothing outside the document is ever loaded: external DTDs and schemas are ignored; a reference to an
//   external entity, or to one that only an unread DTD could define, is an error. So is what makes a small
//   document big; PlainXmlParser.h has the limits.
// Ownership: keeps nothing of stream or document.
// Threads: one thread at a time.
// Units: none.
// Errors: parse() returns 0 and getErrorString() is one line: "line L, column C: message". Both are 0 when not even
//   the first line could be decoded.
#pragma once

#include "I18NString.h"
#include "PLXInputStream.h"
#include "TVLFileStream.h"
#include "TVLIDOM_Document.h"

class TVLIDOM_Parser {
  public:
    // 1 on success. On failure the document is left as it was.
    int parse(PLXInputStream& stream, TVLIDOM_Document& document);
    // The same from a file; one that cannot be read to its end is a failure, too.
    int parse(TVLFileStream& file, TVLIDOM_Document& document);
    const I18NString& getErrorString() const { return m_error; }

  private:
    // `streamError` is looked at when the stream has been read.
    bool parseAll(PLXInputStream& stream, TVLIDOM_Document& document, const std::string& streamError);

    I18NString m_error;
};
