#include "CTLWatch.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <memory>
#include <ostream>
#include <thread>

#include "CTLError.h"
#include "CTLTerminal.h"

namespace {

sigset_t endings() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&signals, signal);
    return signals;
}

constexpr int kMsInSecond = 1000;

// What a round leaves behind; its thread keeps it as well.
struct Outcome {
    TVLDescriptor done{eventfd(0, EFD_CLOEXEC)};
    std::exception_ptr error;
};

}  // namespace

CTLWatch::CTLWatch() {
    const sigset_t signals = endings();
    sigprocmask(SIG_BLOCK, &signals, &m_before);
    m_signals = TVLDescriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!m_signals.isOpen()) throw CTLError(CTLError::kFailed, "no descriptor for signals");
}

// A signal that nobody has waited for asked for what happens now anyway.
CTLWatch::~CTLWatch() {
    signalfd_siginfo signal{};
    while (read(m_signals.get(), &signal, sizeof signal) > 0)
        ;
    sigprocmask(SIG_SETMASK, &m_before, nullptr);
}

// Whether a signal came before the other descriptor had something to say and before the time was over.
bool CTLWatch::isEnough(int other, int timeoutMs) const {
    std::array<pollfd, 2> waited{pollfd{m_signals.get(), POLLIN, 0}, pollfd{other, POLLIN, 0}};
    while (poll(waited.data(), waited.size(), timeoutMs) < 0 && errno == EINTR)
        ;
    return (waited[0].revents & POLLIN) != 0;
}

bool CTLWatch::round(const std::function<void()>& work) {
    const auto outcome = std::make_shared<Outcome>();
    std::thread([outcome, work] {
        try {
            work();
        } catch (...) {
            outcome->error = std::current_exception();
        }
        eventfd_write(outcome->done.get(), 1);
    }).detach();
    if (isEnough(outcome->done.get(), -1)) return false;
    if (outcome->error) std::rethrow_exception(outcome->error);
    return true;
}

bool CTLWatch::wait(int seconds) const {
    return !isEnough(-1, seconds * kMsInSecond);
}

void CTLWatch::leave(CTLTerminal& terminal, int exitCode) {
    std::_Exit(terminal.failed() ? CTLError::kFailed : exitCode);
}

void CTLWatch::beginPicture(CTLTerminal& terminal) {
    if (isatty(STDOUT_FILENO) == 1) terminal.out() << "\033[H\033[2J";
}
