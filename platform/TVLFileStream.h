// A file as a stream for the XML parser.
//
// Purpose: PLXInputStream over a document: a regular file, or a pipe.
// Ownership: owns the open file; not copyable.
// Threads: one thread at a time.
// Units: bytes. A document has at most TVLFile::kMostOfADocument of them; one that comes through a pipe is there, to its
//   end, 10 s after it was opened.
// Errors: reads return -1 at the end of the file, on errors and when closed, never 0; error() tells an error from the
//   end.
#pragma once

#include <cstdint>
#include <string>

#include "PLXInputStream.h"
#include "TVLFile.h"

class TVLFileStream : public PLXInputStream {
  public:
    TVLFileStream();  // closed
    explicit TVLFileStream(TVLFilePtr file);

    int read(TVLByteBuffer& buffer, int count) override;
    int read(char* buffer, int count) override;
    int read() override;
    void close() override;
    bool canUnread() override;

    int isOpen() const;
    // What went wrong while reading; empty when nothing did.
    const std::string& error() const { return m_error; }

  protected:
    void take(TVLFilePtr file);

  private:
    bool waitForBytes();  // false, with the error noted, when none come
    bool comesTooLate();
    std::int64_t readSome(char* buffer, std::int64_t count);
    int fail(const std::string& error);

    TVLFilePtr m_file;  // null when closed; its buffer is not used
    std::int64_t m_left = 0;
    std::int64_t m_deadlineMs = 0;
    std::string m_error;
};
