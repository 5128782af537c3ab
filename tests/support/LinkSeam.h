// The calls of the C library that a unit test makes fail.
//
// Purpose: the executable is linked so that dlopen(), strdup() and calloc() of the code under test arrive here; without
//   a LinkSeam they do what they always do.
// Ownership: in force while it exists; one at a time.
// Threads: one.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

class LinkSeam {
  public:
    struct Load {
        std::string file;
        int mode;
    };

    LinkSeam();
    ~LinkSeam();
    LinkSeam(const LinkSeam&) = delete;
    LinkSeam& operator=(const LinkSeam&) = delete;

    void failLoads() { m_failLoads = true; }
    void loadInstead(const std::string& file) { m_instead = file; }
    void failZeroedMemory() { m_failZeroedMemory = true; }
    void failCopiesOf(const std::string& text) { m_uncopied = text; }
    const std::vector<Load>& loads() const { return m_loads; }

    // For the replaced calls only.
    static LinkSeam* current();
    void* load(const char* file, int mode);
    char* copy(const char* text) const;
    void* zeroed(std::size_t count, std::size_t size) const;

  private:
    bool m_failLoads = false;
    bool m_failZeroedMemory = false;
    std::string m_instead;
    std::optional<std::string> m_uncopied;
    std::vector<Load> m_loads;
};
