// Virtual time in which something may happen at any moment.
//
// Purpose: every call through the doorway and every call of the scripted security library, and its return, is a moment.
//   They are counted while a life is watched, and at each of them a test may raise a signal or end a process. What was
//   done wrongly on the way is noted down.
// Ownership: as VirtualOs. Takes the scripted library's hooks for as long as it exists.
// Threads: as VirtualOs; the action runs on whatever thread has come to the moment, which may hold locks of its own. It
//   must not wait.
// Units: milliseconds; moments are counted from 1.
#pragma once

#include <atomic>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "VirtualOs.h"

class StagedOs : public VirtualOs {
  public:
    StagedOs();
    ~StagedOs() override;

    // From now on moments are counted, and `action` is called at each.
    void watch(std::function<void(int moment)> action = {});
    void watchNoMore();
    int moments() const { return m_moments; }
    // Threads that were started and have not ended.
    int threads() const { return m_threads; }
    // A life that reaches this time does not end by itself: the test ends there and then.
    void mustEndBefore(std::int64_t atMs);

    // What no life may do, in words: to speak to a process after having been told that it is gone, to run more than
    // `mostProcesses` at a time.
    void allowProcesses(int most) { m_mostProcesses = most; }
    std::vector<std::string> wrongs() const;

    pid_t fork() override;
    int kill(pid_t pid, int signal) override;
    pid_t setsid() override;
    int waitForSignal(const sigset_t& signals) override;
    void signalThread(pthread_t thread, int signal) override;
    std::int64_t nowMs() override;
    void sleepMs(std::int64_t durationMs) override;
    bool waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                   std::int64_t deadlineMs) override;
    void wakeAll(std::condition_variable& condition) override;
    void threadStarts() override;
    void threadEnds() override;

  private:
    void moment();
    void noteWrong(const std::string& what);

    std::function<void(int)> m_action;
    std::atomic<bool> m_watching{false};
    std::atomic<int> m_moments{0};
    std::atomic<int> m_threads{0};
    int m_mostProcesses = 1000;
    mutable std::mutex m_notes;  // guards the two below
    std::set<pid_t> m_knownAsGone;
    std::vector<std::string> m_wrongs;
};
