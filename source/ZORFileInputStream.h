// A document's file as a stream for the XML parser.
//
// Purpose: TVLFileStream that opens by path.
// Ownership: owns the open file; not copyable.
// Threads: one thread at a time.
// Units: bytes.
// Errors: a file that cannot be opened, or is none that documents come from, leaves the stream closed; else as
//   TVLFileStream.
#pragma once

#include "TVLFileStream.h"

class ZORFileInputStream : public TVLFileStream {
  public:
    ZORFileInputStream();
    explicit ZORFileInputStream(const char* path);
    ~ZORFileInputStream() override;

    // Closes what is open, then opens `path` (null: nothing). Nonzero when a file is open afterwards.
    int open(const char* path);
};
