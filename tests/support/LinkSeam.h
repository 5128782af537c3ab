// The calls of the C library that a unit test makes fail.
//
// Purpose: the executable is linked so that dlopen(), strdup(), calloc() and pthread_create() of the code under test
//   arrive here; without a LinkSeam they do what they always do.
// Ownership: in force while it exists; one at a time.
// Threads: told what to do by one thread, before the code under test has others.
#pragma once

#include <pthread.h>

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
    // The next threads can be started, then one cannot, with that error.
    void failThreadAfter(int started, int error) {
        m_threadsUntilFailure = started;
        m_threadError = error;
    }
    void failCopiesOf(const std::string& text) { m_uncopied = text; }
    const std::vector<Load>& loads() const { return m_loads; }

    // For the replaced calls only.
    static LinkSeam* current();
    void* load(const char* file, int mode);
    char* copy(const char* text) const;
    void* zeroed(std::size_t count, std::size_t size) const;
    int startThread(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                    void* argument);

  private:
    bool m_failLoads = false;
    bool m_failZeroedMemory = false;
    std::string m_instead;
    std::optional<std::string> m_uncopied;
    int m_threadsUntilFailure = -1;  // below 0: none fails
    int m_threadError = 0;
    std::vector<Load> m_loads;
};
