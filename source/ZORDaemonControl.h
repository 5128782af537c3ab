// Control of a running daemon from a second invocation, and the wait for its children.
//
// Purpose: ask for the daemon, stop it, start it and wait until its children answer; in the daemon itself, wait for the
//   supervisor's first report. The service has read its configuration before any of these is called.
// Ownership: owns nothing; PID file and supervisor outlive it.
// Threads: the main thread.
// Units: intervals in seconds.
// Errors: the result, and lines in the log that say why.
#pragma once

class PingChildProcess;
class ZORAction;
class ZORCmdLine;
class ZORPidFile;

// How often something is tested, and the pause after each test.
struct ZORPatience {
    int tries;
    int intervalSec;
};

class ZORDaemonControl {
  public:
    ZORDaemonControl(const ZORPidFile& pidFile, PingChildProcess& supervisor)
        : m_pidFile(pidFile), m_supervisor(supervisor) {}
    ZORDaemonControl(const ZORDaemonControl&) = delete;
    ZORDaemonControl& operator=(const ZORDaemonControl&) = delete;

    // What the two options say; what is not given as a number stays as it is usual.
    static ZORPatience patienceOf(const ZORCmdLine& cmdLine, const char* triesOption,
                                  const char* intervalOption);
    // A file of that name makes the wait in the daemon one without limit.
    static void noteWaitMarker();

    bool isRunning() const;
    bool stop(ZORPatience patience) const;                           // true when the daemon is gone
    bool start(ZORAction& daemonSpawn, ZORPatience patience) const;  // true when ready or already running

    bool waitTillDead(ZORPatience patience) const;
    int testReadyByPinging(
        ZORPatience patience) const;                // 1 ready, 0 gave up, -1 fatal: told the daemon to stop
    int askPCPifReady(ZORPatience patience) const;  // 1 ready, 0 gave up, -1 fatal

  private:
    int stopAfterFatalError() const;  // -1
    void signalDaemon(int pid) const;

    const ZORPidFile& m_pidFile;
    PingChildProcess& m_supervisor;
};
