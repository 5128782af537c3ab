// The doorway to the operating system.
//
// Purpose: the calls whose effects are hard to provoke or slow to wait for: processes, signals and time. The
//   base class is the real thing; a test derives from it, overrides the calls it cares about and installs the
//   result. Everything that waits (TVLThread, TVLThreadSemaphore) does so here, on one clock.
// Ownership: current() is a process-wide object that is never destroyed.
// Threads: every member may be called from any thread.
// Units: times are milliseconds of the monotonic clock, which steps of the wall clock do not touch. No pause and
//   no wait ends before its time, not by a fraction of a millisecond.
// Errors: as the system calls of the same names: -1 with errno set; holdProcess() likewise false.
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <limits>
#include <mutex>

#include "TVLProcessTable.h"

class TVLOs {
  public:
    static constexpr std::int64_t kForever = std::numeric_limits<std::int64_t>::max();

    TVLOs() = default;
    TVLOs(const TVLOs&) = delete;
    TVLOs& operator=(const TVLOs&) = delete;
    virtual ~TVLOs();

    // Processes.
    virtual pid_t fork();  // child: 0; parent: the child's id, or -1
    virtual int execve(const char* path, char* const argv[], char* const envp[]);  // returns only on failure
    // Speaks to the process that fork() made, or holdProcess() was given, under this id; when that one has ended,
    // nobody else gets the signal: ESRCH. Other ids go to the system as they are.
    virtual int kill(pid_t pid, int signal);
    // From now on kill() with this id means the process that has it now, provided its real user is `user`. Otherwise
    // false: EPERM for another's, ESRCH for none.
    virtual bool holdProcess(pid_t pid, uid_t user);
    virtual pid_t setsid();
    virtual void exitProcess(int status);  // exit(status); a test's replacement throws instead

    // The number of a pending signal of the set, waiting for one; 0 when the wait ended without a signal.
    virtual int waitForSignal(const sigset_t& signals);
    // Sends a signal to one thread of this process.
    virtual void signalThread(pthread_t thread, int signal);

    // Time.
    virtual std::int64_t nowMs();  // rounded up, so that a deadline counted from it is never early
    virtual void sleepMs(std::int64_t durationMs);

    // Waits until wakeAll() on the same condition or until nowMs() reaches the deadline (kForever: none). The
    // lock is released meanwhile. False when the deadline has passed; may return true without a reason, so
    // the caller tests its own condition again. Throws TVLThreadResourceError when the system refuses to
    // wait.
    virtual bool waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                           std::int64_t deadlineMs);
    virtual void wakeAll(std::condition_variable& condition);

    // Waits until the descriptor can be written, or writing would tell of an error; false when the time has passed.
    virtual bool waitWritable(int descriptor, std::int64_t timeoutMs);

    // Called by the creator before a thread begins and by the thread when it ends, so that a virtual clock
    // knows whom to wait for.
    virtual void threadStarts();
    virtual void threadEnds();

    static TVLOs& current();

    // Gives each of the descriptors 0, 1 and 2 that is not open to a placeholder, so that no file and no connection
    // ever gets its number. Reading and writing it fails as on a closed one, and a program started from here
    // finds it closed. To be called before anything is opened.
    static void occupyStandardStreams();
    // Leads all three to "/dev/null", which children then inherit as well. False, with errno set and the numbers
    // occupied, when that fails.
    static bool redirectStandardStreams();

  protected:
    // Makes `os` the current one and returns the one before; null restores the real one.
    static TVLOs* install(TVLOs* os);

  private:
    TVLProcessTable m_processes;
};
