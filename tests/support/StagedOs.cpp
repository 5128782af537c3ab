#include "StagedOs.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "ScriptedSek.h"

StagedOs::StagedOs() {
    ScriptedSek::instance().onEntry = [this] { moment(); };
    ScriptedSek::instance().onExit = [this] { moment(); };
}

StagedOs::~StagedOs() {
    ScriptedSek::instance().onEntry = nullptr;
    ScriptedSek::instance().onExit = nullptr;
}

void StagedOs::watch(std::function<void(int)> action) {
    m_action = std::move(action);
    m_moments = 0;
    m_watching = true;
}

void StagedOs::watchNoMore() {
    m_watching = false;
}

void StagedOs::mustEndBefore(std::int64_t atMs) {
    at(atMs, [this] {
        std::fprintf(stderr, "still going on after %d moments\n", moments());
        std::abort();
    });
}

std::vector<std::string> StagedOs::wrongs() const {
    const std::lock_guard<std::mutex> guard(m_notes);
    return m_wrongs;
}

void StagedOs::moment() {
    if (!m_watching) return;
    const int number = ++m_moments;
    if (m_action) m_action(number);
}

void StagedOs::noteWrong(const std::string& what) {
    const std::lock_guard<std::mutex> guard(m_notes);
    m_wrongs.push_back(what);
}

pid_t StagedOs::fork() {
    moment();
    const pid_t child = VirtualOs::fork();
    const auto living = static_cast<int>(livingProcesses().size());
    if (living > m_mostProcesses) noteWrong("process " + std::to_string(child) + " is one too many");
    return child;
}

int StagedOs::kill(pid_t pid, int signal) {
    moment();
    const int result = VirtualOs::kill(pid, signal);
    const int error = errno;
    {
        const std::lock_guard<std::mutex> guard(m_notes);
        if (m_knownAsGone.count(pid) != 0)
            m_wrongs.push_back("signal " + std::to_string(signal) + " to process " + std::to_string(pid) +
                               ", which was known to be gone");
        if (result != 0 && error == ESRCH && signal == 0) m_knownAsGone.insert(pid);
    }
    errno = error;
    return result;
}

pid_t StagedOs::setsid() {
    moment();
    return VirtualOs::setsid();
}

int StagedOs::waitForSignal(const sigset_t& signals) {
    moment();
    return VirtualOs::waitForSignal(signals);
}

void StagedOs::signalThread(pthread_t thread, int signal) {
    moment();
    VirtualOs::signalThread(thread, signal);
}

std::int64_t StagedOs::nowMs() {
    moment();
    return VirtualOs::nowMs();
}

void StagedOs::sleepMs(std::int64_t durationMs) {
    moment();
    VirtualOs::sleepMs(durationMs);
}

bool StagedOs::waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                         std::int64_t deadlineMs) {
    moment();
    return VirtualOs::waitUntil(condition, lock, deadlineMs);
}

void StagedOs::wakeAll(std::condition_variable& condition) {
    moment();
    VirtualOs::wakeAll(condition);
}

void StagedOs::threadStarts() {
    moment();
    ++m_threads;
    VirtualOs::threadStarts();
}

void StagedOs::threadEnds() {
    moment();
    --m_threads;
    VirtualOs::threadEnds();
}
