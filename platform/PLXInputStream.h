// The stream that an XML parser reads from.
//
// Purpose: the interface, with the operations that need no source of their own.
// Ownership: a stream owns what it reads from; streams are not copied.
// Threads: one thread at a time.
// Units: counts in bytes, time-outs in milliseconds.
// Errors: reads return -1 at the end of the stream, when it is closed and on errors. Unsupported operations
//   throw the plain character string "not implemented".
#pragma once

#include "TVLByteBuffer.h"

class PLXInputStream {
  public:
    PLXInputStream() = default;
    PLXInputStream(const PLXInputStream&) = delete;
    PLXInputStream& operator=(const PLXInputStream&) = delete;

    virtual ~PLXInputStream();
    // Up to `count` bytes into the buffer's storage, which the caller has sized; its length is not changed.
    virtual int read(TVLByteBuffer& buffer, int count) = 0;
    virtual int read(char* buffer, int count) = 0;
    // Reads until `count` bytes have come or the stream ends; the number of bytes, -1 when there were none.
    virtual int readFully(TVLByteBuffer& buffer, int count);
    virtual int readFully(char* buffer, int count);
    virtual int read() = 0;  // the next byte, 0 to 255
    virtual void close() = 0;
    virtual bool canUnread() = 0;
    virtual void unread(const char* bytes, int count);
    virtual bool canTimeout() const;
    virtual void setTimeout(int timeoutMs);
    virtual int getTimeout() const;  // -1: none
    virtual bool canCancel() const;
};
