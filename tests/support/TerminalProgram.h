// A program at a terminal of its own.
//
// Purpose: runs a program with a pseudo-terminal as its standard streams, types to it, and waits for what it shows.
// Ownership: owns the terminal and the process; the destructor hangs up and ends it.
// Threads: used by one thread at a time.
// Units: seconds.
// Errors: a program that cannot be started ends with 127; a wait that takes too long throws std::runtime_error with
//   what was shown until then.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "SEKDescriptor.h"

class TerminalProgram {
  public:
    explicit TerminalProgram(const std::vector<std::string>& command, int columns = 100);
    ~TerminalProgram();
    TerminalProgram(const TerminalProgram&) = delete;
    TerminalProgram& operator=(const TerminalProgram&) = delete;

    // Keys; "\x03" is Ctrl-C.
    void type(const std::string& keys) const;
    // Waits until these words have been shown.
    void waitFor(const std::string& words);
    // The exit code, or 128 and the signal that ended the program.
    int waitForEnd();
    // All that was shown until now, with the marks that move and colour.
    const std::string& shown() const { return m_shown; }

  private:
    static constexpr std::chrono::seconds limit{40};

    bool readMore(std::chrono::steady_clock::time_point deadline);

    pid_t m_process = -1;
    SEKDescriptor m_terminal;
    std::string m_shown;
};
