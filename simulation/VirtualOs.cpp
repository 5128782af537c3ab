#include "VirtualOs.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "TVLThread.h"

VirtualOs::VirtualOs() : m_before(install(this)) {}

VirtualOs::~VirtualOs() {
    install(m_before);
}

void VirtualOs::at(std::int64_t atMs, std::function<void()> event) {
    const Lock lock(m_mutex);
    m_events.emplace(atMs, std::move(event));
}

void VirtualOs::raiseSignal(int signal) {
    const Lock lock(m_mutex);
    m_pendingSignals.push_back(signal);
    for (Waiter* const waiter : std::list<Waiter*>(m_waiters)) {
        if (waiter->reason == &m_pendingSignals) release(*waiter, true);
    }
}

VirtualOs::Process& VirtualOs::process(pid_t pid) {
    const Lock lock(m_mutex);
    return m_processes[pid];
}

std::vector<pid_t> VirtualOs::livingProcesses() {
    const Lock lock(m_mutex);
    std::vector<pid_t> living;
    for (const auto& [pid, process] : m_processes) {
        if (process.alive) living.push_back(pid);
    }
    return living;
}

void VirtualOs::endProcess(pid_t pid) {
    const Lock lock(m_mutex);
    const auto entry = m_processes.find(pid);
    if (entry == m_processes.end()) return;
    entry->second.alive = false;
    if (!m_keepsNotes) m_processes.erase(entry);
}

void VirtualOs::failForks(int count, int error) {
    m_forksToFail = count;
    m_forkError = error;
}

void VirtualOs::failKills(int error) {
    m_killError = error;
}

void VirtualOs::forkIntoChild(int execveError) {
    m_forkIntoChild = true;
    m_execveError = execveError;
}

void VirtualOs::failNextWait() {
    m_failNextWait = true;
}

pid_t VirtualOs::fork() {
    const Lock lock(m_mutex);
    if (m_forkIntoChild) {
        m_forkIntoChild = false;
        return 0;
    }
    if (m_forksToFail > 0) {
        --m_forksToFail;
        errno = m_forkError;
        return -1;
    }
    m_processes[++m_lastPid] = m_born;
    return m_lastPid;
}

int VirtualOs::execve(const char* path, char* const argv[], char* const envp[]) {
    std::vector<std::string> call{path};
    for (; *argv != nullptr; ++argv)
        call.emplace_back(*argv);
    for (; *envp != nullptr; ++envp)
        call.emplace_back(*envp);
    m_executed.push_back(call);
    errno = m_execveError;
    return -1;
}

int VirtualOs::kill(pid_t pid, int signal) {
    const Lock lock(m_mutex);
    if (signal != 0 && m_keepsNotes) m_kills.push_back({pid, signal});
    if (signal == 0) ++m_aliveTests;
    if (signal != 0 && m_killError != 0) {
        errno = m_killError;
        return -1;
    }
    if (pid == 0) return 0;
    const auto entry = m_processes.find(pid);
    if (entry == m_processes.end() || !entry->second.alive) {
        errno = ESRCH;
        return -1;
    }
    Process& process = entry->second;
    if (signal != 0 && m_keepsNotes) process.signals.push_back(signal);
    if (signal == SIGKILL && !process.ignoresKill) process.alive = false;
    if (signal == SIGTERM && !process.ignoresTerm) process.alive = false;
    return 0;
}

bool VirtualOs::holdProcess(pid_t pid, uid_t user) {
    const Lock lock(m_mutex);
    const auto entry = m_processes.find(pid);
    const bool lives = entry != m_processes.end() && entry->second.alive;
    if (lives && entry->second.user == user) return true;
    errno = lives ? EPERM : ESRCH;
    return false;
}

pid_t VirtualOs::setsid() {
    return 1;
}

void VirtualOs::exitProcess(int status) {
    throw ProcessExit{status};
}

int VirtualOs::waitForSignal(const sigset_t& /*signals*/) {
    Lock lock(m_mutex);
    if (m_pendingSignals.empty()) {
        Waiter waiter{&m_pendingSignals, kForever};
        wait(lock, waiter);
    }
    if (m_pendingSignals.empty()) return 0;
    const int signal = m_pendingSignals.front();
    m_pendingSignals.pop_front();
    return signal;
}

void VirtualOs::signalThread(pthread_t /*thread*/, int signal) {
    raiseSignal(signal);
}

std::int64_t VirtualOs::nowMs() {
    const Lock lock(m_mutex);
    return m_nowMs;
}

void VirtualOs::sleepMs(std::int64_t durationMs) {
    Lock lock(m_mutex);
    if (m_keepsNotes) m_sleeps.push_back(durationMs);
    pass(lock, durationMs);
}

// Looks every ten milliseconds: what makes a real descriptor writable is an event of the test.
bool VirtualOs::waitWritable(int descriptor, std::int64_t timeoutMs) {
    const std::int64_t deadlineMs = nowMs() + timeoutMs;
    while (!TVLRealOs::waitWritable(descriptor, 0)) {
        Lock lock(m_mutex);
        if (m_nowMs >= deadlineMs) return false;
        pass(lock, std::min<std::int64_t>(10, deadlineMs - m_nowMs));
    }
    return true;
}

bool VirtualOs::waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& callersLock,
                          std::int64_t deadlineMs) {
    Lock lock(m_mutex);
    if (m_failNextWait && deadlineMs == kForever) {
        m_failNextWait = false;
        throw TVLThreadResourceError("refused", __FILE__, __LINE__);
    }
    if (deadlineMs <= m_nowMs) return false;
    Waiter waiter{&condition, deadlineMs};
    callersLock.unlock();
    wait(lock, waiter);
    lock.unlock();
    callersLock.lock();
    if (waiter.refused) throw TVLThreadResourceError("refused", __FILE__, __LINE__);
    return waiter.notified;
}

void VirtualOs::wakeAll(std::condition_variable& condition) {
    const Lock lock(m_mutex);
    for (Waiter* const waiter : std::list<Waiter*>(m_waiters)) {
        if (waiter->reason == &condition) release(*waiter, true);
    }
}

void VirtualOs::threadStarts() {
    const Lock lock(m_mutex);
    ++m_running;
    ++m_threadsStarted;
}

void VirtualOs::threadEnds() {
    Lock lock(m_mutex);
    --m_running;
    moveTime(lock);
}

void VirtualOs::pass(Lock& lock, std::int64_t durationMs) {
    Waiter waiter{nullptr, m_nowMs + durationMs};
    wait(lock, waiter);
}

void VirtualOs::wait(Lock& lock, Waiter& waiter) {
    m_waiters.push_back(&waiter);
    --m_running;
    moveTime(lock);
    waiter.wakeup.wait(lock, [&] { return waiter.released; });
}

void VirtualOs::release(Waiter& waiter, bool notified) {
    m_waiters.remove(&waiter);
    waiter.released = true;
    waiter.notified = notified;
    ++m_running;
    waiter.wakeup.notify_one();
}

// False when there was none to refuse.
bool VirtualOs::refuseWaits() {
    bool refused = false;
    for (Waiter* const waiter : std::list<Waiter*>(m_waiters)) {
        if (waiter->reason == &m_pendingSignals) continue;
        waiter->refused = refused = true;
        release(*waiter, false);
    }
    return refused;
}

// Called with nothing else to do on this thread: while nobody runs, time goes on to what is due next.
void VirtualOs::moveTime(Lock& lock) {
    while (m_running == 0) {
        const auto next = std::min_element(
            m_waiters.begin(), m_waiters.end(),
            [](const Waiter* left, const Waiter* right) { return left->deadlineMs < right->deadlineMs; });
        const bool someoneIsDue = next != m_waiters.end() && (*next)->deadlineMs != kForever;
        if (!m_events.empty() && (!someoneIsDue || m_events.begin()->first <= (*next)->deadlineMs)) {
            auto event = m_events.extract(m_events.begin());
            m_nowMs = std::max(m_nowMs, event.key());
            ++m_running;
            lock.unlock();
            event.mapped()();
            lock.lock();
            --m_running;
        } else if (someoneIsDue) {
            m_nowMs = std::max(m_nowMs, (*next)->deadlineMs);
            release(**next, false);
        } else {
            if (m_waiters.empty() || (refusesEndlessWaits() && refuseWaits())) return;
            std::fputs("every thread waits for ever and no event is left\n", stderr);
            std::abort();
        }
    }
}
