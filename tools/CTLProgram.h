// The program: its commands, and the way from a command line to an exit code.
//
// Purpose: declares what all commands have in common (--instance, help, version), finds the command that was given,
//   runs it, and tells errors in one form: "velbootstrapctl: " and the text, on standard error.
// Ownership: owns the commands while it runs.
// Threads: one.
// Units: the commands' exit codes; 64 for a command line that is wrong, 70 for a failure of the program's own, 77 when
//   another user has to give the command.
// Errors: none leave it.
#pragma once

#include <memory>
#include <vector>

#include "CTLCommand.h"

class CTLProgram {
  public:
    explicit CTLProgram(CTLTerminal& terminal);

    // The exit code.
    int run(int argc, const char* const* argv);

  private:
    int carryOut(int argc, const char* const* argv);

    CTLTerminal& m_terminal;
    std::vector<std::unique_ptr<CTLCommand>> m_commands;
};
