// A line of the service's log.
//
// Purpose: takes a log apart into its lines: time, level, thread, logger and text, as ZORLogger has written them. What
//   does not begin as a line does belongs to the text before it.
// Ownership: a value.
// Threads: as any value.
// Units: seconds since the epoch.
// Errors: what is before the first line is passed over.
#pragma once

#include <ctime>
#include <istream>
#include <string>
#include <vector>

struct CTLLogLine {
    std::time_t time = 0;
    std::string level;   // "FATAL", "ERROR", "WARN", "INFO" or "DEBUG"
    std::string thread;  // the kernel's id, as it is written: hexadecimal
    std::string logger;
    std::string text;  // may have several lines

    static std::vector<CTLLogLine> read(std::istream& log);
    // Takes one line apart; false when it does not begin as lines of a log do.
    static bool parse(const std::string& line, CTLLogLine& into);
};
