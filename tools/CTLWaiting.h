// Waiting for something that takes its time, with its log before one's eyes.
//
// Purpose: runs a program, or looks for a condition again and again, and shows meanwhile the lines that come to the log
//   and, on a terminal, one line of progress that goes when the waiting ends. Ctrl-C, a termination signal or the end of
//   the terminal ends the waiting, and nothing but that.
// Ownership: owns the program that it runs; one that only waits itself is ended with it. Takes SIGINT, SIGTERM and SIGHUP
//   for as long as it lives.
// Threads: one.
// Units: seconds.
// Errors: CTLError when there is no process or descriptor; `Interrupted` when a signal has ended it.
#pragma once

#include <csignal>
#include <ctime>
#include <filesystem>
#include <functional>
#include <string>

#include "CTLHistory.h"
#include "CTLLogFollower.h"
#include "TVLDescriptor.h"

class CTLTerminal;

class CTLWaiting {
  public:
    // Thrown by what waits; the exit code of the program follows from it.
    struct Interrupted {
        int exitCode;  // 128 and the signal
    };

    CTLWaiting(CTLTerminal& terminal, const std::filesystem::path& log);
    ~CTLWaiting();
    CTLWaiting(const CTLWaiting&) = delete;
    CTLWaiting& operator=(const CTLWaiting&) = delete;

    // Runs `program`, which replaces a new process by another program, until that has ended or the time is over; its exit
    // code, or -1. `what` stands in the line of progress.
    int run(const std::string& what, int seconds, const std::function<void()>& program);
    // Whether the condition has come about within the time.
    bool until(const std::string& what, int seconds, const std::function<bool()>& condition);

  private:
    // False when the time is over.
    bool look(int descriptor, const std::string& what, std::time_t deadline);
    void showLog();
    void finishLog();
    void showProgress(const std::string& what);
    void clearProgress();
    void requireUninterrupted() const;

    CTLTerminal& m_terminal;
    CTLLogFollower m_log;
    CTLHistory m_history;
    TVLDescriptor m_signals;
    sigset_t m_before{};
    std::time_t m_began = 0;
    bool m_hasProgress = false;
};
