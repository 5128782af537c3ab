#include "CTLWatch.h"

#include <unistd.h>

#include <cerrno>
#include <ostream>

#include "CTLTerminal.h"

CTLWatch::CTLWatch() {
    sigemptyset(&m_signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&m_signals, signal);
    sigprocmask(SIG_BLOCK, &m_signals, &m_before);
}

// One that came too late for wait() is dropped with the watch: it asked for what happens now anyway.
CTLWatch::~CTLWatch() {
    const timespec now{};
    while (sigtimedwait(&m_signals, nullptr, &now) > 0)
        ;
    sigprocmask(SIG_SETMASK, &m_before, nullptr);
}

bool CTLWatch::wait(int seconds) const {
    const timespec duration{seconds, 0};
    for (;;) {
        if (sigtimedwait(&m_signals, nullptr, &duration) > 0) return false;
        if (errno != EINTR) return true;
    }
}

void CTLWatch::beginPicture(CTLTerminal& terminal) {
    if (isatty(STDOUT_FILENO) == 1) terminal.out() << "\033[H\033[2J";
}
