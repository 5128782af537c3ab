// The doorway to the operating system.
//
// Purpose: whatever can fail or take its time outside of this program is called here: files, processes and libraries as
//   the bases say, signals, time and threads. TVLRealOs is the real thing, which a test derives from, stands before, or
//   replaces. Everything that waits (TVLThread, TVLThreadSemaphore) does so here, on one clock.
// Ownership: current() is a process-wide object that is never destroyed.
// Threads: every member may be called from any thread, where a base does not say otherwise.
// Units: times are milliseconds of the monotonic clock, which steps of the wall clock do not touch. No pause and
//   no wait ends before its time, not by a fraction of a millisecond.
// Errors: as the system calls of the same names: -1 with errno set; holdProcess() likewise false; startThread() as
//   pthread_create().
#pragma once

#include <pthread.h>

#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <limits>
#include <mutex>

#include "TVLOsFiles.h"
#include "TVLOsLoader.h"
#include "TVLOsProcesses.h"

class TVLOs : public TVLOsFiles, public TVLOsProcesses, public TVLOsLoader {
  public:
    static constexpr std::int64_t kForever = std::numeric_limits<std::int64_t>::max();

    // The number of a pending signal of the set, waiting for one; 0 when the wait ended without a signal.
    virtual int waitForSignal(const sigset_t& signals) = 0;
    // Sends a signal to one thread of this process.
    virtual void signalThread(pthread_t thread, int signal) = 0;

    // Time.
    virtual std::int64_t nowMs() = 0;  // rounded up, so that a deadline counted from it is never early
    virtual void sleepMs(std::int64_t durationMs) = 0;
    virtual std::time_t wallClock() = 0;  // seconds since the epoch

    // Waits until wakeAll() on the same condition or until nowMs() reaches the deadline (kForever: none). The
    // lock is released meanwhile. False when the deadline has passed; may return true without a reason, so
    // the caller tests its own condition again. Throws TVLThreadResourceError when the system refuses to
    // wait.
    virtual bool waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                           std::int64_t deadlineMs) = 0;
    virtual void wakeAll(std::condition_variable& condition) = 0;

    // Threads. 0 when the thread has been started, or else an errno.
    virtual int startThread(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                            void* argument) = 0;
    virtual unsigned int currentThreadId() = 0;  // the kernel's
    // Called by the creator before a thread begins and by the thread when it ends, so that a virtual clock
    // knows whom to wait for.
    virtual void threadStarts() = 0;
    virtual void threadEnds() = 0;

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
};
