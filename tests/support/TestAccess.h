// What classes keep to themselves, for tests: the one way to it.
//
// A class whose state no test could see from outside names TestAccess as its friend and keeps that state private. Tests
// ask here and nowhere else, so this file is the list of what they rely on beyond the interfaces.
#pragma once

#include <atomic>
#include <string>

#include "TVLConfigurationFactory.h"
#include "ZORAction.h"
#include "ZORBootstrapService.h"
#include "ZORChildProcess.h"
#include "ZORLogger.h"
#include "ZORPropertyInserter.h"

class TestAccess {
  public:
    // --- singletons: an empty one in place of the present one ---

    static void renewProperties() { renew(ZORPropertyInserter::m_pInstance); }
    // None at all, as when a process begins.
    static void dropProperties() {
        delete ZORPropertyInserter::m_pInstance;
        ZORPropertyInserter::m_pInstance = nullptr;
    }
    static void renewConfiguration() { renew(TVLConfigurationFactory::m_pInstance); }
    static void renewConsole() { renew(ZORConsole::m_pConsole); }

    static TVLConfigurationFactory*& configuration() { return TVLConfigurationFactory::m_pInstance; }

    // --- the service ---

    static const std::string& installRoot(const ZORBootstrapService& service) {
        return service.m_installRoot;
    }
    static const std::string& binDirectory(const ZORBootstrapService& service) {
        return service.m_binDirectory;
    }
    // Of an attribute of the root element.
    static int rootNumber(ZORBootstrapService& service, const char* attribute) {
        return service.m_rootNumbers[attribute];
    }
    static const ZORSpawnAction* daemonSpawn(const ZORBootstrapService& service) {
        return service.m_daemonSpawn;
    }
    static ZORPidFile& pidFile(ZORBootstrapService& service) { return service.m_pidFile; }
    static PingChildProcess& supervisor(ZORBootstrapService& service) { return service.m_supervisor; }
    static std::atomic<TVLThreadSemaphore*>& mainThreadWait(ZORBootstrapService& service) {
        return service.m_semaMainThreadWait;
    }

    // --- the supervisor ---

    static int pollIntervalSec(const PingChildProcess& supervisor) { return supervisor.m_pollIntervalSec; }
    static int failedPingLimit(const PingChildProcess& supervisor) { return supervisor.m_failedPingLimit; }
    static int checkIntervalMs(const PingChildProcess& supervisor) {
        return supervisor.m_checkForShutdownIntervalMs;
    }
    static int maxShutdownChecks(const PingChildProcess& supervisor) {
        return supervisor.m_maxShutdownChecks;
    }
    static int allChildrenRunning(const PingChildProcess& supervisor) {
        return supervisor.m_allChildrenRunning;
    }
    static int allPingsAnswered(const PingChildProcess& supervisor) { return supervisor.m_allPingsAnswered; }
    static int fatalError(const PingChildProcess& supervisor) { return supervisor.m_fatalError; }
    static void setFlags(PingChildProcess& supervisor, int running, int answered, int fatal) {
        supervisor.m_allChildrenRunning = running;
        supervisor.m_allPingsAnswered = answered;
        supervisor.m_fatalError = fatal;
    }

    // What the supervisor's limit is when it has read the limit file, `before` when it has not.
    static int limitAfterReading(PingChildProcess& supervisor, int before) {
        supervisor.m_lastLimitFileTimeSec = 0;
        supervisor.m_failedPingLimit = before;
        supervisor.readLimitOverride();
        return supervisor.m_failedPingLimit;
    }

    static void runCycle(PingChildProcess& supervisor) { supervisor.runCycle(); }

    // --- a child and its actions ---

    static int& handle(ZORChildProcess& child) { return child.m_handle; }
    static ZORSpawnAction*& startAction(ZORChildProcess& child) { return child.m_startAction; }
    static ZORAction*& stopAction(ZORChildProcess& child) { return child.m_stopAction; }
    static ZORSockSendAction*& pingAction(ZORChildProcess& child) { return child.m_pingAction; }

    static int waitTimeMs(const ZORAction& action) { return action.m_waitTimeMs; }
    static int processHandle(const ZORAction& action) { return action.m_processHandle; }
    static int signal(const ZORAction& action) { return action.m_signal; }

  private:
    template <typename Singleton>
    static void renew(Singleton*& instance) {
        delete instance;
        instance = new Singleton;
    }
};
