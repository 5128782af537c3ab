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
#include "TestAccess.h"
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
    ZORBootstrapService service;
    PingChildProcess& supervisor = TestAccess::supervisor(service);
    TVLThreadSemaphore finished{0};

  private:
    std::multimap<int, std::function<void()>> m_before;
};
