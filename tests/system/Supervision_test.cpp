// How the daemon looks after its children: the dead, the silent, the busy and the broken.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <ctime>

#include "ServiceUnderTest.h"

namespace {

constexpr const char* kLimitFile = "bin/zor.failedPingLimit";

class SupervisionTest : public SystemTest {
  protected:
    // A pinged child; a stop by a program that does nothing, so that the child stays as it is.
    ChildXml pingedChild() {
        ChildXml alpha;
        alpha.pinged(m_port);
        alpha.stop = "<stop type=\"spawn\"><spawn><path>/bin/true</path></spawn></stop>";
        return alpha;
    }

    pid_t supervise(const ChildXml& child, const std::string& answer = "READY") {
        BootstrapXml document;
        document.children = {child};
        service.bootstrap(document);
        service.answer(answer);
        const pid_t daemon = runningInForeground();
        EXPECT_TRUE(service.waitForStarts(1));
        return daemon;
    }

    // A freshly started child is given ten failed pings before they count; this limit takes them away.
    void restartAtTheFirstFailure() { service.write(kLimitFile, "-9\n"); }

    void touch(std::time_t modified) {
        const timespec times[2] = {{modified, 0}, {modified, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, service.path(kLimitFile).c_str(), times, 0), 0);
    }

    testing::AssertionResult waitForCount(std::size_t count, const std::string& level,
                                          const std::string& logger, const std::string& text) {
        return service.waitFor(std::to_string(count) + " times: " + text,
                               [&] { return service.countLogged(level, logger, text) >= count; });
    }

    testing::AssertionResult waitForCycles(std::size_t more) {
        const std::string text = "end of timedWait";
        return waitForCount(service.countLogged("DEBUG", "PingChildProcess", text) + more, "DEBUG",
                            "PingChildProcess", text);
    }

    ReservedPort m_port;
};

// ---- The dead ----

TEST_F(SupervisionTest, ADeadChildWithoutAPingIsReplaced) {
    const pid_t daemon = supervise(ChildXml{});
    const pid_t first = service.childPids().at(0);
    ASSERT_EQ(kill(first, SIGKILL), 0);
    ASSERT_TRUE(service.waitForStarts(2));
    EXPECT_TRUE(service.hasEnded(first));
    EXPECT_TRUE(service.inOrder({"DEBUG ZORChildProcess Process \"alpha\" has terminated (kill(0) failed).",
                                 "DEBUG PingChildProcess Process alpha is not alive. Resuscitating.",
                                 "DEBUG ZORChildProcess starting process \"alpha\""}));
    stopDaemon(daemon);
    EXPECT_TRUE(service.hasEnded(service.childPids().at(1)));
}

TEST_F(SupervisionTest, ADeadChildWithAPingIsReplacedAndToldAsAnError) {
    const pid_t daemon = supervise(pingedChild());
    ASSERT_EQ(kill(service.childPids().at(0), SIGKILL), 0);
    ASSERT_TRUE(service.waitForStarts(2));
    EXPECT_TRUE(service.logged("ERROR", "PingChildProcess",
                               "ping loop: process \"alpha\" is not active, so restarting it."));
    ASSERT_TRUE(service.waitForLog("DEBUG", "PingChildProcess", "process alpha pinged successfully."));
    stopDaemon(daemon);
}

TEST_F(SupervisionTest, AnEndedChildLeavesNoZombie) {
    const pid_t daemon = supervise(ChildXml{.options = {"exit"}});
    ASSERT_TRUE(service.waitForStarts(3));
    const pid_t first = service.childPids().at(0);
    EXPECT_FALSE(std::filesystem::exists("/proc/" + std::to_string(first)));
    stopDaemon(daemon);
}

TEST_F(SupervisionTest, OneDeadChildDoesNotTouchTheOthers) {
    BootstrapXml document;
    document.children = {ChildXml{}, ChildXml{.name = "beta"}};
    service.bootstrap(document);
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitForStarts(1));
    ASSERT_TRUE(service.waitForStarts(1, "beta"));
    ASSERT_EQ(kill(service.childPids("beta").at(0), SIGKILL), 0);
    ASSERT_TRUE(service.waitForStarts(2, "beta"));
    EXPECT_EQ(service.childPids().size(), 1U);
    stopDaemon(daemon);
}

// ---- The silent ----

TEST_F(SupervisionTest, AHangingChildIsPingedStoppedKilledAndReplaced) {
    restartAtTheFirstFailure();
    const pid_t daemon = supervise(pingedChild());
    const pid_t first = service.childPids().at(0);
    ASSERT_EQ(kill(first, SIGSTOP), 0);
    ASSERT_TRUE(service.waitForStarts(2));
    ASSERT_TRUE(service.waitForEnd(first));
    ASSERT_TRUE(service.waitForLog("DEBUG", "PingChildProcess", "process alpha pinged successfully."));
    const std::string limitHit =
        "WARN PingChildProcess process alpha hit ping failure limit, will restart, but first make sure it is "
        "really dead.";
    const std::string pending =
        "DEBUG PingChildProcess ping loop: unresponsive process alpha requires restart, test to see if it is "
        "still active.";
    const std::string overdue =
        "DEBUG PingChildProcess unresponsive process alpha still hasn't stopped after two polls intervals, "
        "so "
        "kill it";
    EXPECT_TRUE(service.inOrder(
        {"DEBUG PingChildProcess Pinging process alpha. Ping counter: -10",
         "DEBUG PingChildProcess ping loop: process \"alpha\" is still active, so we will ping it.",
         "ERROR ZORSocketCommand no response,  SEK_Poll timed out.",
         "DEBUG ZORSockSendAction error occured while reading response.",
         "DEBUG PingChildProcess ping of process alpha failed. Will begin restart sequence.", limitHit,
         "WARN PingChildProcess process alpha appears to still be alive, so stop it.",
         "DEBUG PingChildProcess stopping process \"alpha\"",
         "DEBUG PingChildProcess Pinging process alpha. Ping counter: 0", pending,
         "WARN PingChildProcess unresponsive process alpha hasn't yet finished stopping.",
         "DEBUG PingChildProcess Pinging process alpha. Ping counter: 1", overdue,
         "DEBUG ZORChildProcess killing process \"alpha\"",
         "WARN PingChildProcess unresponsive process alpha hasn't yet finished stopping.",
         "WARN PingChildProcess restarting process alpha.",
         "DEBUG ZORChildProcess starting process \"alpha\""}));
    stopDaemon(daemon);
}

TEST_F(SupervisionTest, ASilentChildThatObeysItsStopIsRestartedInTheNextCycle) {
    restartAtTheFirstFailure();
    ChildXml alpha = pingedChild();
    alpha.stop = "<stop type=\"socketSend\"><socketSend URI=\"tcp://127.0.0.1:" + m_port.str() +
                 "\" commandString=\"SHUTDOWN\"/></stop>";
    const pid_t daemon = supervise(alpha, "");
    ASSERT_TRUE(service.waitForStarts(2));
    EXPECT_TRUE(service.inOrder({"WARN PingChildProcess stopAction->execute() return status = 1",
                                 "DEBUG ZORChildProcess Process \"alpha\" has terminated (kill(0) failed).",
                                 "WARN PingChildProcess restarting process alpha."}));
    EXPECT_TRUE(service.neverLogged("killing process"));
    EXPECT_EQ(service.childFile("alpha", "commands"), "PING\nSHUTDOWN\n");
    stopDaemon(daemon);
}

TEST_F(SupervisionTest, AStopBySignalInARestartReachesTheWholeGroup) {
    // The stop action is not aimed at its child in this path: it signals the daemon's group, itself included.
    restartAtTheFirstFailure();
    ChildXml alpha = pingedChild();
    alpha.stop = ChildXml{}.stop;
    ChildXml beta{.name = "beta"};
    BootstrapXml document;
    document.children = {alpha, beta};
    service.bootstrap(document);
    service.answer("");
    EXPECT_EQ(service.run({"-start", "-testReadyTries=0"}).exitCode, 1);
    ASSERT_TRUE(service.waitFor("the PID file", [&] { return service.daemonPid() > 0; }));
    const pid_t daemon = service.daemonPid();
    ASSERT_TRUE(service.waitForEnd(daemon));
    EXPECT_EQ(service.exitCodeOf(daemon), 0);
    EXPECT_TRUE(service.inOrder({"DEBUG ZORSignalAction Signalling process (handle = 0).",
                                 "WARN PingChildProcess stopAction->execute() return status = 0",
                                 "INFO PingChildProcess stopping child process(es)."}));
    EXPECT_TRUE(service.logged("DEBUG", "ZORSignalHandlerThread", "Signal 15 caught."));
    EXPECT_EQ(service.childFile("beta", "signals").substr(0, 3), "15\n");
}

TEST_F(SupervisionTest, ARefusedConnectionCountsAsASilentChild) {
    ChildXml alpha = pingedChild();
    alpha.options.clear();
    const pid_t daemon = supervise(alpha);
    EXPECT_TRUE(service.waitForLog("DEBUG", "PingChildProcess", "Pinging process alpha. Ping counter: -9"));
    EXPECT_TRUE(service.inOrder(
        {"DEBUG ZORSockSendAction socket send action failed",
         "DEBUG PingChildProcess ping of process alpha failed. Will begin restart sequence."}));
    EXPECT_EQ(service.childPids().size(), 1U);
    stopDaemon(daemon);
}

TEST_F(SupervisionTest, AConnectionClosedWithoutAnAnswerIsAnAnswerOfNoBytes) {
    restartAtTheFirstFailure();
    const pid_t daemon = supervise(pingedChild(), "close");
    EXPECT_TRUE(service.waitForLog("DEBUG", "PingChildProcess", "process alpha pinged successfully."));
    EXPECT_TRUE(service.logged("DEBUG", "ZORSockSendAction", "got response \"\""));
    stopDaemon(daemon);
}

// ---- The busy and the broken ----

TEST_F(SupervisionTest, ABusyChildIsNeverRestarted) {
    restartAtTheFirstFailure();
    const pid_t daemon = supervise(pingedChild(), "STARTING");
    EXPECT_TRUE(waitForCount(3, "DEBUG", "PingChildProcess", "process alpha pinged successfully."));
    EXPECT_TRUE(service.logged("DEBUG", "ZORSockSendAction", "Tomcat is not ready, retry..."));
    EXPECT_EQ(service.childPids().size(), 1U);
    stopDaemon(daemon);
}

TEST_F(SupervisionTest, AnUnknownAnswerIsAFailureWithoutARestart) {
    restartAtTheFirstFailure();
    const pid_t daemon = supervise(pingedChild(), "WHO KNOWS\x01\xE9");
    EXPECT_TRUE(waitForCount(2, "WARN", "ZORSockSendAction", "did not detect success string in response."));
    EXPECT_TRUE(waitForCount(2, "DEBUG", "PingChildProcess",
                             "ping of process alpha failed. Will not begin restart sequence."));
    EXPECT_TRUE(service.logged("DEBUG", "ZORSockSendAction", "got response \"WHO KNOWS  \""));
    EXPECT_EQ(service.childPids().size(), 1U);
    EXPECT_TRUE(service.neverLogged("is/are ready."));
    stopDaemon(daemon);
}

TEST_F(SupervisionTest, AFatalAnswerIsPassedOnAndRestartsNothing) {
    restartAtTheFirstFailure();
    const pid_t daemon = supervise(pingedChild(), "BROKEN");
    EXPECT_TRUE(service.waitForLog("ERROR", "ZORBootstrapService",
                                   "askPCPifReady() - some child processes got fatal errors, return -1."));
    EXPECT_TRUE(service.inOrder({"DEBUG ZORSockSendAction detected fatal error string in response.",
                                 "DEBUG PingChildProcess PingChildProcess::run() - Detected a fatal error.",
                                 "DEBUG ZORBootstrapService ZORBootstrapService::Run() - calls "
                                 "m_semaMainThreadWait->wait()"}));
    EXPECT_EQ(service.childPids().size(), 1U);
    stopDaemon(daemon);
}

TEST_F(SupervisionTest, ReadinessIsReportedOnceAllAnswer) {
    const pid_t daemon = supervise(pingedChild(), "WHO KNOWS");
    EXPECT_TRUE(
        service.waitForLog("WARN", "ZORSockSendAction", "did not detect success string in response."));
    service.answer("READY");
    EXPECT_TRUE(service.waitForLog("INFO", "ZORBootstrapService",
                                   "ZORBootstrapService::Run() - child process(es) is/are ready."));
    EXPECT_TRUE(service.inOrder(
        {"DEBUG ZORBootstrapService test ready...",
         "DEBUG ZORBootstrapService askPCPifReady() - ask if spawned process is alive.",
         "DEBUG ZORBootstrapService askPCPifReady() - PCP reports some child processes not yet "
         "ready so sleep a bit",
         "DEBUG ZORBootstrapService askPCPifReady() - PCP reports all children are OK."}));
    stopDaemon(daemon);
}

// ---- Which children are pinged ----

TEST_F(SupervisionTest, APingForAComponentThatIsNotInstalledIsNotUsed) {
    ChildXml alpha;
    alpha.pinged(m_port, "dependency=\"servletContainer\"");
    const pid_t daemon = supervise(alpha);
    ASSERT_TRUE(waitForCycles(2));
    EXPECT_TRUE(service.logged("DEBUG", "PingChildProcess", "Process alpha is alive."));
    EXPECT_EQ(service.childFile("alpha", "commands"), "");
    stopDaemon(daemon);
}

TEST_F(SupervisionTest, APingForAnInstalledComponentIsUsed) {
    service.startup(ServiceUnderTest::startupDefaults() +
                    "<components><component name=\"servletContainer\" version=\"10.1\"/></components>");
    ChildXml alpha;
    alpha.pinged(m_port, "dependency=\"servletContainer\"");
    const pid_t daemon = supervise(alpha);
    EXPECT_TRUE(service.waitForLog("DEBUG", "PingChildProcess", "process alpha pinged successfully."));
    EXPECT_TRUE(service.neverLogged("The attribute \"dependency\" is missing."));
    EXPECT_EQ(service.childFile("alpha", "commands"), "PING\n");
    stopDaemon(daemon);
}

// ---- The override of the failed-ping limit ----

TEST_F(SupervisionTest, TheLimitFileIsReadWheneverItsTimeChanges) {
    const pid_t daemon = supervise(ChildXml{});
    const auto applied = [](const char* limit) {
        return std::string("Found new zor.failedPingLimit file, overwriting failed ping limit to ") + limit;
    };
    service.write(kLimitFile, "5\n");
    touch(1000000000);
    EXPECT_TRUE(service.waitForLog("DEBUG", "PingChildProcess", applied("5")));
    ASSERT_TRUE(waitForCycles(2));
    touch(1000000001);
    EXPECT_TRUE(waitForCount(2, "DEBUG", "PingChildProcess", applied("5")));
    service.write(kLimitFile, "garbage\n7\n");
    EXPECT_TRUE(service.waitForLog("DEBUG", "PingChildProcess", applied("0")));
    stopDaemon(daemon);
    // Each change of the time once: writing may be seen as one or two of them.
    EXPECT_GE(service.countLogged("DEBUG", "PingChildProcess", applied("5")), 2U);
    EXPECT_LE(service.countLogged("DEBUG", "PingChildProcess", applied("5")), 3U);
}

TEST_F(SupervisionTest, AnEmptyLimitFileChangesNothing) {
    service.write(kLimitFile, "");
    const pid_t daemon = supervise(ChildXml{});
    ASSERT_TRUE(waitForCycles(2));
    EXPECT_TRUE(service.neverLogged("Found new zor.failedPingLimit file"));
    stopDaemon(daemon);
}

// ---- The supervisor's settings ----

TEST_F(SupervisionTest, ANegativeIntervalMeansNoSupervisionAndNoStop) {
    BootstrapXml document;
    document.manager = "<processManager pollIntervalsec=\"-1\"/>";
    document.schema = Schema::Refuses;
    service.bootstrap(document);
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitForStarts(1));
    EXPECT_TRUE(service.neverLogged("entering timedWait"));
    ASSERT_EQ(kill(daemon, SIGTERM), 0);
    ASSERT_TRUE(service.waitForLog("DEBUG", "ZORSignalHandlerThread", "Signal Handling Thread terminating."));
    EXPECT_TRUE(service.logged("INFO", "PingChildProcess", "Child process supervisor has been told to stop"));
    EXPECT_FALSE(service.hasEnded(daemon));
    EXPECT_EQ(service.childFile("alpha", "signals"), "");
    service.cleanUp();
}

TEST_F(SupervisionTest, TheLimitsFollowTheStartupConfiguration) {
    service.startup(
        "<ZOR><vrx:parameter name=\"dispatcherPingTimeout\"><vrx:value xsi:type=\"xsd:unsignedShort\">45"
        "</vrx:value></vrx:parameter><vrx:parameter name=\"dispatcherStopWaitTime\">"
        "<vrx:value xsi:type=\"xsd:unsignedShort\">2</vrx:value></vrx:parameter></ZOR><temp>../temp</temp>");
    BootstrapXml document;
    document.manager = "<processManager pollIntervalsec=\"10\" checkForShutdownIntervalms=\"-5\"/>";
    document.schema = Schema::Refuses;
    service.bootstrap(document);
    service.run({"-isrunning"});
    EXPECT_TRUE(
        service.inOrder({"DEBUG PingChildProcess poll interval is 10 seconds",
                         "DEBUG PingChildProcess failed ping limit is 5",
                         "DEBUG PingChildProcess check for child processes shutdown interval is 500 ms",
                         "DEBUG PingChildProcess max checks for child process shutdown = 4"},
                        "isrunning"));
}

}  // namespace
