// Locks and semaphores.
//
// Purpose: TVLThreadMutex, the scoped TVLThreadGuard that holds one, and the counting TVLThreadSemaphore.
// Ownership: values with an identity, not copyable. A semaphore from createImmortal() is never destroyed.
// Threads: every member may be called from any thread.
// Units: time limits in milliseconds of the monotonic clock.
// Errors: waits throw TVLThreadResourceError when the system refuses to wait; nothing else throws.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

#if defined(__clang__)
#define TVL_CAPABILITY(name) __attribute__((capability(name)))
#define TVL_SCOPED_CAPABILITY __attribute__((scoped_lockable))
#define TVL_ACQUIRE(...) __attribute__((acquire_capability(__VA_ARGS__)))
#define TVL_RELEASE(...) __attribute__((release_capability(__VA_ARGS__)))
#define TVL_GUARDED_BY(lock) __attribute__((guarded_by(lock)))
#define TVL_PT_GUARDED_BY(lock) __attribute__((pt_guarded_by(lock)))
#define TVL_REQUIRES(...) __attribute__((requires_capability(__VA_ARGS__)))
// For access that is safe for another reason, which stands beside it.
#define TVL_UNCHECKED __attribute__((no_thread_safety_analysis))
#else
#define TVL_CAPABILITY(name)
#define TVL_SCOPED_CAPABILITY
#define TVL_ACQUIRE(...)
#define TVL_RELEASE(...)
#define TVL_GUARDED_BY(lock)
#define TVL_PT_GUARDED_BY(lock)
#define TVL_REQUIRES(...)
#define TVL_UNCHECKED
#endif

class TVL_CAPABILITY("mutex") TVLThreadMutex {
  public:
    TVLThreadMutex() = default;
    ~TVLThreadMutex();
    TVLThreadMutex(const TVLThreadMutex&) = delete;
    TVLThreadMutex& operator=(const TVLThreadMutex&) = delete;

    void lock() TVL_ACQUIRE() { m_mutex.lock(); }
    void unlock() TVL_RELEASE() { m_mutex.unlock(); }

    // From now on every fork() waits for this lock and finds it free in parent and child: a forked child can
    // take it even though the thread that might have held it does not exist there. For one lock at
    // a time.
    void holdAcrossFork();

  private:
    friend class TVLThreadGuard;

    static void lockHeld();
    static void unlockHeld();

    static TVLThreadMutex* m_heldAcrossFork;
    std::mutex m_mutex;
};

class TVL_SCOPED_CAPABILITY TVLThreadGuard {
  public:
    explicit TVLThreadGuard(TVLThreadMutex& mutex) TVL_ACQUIRE(mutex) : m_lock(mutex.m_mutex) {}
    ~TVLThreadGuard() TVL_RELEASE();
    TVLThreadGuard(const TVLThreadGuard&) = delete;
    TVLThreadGuard& operator=(const TVLThreadGuard&) = delete;

    // For a wait, which releases the lock meanwhile and holds it again when it returns.
    std::unique_lock<std::mutex>& held() { return m_lock; }

  private:
    std::unique_lock<std::mutex> m_lock;
};

class TVLThreadSemaphore {
  public:
    explicit TVLThreadSemaphore(int count);
    TVLThreadSemaphore(const TVLThreadSemaphore&) = delete;
    TVLThreadSemaphore& operator=(const TVLThreadSemaphore&) = delete;

    // A semaphore for the rest of the process: the thread that posts it may still be inside post() when the
    // thread that waited has gone on and ended its owner.
    static TVLThreadSemaphore* createImmortal(int count);

    void post();
    void wait();
    // 1 when it was posted, 0 when `timeoutMs` passed without a post. A limit of 0 or less tests once. A wait that
    // the system refuses is slept in place of it: a post that comes meanwhile is seen when the time has passed.
    int timedWait(int timeoutMs);

  private:
    bool take();
    bool takeBefore(std::int64_t deadlineMs);

    TVLThreadMutex m_mutex;
    std::condition_variable m_posted;
    int m_count TVL_GUARDED_BY(m_mutex);
};
