// A program of the machine, run as the other end of a connection.
//
// Purpose: starts a program with a pipe to its standard input and one from its standard output and error, and
//   waits for what it says or for its end. Nothing is waited for by the clock: its words and its end arrive
//   through the pipe.
// Ownership: owns the process and the pipes. The destructor ends the process, and so does the test's own end.
// Threads: used by one thread at a time; the thread that starts a program must outlive it.
// Units: seconds.
// Errors: a program that cannot be started ends with 127; a wait that takes too long throws std::runtime_error
//   with what was said until then.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "SEKDescriptor.h"

class ExternalProgram {
  public:
    // The first word is looked for on the path. An empty folder is the test's own working directory.
    explicit ExternalProgram(const std::vector<std::string>& command, const std::string& folder = {});
    ~ExternalProgram();
    ExternalProgram(const ExternalProgram&) = delete;
    ExternalProgram& operator=(const ExternalProgram&) = delete;

    // Types into the program; false when it reads no more.
    bool type(const std::string& input) const;
    void endInput() { m_input.reset(); }

    // Asks the program to end.
    void interrupt() const;

    // The first whole line that holds these words; empty when the program ended without one.
    std::string waitForLine(const std::string& words);
    // The exit code, or 128 and the signal that ended the program.
    int waitForEnd();
    // What was said until now; all of it after waitForEnd.
    const std::string& words() const { return m_words; }

  private:
    static constexpr std::chrono::seconds limit{20};

    void becomeProgram(const std::vector<std::string>& command, const std::string& folder, int input,
                       int output) const;
    bool readMore(std::chrono::steady_clock::time_point deadline);

    pid_t m_parent;
    pid_t m_process = -1;
    SEKDescriptor m_input;
    SEKDescriptor m_output;
    std::string m_words;
    std::optional<int> m_exitCode;
};
