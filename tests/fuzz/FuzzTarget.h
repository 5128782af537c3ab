// One fuzz target: a function that must survive any bytes.
//
// Purpose: the entry point that the coverage-guided engine and the replay driver both call, and what the targets
//   share. A target starts no process, opens no connection beyond this machine, and takes the same way each time it
//   gets the same bytes.
// Ownership: a target leaves nothing behind: no memory, no descriptor, no file outside of its folder.
// Threads: called from one thread, again and again.
// Units: bytes.
// Errors: a broken promise ends the process, so that the engine keeps the bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace FuzzTarget {

// Ends the process when a promise is broken.
void require(bool holds, const char* promise);
// Likewise, and says what was expected and what came.
void requireSame(const std::string& expected, const std::string& found, const char* promise);

std::string textOf(const std::uint8_t* data, std::size_t size);

// What the text would be to a function that takes it up to its first zero byte.
std::string untilZero(const std::string& text);

// Takes the first line off a text and gives it without its line feed.
std::string takeLine(std::string& text);

// Promises that as many descriptors are open at its end as at its beginning.
class NothingLeftOpen {
  public:
    NothingLeftOpen();
    ~NothingLeftOpen();
    NothingLeftOpen(const NothingLeftOpen&) = delete;
    NothingLeftOpen& operator=(const NothingLeftOpen&) = delete;

  private:
    int m_lowestFree;
};

// The working directory is another one for as long as it exists; the engine's own paths are relative to the old one.
class Visit {
  public:
    explicit Visit(const std::string& folder);
    ~Visit();
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;

  private:
    std::filesystem::path m_before;
};

}  // namespace FuzzTarget
