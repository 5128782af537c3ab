// An operating system in which time is virtual and processes are only noted down.
//
// Purpose: stands in for TVLOs while it exists, for tests and for whoever wants to see what the service would do. Time
//   moves when every thread waits: straight to the next deadline or scripted event. Hours of supervision take
//   milliseconds and go the same way each time.
// Ownership: installs itself when constructed and takes itself out when destroyed; one at a time.
// Threads: threads started through TVLThread meanwhile are part of the game; the creating thread is the first.
// Units: milliseconds since the construction.
// Errors: as TVLOs says, where a failure has been asked for.
#pragma once

#include <csignal>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "TVLRealOs.h"

class VirtualOs : public TVLRealOs {
  public:
    // Thrown by exitProcess() in place of ending the process.
    struct ProcessExit {
        int status;
    };
    struct Process {
        bool alive = true;
        uid_t user = 0;
        bool ignoresTerm = false;  // SIGTERM does nothing
        bool ignoresKill = false;  // SIGKILL does nothing (a process that the kernel cannot end yet)
        std::vector<int> signals;  // received, without the tests by signal 0
    };
    struct Kill {
        int pid;
        int signal;
    };

    VirtualOs();
    ~VirtualOs() override;

    // Runs `event` when time reaches `atMs`, on whatever thread moved the time. It must not wait itself.
    void at(std::int64_t atMs, std::function<void()> event);
    // Lets a waiting waitForSignal() return.
    void raiseSignal(int signal);

    Process& process(pid_t pid);  // created, alive, when not known yet
    pid_t lastPid() const { return m_lastPid; }
    // Both may be called while threads run.
    std::vector<pid_t> livingProcesses();
    void endProcess(pid_t pid);
    const std::vector<Kill>& kills() const { return m_kills; }  // every kill but signal 0
    int aliveTests() const { return m_aliveTests; }             // signal 0
    const std::vector<std::int64_t>& sleeps() const { return m_sleeps; }
    int threadsStarted() const { return m_threadsStarted; }

    // For whoever stays for a year: sleeps and signals are not noted.
    void keepNoNotes() { m_keepsNotes = false; }
    void refuseTerm() { m_born.ignoresTerm = true; }  // of every process made from now on
    void failForks(int count, int error);             // the next forks fail with that errno
    void failKills(int error);                        // from now on every kill but signal 0 fails; 0: no more
    void forkIntoChild(int execveError);              // the next fork returns 0, execve fails with that errno
    void failNextWait();  // the next wait without limit throws TVLThreadResourceError
    const std::vector<std::vector<std::string>>& executed() const {
        return m_executed;
    }  // path, then arguments

    pid_t fork() override;
    int execve(const char* path, char* const argv[], char* const envp[]) override;
    int kill(pid_t pid, int signal) override;
    bool holdProcess(pid_t pid, uid_t user) override;
    pid_t setsid() override;
    void exitProcess(int status) override;
    int waitForSignal(const sigset_t& signals) override;
    void signalThread(pthread_t thread, int signal) override;
    std::int64_t nowMs() override;
    void sleepMs(std::int64_t durationMs) override;
    bool waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                   std::int64_t deadlineMs) override;
    void wakeAll(std::condition_variable& condition) override;
    bool waitWritable(int descriptor, std::int64_t timeoutMs) override;
    void threadStarts() override;
    void threadEnds() override;

  protected:
    // Every thread waits for ever and no event is left. True: waits for a condition are refused; false: the process ends
    // with a message.
    virtual bool refusesEndlessWaits() { return false; }

  private:
    struct Waiter {
        const void* reason;
        std::int64_t deadlineMs;
        bool released = false;
        bool notified = false;
        bool refused = false;
        std::condition_variable wakeup{};
    };
    using Lock = std::unique_lock<std::mutex>;

    void pass(Lock& lock, std::int64_t durationMs);
    void wait(Lock& lock, Waiter& waiter);
    void release(Waiter& waiter, bool notified);
    void moveTime(Lock& lock);
    bool refuseWaits();

    TVLOs* m_before;
    std::mutex m_mutex;
    std::int64_t m_nowMs = 0;
    int m_running = 1;
    std::list<Waiter*> m_waiters;
    std::multimap<std::int64_t, std::function<void()>> m_events;
    std::deque<int> m_pendingSignals;

    std::map<pid_t, Process> m_processes;
    Process m_born;  // what a new process is like
    pid_t m_lastPid = 1000;
    std::vector<Kill> m_kills;
    int m_aliveTests = 0;
    std::vector<std::int64_t> m_sleeps;
    int m_threadsStarted = 0;
    int m_forksToFail = 0;
    int m_forkError = 0;
    int m_killError = 0;
    int m_execveError = 0;
    bool m_forkIntoChild = false;
    bool m_failNextWait = false;
    bool m_keepsNotes = true;
    std::vector<std::vector<std::string>> m_executed;
};
