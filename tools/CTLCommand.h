// One command of velbootstrapctl.
//
// Purpose: what CTLProgram knows of a command: how it declares its options, and how it runs.
// Ownership: CTLProgram owns the commands, CLI11 the subcommands that they declare.
// Threads: one.
// Units: exit codes as each command's help states them.
// Errors: run() returns the exit code or throws CTLError.
#pragma once

#include <string>

namespace CLI {
class App;
}

class CTLInstance;
class CTLTerminal;

// What every command is given.
struct CTLContext {
    std::string instance;  // as named by --instance; empty when it was not
    CTLTerminal& terminal;
};

class CTLCommand {
  public:
    CTLCommand() = default;
    CTLCommand(const CTLCommand&) = delete;
    CTLCommand& operator=(const CTLCommand&) = delete;
    virtual ~CTLCommand() = default;

    // Adds the command to the program; the result is asked whether it was given.
    virtual CLI::App* declare(CLI::App& program) = 0;
    // The exit code.
    virtual int run(CTLContext& context) = 0;
};
