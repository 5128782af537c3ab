// Looking again and again, until somebody says enough.
//
// Purpose: the waiting between two looks of a command's --watch, which Ctrl-C, a termination signal or the end of the
//   terminal ends at once and without harm.
// Ownership: takes SIGINT, SIGTERM and SIGHUP for as long as it lives, and gives them back.
// Threads: the main thread; those started meanwhile get the signals blocked as well.
// Units: seconds.
// Errors: none.
#pragma once

#include <csignal>

class CTLTerminal;

class CTLWatch {
  public:
    CTLWatch();
    ~CTLWatch();
    CTLWatch(const CTLWatch&) = delete;
    CTLWatch& operator=(const CTLWatch&) = delete;

    // False when it is enough, at once or within the time.
    bool wait(int seconds) const;
    // On a terminal what follows takes the place of what is there.
    static void beginPicture(CTLTerminal& terminal);

  private:
    sigset_t m_signals{};
    sigset_t m_before{};
};
