// The supervisor's loop: its configuration, every cell of its state table, its shutdown and its one-shot
// test.
#include <fcntl.h>
#include <sys/stat.h>

#include <ctime>
#include <stdexcept>

#include "TestWorld.h"
#include "ZORBadConfigException.h"
#include "ZORSockSendAction.h"

namespace {

class PingLoopTest : public WorldTest {
  protected:
    void prepare(const std::string& manager) {
        const XmlText document("<root>" + manager + "</root>");
        supervisor.prepare(document.root());
    }
    int limit() const { return TestAccess::failedPingLimit(supervisor); }
    int running() const { return TestAccess::allChildrenRunning(supervisor); }
    int answered() const { return TestAccess::allPingsAnswered(supervisor); }
    int fatal() const { return supervisor.hasFatalError(); }

    void writeLimit(const std::string& content, std::time_t modified) const {
        folder.write("bin/zor.failedPingLimit", content);
        const timespec times[2] = {{modified, 0}, {modified, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, "zor.failedPingLimit", times, 0), 0);
    }
    void diesWhenStopped(const std::string& name) {
        stopPeer(name).onCommand = [this, name](const std::string&) { processOf(name).alive = false; };
    }
    std::size_t stopCommands(const std::string& name) { return stopPeer(name).commands.size(); }
};

// ---- Configuration ----

TEST_F(PingLoopTest, WithoutAProcessManagerEverythingIsDefault) {
    prepare("");
    EXPECT_TRUE(
        supervisorLogged("WARN", "no procManager element in config, using default poll interval, etc."));
    EXPECT_EQ(TestAccess::pollIntervalSec(supervisor), 30);
    EXPECT_EQ(limit(), 2);
    EXPECT_EQ(TestAccess::checkIntervalMs(supervisor), 500);
    EXPECT_EQ(TestAccess::maxShutdownChecks(supervisor), 30);
}

TEST_F(PingLoopTest, AnEmptyProcessManagerComputesFromItsDefaults) {
    prepare("<processManager/>");
    EXPECT_EQ(TestAccess::pollIntervalSec(supervisor), 30);
    EXPECT_EQ(limit(), 2);
    EXPECT_EQ(TestAccess::checkIntervalMs(supervisor), 500);
    EXPECT_EQ(TestAccess::maxShutdownChecks(supervisor), 120);
    EXPECT_TRUE(supervisorLogged("DEBUG", "failed ping limit is 2"));
    EXPECT_TRUE(supervisorLogged("DEBUG", "max checks for child process shutdown = 120"));
    EXPECT_FALSE(supervisorLogged("DEBUG", "poll interval is 30 seconds"));
    EXPECT_FALSE(supervisorLogged("DEBUG", "check for child processes shutdown interval is 500 ms"));
}

TEST_F(PingLoopTest, TheFailedPingLimitCoversThePingTimeoutRoundedUp) {
    setProperty("dispatcherPingTimeout", "60");
    prepare("<processManager pollIntervalsec='10'/>");
    EXPECT_TRUE(supervisorLogged("DEBUG", "poll interval is 10 seconds"));
    EXPECT_EQ(limit(), 6);
    setProperty("dispatcherPingTimeout", "45");
    prepare("<processManager pollIntervalsec='10'/>");
    EXPECT_EQ(limit(), 5);
}

TEST_F(PingLoopTest, APingTimeoutThatIsNotPositiveIsSixtySeconds) {
    for (const char* const value : {"0", "-5", "soon"}) {
        setProperty("dispatcherPingTimeout", value);
        prepare("<processManager pollIntervalsec='10'/>");
        EXPECT_EQ(limit(), 6) << value;
    }
}

TEST_F(PingLoopTest, AShutdownIntervalThatIsNotPositiveIsFiveHundredMilliseconds) {
    for (const char* const value : {"-5", "0", "x"}) {
        prepare(std::string("<processManager checkForShutdownIntervalms='") + value + "'/>");
        EXPECT_EQ(TestAccess::checkIntervalMs(supervisor), 500) << value;
    }
    EXPECT_EQ(log.count("DEBUG", "PingChildProcess", "check for child processes shutdown interval is 500 ms"),
              3U);
}

TEST_F(PingLoopTest, TheShutdownChecksCoverTheStopWaitTimeRoundedUp) {
    setProperty("dispatcherStopWaitTime", "10");
    prepare("<processManager checkForShutdownIntervalms='300'/>");
    EXPECT_EQ(TestAccess::maxShutdownChecks(supervisor), 34);
    setProperty("dispatcherStopWaitTime", "-1");
    prepare("<processManager checkForShutdownIntervalms='300'/>");
    EXPECT_EQ(TestAccess::maxShutdownChecks(supervisor), 200);
}

TEST_F(PingLoopTest, TheProcessManagerIsFoundAtAnyDepth) {
    prepare("<deep><deeper><processManager pollIntervalsec='7'/></deeper></deep>");
    EXPECT_EQ(TestAccess::pollIntervalSec(supervisor), 7);
}

TEST_F(PingLoopTest, APollIntervalOfZeroIsAConfigurationError) {
    for (const char* const value : {"0", "often"}) {
        try {
            prepare(std::string("<processManager pollIntervalsec='") + value + "'/>");
            FAIL() << "accepted " << value;
        } catch (const ZORBadConfigException& exception) {
            EXPECT_STREQ(exception.getMessage(), "poll interval must not be 0.");
        }
    }
    EXPECT_EQ(log.count("FATAL", "PingChildProcess", "poll interval must not be 0."), 2U);
}

TEST_F(PingLoopTest, ANegativePollIntervalEndsTheSupervisionAtOnce) {
    begin({ChildXml{}}, "<processManager pollIntervalsec='-3'/>");
    supervisor.stop(&finished);
    supervisor.run();
    EXPECT_FALSE(supervisorLogged("INFO", "stopping child process(es)."));
    EXPECT_EQ(finished.timedWait(0), 0);
    EXPECT_EQ(fatal(), 0);
    EXPECT_TRUE(processOf("alpha").alive);
}

TEST_F(PingLoopTest, HugeConfiguredNumbersDoNotOverflow) {
    setProperty("dispatcherPingTimeout", "99999999999");
    prepare("<processManager pollIntervalsec='1' checkForShutdownIntervalms='99999999999'/>");
    EXPECT_EQ(limit(), 2147483647);
    EXPECT_EQ(TestAccess::checkIntervalMs(supervisor), 2147483647);
    EXPECT_EQ(TestAccess::maxShutdownChecks(supervisor), 1);
    // More milliseconds than a number of this size holds.
    setProperty("dispatcherStopWaitTime", "2147484");
    prepare("<processManager checkForShutdownIntervalms='1000'/>");
    EXPECT_EQ(TestAccess::maxShutdownChecks(supervisor), 2147484);
}

// ---- Waiting ----

TEST_F(PingLoopTest, ACycleFollowsEveryPollInterval) {
    begin({ChildXml{}}, "<processManager pollIntervalsec='7'/>");
    runCycles(3);
    EXPECT_EQ(log.count("DEBUG", "PingChildProcess", "entering timedWait, interval = 7000"), 4U);
    EXPECT_EQ(log.count("DEBUG", "PingChildProcess", "end of timedWait"), 4U);
    EXPECT_EQ(pingPeer("alpha").connects, 3);
}

TEST_F(PingLoopTest, AStopRequestCutsTheWaitShort) {
    begin({ChildXml{}});
    diesWhenStopped("alpha");
    os.at(10000, [&] { supervisor.stop(&finished); });
    supervisor.run();
    EXPECT_EQ(pingPeer("alpha").connects, 0);
    // Two seconds before the stop command is sent, half a second until the first check.
    EXPECT_EQ(os.nowMs(), 10000 + 2000 + 500);
}

TEST_F(PingLoopTest, AStopRequestedBeforeTheLoopTakesEffectAfterOneWait) {
    begin({ChildXml{}});
    diesWhenStopped("alpha");
    supervisor.stop(&finished);
    supervisor.run();
    EXPECT_EQ(pingPeer("alpha").connects, 0);
    EXPECT_EQ(os.nowMs(), 30000 + 2000 + 500);
    EXPECT_EQ(finished.timedWait(0), 1);
}

TEST_F(PingLoopTest, AStopRequestedWithinACycleLetsTheCycleFinish) {
    begin({ChildXml{"alpha"}, ChildXml{"beta"}});
    pingPeer("alpha").onCommand = [&](const std::string&) { supervisor.stop(&finished); };
    supervisor.run();
    EXPECT_EQ(pingPeer("beta").connects, 1);
    EXPECT_EQ(finished.timedWait(0), 1);
}

// ---- Children without a ping ----

TEST_F(PingLoopTest, AChildWithoutAPingThatIsGoneIsStarted) {
    begin({ChildXml{.name = "alpha", .ping = false}});
    const int first = child("alpha").getProcessHandle();
    processOf("alpha").alive = false;
    runCycles(1, [&] {
        EXPECT_NE(child("alpha").getProcessHandle(), first);
        EXPECT_EQ(running(), 1);
        EXPECT_EQ(answered(), 1);
    });
    EXPECT_TRUE(supervisorLogged("DEBUG", "Process alpha is not alive. Resuscitating."));
    EXPECT_FALSE(supervisorLogged("ERROR", "ping loop: process \"alpha\" is not active, so restarting it."));
}

TEST_F(PingLoopTest, AChildWithoutAPingThatIsAliveIsLeftAlone) {
    begin({ChildXml{.name = "alpha", .ping = false}});
    const int first = child("alpha").getProcessHandle();
    runCycles(2, [&] { EXPECT_EQ(child("alpha").getProcessHandle(), first); });
    EXPECT_EQ(log.count("DEBUG", "PingChildProcess", "Process alpha is alive."), 2U);
}

// ---- Running children ----

TEST_F(PingLoopTest, AChildThatIsGoneIsStartedAndCountsAsARestart) {
    begin({ChildXml{}});
    const int first = child("alpha").getProcessHandle();
    processOf("alpha").alive = false;
    runCycles(1, [&] {
        EXPECT_NE(child("alpha").getProcessHandle(), first);
        EXPECT_EQ(child("alpha").m_pingCounter, -10);
        EXPECT_EQ(pingPeer("alpha").connects, 0);
        EXPECT_EQ(running(), 0);
        EXPECT_EQ(answered(), 1);
    });
    EXPECT_TRUE(log.inOrder({
        {"DEBUG", "PingChildProcess", "Pinging process alpha. Ping counter: -10", {}},
        {"ERROR", "PingChildProcess", "ping loop: process \"alpha\" is not active, so restarting it.", {}},
        {"DEBUG", "ZORChildProcess", "starting process \"alpha\"", {}},
    }));
}

TEST_F(PingLoopTest, AChildThatCannotBeStartedIsTriedAgainEveryCycle) {
    begin({ChildXml{}});
    processOf("alpha").alive = false;
    os.failForks(3, EAGAIN);
    runCycles(4, [&] { EXPECT_GT(child("alpha").getProcessHandle(), 0); });
    EXPECT_EQ(log.count("ERROR", "ZORSpawnAction", "spawn failed, errno: 11"), 3U);
    EXPECT_EQ(log.count("ERROR", "PingChildProcess",
                        "ping loop: process \"alpha\" is not active, so restarting it."),
              4U);
}

TEST_F(PingLoopTest, AnAnswerSetsTheCounterToZero) {
    begin({ChildXml{}});
    runCycles(1, [&] {
        EXPECT_EQ(child("alpha").m_pingCounter, 0);
        EXPECT_EQ(running(), 1);
        EXPECT_EQ(answered(), 1);
        EXPECT_EQ(fatal(), 0);
    });
    EXPECT_TRUE(log.inOrder({
        {"DEBUG", "PingChildProcess", "Pinging process alpha. Ping counter: -10", {}},
        {"DEBUG",
         "PingChildProcess",
         "ping loop: process \"alpha\" is still active, so we will ping it.",
         {}},
        {"DEBUG", "PingChildProcess", "process alpha pinged successfully.", {}},
    }));
}

TEST_F(PingLoopTest, APingThatIsNotSentCountsAsARestartAndRaisesTheCounter) {
    begin({ChildXml{}});
    pingPeer("alpha").refuses = true;
    runCycles(1, [&] {
        EXPECT_EQ(child("alpha").m_pingCounter, -9);
        EXPECT_EQ(child("alpha").m_restartPending, 0);
        EXPECT_EQ(running(), 0);
        EXPECT_EQ(answered(), 1);
    });
    EXPECT_TRUE(supervisorLogged("DEBUG", "ping of process alpha failed. Will begin restart sequence."));
}

TEST_F(PingLoopTest, AnAnswerWithoutTheSuccessMarkerLeavesTheCounterAlone) {
    begin({ChildXml{}});
    answers("alpha", "something else entirely");
    runCycles(1, [&] {
        EXPECT_EQ(child("alpha").m_pingCounter, -10);
        EXPECT_EQ(running(), 1);
        EXPECT_EQ(answered(), 0);
        EXPECT_EQ(fatal(), 0);
    });
    EXPECT_TRUE(supervisorLogged("DEBUG", "ping of process alpha failed. Will not begin restart sequence."));
    EXPECT_FALSE(supervisorLogged("DEBUG", "PingChildProcess::run() - Detected a fatal error."));
}

TEST_F(PingLoopTest, AFatalAnswerSetsTheFatalFlag) {
    begin({ChildXml{}});
    answers("alpha", "it is BROKEN");
    runCycles(1, [&] {
        EXPECT_EQ(child("alpha").m_pingCounter, -10);
        EXPECT_EQ(running(), 1);
        EXPECT_EQ(answered(), 0);
        EXPECT_EQ(fatal(), 1);
    });
    EXPECT_TRUE(log.inOrder({
        {"DEBUG", "PingChildProcess", "ping of process alpha failed. Will not begin restart sequence.", {}},
        {"DEBUG", "PingChildProcess", "PingChildProcess::run() - Detected a fatal error.", {}},
    }));
}

TEST_F(PingLoopTest, TheFatalFlagGoesWithTheNextGoodCycle) {
    begin({ChildXml{}});
    answers("alpha", "it is BROKEN");
    before(2, [&] {
        EXPECT_EQ(fatal(), 1);
        answers("alpha", "READY");
    });
    runCycles(2, [&] { EXPECT_EQ(fatal(), 0); });
}

TEST_F(PingLoopTest, RetryAnswersNeverRestart) {
    begin({ChildXml{}});
    const int first = child("alpha").getProcessHandle();
    answers("alpha", "come LATER");
    runCycles(1000, [&] {
        EXPECT_EQ(child("alpha").getProcessHandle(), first);
        EXPECT_EQ(child("alpha").m_pingCounter, 0);
        EXPECT_EQ(running(), 1);
        EXPECT_EQ(answered(), 1);
        EXPECT_EQ(stopCommands("alpha"), 0U);
    });
    EXPECT_EQ(log.count("DEBUG", "PingChildProcess", "process alpha pinged successfully."), 1000U);
}

TEST_F(PingLoopTest, AnAnswerBetweenFailuresStartsTheCountAgain) {
    begin({ChildXml{}});
    for (int cycle = 2; cycle <= 40; cycle += 2) {
        before(cycle, [&] { pingPeer("alpha").refuses = true; });
        before(cycle + 1, [&] { pingPeer("alpha").refuses = false; });
    }
    runCycles(40, [&] {
        EXPECT_EQ(stopCommands("alpha"), 0U);
        EXPECT_EQ(child("alpha").m_restartPending, 0);
    });
}

// ---- The restart sequence ----

TEST_F(PingLoopTest, SilentChildIsAskedToStopAtTheTwelfthFailedPing) {
    begin({ChildXml{}});
    fallsSilent("alpha");
    processOf("alpha").ignoresTerm = true;
    before(12, [&] {
        EXPECT_EQ(child("alpha").m_pingCounter, 1);
        EXPECT_EQ(stopCommands("alpha"), 0U);
    });
    runCycles(12, [&] {
        EXPECT_EQ(pingPeer("alpha").connects, 12);
        EXPECT_EQ(stopCommands("alpha"), 1U);
        EXPECT_EQ(child("alpha").m_restartPending, 1);
        EXPECT_EQ(child("alpha").m_pingCounter, 0);
    });
    EXPECT_TRUE(log.inOrder({
        {"ERROR", "ZORSocketCommand", "no response,  SEK_Poll timed out.", {}},
        {"WARN",
         "PingChildProcess",
         "process alpha hit ping failure limit, will restart, but first make sure it is really dead.",
         {}},
        {"WARN", "PingChildProcess", "process alpha appears to still be alive, so stop it.", {}},
        {"DEBUG", "PingChildProcess", "stopping process \"alpha\"", {}},
        {"WARN", "PingChildProcess", "stopAction->execute() return status = 1", {}},
    }));
}

TEST_F(PingLoopTest, AfterOneGoodAnswerTheLimitAloneCounts) {
    begin({ChildXml{}});
    before(2, [&] { fallsSilent("alpha"); });
    before(3, [&] { EXPECT_EQ(stopCommands("alpha"), 0U); });
    runCycles(3, [&] { EXPECT_EQ(stopCommands("alpha"), 1U); });
}

TEST_F(PingLoopTest, AChildThatDiesDuringItsLastPingIsStartedAtOnce) {
    begin({ChildXml{}}, "<processManager pollIntervalsec='60'/>");
    before(2, [&] {
        fallsSilent("alpha");
        pingPeer("alpha").onConnect = [&] { processOf("alpha").alive = false; };
    });
    runCycles(2, [&] {
        EXPECT_EQ(child("alpha").m_restartPending, 0);
        EXPECT_EQ(child("alpha").m_pingCounter, -10);
        EXPECT_TRUE(processOf("alpha").alive);
        EXPECT_EQ(stopCommands("alpha"), 0U);
    });
    EXPECT_TRUE(supervisorLogged("WARN", "process alpha appears to be dead, so restarting."));
}

TEST_F(PingLoopTest, APendingChildThatHasGoneIsRestarted) {
    begin({ChildXml{}}, "<processManager pollIntervalsec='60'/>");
    diesWhenStopped("alpha");
    before(2, [&] { fallsSilent("alpha"); });
    before(3, [&] { EXPECT_EQ(child("alpha").m_restartPending, 1); });
    runCycles(3, [&] {
        EXPECT_EQ(child("alpha").m_restartPending, 0);
        EXPECT_EQ(child("alpha").m_pingCounter, -10);
        EXPECT_TRUE(processOf("alpha").alive);
        EXPECT_EQ(running(), 0);
    });
    EXPECT_TRUE(log.inOrder({
        {"DEBUG",
         "PingChildProcess",
         "ping loop: unresponsive process alpha requires restart, test to see if it is still active.",
         {}},
        {"WARN", "PingChildProcess", "restarting process alpha.", {}},
        {"DEBUG", "ZORChildProcess", "starting process \"alpha\"", {}},
    }));
    EXPECT_FALSE(supervisorLogged("WARN", "unresponsive process alpha hasn't yet finished stopping."));
}

TEST_F(PingLoopTest, APendingChildIsLeftOneCycleThenKilledAndRestartedAtOnce) {
    begin({ChildXml{}}, "<processManager pollIntervalsec='60'/>");
    const int first = child("alpha").getProcessHandle();
    os.process(first).ignoresKill = true;
    before(2, [&] { fallsSilent("alpha"); });
    before(4, [&] {
        EXPECT_EQ(child("alpha").m_pingCounter, 1);
        EXPECT_EQ(child("alpha").getProcessHandle(), first);
        EXPECT_TRUE(os.process(first).signals.empty());
        EXPECT_EQ(
            log.count("WARN", "PingChildProcess", "unresponsive process alpha hasn't yet finished stopping."),
            1U);
    });
    runCycles(4, [&] {
        EXPECT_EQ(os.process(first).signals, std::vector<int>{SIGKILL});
        EXPECT_NE(child("alpha").getProcessHandle(), first);
        EXPECT_EQ(child("alpha").m_restartPending, 0);
        EXPECT_EQ(child("alpha").m_pingCounter, -10);
    });
    EXPECT_TRUE(log.inOrder({
        {"DEBUG",
         "PingChildProcess",
         "unresponsive process alpha still hasn't stopped after two polls intervals, so kill it",
         {}},
        {"DEBUG", "ZORChildProcess", "killing process \"alpha\"", {}},
        {"WARN", "PingChildProcess", "unresponsive process alpha hasn't yet finished stopping.", {}},
        {"WARN", "PingChildProcess", "restarting process alpha.", {}},
        {"DEBUG", "ZORChildProcess", "starting process \"alpha\"", {}},
    }));
}

TEST_F(PingLoopTest, ARestartDoesNotAimTheStopAction) {
    begin({ChildXml{.name = "alpha", .stopType = "signal"}}, "<processManager pollIntervalsec='60'/>");
    before(2, [&] { fallsSilent("alpha"); });
    runCycles(2, [&] {
        ASSERT_EQ(os.kills().size(), 1U);
        EXPECT_EQ(os.kills()[0].pid, 0);
        EXPECT_EQ(os.kills()[0].signal, SIGTERM);
    });
    EXPECT_TRUE(log.has("DEBUG", "ZORSignalAction", "Signalling process (handle = 0)."));
}

TEST_F(PingLoopTest, OneChildsTroubleDoesNotTouchAnother) {
    begin({ChildXml{"alpha"}, ChildXml{"beta"}});
    const int beta = child("beta").getProcessHandle();
    processOf("alpha").alive = false;
    before(2, [&] { fallsSilent("alpha"); });
    runCycles(30, [&] {
        EXPECT_EQ(child("beta").getProcessHandle(), beta);
        EXPECT_EQ(child("beta").m_pingCounter, 0);
    });
    EXPECT_EQ(log.count("DEBUG", "PingChildProcess", "process beta pinged successfully."), 30U);
}

// ---- The limit's override file ----

TEST_F(PingLoopTest, TheOverrideFileSetsTheLimitAndIsLoggedOnce) {
    begin({ChildXml{}});
    before(3, [&] { writeLimit("5\n", 1000); });
    before(3, [&] { EXPECT_EQ(limit(), 2); });
    runCycles(6, [&] { EXPECT_EQ(limit(), 5); });
    EXPECT_EQ(log.count("DEBUG", "PingChildProcess",
                        "Found new zor.failedPingLimit file, overwriting failed ping limit to 5"),
              1U);
}

TEST_F(PingLoopTest, ARewrittenOverrideFileIsAppliedAgain) {
    begin({ChildXml{}});
    before(1, [&] { writeLimit("5", 1000); });
    before(2, [&] { writeLimit("5", 2000); });
    before(3, [&] { writeLimit("9", 1500); });
    runCycles(4, [&] { EXPECT_EQ(limit(), 9); });
    EXPECT_EQ(log.count("DEBUG", "PingChildProcess",
                        "Found new zor.failedPingLimit file, overwriting failed ping limit to 5"),
              2U);
}

TEST_F(PingLoopTest, AnEmptyOverrideFileIsTriedAgain) {
    begin({ChildXml{}});
    before(1, [&] { writeLimit("", 1000); });
    before(3, [&] {
        EXPECT_EQ(limit(), 2);
        writeLimit("4", 1000);
    });
    runCycles(3, [&] { EXPECT_EQ(limit(), 4); });
}

TEST_F(PingLoopTest, GarbageInTheOverrideFileIsALimitOfZero) {
    begin({ChildXml{}});
    before(1, [&] { writeLimit("many", 1000); });
    runCycles(1, [&] { EXPECT_EQ(limit(), 0); });
    EXPECT_TRUE(
        supervisorLogged("DEBUG", "Found new zor.failedPingLimit file, overwriting failed ping limit to 0"));
}

TEST_F(PingLoopTest, ALongLineInTheOverrideFileIsCutAfterSixtyThreeCharacters) {
    begin({ChildXml{}});
    before(1, [&] { writeLimit(std::string(61, ' ') + "57\n", 1000); });
    before(2, [&] {
        EXPECT_EQ(limit(), 57) << "63 characters are read";
        writeLimit(std::string(62, ' ') + "57\n", 2000);
    });
    before(3, [&] {
        EXPECT_EQ(limit(), 5) << "the 64th is not";
        writeLimit(std::string(63, ' ') + "57\n", 3000);
    });
    runCycles(3, [&] { EXPECT_EQ(limit(), 0) << "nothing but blanks is left"; });
    EXPECT_TRUE(log.inOrder({
        {"DEBUG",
         "PingChildProcess",
         "Found new zor.failedPingLimit file, overwriting failed ping limit to 57",
         {}},
        {"DEBUG",
         "PingChildProcess",
         "Found new zor.failedPingLimit file, overwriting failed ping limit to 5",
         {}},
        {"DEBUG",
         "PingChildProcess",
         "Found new zor.failedPingLimit file, overwriting failed ping limit to 0",
         {}},
    }));
}

TEST_F(PingLoopTest, RemovingTheOverrideFileRestoresNothing) {
    begin({ChildXml{}});
    before(1, [&] { writeLimit("5", 1000); });
    before(2, [&] { std::filesystem::remove("zor.failedPingLimit"); });
    runCycles(3, [&] { EXPECT_EQ(limit(), 5); });
}

// ---- Stopping ----

TEST_F(PingLoopTest, TheShutdownRunsItsStepsInOrder) {
    begin({ChildXml{"alpha"}, ChildXml{"beta"}});
    diesWhenStopped("alpha");
    diesWhenStopped("beta");
    runCycles(1);
    EXPECT_TRUE(log.inOrder({
        {"INFO", "PingChildProcess", "Child process supervisor has been told to stop", {}},
        {"INFO", "PingChildProcess", "stopping child process(es).", {}},
        {"DEBUG", "PingChildProcess", "stopping, leaving ping loop", {}},
        {"DEBUG", "PingChildProcess", "Stop all processes.", {}},
        {"DEBUG", "PingChildProcess", "stopping process \"alpha\"", {}},
        {"WARN", "PingChildProcess", "stopAction->execute() return status = 1", {}},
        {"DEBUG", "PingChildProcess", "stopping process \"beta\"", {}},
        {"WARN", "PingChildProcess", "stopAction->execute() return status = 1", {}},
        {"DEBUG", "PingChildProcess", "Waiting for processes to die.", {}},
        {"DEBUG", "PingChildProcess", "Process \"alpha\", is dead.", {}},
        {"DEBUG", "PingChildProcess", "Process \"beta\", is dead.", {}},
        {"INFO", "PingChildProcess", "no processes are alive.", {}},
        {"DEBUG", "PingChildProcess", "raise semaphore to signal finished stopping.", {}},
    }));
    EXPECT_FALSE(supervisorLogged("DEBUG", "kill all processes."));
    EXPECT_EQ(finished.timedWait(0), 1);
    EXPECT_EQ(fatal(), 1);
}

TEST_F(PingLoopTest, TheShutdownAimsTheStopAction) {
    begin({ChildXml{.name = "alpha", .stopType = "signal"}});
    const int pid = child("alpha").getProcessHandle();
    runCycles(0);
    ASSERT_EQ(os.kills().size(), 1U);
    EXPECT_EQ(os.kills()[0].pid, pid);
    EXPECT_EQ(os.kills()[0].signal, SIGTERM);
}

TEST_F(PingLoopTest, AChildThatIsNotAliveIsNotStopped) {
    begin({ChildXml{}});
    runCycles(0, [&] { processOf("alpha").alive = false; });
    EXPECT_TRUE(supervisorLogged("DEBUG", "process \"alpha\" is not alive, so don't need to stop it."));
    EXPECT_EQ(stopCommands("alpha"), 0U);
}

TEST_F(PingLoopTest, ShutdownChecksOnceMoreThanConfigured) {
    setProperty("dispatcherStopWaitTime", "2");
    begin({ChildXml{}}, "<processManager checkForShutdownIntervalms='500'/>");
    processOf("alpha").ignoresTerm = true;
    const int pid = child("alpha").getProcessHandle();
    std::int64_t stoppedAtMs = 0;
    runCycles(0, [&] { stoppedAtMs = os.nowMs(); });
    EXPECT_EQ(log.count("DEBUG", "PingChildProcess", "Process \"alpha\" is still active."), 5U);
    EXPECT_EQ(log.count("DEBUG", "PingChildProcess", "1 processes are still alive."), 5U);
    EXPECT_TRUE(log.inOrder({
        {"INFO",
         "PingChildProcess",
         "1 processes are still alive, but we're not going to wait any longer for them to die.",
         {}},
        {"DEBUG", "PingChildProcess", "kill all processes.", {}},
        {"DEBUG", "ZORChildProcess", "killing process \"alpha\"", {}},
    }));
    EXPECT_EQ(os.process(pid).signals, std::vector<int>{SIGKILL});
    EXPECT_EQ(os.nowMs() - stoppedAtMs, 2000 + 5 * 500);
    EXPECT_EQ(finished.timedWait(0), 1);
}

TEST_F(PingLoopTest, AStopCommandThatWasNotSentLeadsStraightToTheKill) {
    begin({ChildXml{}});
    stopPeer("alpha").refuses = true;
    const int pid = child("alpha").getProcessHandle();
    runCycles(0);
    EXPECT_TRUE(log.inOrder({
        {"WARN", "PingChildProcess", "stopAction->execute() return status = -1", {}},
        {"DEBUG",
         "PingChildProcess",
         "Detected that the stop command was not sent, don't bother waiting for death.",
         {}},
        {"DEBUG", "PingChildProcess", "kill all processes.", {}},
    }));
    EXPECT_EQ(os.process(pid).signals, std::vector<int>{SIGKILL});
    EXPECT_FALSE(supervisorLogged("DEBUG", "Waiting for processes to die."));
}

TEST_F(PingLoopTest, OnlyTheLastStopResultCounts) {
    begin({ChildXml{"alpha"}, ChildXml{"beta"}});
    stopPeer("alpha").refuses = true;
    runCycles(0);
    EXPECT_TRUE(supervisorLogged("DEBUG", "Waiting for processes to die."));
}

TEST_F(PingLoopTest, ASecondStopRequestIsRefused) {
    begin({ChildXml{}});
    TVLThreadSemaphore second(0);
    runCycles(0, [&] {
        supervisor.stop(&finished);
        supervisor.stop(&second);
    });
    // One from the test above and one from the loop's own request.
    EXPECT_EQ(log.count("ERROR", "PingChildProcess",
                        "Child process supervisor has been told to stop but is already stopping."),
              2U);
    EXPECT_EQ(finished.timedWait(0), 1);
    EXPECT_EQ(finished.timedWait(0), 0);
    EXPECT_EQ(second.timedWait(0), 0);
}

TEST_F(PingLoopTest, StopWhileARestartIsPendingStopsOnceMore) {
    begin({ChildXml{}}, "<processManager pollIntervalsec='60'/>");
    before(2, [&] { fallsSilent("alpha"); });
    runCycles(2, [&] { EXPECT_EQ(child("alpha").m_restartPending, 1); });
    EXPECT_EQ(stopCommands("alpha"), 2U);
    EXPECT_TRUE(supervisorLogged(
        "INFO", "1 processes are still alive, but we're not going to wait any longer for them to die."));
    EXPECT_EQ(finished.timedWait(0), 1);
}

TEST_F(PingLoopTest, StopWhileAChildFailsItsPingsStopsIt) {
    begin({ChildXml{}});
    fallsSilent("alpha");
    runCycles(3, [&] { EXPECT_EQ(child("alpha").m_pingCounter, -7); });
    EXPECT_EQ(stopCommands("alpha"), 1U);
    EXPECT_EQ(finished.timedWait(0), 1);
}

TEST_F(PingLoopTest, StopWithoutChildrenEndsAtTheFirstCheck) {
    runCycles(0);
    EXPECT_TRUE(supervisorLogged("INFO", "no processes are alive."));
    EXPECT_EQ(finished.timedWait(0), 1);
}

TEST_F(PingLoopTest, AYearOfQuietSupervisionLeavesNothingBehind) {
    begin({ChildXml{}}, "<processManager pollIntervalsec='3600'/>");
    ZORLoggerFactory::getInstance()->setLevel(ZOR_WARN);
    runCycles(24 * 365, [&] { EXPECT_GE(os.nowMs(), std::int64_t{365} * 24 * 3600 * 1000); });
    EXPECT_EQ(pingPeer("alpha").connects, 24 * 365);
    EXPECT_EQ(sek.openHandles(), 0);
    EXPECT_EQ(sek.unfreedDetails(), 0);
}

// ---- The one-shot test ----

TEST_F(PingLoopTest, TestingAllCountsTheFailedPings) {
    begin({ChildXml{"alpha"}, ChildXml{"beta"}, ChildXml{.name = "gamma", .ping = false}});
    answers("alpha", "something else entirely");
    EXPECT_EQ(supervisor.testAllProcesses(), 1);
    EXPECT_TRUE(supervisorLogged("DEBUG", "ping of process alpha failed."));
    EXPECT_TRUE(supervisorLogged("DEBUG", "process beta pinged successfully."));
    pingPeer("beta").refuses = true;
    EXPECT_EQ(supervisor.testAllProcesses(), 2);
}

TEST_F(PingLoopTest, TestingAllIsZeroWhenEveryPingAnswers) {
    begin({ChildXml{"alpha"}, ChildXml{"beta"}});
    EXPECT_EQ(supervisor.testAllProcesses(), 0);
}

TEST_F(PingLoopTest, TestingAllIsZeroWithoutPingsAndWithoutChildren) {
    EXPECT_EQ(supervisor.testAllProcesses(), 0);
    begin({ChildXml{.name = "alpha", .ping = false}});
    EXPECT_EQ(supervisor.testAllProcesses(), 0);
}

TEST_F(PingLoopTest, TestingAllEndsAtARetryAnswerWithoutALine) {
    begin({ChildXml{"alpha"}, ChildXml{"beta"}});
    answers("alpha", "come LATER");
    log.clear();
    EXPECT_EQ(supervisor.testAllProcesses(), -4);
    EXPECT_EQ(pingPeer("beta").connects, 0);
    for (const LogLine& line : log.lines())
        EXPECT_NE(line.logger, "PingChildProcess");
}

TEST_F(PingLoopTest, TestingAllEndsAtAFatalAnswer) {
    begin({ChildXml{"alpha"}, ChildXml{"beta"}});
    answers("alpha", "it is BROKEN");
    EXPECT_EQ(supervisor.testAllProcesses(), -1);
    EXPECT_EQ(pingPeer("beta").connects, 0);
    EXPECT_TRUE(supervisorLogged("DEBUG", "ping of process alpha failed, fatal error happened."));
}

// ---- As a thread ----

TEST_F(PingLoopTest, ItRunsAsAThreadUntilItIsStopped) {
    begin({ChildXml{}});
    os.at(100000, [&] { supervisor.stop(&finished); });
    supervisor.start();
    finished.wait();
    supervisor.join();
    EXPECT_FALSE(supervisor.isAlive());
    EXPECT_EQ(pingPeer("alpha").connects, 3);
    EXPECT_EQ(fatal(), 1);
}

TEST_F(PingLoopTest, FinishingStopsTheChildrenAndWaitsForTheThread) {
    begin({ChildXml{}});
    diesWhenStopped("alpha");
    const int pid = child("alpha").getProcessHandle();
    supervisor.start();
    supervisor.finish();
    EXPECT_FALSE(supervisor.isAlive());
    EXPECT_FALSE(os.process(pid).alive);
    EXPECT_EQ(log.count("INFO", "PingChildProcess", "Child process supervisor has been told to stop"), 1U);
}

TEST_F(PingLoopTest, FinishingWhatIsAlreadyStoppingOnlyWaits) {
    begin({ChildXml{}});
    diesWhenStopped("alpha");
    supervisor.start();
    supervisor.stop(&finished);
    supervisor.finish();
    EXPECT_FALSE(supervisor.isAlive());
    EXPECT_EQ(finished.timedWait(0), 1);
    EXPECT_EQ(log.count("INFO", "PingChildProcess", "Child process supervisor has been told to stop"), 1U);
    EXPECT_FALSE(
        supervisorLogged("ERROR", "Child process supervisor has been told to stop but is already stopping."));
}

TEST_F(PingLoopTest, FinishingWhatNeverRanDoesNothing) {
    begin({ChildXml{}});
    log.clear();
    supervisor.finish();
    EXPECT_EQ(log.raw(), "");
    EXPECT_TRUE(processOf("alpha").alive);
    supervisor.stop(&finished);
    EXPECT_TRUE(supervisorLogged("INFO", "Child process supervisor has been told to stop"))
        << "a later request is the first";
}

TEST_F(PingLoopTest, AnExceptionEndsTheSupervisionWithALine) {
    begin({ChildXml{}});
    pingPeer("alpha").onConnect = [] { throw std::runtime_error("no reason to go on"); };
    supervisor.start();
    supervisor.join();
    EXPECT_TRUE(supervisorLogged(
        "FATAL", "the supervision has ended by an exception, the children are on their own."));
    EXPECT_FALSE(supervisor.isAlive());
    EXPECT_THROW(supervisor.run(), std::runtime_error) << "what ends it is not kept from the thread";
}

}  // namespace
