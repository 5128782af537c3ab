// What ends a command: a text for standard error and an exit code.
//
// Purpose: thrown where a command cannot go on, and caught in one place, CTLProgram.
// Ownership: owns its text.
// Threads: as any value.
// Units: none.
// Errors: none.
#pragma once

#include <stdexcept>
#include <string>

class CTLError : public std::runtime_error {
  public:
    // Of every command: the command line is wrong, or there is no such instance.
    static constexpr int kUsage = 64;
    // Of every command: something that it needs cannot be had (a file, memory, a process).
    static constexpr int kFailed = 70;
    // Of every command: another user has to give it.
    static constexpr int kWrongUser = 77;

    CTLError(int exitCode, const std::string& text);
    ~CTLError() override;

    int exitCode() const { return m_exitCode; }

  private:
    int m_exitCode;
};
