#include "CTLWaiting.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <ostream>

#include "CTLError.h"
#include "CTLLogCommand.h"
#include "CTLTerminal.h"
#include "CTLText.h"

namespace {

constexpr int kLookMs = 200;
constexpr int kSignalled = 128;
constexpr int kCannotRun = 127;

std::time_t monotonicSec() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

int exitCodeOf(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalled + WTERMSIG(status);
}

// A process of this one's, which does not outlive it.
class Waiter {
  public:
    explicit Waiter(pid_t pid)
        : m_pid(pid), m_descriptor(static_cast<int>(syscall(SYS_pidfd_open, pid, 0))) {}
    ~Waiter() {
        if (m_pid < 1) return;
        // It only waits: what it waits for does not notice.
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;

    int descriptor() const { return m_descriptor.get(); }
    // -1 while it runs.
    int exitCode() {
        int status = 0;
        if (waitpid(m_pid, &status, WNOHANG) != m_pid) return -1;
        m_pid = -1;
        return exitCodeOf(status);
    }

  private:
    pid_t m_pid;
    TVLDescriptor m_descriptor;
};

}  // namespace

CTLWaiting::CTLWaiting(CTLTerminal& terminal, const std::filesystem::path& log)
    : m_terminal(terminal), m_log(log) {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&signals, signal);
    sigprocmask(SIG_BLOCK, &signals, &m_before);
    m_signals = TVLDescriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!m_signals.isOpen()) throw CTLError(CTLError::kFailed, "no descriptor for signals");
}

CTLWaiting::~CTLWaiting() {
    clearProgress();
    m_terminal.out().flush();
    // One that came later asked for what happens now anyway.
    signalfd_siginfo signal{};
    while (read(m_signals.get(), &signal, sizeof signal) > 0)
        ;
    sigprocmask(SIG_SETMASK, &m_before, nullptr);
}

int CTLWaiting::run(const std::string& what, int seconds, const std::function<void()>& program) {
    m_terminal.out().flush();
    const pid_t pid = fork();
    if (pid < 0) throw CTLError(CTLError::kFailed, "the system gives no process");
    if (pid == 0) {
        sigprocmask(SIG_SETMASK, &m_before, nullptr);
        program();
        _exit(kCannotRun);
    }
    Waiter waiter(pid);
    m_began = monotonicSec();
    const std::time_t deadline = m_began + seconds;
    for (;;) {
        const bool isInTime = look(waiter.descriptor(), what, deadline);
        const int exitCode = waiter.exitCode();
        if (exitCode >= 0 || !isInTime) {
            finishLog();
            return exitCode;
        }
    }
}

bool CTLWaiting::until(const std::string& what, int seconds, const std::function<bool()>& condition) {
    m_began = monotonicSec();
    const std::time_t deadline = m_began + seconds;
    while (!condition()) {
        if (!look(-1, what, deadline)) return false;
    }
    finishLog();
    return true;
}

bool CTLWaiting::look(int descriptor, const std::string& what, std::time_t deadline) {
    showLog();
    showProgress(what);
    std::array<pollfd, 2> waited{pollfd{m_signals.get(), POLLIN, 0}, pollfd{descriptor, POLLIN, 0}};
    poll(waited.data(), waited.size(), kLookMs);
    requireUninterrupted();
    return monotonicSec() < deadline;
}

void CTLWaiting::requireUninterrupted() const {
    signalfd_siginfo signal{};
    if (read(m_signals.get(), &signal, sizeof signal) == sizeof signal)
        throw Interrupted{kSignalled + static_cast<int>(signal.ssi_signo)};
}

void CTLWaiting::showLog() {
    for (const CTLLogLine& line : m_log.read()) {
        m_history.add(line);
        m_history.take();
        clearProgress();
        CTLLogCommand::showLine(m_terminal, line, m_history.childOfLast());
    }
    m_terminal.out().flush();
}

// A line is handed out when nothing more has come after it.
void CTLWaiting::finishLog() {
    showLog();
    showLog();
}

void CTLWaiting::showProgress(const std::string& what) {
    if (isatty(STDOUT_FILENO) != 1) return;
    const std::string text =
        what + ", " + CTLText::age(monotonicSec() - m_began) + " (Ctrl-C ends the waiting only)";
    clearProgress();
    // A line that is longer than the terminal is wide could not be taken back.
    m_terminal.out() << m_terminal.painted(
        CTLColour::Faint, text.substr(0, static_cast<std::size_t>(CTLTerminal::columns()) - 1));
    m_terminal.out().flush();
    m_hasProgress = true;
}

void CTLWaiting::clearProgress() {
    if (m_hasProgress) m_terminal.out() << "\r\033[K";
    m_hasProgress = false;
}
