// A growable byte buffer.
//
// Purpose: texts composed piece by piece, and storage that streams fill.
// Ownership: a value; copies are deep.
// Threads: one thread at a time.
// Units: sizes in bytes. Storage starts at the initial size and grows by whole growth steps.
// Errors: memory exhaustion is the standard allocation exception.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

class TVLByteBuffer {
  public:
    TVLByteBuffer(std::size_t initialSize, std::size_t growthStep);

    TVLByteBuffer& operator<<(std::string_view text);
    TVLByteBuffer& operator<<(int value);
    // Appends as the standard function formats.
    void printf(const char* format, ...) __attribute__((format(printf, 2, 3)));

    const char* str() const { return m_storage.data(); }  // zero-terminated
    std::size_t length() const { return m_length; }
    void clear();

    // Raw storage for streams: room for at least capacity() bytes, whatever the recorded length.
    char* data() { return m_storage.data(); }
    std::size_t capacity() const { return m_storage.size() - 1; }
    void ensureCapacity(std::size_t size);
    // Records that the storage holds `length` bytes (at most capacity()) and terminates them.
    void setLength(std::size_t length);

  private:
    std::size_t m_growthStep;
    std::size_t m_length = 0;
    std::vector<char> m_storage;  // one byte more than the capacity, for the terminator
};
