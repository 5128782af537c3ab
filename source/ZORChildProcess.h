// One supervised child.
//
// Purpose: a named program with a start action, a stop action and an optional ping action, and the process
//   that the start action made last.
// Ownership: owns the three actions. The destructor swallows what their destructors throw.
// Threads: the main thread until the supervisor runs, then the supervisor alone (but for the name and
//   handle).
// Units: a handle is a process id, -1 for none; a value below 1 is never tested or killed.
// Errors: prepare() throws ZORBadConfigException; nothing else throws.
#pragma once

#include <string>

#include "TVLIDOM_Node.h"

class ZORAction;
class ZORSockSendAction;
class ZORSpawnAction;

class ZORChildProcess {
  public:
    ZORChildProcess();
    ZORChildProcess(const ZORChildProcess&) = delete;
    ZORChildProcess& operator=(const ZORChildProcess&) = delete;
    virtual ~ZORChildProcess() noexcept(false);

    void prepare(TVLIDOM_Element process);
    bool validatePing(TVLIDOM_Element ping);  // whether a ping action is to be built

    void start();
    int isAlive();  // 1 while the process exists; forgets the handle when it does not
    int kill();     // SIGKILL; 0, or -1, or the handle when there is no process

    const char* getName() const { return m_name.c_str(); }
    int getProcessHandle() const { return m_handle; }

    // Null before prepare().
    const ZORSpawnAction* getStartAction() const { return m_startAction; }

    // Executed by the supervisor directly.
    ZORAction& getStopAction() { return *m_stopAction; }
    ZORSockSendAction* getPingAction() { return m_pingAction; }  // null: supervised by its existence only

    // The supervisor's notes on this child.
    int m_pingCounter = 0;     // failed pings in a row; start() sets it to the grace of a fresh child
    int m_restartPending = 0;  // 1: asked to stop after unanswered pings, to be restarted when gone

  private:
    friend class TestAccess;

    void prepareStop(const TVLIDOM_Element& process);
    void preparePing(const TVLIDOM_Element& process);

    ZORSpawnAction* m_startAction = nullptr;    // owned
    ZORAction* m_stopAction = nullptr;          // owned
    ZORSockSendAction* m_pingAction = nullptr;  // owned
    int m_handle = -1;
    std::string m_name;
};
