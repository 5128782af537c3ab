#include "VirtualMachine.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <memory>

#include "TVLThread.h"
#include "VirtualLibrary.h"

namespace {

constexpr pid_t kServicePid = 900;

VirtualMachine* currentMachine = nullptr;
thread_local pid_t threadId = kServicePid;

// What a thread is started with, and the id that it has here.
struct Beginning {
    void* (*body)(void*);
    void* argument;
    pid_t id;
};

void* beginThread(void* raw) {
    const std::unique_ptr<Beginning> beginning(static_cast<Beginning*>(raw));
    threadId = beginning->id;
    return beginning->body(beginning->argument);
}

bool isTermination(int signal) {
    return signal == SIGTERM || signal == SIGINT || signal == SIGQUIT || signal == SIGHUP;
}

}  // namespace

VirtualMachine::VirtualMachine(std::time_t wallClock) : m_wallClock(wallClock) {
    keepNoNotes();
    refuseTerm();  // how children end is told by themselves
    currentMachine = this;
}

VirtualMachine::~VirtualMachine() {
    currentMachine = nullptr;
}

VirtualMachine& VirtualMachine::current() {
    return *currentMachine;
}

// ---- The children ----

void VirtualMachine::with(const std::function<void(std::vector<VirtualChild>&)>& change) {
    const std::lock_guard guard(m_state);
    change(m_children);
    wakeAll(m_changed);
}

void VirtualMachine::tell(VirtualEvent::Kind kind, std::size_t child) {
    if (m_onEvent && child != kNobody) m_onEvent({kind, child, nowMs()});
}

std::size_t VirtualMachine::childAt(const std::string& uri) {
    const std::lock_guard guard(m_state);
    const auto isAt = [&](const VirtualChild& child) { return child.pingUri == uri || child.stopUri == uri; };
    if (m_lookedAt != kNobody && isAt(m_children[m_lookedAt])) return m_lookedAt;
    const auto found = std::find_if(m_children.begin(), m_children.end(), isAt);
    return found == m_children.end() ? kNobody : static_cast<std::size_t>(found - m_children.begin());
}

VirtualChild VirtualMachine::childNow(std::size_t child) {
    const std::lock_guard guard(m_state);
    return child < m_children.size() ? m_children[child] : VirtualChild{};
}

bool VirtualMachine::lives(std::size_t child, pid_t pid) {
    const VirtualChild now = childNow(child);
    return now.alive && now.pid == pid;
}

void VirtualMachine::waitForChange(std::int64_t deadlineMs) {
    std::unique_lock<std::mutex> lock(m_state);
    try {
        waitUntil(m_changed, lock, deadlineMs);
    } catch (const TVLThreadResourceError&) {
        // It is over; whoever waits looks again.
    }
}

std::size_t VirtualMachine::childWith(pid_t pid) {
    const std::lock_guard guard(m_state);
    const auto found = std::find_if(m_children.begin(), m_children.end(),
                                    [&](const VirtualChild& child) { return child.pid == pid; });
    return found == m_children.end() ? kNobody : static_cast<std::size_t>(found - m_children.begin());
}

void VirtualMachine::begin(std::size_t child, pid_t pid) {
    const std::int64_t now = nowMs();
    with([&](std::vector<VirtualChild>& children) {
        VirtualChild& one = children[child];
        one.pid = pid;
        one.alive = true;
        one.startedMs = now;
        if (one.endsWithProcess) one.recover();
    });
    tell(VirtualEvent::Kind::Started, child);
}

void VirtualMachine::end(std::size_t child) {
    const VirtualChild now = childNow(child);
    if (now.alive) endNow(child, now.pid);
}

void VirtualMachine::endNow(std::size_t child, pid_t pid) {
    endProcess(pid);
    bool isItsLatest = false;
    with([&](std::vector<VirtualChild>& children) {
        isItsLatest = children[child].pid == pid && children[child].alive;
        if (isItsLatest) children[child].alive = false;
    });
    if (isItsLatest) tell(VirtualEvent::Kind::Ended, child);
}

void VirtualMachine::tellToStop(std::size_t child) {
    const VirtualChild now = childNow(child);
    tell(VirtualEvent::Kind::ToldToStop, child);
    if (!now.alive || now.endsAfterMs == VirtualChild::kNever) return;
    if (now.endsAfterMs <= 0) return endNow(child, now.pid);
    at(nowMs() + now.endsAfterMs, [this, child, pid = now.pid] { endNow(child, pid); });
}

// ---- Processes ----

pid_t VirtualMachine::fork() {
    meetChildren();
    if (!m_daemonPidFile.empty()) return startDaemon();
    const pid_t pid = ReadOnlyOs::fork();
    const bool isFirst = m_lookedAt == kNobody;
    const std::size_t child = isFirst ? m_nextChild++ : m_lookedAt;
    if (child >= m_children.size()) {
        endProcess(pid);  // nobody's
    } else if (isFirst || !childNow(child).alive) {
        begin(child, pid);
    } else {
        // A program that tells the child to stop; it is done at once.
        endProcess(pid);
        tellToStop(child);
    }
    return pid;
}

void VirtualMachine::meetChildren() {
    if (!m_askForChildren) return;
    auto known = m_askForChildren();
    m_askForChildren = nullptr;
    with([&](std::vector<VirtualChild>& children) { children = std::move(known); });
}

pid_t VirtualMachine::startDaemon() {
    const pid_t pid = ReadOnlyOs::fork();
    for (std::size_t child = 0; child < m_children.size(); ++child)
        begin(child, ReadOnlyOs::fork());
    place(m_daemonPidFile, std::to_string(pid) + "\n");
    return pid;
}

int VirtualMachine::kill(pid_t pid, int signal) {
    if (pid == 0) return killGroup(signal);
    const std::size_t child = childWith(pid);
    const int result = ReadOnlyOs::kill(pid, signal);
    const int error = errno;
    if (child != kNobody && signal == 0) {
        m_lookedAt = child;
        tell(result == 0 ? VirtualEvent::Kind::Looked : VirtualEvent::Kind::FoundGone, child);
    } else if (child != kNobody && result == 0) {
        signalChild(child, signal);
    }
    errno = error;
    return result;
}

void VirtualMachine::signalChild(std::size_t child, int signal) {
    if (signal == SIGKILL) {
        end(child);
        tell(VirtualEvent::Kind::Killed, child);
    } else if (childNow(child).mood != VirtualChild::Mood::Frozen) {
        tellToStop(child);
    }
}

int VirtualMachine::killGroup(int signal) {
    std::size_t count = 0;
    with([&](const std::vector<VirtualChild>& children) { count = children.size(); });
    for (std::size_t child = 0; signal != 0 && child < count; ++child) {
        if (childNow(child).alive) signalChild(child, signal);
    }
    if (m_onGroupSignal && signal != 0) m_onGroupSignal(signal);
    if (isTermination(signal)) raiseSignal(signal);
    return 0;
}

bool VirtualMachine::holdProcess(pid_t pid, uid_t /*user*/) {
    return ReadOnlyOs::kill(pid, 0) == 0;
}

pid_t VirtualMachine::getpid() {
    return kServicePid;
}

// ---- Time and threads ----

std::time_t VirtualMachine::wallClock() {
    return m_wallClock + static_cast<std::time_t>(nowMs() / 1000);
}

void VirtualMachine::giveUp() {
    m_givenUpAtMs = nowMs();
}

void VirtualMachine::sleepMs(std::int64_t durationMs) {
    ReadOnlyOs::sleepMs(durationMs);
    const std::int64_t givenUpAtMs = m_givenUpAtMs;
    if (givenUpAtMs >= 0 && nowMs() - givenUpAtMs > kEndlessMs) throw Endless{};
}

bool VirtualMachine::waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                               std::int64_t deadlineMs) {
    if (m_onWait && &condition != &m_changed && deadlineMs != kForever) m_onWait();
    return ReadOnlyOs::waitUntil(condition, lock, deadlineMs);
}

unsigned int VirtualMachine::currentThreadId() {
    return static_cast<unsigned int>(threadId);
}

int VirtualMachine::startThread(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                                void* argument) {
    auto beginning = std::make_unique<Beginning>(Beginning{body, argument, kServicePid + ++m_threads});
    if (m_threads == 2 && m_onSupervision) m_onSupervision();
    const int error = ReadOnlyOs::startThread(thread, attributes, beginThread, beginning.get());
    if (error != 0) return error;
    static_cast<void>(beginning.release());
    // The new one goes on until it waits, so that lines come in the same order each time.
    ReadOnlyOs::sleepMs(0);
    return 0;
}

// ---- The security library ----

void* VirtualMachine::dlopen(const char* file, int mode) {
    if (std::string(file).ends_with("libSEK_Crypto_Interface.so")) return this;
    return ReadOnlyOs::dlopen(file, mode);
}

void* VirtualMachine::dlsym(void* library, const char* name) {
    return library == this ? VirtualLibrary::find(name) : ReadOnlyOs::dlsym(library, name);
}

int VirtualMachine::dlclose(void* library) {
    return library == this ? 0 : ReadOnlyOs::dlclose(library);
}
