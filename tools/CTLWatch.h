// Looking again and again, until somebody says enough.
//
// Purpose: the rounds of a command's --watch and the waiting between them. Ctrl-C, a termination signal or the end of
//   the terminal ends both at once and without harm.
// Ownership: takes SIGINT, SIGTERM and SIGHUP for as long as it lives, and gives them back.
// Threads: made and used by the main thread; a round is carried out by a thread of its own.
// Units: seconds.
// Errors: what a round throws is thrown on. CTLError when the system gives no descriptors.
#pragma once

#include <csignal>
#include <functional>

#include "TVLDescriptor.h"

class CTLTerminal;

class CTLWatch {
  public:
    CTLWatch();
    ~CTLWatch();
    CTLWatch(const CTLWatch&) = delete;
    CTLWatch& operator=(const CTLWatch&) = delete;

    // False when it was enough before the round had ended. Then its thread still works, on what the round refers to: the
    // caller says its last words and calls leave().
    bool round(const std::function<void()>& work);
    // False when it is enough, at once or within the time.
    bool wait(int seconds) const;
    // Ends the process, whatever its threads do.
    [[noreturn]] static void leave(CTLTerminal& terminal, int exitCode);
    // On a terminal what follows takes the place of what is there.
    static void beginPicture(CTLTerminal& terminal);

  private:
    bool isEnough(int other, int timeoutMs) const;

    sigset_t m_before{};
    TVLDescriptor m_signals;
};
