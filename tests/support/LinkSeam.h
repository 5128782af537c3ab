// The calls of the C library that a unit test makes fail.
//
// Purpose: memory is not asked of the doorway, so the executable is linked such that strdup() and calloc() of the code
//   under test arrive here; without a LinkSeam they do what they always do.
// Ownership: in force while it exists; one at a time.
// Threads: told what to do by one thread, before the code under test has others.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

class LinkSeam {
  public:
    LinkSeam();
    ~LinkSeam();
    LinkSeam(const LinkSeam&) = delete;
    LinkSeam& operator=(const LinkSeam&) = delete;

    void failZeroedMemory() { m_failZeroedMemory = true; }
    void failCopiesOf(const std::string& text) { m_uncopied = text; }

    // For the replaced calls only.
    static LinkSeam* current();
    char* copy(const char* text) const;
    void* zeroed(std::size_t count, std::size_t size) const;

  private:
    bool m_failZeroedMemory = false;
    std::optional<std::string> m_uncopied;
};
