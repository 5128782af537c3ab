// The thread that waits for termination signals.
//
// Purpose: writes the PID file, waits for SIGINT, SIGQUIT, SIGTERM or SIGHUP, which are blocked in every
//   thread, and turns the first one into an orderly stop of the service. It ends with that; later signals
//   stay pending.
// Ownership: the service is not owned. The destructor ends a thread that is still waiting, and joins it.
// Threads: started and destroyed by the main thread.
// Units: none.
// Errors: none.
#pragma once

#include <atomic>

#include "TVLThread.h"

class ZORBootstrapService;

class ZORSignalHandlerThread : public TVLThread {
  public:
    explicit ZORSignalHandlerThread(ZORBootstrapService* service);
    ~ZORSignalHandlerThread() override;
    void run() override;

    // The four signals, for the mask and for the wait.
    static sigset_t terminationSignals();

  private:
    void writePidFile();

    ZORBootstrapService* m_service;  // not owned
    std::atomic<bool> m_dismissed{false};
};
