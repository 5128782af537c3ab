#include "CTLControl.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <ostream>
#include <vector>

#include "CTLDaemon.h"
#include "CTLDoorway.h"
#include "CTLError.h"
#include "CTLExchange.h"
#include "CTLLogFiles.h"
#include "CTLPreparation.h"
#include "CTLStatus.h"
#include "CTLTerminal.h"
#include "CTLText.h"
#include "CTLWaiting.h"
#include "ZORChildProcess.h"

namespace {

// A stop that has come to its end leaves nothing that takes longer than this.
constexpr int kAfterwardsSec = 10;
constexpr int kLongestTimeoutSec = 86400;

// Processes of which none is taken for another that has its number later.
class HeldProcesses {
  public:
    void hold(pid_t pid) {
        TVLDescriptor process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
        if (process.isOpen()) m_processes.push_back(std::move(process));
    }
    // One that waits to be reaped has ended.
    bool areGone() const {
        return std::all_of(m_processes.begin(), m_processes.end(), [](const TVLDescriptor& process) {
            pollfd entry{process.get(), POLLIN, 0};
            return poll(&entry, 1, 0) > 0;
        });
    }
    bool signal(int number) const {
        return std::all_of(m_processes.begin(), m_processes.end(), [&](const TVLDescriptor& process) {
            return syscall(SYS_pidfd_send_signal, process.get(), number, nullptr, 0) == 0;
        });
    }

  private:
    std::vector<TVLDescriptor> m_processes;
};

// Why a child is not as it should be after a start; empty when it is.
std::string flawOf(const CTLStatus& status, const CTLChildStatus& child) {
    if (!child.isPinged) return status.isMissing(child) ? child.name + " does not run" : "";
    if (!child.exchange || child.exchange->isAnswered()) return {};
    if (child.exchange->rule == CTLRule::Retry) return child.name + " says that it is not ready";
    return child.name + ": " + child.exchange->failure();
}

// What is not as it should be; empty when the service runs and every child of the document answers.
std::string flawOf(const CTLStatus& status, const std::vector<CTLLogLine>& words) {
    if (!status.daemon.isRunning()) return "the service does not run: " + status.daemon.reason();
    if (!status.areChildrenKnown) return "the documents have changed: " + status.whyNot;
    for (const CTLLogLine& line : words) {
        if (line.text.starts_with("exception while processing configuration"))
            return "a child of the document is left out: " + line.text;
    }
    for (const CTLChildStatus& child : status.children) {
        std::string flaw = flawOf(status, child);
        if (!flaw.empty()) return flaw;
    }
    return {};
}

std::string joined(const std::vector<std::string>& texts) {
    std::string all;
    for (const std::string& text : texts)
        all += (all.empty() ? "" : "; ") + text;
    return all;
}

}  // namespace

CTLControl::CTLControl(CTLTerminal& terminal, const CTLInstance& instance, int timeoutSec)
    : m_terminal(terminal),
      m_instance(instance),
      m_timeoutSec(timeoutSec),
      m_authority(std::make_unique<CTLAuthority>(instance)) {}

CTLControl::~CTLControl() = default;

void CTLControl::declareTimeout(CLI::App& command, int& timeoutSec) {
    command.add_option("--timeout", timeoutSec, "Seconds to wait at most, 300 unless given")
        ->option_text("SECONDS")
        ->check(CLI::Range(1, kLongestTimeoutSec));
}

void CTLControl::say(const std::string& text) {
    m_terminal.out() << CTLText::printable(text) << '\n';
}

int CTLControl::complain(const std::string& text) {
    m_terminal.out().flush();
    m_terminal.err() << "velbootstrapctl: " << CTLText::printable(text) << '\n';
    return 1;
}

int CTLControl::interruptibly(const std::function<int()>& work) {
    try {
        m_waiting = std::make_unique<CTLWaiting>(m_terminal, CTLLogFiles(m_instance).present());
        const int exitCode = work();
        m_waiting.reset();
        return exitCode;
    } catch (const CTLWaiting::Interrupted& interrupted) {
        m_waiting.reset();
        complain("the waiting has ended; what was begun goes on");
        return interrupted.exitCode;
    }
}

// False when the service's own commands have to do it. Root has become the instance's user afterwards.
bool CTLControl::byUnit(const char* verb, int& exitCode) {
    const std::string unit = CTLAuthority::unitOf(m_instance);
    const bool isRunning = CTLDaemon::of(m_instance, m_processes).isRunning();
    const bool isUnits =
        !unit.empty() && (!isRunning || std::system(("systemctl --quiet is-active " + unit).c_str()) == 0);
    if (!isUnits) {
        m_authority->become();
        return false;
    }
    const std::string command = std::string("systemctl ") + verb + " " + unit;
    if (geteuid() != 0)
        throw CTLError(CTLError::kWrongUser,
                       unit + " is the system's: give the command as root, or " + command);
    say(command);
    exitCode = interruptibly([&] {
        return m_waiting->run(command, m_timeoutSec,
                              [&] { execlp("systemctl", "systemctl", verb, unit.c_str(), nullptr); });
    });
    m_authority->become();
    return true;
}

// Whether the PID file names the service or nobody; the service's commands believe it without looking.
bool CTLControl::isSafeToAsk() {
    const CTLDaemon daemon = CTLDaemon::of(m_instance, m_processes);
    if (daemon.verdict() == CTLVerdict::NotProved)
        throw CTLError(CTLError::kWrongUser, daemon.reason() + ": give the command as " + daemon.userToBe());
    if (daemon.verdict() != CTLVerdict::UsedAgain && daemon.verdict() != CTLVerdict::AnotherUser) return true;
    complain("the PID file does not name the service: " + daemon.reason() +
             ". The service's commands would take it for the service, so nothing is done; remove " +
             m_instance.pidFile().string());
    return false;
}

// ---- Start ----

int CTLControl::start() {
    int exitCode = 0;
    const CTLDaemon daemon = CTLDaemon::of(m_instance, m_processes);
    if (daemon.isRunning()) {
        m_authority->become();
        say("The service runs already, as process " + std::to_string(daemon.process()->pid) + ".");
    } else if (byUnit("start", exitCode)) {
        if (exitCode != 0) return exitCode < 0 || exitCode > 128 ? std::max(exitCode, 1) : 1;
    } else if ((exitCode = startDirectly()) != 0) {
        return exitCode;
    }
    return interruptibly([&] { return judgeStarted(); });
}

int CTLControl::startDirectly() {
    if (!isSafeToAsk()) return 1;
    return interruptibly([&] {
        const int exitCode =
            m_waiting->run("starting", m_timeoutSec, [&] { m_authority->execute("-start", m_timeoutSec); });
        if (exitCode < 0)
            return complain("not all children were ready within " + std::to_string(m_timeoutSec) +
                            " s; the service goes on starting");
        if (exitCode != 0) return complain("the service's -start has failed; its log says why");
        return 0;
    });
}

// What its manager or its own command has called started.
int CTLControl::judgeStarted() {
    std::string flaw;
    const bool isGood = m_waiting->until("asking the children", m_timeoutSec, [&] {
        const CTLStatus status = statusNow(true);
        flaw = flawOf(status, m_preparation->lines());
        // What is not there at all, or never will be, is not waited for.
        return flaw.empty() || !status.daemon.isRunning() || flaw.starts_with("a child of");
    });
    if (!isGood || !flaw.empty()) return complain(flaw);
    m_waiting.reset();
    say("The service runs, and every child answers.");
    return 0;
}

CTLStatus CTLControl::statusNow(bool withExchanges) {
    const CTLDoorway doorway;
    const CTLDaemon daemon = CTLDaemon::of(m_instance, m_processes);
    // Its environment file has been applied to this process from here on, so no service is started afterwards.
    if (!m_preparation) m_preparation = std::make_unique<CTLPreparation>(m_instance, daemon.arguments());
    return CTLStatus::of(m_instance, m_processes, daemon, *m_preparation, CTLLogFiles(m_instance),
                         {withExchanges, false});
}

// ---- Stop ----

int CTLControl::stop() {
    HeldProcesses held;
    const CTLDaemon daemon = CTLDaemon::of(m_instance, m_processes);
    const bool wasRunning = daemon.isRunning();
    if (wasRunning) {
        held.hold(daemon.process()->pid);
        for (const pid_t child : m_processes.childrenOf(daemon.process()->pid))
            held.hold(child);
    }
    int exitCode = 0;
    if (!byUnit("stop", exitCode)) exitCode = stopDirectly();
    if (exitCode != 0) return exitCode < 0 ? 1 : exitCode;
    const int left = interruptibly([&] {
        const bool areGone = m_waiting->until("stopping", kAfterwardsSec, [&] { return held.areGone(); });
        return areGone ? 0
                       : complain("the service has stopped, but a process of its children is still there");
    });
    if (left == 0 && wasRunning) say("The service has stopped, and so have its children.");
    return left;
}

int CTLControl::stopDirectly() {
    if (!isSafeToAsk()) return 1;
    const CTLDaemon daemon = CTLDaemon::of(m_instance, m_processes);
    if (daemon.isRunning()) {
        return interruptibly([&] {
            const int exitCode = m_waiting->run("stopping", m_timeoutSec,
                                                [&] { m_authority->execute("-stop", m_timeoutSec); });
            if (exitCode < 0)
                return complain("it still runs after " + std::to_string(m_timeoutSec) +
                                " s, and goes on stopping");
            return exitCode == 0 ? 0 : complain("the service's -stop has failed; its log says why");
        });
    }
    if (!daemon.notes().empty()) return complain(joined(daemon.notes()));
    say("The service does not run.");
    return 0;
}

int CTLControl::restart() {
    const int stopped = stop();
    return stopped == 0 ? start() : stopped;
}

// ---- One child ----

CTLChildStatus CTLControl::childNow(const std::string& name) {
    const CTLStatus status = statusNow(false);
    if (!status.areChildrenKnown)
        throw CTLError(CTLError::kFailed, "the documents cannot be used: " + status.whyNot);
    if (!status.daemon.isRunning()) throw CTLError(1, "the service does not run: " + status.daemon.reason());
    const auto child = std::find_if(status.children.begin(), status.children.end(),
                                    [&](const CTLChildStatus& each) { return each.name == name; });
    if (child != status.children.end()) return *child;
    std::vector<std::string> names;
    for (const CTLChildStatus& each : status.children)
        names.push_back(each.name);
    throw CTLError(CTLError::kUsage, "the document has no child \"" + name + "\"; it has: " + joined(names));
}

int CTLControl::restartChild(const std::string& name, int graceSec) {
    m_authority->become();
    return interruptibly([&] {
        const pid_t daemon =
            statusNow(false).daemon.isRunning() ? CTLDaemon::of(m_instance, m_processes).process()->pid : 0;
        const CTLChildStatus child = childNow(name);
        if (child.alike > 1)
            return complain("several children are started like " + name +
                            ": which process is its own cannot be told");
        if (child.process) endChild(child, daemon, graceSec);
        std::optional<CTLProcess> another;
        const bool isBack = m_waiting->until(name + " starts", m_timeoutSec, [&] {
            another = childNow(name).process;
            const bool isAnother = another && (!child.process || another->pid != child.process->pid);
            return isAnother && (!child.isPinged || answers(name));
        });
        if (!isBack)
            return complain(name + (another ? " does not answer" : " was not started again") + " within " +
                            std::to_string(m_timeoutSec) + " s");
        say(name + " runs as process " + std::to_string(another->pid) +
            (child.isPinged ? ", and answers." : "; it has no ping."));
        return 0;
    });
}

// The process is held before it is looked at once more, so that what was proved is what gets the signal.
void CTLControl::endChild(const CTLChildStatus& child, pid_t daemon, int graceSec) {
    HeldProcesses held;
    held.hold(child.process->pid);
    const std::optional<CTLProcess> now = m_processes.find(child.process->pid);
    if (!now || now->started != child.process->started) return;  // gone meanwhile
    if (now->parent != daemon)
        throw CTLError(CTLError::kFailed,
                       "process " + std::to_string(now->pid) + " is no child of the service's");
    say("Telling " + child.name + ", process " + std::to_string(now->pid) + ", to end.");
    if (!held.signal(SIGTERM) && !held.areGone())
        throw CTLError(CTLError::kWrongUser,
                       "the process of " + child.name + " takes no signal of this user's");
    if (m_waiting->until(child.name + " ends", graceSec, [&] { return held.areGone(); })) return;
    say("It has not ended within " + std::to_string(graceSec) + " s, so it is killed.");
    held.signal(SIGKILL);
    if (!m_waiting->until(child.name + " is killed", kAfterwardsSec, [&] { return held.areGone(); }))
        throw CTLError(CTLError::kFailed, "the system does not end the process of " + child.name);
}

bool CTLControl::answers(const std::string& name) {
    const CTLDoorway doorway;
    for (ZORChildProcess* const child : m_preparation->service().getChildren()) {
        if (child->getName() == name) return CTLExchange::with(*child).isAnswered();
    }
    return false;
}
