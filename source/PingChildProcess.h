// The supervisor.
//
// Purpose: a thread that wakes every poll interval, examines every child of the service in list order, pings it,
//   restarts it when it is gone or no longer answers, and, told to stop, stops all children.
//
//   child, and what is observed              what is done                               counts as
//   ---------------------------------------  -----------------------------------------  -------------------
//   without ping action, gone                start                                      -
//   without ping action, alive               -                                          -
//   running, gone                            start                                      restart
//   running, ping -1, below the limit        counter + 1                                restart
//   running, ping -1, limit reached, gone    start                                      restart
//   running, ping -1, limit reached, alive   restart pending, counter 0, stop action    restart
//   running, ping -2                         -                                          failed ping
//   running, ping -3                         -                                          failed ping, fatal
//   running, any other answer (-4 too)       counter 0                                  -
//   restart pending, gone                    start                                      restart
//   restart pending, alive, first cycle      counter + 1                                restart
//   restart pending, alive, second cycle     kill, start at once                        restart
//   any, stop requested                      after the cycle: stop all, wait, kill      -
//
//   start() of a child clears "restart pending" and sets its counter to -10, the grace of a fresh child.
//
// Ownership: held by value in the service, whose children it works on; the wake-up semaphore is immortal.
// Threads: prepare() on the main thread; once the thread runs it alone touches the children. stop() may come from
//   any thread. The flags are written by the supervisor and read by the main thread; a stale read costs one wait.
// Units: seconds and milliseconds as the names say; limits are counts.
// Errors: prepare() throws ZORBadConfigException for a poll interval of 0. What there is no memory for is left out
//   and done in the next cycle, or at the stop counts as failed. The loop catches nothing else: any other exception
//   ends the supervision, with a FATAL line.
#pragma once

#include <atomic>
#include <cstdint>

#include "TVLIDOM_Node.h"
#include "TVLThread.h"

class ZORBootstrapService;
class ZORChildProcess;

class PingChildProcess : public TVLThread {
  public:
    PingChildProcess();
    ~PingChildProcess() override;
    void run() override;

    void setZORPointer(ZORBootstrapService* service) { m_pService = service; }
    void prepare(TVLIDOM_Element root);

    // Asks the loop to end and returns at once; `finished` is posted when the children are down. Only the
    // first request counts.
    void stop(TVLThreadSemaphore* finished);

    // Ends the thread if it still runs, children and all, and joins it.
    void finish();

    int waitForDeath();  // 1 when no child is alive
    void stopProcesses();
    void killProcesses();

    // One ping of every child, for the process that controls the daemon: 0 when all answered, -1 after a
    // fatal answer, -4 when one is not ready, otherwise the number of failed pings.
    int testAllProcesses();

    // The first flag is read once more in the end: a cycle that ends in between may have changed both.
    int isReady() const {
        const bool ready = m_allChildrenRunning.load() != 0 && m_allPingsAnswered.load() != 0;
        return ready && m_allChildrenRunning.load() != 0 ? 1 : 0;
    }
    int hasFatalError() const { return m_fatalError.load(); }

    // Another limit from the file that is for it, if there is one that is new.
    void readLimitOverride();
    int getFailedPingLimit() const { return m_failedPingLimit; }
    int getPollIntervalSec() const { return m_pollIntervalSec; }

  private:
    friend class TestAccess;

    // What one poll cycle has seen.
    struct Cycle {
        int restarts = 0;
        int failedPings = 0;
        int fatals = 0;
    };

    void preparePolling(const I18NString& interval);
    void prepareShutdown(const I18NString& checkInterval);
    void supervise();
    bool waitForNextCycle();  // false when a stop was requested
    void runCycle();
    void examine(ZORChildProcess& child, Cycle& cycle);
    void examineWithoutPing(ZORChildProcess& child);
    void examineRunning(ZORChildProcess& child, Cycle& cycle);
    void examinePending(ZORChildProcess& child, Cycle& cycle);
    void countFailedPing(ZORChildProcess& child, Cycle& cycle);
    void beginRestart(ZORChildProcess& child);
    void shutDown();
    void stopProcess(ZORChildProcess& child);
    int countLive();

    // Made with the object, so that the thread needs no memory to begin.
    TVLThreadSemaphore* const m_wakeup = TVLThreadSemaphore::createImmortal(0);
    std::atomic<TVLThreadSemaphore*> m_semaWakeup{nullptr};    // the same from the beginning of run()
    ZORBootstrapService* m_pService = nullptr;                 // not owned
    std::atomic<TVLThreadSemaphore*> m_semaFinished{nullptr};  // not owned; set: a stop has been requested
    int m_pollIntervalSec = 30;
    int m_failedPingLimit = 2;
    std::atomic<int> m_stopRequested{0};
    int m_stopCommandFailed = 0;
    // Of the last cycle: nothing was dead, silent or being restarted; no ping failed without restart; some ping
    // was fatal (also set when the thread has ended).
    std::atomic<int> m_allChildrenRunning{0};
    std::atomic<int> m_allPingsAnswered{0};
    std::atomic<int> m_fatalError{0};
    int m_checkForShutdownIntervalMs = 500;
    int m_maxShutdownChecks = 30;
    std::int64_t m_lastLimitFileTimeSec = 0;
};
