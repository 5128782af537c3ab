// Something the service does to a child process: start it, ping it, stop it.
//
// Purpose: prepared once from its configuration element, executed any number of times, with an optional pause
//   after every execution.
// Ownership: deleted through this class by its owner. A destructor may throw; the owner swallows that.
// Threads: executed by the thread that owns the child at that moment: the main thread for the first start,
//   the supervisor afterwards.
// Units: the pause is configured in seconds and kept in milliseconds.
// Errors: prepare() throws ZORBadConfigException; execute() returns the kind's status, negative for failure: -1 when
//   the memory does not suffice.
#pragma once

#include "TVLIDOM_Node.h"

class ZORAction {
  public:
    ZORAction() = default;
    ZORAction(const ZORAction&) = delete;
    ZORAction& operator=(const ZORAction&) = delete;

    virtual ~ZORAction() noexcept(false);
    virtual int execute();  // executeImpl(), then the pause
    virtual int executeImpl() = 0;
    virtual void prepare(TVLIDOM_Element element) = 0;  // a kind's own prepare() calls this body first

    // The process that the action is aimed at. Set by the supervisor before a stop action at shutdown.
    void setProcessHandle(int handle) { m_processHandle = handle; }

  private:
    friend class TestAccess;

    int m_waitTimeMs = -1;  // pause after each execution; -1: none

  protected:
    int m_processHandle = 0;  // read by ZORSignalAction only
    int m_signal = 0;         // ZORSignalAction's own

  private:
    int attempt();
};
