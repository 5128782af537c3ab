// A command line as an ordered list of arguments.
//
// Purpose: built from argc/argv or from one text; looked up by whole names without regard to letter case. The
//   leading "-" is part of a name.
// Ownership: a value.
// Threads: one thread at a time.
// Units: none.
// Errors: look-ups return -1 or 0 and leave their output alone.
#pragma once

#include <string>
#include <vector>

#include "ZORCLArg.h"

class ZORCmdLine {
  public:
    ZORCmdLine();
    ZORCmdLine(int argc, char** argv);
    explicit ZORCmdLine(char* text);
    virtual ~ZORCmdLine();

    void prepare(int argc, char** argv);  // argv[0] is skipped
    void prepare(char* text);             // split at blanks; "..." keeps its blanks and loses its quotes
    // Copies `in` without its double quotes, blanks inside quotes turned into line feeds. `out` holds at
    // least as many bytes as `in`, terminator included.
    void preProcessQuotes(char* in, char* out);
    void log();

    int getArgCount() const { return static_cast<int>(m_args.size()); }
    std::vector<ZORCLArg> getArgs() const { return m_args; }
    int find(const char* name, int start) const;  // index at or after `start`, -1 when there is none
    int getValue(const char* name, std::string& out, int start) const;
    int getIntValue(const char* name, int& out, int start) const;  // decimal digits only

  private:
    std::vector<ZORCLArg> m_args;
};
