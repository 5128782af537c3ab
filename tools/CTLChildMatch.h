// Which process is which child of the bootstrap document.
//
// Purpose: the service keeps that to itself, so it is told from outside, by the first of these that tells:
//     log           the log says, at level DEBUG, which process the child was started as
//     command line  the process has exactly the arguments that the child is started with
//     arguments     it ends with the same arguments: a program started through another one (env, a script's
//                   interpreter, Java) has another beginning, seldom another end
//     elimination   one child and one process are left over
//   Children that are started with the same words are alike: the processes are theirs, whose is whose cannot be told.
// Ownership: values.
// Threads: one.
// Units: seconds since the epoch.
// Errors: none.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "CTLLogLine.h"

enum class CTLMatch { None, Log, CommandLine, Arguments, Elimination };

// A child as its document has it, and a process of the service's.
struct CTLWantedChild {
    std::string name;
    std::vector<std::string> arguments;
};
struct CTLFoundProcess {
    pid_t pid = 0;
    std::time_t started = 0;
    std::vector<std::string> arguments;
};
// What the log says of the last start of a child.
struct CTLStartInLog {
    pid_t pid = 0;
    std::time_t from = 0;
    std::time_t until = 0;
};

class CTLChildMatch {
  public:
    struct Result {
        CTLMatch by = CTLMatch::None;
        std::size_t process = 0;  // its place among the processes; nothing when `by` is None
        std::size_t alike = 1;    // so many children are started with the same words
    };

    // One for each child.
    static std::vector<Result> match(const std::vector<CTLWantedChild>& children,
                                     const std::vector<CTLFoundProcess>& processes,
                                     const std::map<std::string, CTLStartInLog>& starts);
    // The last start of each child that the log tells, by the child's name.
    static std::map<std::string, CTLStartInLog> startsIn(const std::vector<CTLLogLine>& lines);
    // "log", "command line", "arguments", "elimination", or "none".
    static const char* word(CTLMatch match);

  private:
    CTLChildMatch(const std::vector<CTLWantedChild>& children, const std::vector<CTLFoundProcess>& processes);

    void byLog(const std::map<std::string, CTLStartInLog>& starts);
    void byCommandLine();
    void byEnd();
    void byElimination();
    void noteAlike();
    void pair(std::size_t child, std::size_t process, CTLMatch by);
    bool isFree(std::size_t child) const { return m_results[child].by == CTLMatch::None; }
    std::optional<std::size_t> bestFor(std::size_t process,
                                       const std::multimap<std::string, std::size_t>& ends) const;

    const std::vector<CTLWantedChild>& m_children;
    const std::vector<CTLFoundProcess>& m_processes;
    std::vector<Result> m_results;
    std::vector<bool> m_taken;  // of the processes
};
