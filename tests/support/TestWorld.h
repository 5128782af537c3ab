// The service with its supervisor and children in virtual time.
//
// Purpose: a fixture whose children are configured by a few words, whose peers answer as told, and whose
//   supervisor runs its real loop for a number of poll cycles.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "ScriptedSek.h"
#include "TestKit.h"
#include "VirtualOs.h"
#include "ZORBootstrapService.h"
#include "ZORChildProcess.h"
#include "ZORCryptoHelper.h"

// Virtual time that tells when the supervisor is about to wait for its next cycle.
class CycleOs : public VirtualOs {
  public:
    // Called before every timed wait, numbered from 1; true cuts the wait short.
    std::function<bool(int)> onTimedWait;

    bool waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                   std::int64_t deadlineMs) override;

  private:
    int m_timedWaits = 0;
};

// The service with its insides open.
class OpenService : public ZORBootstrapService {
  public:
    using ZORBootstrapService::m_binDirectory;
    using ZORBootstrapService::m_daemonSpawn;
    using ZORBootstrapService::m_installRoot;
    using ZORBootstrapService::m_pidFile;
    using ZORBootstrapService::m_pingRetries;
    using ZORBootstrapService::m_pingRetryIntervalSec;
    using ZORBootstrapService::m_semaMainThreadWait;
    using ZORBootstrapService::m_startup;
    using ZORBootstrapService::m_startupDelayMs;
    using ZORBootstrapService::m_supervisor;
};

// What a supervisor keeps to itself.
struct OpenSupervisor : PingChildProcess {
    static int pollIntervalSec(const PingChildProcess& s) { return s.*(&OpenSupervisor::m_pollIntervalSec); }
    static int failedPingLimit(const PingChildProcess& s) { return s.*(&OpenSupervisor::m_failedPingLimit); }
    static int checkIntervalMs(const PingChildProcess& s) {
        return s.*(&OpenSupervisor::m_checkForShutdownIntervalMs);
    }
    static int maxShutdownChecks(const PingChildProcess& s) {
        return s.*(&OpenSupervisor::m_maxShutdownChecks);
    }
    static int allChildrenRunning(const PingChildProcess& s) {
        return s.*(&OpenSupervisor::m_allChildrenRunning);
    }
    static int allPingsAnswered(const PingChildProcess& s) {
        return s.*(&OpenSupervisor::m_allPingsAnswered);
    }
    static int fatalError(const PingChildProcess& s) { return s.*(&OpenSupervisor::m_fatalError); }
    static void setFlags(PingChildProcess& s, int running, int answered, int fatal) {
        s.*(&OpenSupervisor::m_allChildrenRunning) = running;
        s.*(&OpenSupervisor::m_allPingsAnswered) = answered;
        s.*(&OpenSupervisor::m_fatalError) = fatal;
    }
};

// The text of a "process" element.
struct ChildXml {
    std::string name = "alpha";
    bool ping = true;
    std::string stopType = "socketSend";  // or "signal", "spawn"
    std::string pingAttributes =
        "responseSize='20' responseOK='READY' responseFatal='BROKEN' responseRetry='LATER'";
    std::string spawnAttributes{};

    std::string text() const;
    std::string pingUri() const { return "tcp://" + name + ".ping:1"; }
    std::string stopUri() const { return "tcp://" + name + ".stop:2"; }
};

class WorldTest : public ServiceTest {
  protected:
    WorldTest();
    ~WorldTest() override;

    // A whole bootstrap document around children.
    static std::string documentText(const std::vector<ChildXml>& children, const std::string& manager,
                                    const std::string& rootAttributes = {});
    // Loads it into the service and starts the children, as Run() does.
    void begin(const std::vector<ChildXml>& children,
               const std::string& manager = "<processManager pollIntervalsec='30'/>");

    // Runs the supervisor's loop for that many cycles and then stops it. What `look` sees is the state after
    // the last cycle, before the stop.
    void runCycles(int cycles, const std::function<void()>& look = {});
    // Runs `event` before the wait that precedes that cycle (1: the first).
    void before(int cycle, std::function<void()> event);

    ZORChildProcess& child(const std::string& name);
    VirtualOs::Process& processOf(const std::string& name);
    ScriptedSek::Peer& pingPeer(const std::string& name) { return sek.peer(ChildXml{name}.pingUri()); }
    ScriptedSek::Peer& stopPeer(const std::string& name) { return sek.peer(ChildXml{name}.stopUri()); }
    void answers(const std::string& name, const std::string& text) { pingPeer(name).answer = text; }
    void fallsSilent(const std::string& name) { pingPeer(name).silent = true; }

    bool supervisorLogged(const std::string& level, const std::string& text) const {
        return log.has(level, "PingChildProcess", text);
    }

    CycleOs os;
    ScriptedSek& sek = ScriptedSek::instance();
    OpenService service;
    TVLThreadSemaphore finished{0};

  private:
    std::multimap<int, std::function<void()>> m_before;
};
