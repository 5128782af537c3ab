// The mistakes that administrators make, and what they are shown.
//
// Purpose: one table for all who deal with it: the test that makes each of them and watches the service, the page that
//   tells of them (docs/operation.md), and tests of whatever else has to find them. Beside each mistake stands how it is
//   made, the command that is given, and what comes of it.
// Ownership: the table lives as long as the program.
// Threads: any; the table never changes.
// Units: none.
// Errors: "make" throws what the Installation throws.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Installation.h"

// Where an administrator sees a line.
enum class Place {
    Terminal,    // of the command
    Log,         // logs/velbootstrapservice.log
    DefaultLog,  // logs/zordefault.log, which the next command empties
    Check,       // what a unit does before each start; in the journal
    Guard,       // likewise, with root's rights
    Question     // -isrunning -stdoutLog=DEBUG, on the terminal
};

struct Shown {
    Place place;
    std::string line;          // "…" stands for what differs from one run or library to the next
    std::string without = {};  // what would be there as well if it were right, and is not
};

struct Mistake {
    std::string name;                         // of the test
    std::string told;                         // to readers, in Markdown
    std::function<void(Installation&)> make;  // does it to an installation that is right
    std::vector<std::string> arguments;       // of the command
    int exitCode;                             // of the command
    std::vector<Shown> shown;                 // each of these lines is there
    std::string checked;                      // what "velbootstrapctl check" says; empty: it finds nothing
    std::vector<std::string> named;  // file, element or child: one of the lines has one of these words
    bool isInFiles = true;           // it stays in the installation's files, where a check can find it
    std::string folder = "bin";      // in which the command is given
    std::vector<std::string> withoutVariables = {};  // of the environment
    bool isByStranger = false;                       // another user gives the command
};

const std::vector<Mistake>& mistakes();

// For the name of a parametrised test.
void PrintTo(const Mistake& mistake, std::ostream* out);
