// The library's lock.
//
// Purpose: SEKMutex, the scoped SEKGuard that holds one, and the notes by which clang knows what a lock guards.
// Ownership: values with an identity, not copyable.
// Threads: every member may be called by any thread.
// Units: none.
// Errors: none.
#pragma once

#include <mutex>

#if defined(__clang__)
#define SEK_CAPABILITY(name) __attribute__((capability(name)))
#define SEK_SCOPED_CAPABILITY __attribute__((scoped_lockable))
#define SEK_ACQUIRE(...) __attribute__((acquire_capability(__VA_ARGS__)))
#define SEK_RELEASE(...) __attribute__((release_capability(__VA_ARGS__)))
#define SEK_GUARDED_BY(lock) __attribute__((guarded_by(lock)))
#else
#define SEK_CAPABILITY(name)
#define SEK_SCOPED_CAPABILITY
#define SEK_ACQUIRE(...)
#define SEK_RELEASE(...)
#define SEK_GUARDED_BY(lock)
#endif

class SEK_CAPABILITY("mutex") SEKMutex {
  public:
    SEKMutex() = default;
    SEKMutex(const SEKMutex&) = delete;
    SEKMutex& operator=(const SEKMutex&) = delete;

    void lock() SEK_ACQUIRE() { m_mutex.lock(); }
    void unlock() SEK_RELEASE() { m_mutex.unlock(); }

  private:
    std::mutex m_mutex;
};

class SEK_SCOPED_CAPABILITY SEKGuard {
  public:
    explicit SEKGuard(SEKMutex& mutex) SEK_ACQUIRE(mutex) : m_lockedMutex(mutex) { m_lockedMutex.lock(); }
    ~SEKGuard() SEK_RELEASE() { m_lockedMutex.unlock(); }
    SEKGuard(const SEKGuard&) = delete;
    SEKGuard& operator=(const SEKGuard&) = delete;

  private:
    SEKMutex& m_lockedMutex;
};
