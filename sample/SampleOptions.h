// What the dispatcher was told on its command line.
//
// Purpose: one table holds every option with its help text, so that help and parser cannot differ.
// Ownership: a value.
// Threads: any.
// Units: durations in seconds.
// Errors: parse() throws std::invalid_argument with a text for the person who typed the command.
#pragma once

#include <string>

struct SampleOptions {
    bool help = false;

    std::string listenUri;
    std::string service = "dispatcher";
    int waitForPortSec = 0;
    int idleLimitSec = 60;

    std::string pingCommand = "PING";
    std::string shutdownCommand = "SHUTDOWN";
    std::string readyMarker = "READY";
    std::string retryMarker = "STARTING";
    std::string fatalMarker = "FATAL";
    std::string fixedAnswer;

    int warmUpSec = 0;
    std::string readyFile;
    std::string fatalFile;
    std::string silentFile;
    bool silent = false;
    bool stubborn = false;
    int exitAfterAnswers = 0;

    std::string pidFile;
    std::string logFile;

    static SampleOptions parse(int argc, const char* const* argv);
    static std::string helpText();
};
