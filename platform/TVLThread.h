// Threads.
//
// Purpose: TVLThread, a POSIX thread of a given stack size that runs either its own run() or a
//   TVLThreadRunnable; TVLThreadInit, the object that the process keeps while it uses threads;
//   TVLThreadResourceError.
// Ownership: a thread object must outlive its run(). The destructor joins a started thread; a derived class
//   whose run() uses its own members joins in its own destructor. A runnable is not owned.
// Threads: start() and join() belong to one controlling thread; isAlive() may be called from any.
// Units: stack sizes in bytes, sleeps in milliseconds of the monotonic clock.
// Errors: start() throws TVLThreadResourceError when the system gives no thread. An exception that leaves
//   run() ends that thread only.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstddef>

#include "TVLThreadSync.h"
#include "TVLThrowable.h"

// The system refuses a thread or a wait.
class TVLThreadResourceError : public TVLThrowable {
  public:
    using TVLThrowable::TVLThrowable;
};

class TVLThreadRunnable {
  public:
    virtual ~TVLThreadRunnable();
    virtual void run() = 0;
};

// Held for as long as the process uses threads. The POSIX library sets itself up; what needs a moment of its
// own is the real doorway to the operating system, which must exist before the first thread does.
class TVLThreadInit {
  public:
    TVLThreadInit();
    TVLThreadInit(const TVLThreadInit&) = delete;
    TVLThreadInit& operator=(const TVLThreadInit&) = delete;
};

class TVLThread {
  public:
    TVLThread(TVLThreadRunnable* runnable, std::size_t stackSizeBytes);
    TVLThread(const TVLThread&) = delete;
    TVLThread& operator=(const TVLThread&) = delete;

    virtual ~TVLThread();
    virtual void run();  // the thread body; the base class runs the runnable, if there is one
    virtual void start();
    virtual void join();           // returns at once for a thread that was never started
    virtual bool isAlive() const;  // started and not yet at the end of run()

    // Sends a signal to this thread, as long as it has been started and not been joined.
    void interrupt(int signal);

    // Blocks the calling thread; 0 or less returns at once.
    static void sleep(int durationMs);
    // The kernel's id of the calling thread.
    static unsigned int currentThreadId();

  private:
    static void* entry(void* self);

    TVLThreadRunnable* m_runnable;  // not owned
    std::size_t m_stackSizeBytes;
    pthread_t m_thread{};
    bool m_joinable = false;
    std::atomic<bool> m_alive{false};
    TVLThreadSemaphore m_finished{0};
};
