// Base class of the service object.
//
// Purpose: a name, an exit code and the life-cycle operations of a service.
// Ownership: there is one instance in the process, remembered in m_pThis.
// Threads: the main thread.
// Units: none.
// Errors: the exit code is the process's.
#pragma once

#include <array>
#include <cstdint>

class ZORNTService {
  public:
    explicit ZORNTService(const char* name);
    ZORNTService(const ZORNTService&) = delete;
    ZORNTService& operator=(const ZORNTService&) = delete;

    virtual ~ZORNTService();
    virtual int Run();
    virtual int OnInit();  // nonzero when the service may run
    virtual void OnStop();
    virtual void OnInterrogate();
    virtual void OnPause();
    virtual void OnContinue();
    virtual void OnShutdown();

    // At most 255 characters are kept.
    void setServiceName(const char* name);
    const char* getServiceName() const { return m_serviceName.data(); }

    // OnInit() and, when that succeeds, Run(), whose result it returns; 0 when OnInit() failed.
    int RunAsApplication();
    int isRunningAsService() const { return m_runningAsService; }
    int getExitCode() const { return m_exitCode; }

    static ZORNTService* m_pThis;

  protected:
    void setExitCode(int exitCode) { m_exitCode = exitCode; }

  private:
    std::array<char, 256> m_serviceName{};
    // Deliberate: nothing reads these two; see RulesTest.WhatIsKeptUnusedIsUsedByNothing.
    [[maybe_unused]] std::int32_t m_status = 1;
    [[maybe_unused]] std::int32_t m_reserved = 0;
    std::int32_t m_exitCode = 0;
    std::int32_t m_runningAsApplication = 0;
    std::int32_t m_runningAsService = 0;
};
