// A file as a stream for the XML parser.
//
// Purpose: PLXInputStream over an ordinary file.
// Ownership: owns the open file; not copyable.
// Threads: one thread at a time.
// Units: bytes.
// Errors: reads return -1 at the end of the file, on errors and when closed, never 0.
#pragma once

#include "PLXInputStream.h"
#include "TVLFile.h"

class ZORFileInputStream : public PLXInputStream {
  public:
    ZORFileInputStream();
    explicit ZORFileInputStream(const char* path);
    ~ZORFileInputStream() override;

    int read(TVLByteBuffer& buffer, int count) override;
    int read(char* buffer, int count) override;
    int read() override;
    void close() override;
    bool canUnread() override;

    // Closes what is open, then opens `path` (null: nothing). Nonzero when a file is open afterwards.
    int open(const char* path);
    int isOpen() const;

  private:
    TVLFilePtr m_file;  // null when closed
};
