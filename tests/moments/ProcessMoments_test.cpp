// The real executable, told to stop or losing a child at the worst moments, and several commands at once. What holds it
// at such a moment is a peer that goes no further or a child that has reported; nothing here waits for time to pass.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <set>
#include <sstream>

#include "HeldPort.h"
#include "ProcessView.h"
#include "ServiceUnderTest.h"

namespace {

constexpr const char* kPidFile = "logs/velbootstrap_service.pid";
constexpr const char* kSignalled = "Signalled to shutdown.";

// What the signal thread and the supervisor say in between depends on the moment.
const std::vector<std::string> kOrderlyStop{
    "INFO ZORSignalHandlerThread Signalled to shutdown.",
    "INFO PingChildProcess Child process supervisor has been told to stop",
    "INFO PingChildProcess stopping child process(es).",
    "DEBUG PingChildProcess raise semaphore to signal finished stopping.",
    "INFO ZORBootstrapService ZORBootstrapService::Run() - returned from m_semaMainThreadWait->wait()",
    "INFO ZORBootstrapService Done."};

class ProcessMomentsTest : public SystemTest {
  protected:
    void bootstrapWith(const std::vector<ChildXml>& children, const std::string& manager = {}) {
        BootstrapXml document;
        document.children = children;
        if (!manager.empty()) document.manager = manager;
        service.bootstrap(document);
    }

    // A child that is pinged somewhere else.
    static ChildXml pingedAt(const std::string& uri, int answerLimitSec) {
        ChildXml child;
        child.ping = "<ping><socketSend URI=\"" + uri + "\" commandString=\"PING\" sockIOTimeoutSec=\"" +
                     std::to_string(answerLimitSec) + "\" responseSize=\"16\" responseOK=\"READY\"/></ping>";
        return child;
    }

    // The first failed ping is one too many, even of a child that was just started.
    void haveNoPatience() { service.write("bin/zor.failedPingLimit", "-9\n"); }

    void signalAndAwait(pid_t daemon, int signal = SIGTERM) {
        ASSERT_EQ(kill(daemon, signal), 0);
        ASSERT_TRUE(service.waitForLog("INFO", "ZORSignalHandlerThread", kSignalled));
    }

    // The run has ended as it should: exit code, log, PID file, and no process of the tree.
    void expectOrderlyEnd(pid_t daemon, int deadlineSec = 40) {
        ASSERT_TRUE(service.waitForEnd(daemon, deadlineSec));
        EXPECT_EQ(service.exitCodeOf(daemon), 0);
        EXPECT_TRUE(service.inOrder(kOrderlyStop));
        for (const std::string& line : kOrderlyStop)
            EXPECT_EQ(occurrences(line), 1U) << line;
        EXPECT_FALSE(service.exists(kPidFile));
        EXPECT_TRUE(service.waitFor(
            "the children's end", [&] { return service.processes().empty(); }, 5));
    }

    std::size_t occurrences(const std::string& line) const {
        const std::size_t level = line.find(' ');
        const std::size_t logger = line.find(' ', level + 1);
        return service.countLogged(line.substr(0, level), line.substr(level + 1, logger - level - 1),
                                   line.substr(logger + 1));
    }
};

// ---- A signal in a bad place ----

// What lies around a service when the signal comes: nobody reads its output, its log can grow no more, its standard
// streams are closed.
class BadPlaceTest : public ProcessMomentsTest {
  protected:
    BadPlaceTest() {
        ChildXml alpha;
        alpha.pinged(m_port);
        bootstrapWith({alpha});
        service.answer("READY");
    }
    std::string commands() const { return service.childFile("alpha", "commands"); }
    testing::AssertionResult isPingedTwice() {
        return service.waitFor("two pings",
                               [&] { return commands().size() >= 2 * std::string("PING\n").size(); });
    }

  private:
    ReservedPort m_port;
};

TEST_F(BadPlaceTest, ASignalWhileNobodyReadsTheOutputEndsTheServiceInOrder) {
    std::array<int, 2> ends{-1, -1};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    const std::string filling(static_cast<std::size_t>(fcntl(ends[1], F_GETPIPE_SZ)), '#');
    ASSERT_EQ(write(ends[1], filling.data(), filling.size()), static_cast<ssize_t>(filling.size()));
    const pid_t daemon = service.begin({.arguments = {"-d", "-stdoutLog=DEBUG"}, .output = ends[1]});
    EXPECT_TRUE(isPingedTwice());
    signalAndAwait(daemon);
    expectOrderlyEnd(daemon);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(BadPlaceTest, ASignalWhileNoFileMayGrowEndsTheServiceInOrder) {
    constexpr long kLimit = 16384;
    const pid_t daemon = service.begin({.arguments = {"-d"}, .fileSizeBytes = kLimit});
    ASSERT_TRUE(service.waitFor("the log at its limit", [&] {
        return service.read("logs/run.log").size() >= static_cast<std::size_t>(kLimit);
    }));
    ASSERT_EQ(kill(daemon, SIGTERM), 0);
    ASSERT_TRUE(service.waitForEnd(daemon));
    EXPECT_EQ(service.exitCodeOf(daemon), 0);
    EXPECT_FALSE(service.exists(kPidFile));
    EXPECT_TRUE(service.processes().empty());
}

TEST_F(BadPlaceTest, ASignalToAServiceWithoutStandardStreamsReachesNoConnectionAsALine) {
    const pid_t daemon = service.begin({.arguments = {"-d", "-stdoutLog=DEBUG"}, .closed = {0, 1, 2}});
    EXPECT_TRUE(isPingedTwice());
    signalAndAwait(daemon);
    expectOrderlyEnd(daemon);
    std::istringstream lines(commands());
    for (std::string line; std::getline(lines, line);)
        EXPECT_EQ(line, "PING");
}

// ---- A signal while the children are being started ----

class StartPauseTest : public ProcessMomentsTest, public testing::WithParamInterface<std::string> {};

TEST_P(StartPauseTest, ASignalInAChildsStartPauseStopsAllOnceTheyAreStarted) {
    std::vector<ChildXml> children;
    for (const char* const name : {"alpha", "beta", "gamma"})
        children.push_back({.name = name, .startAttributes = "sync=\"2\""});
    bootstrapWith(children);
    const pid_t daemon = service.begin({.arguments = {"-d"}});
    ASSERT_TRUE(service.waitForStarts(1, GetParam()));
    EXPECT_FALSE(service.exists(kPidFile)) << "no -stop can have come yet";
    ASSERT_EQ(kill(daemon, SIGTERM), 0);
    expectOrderlyEnd(daemon);
    EXPECT_TRUE(service.inOrder({"DEBUG ZORBootstrapService ZORBootstrapService::Run() - starting \"gamma\"",
                                 "DEBUG ZORSignalHandlerThread Signal Handling Thread started.",
                                 "DEBUG ZORSignalHandlerThread Signal 15 caught."}));
    EXPECT_TRUE(service.inOrder({"DEBUG PingChildProcess stopping process \"alpha\"",
                                 "DEBUG PingChildProcess stopping process \"beta\"",
                                 "DEBUG PingChildProcess stopping process \"gamma\"",
                                 "INFO PingChildProcess no processes are alive."}));
    for (const char* const name : {"alpha", "beta", "gamma"}) {
        EXPECT_EQ(service.childPids(name).size(), 1U) << name;
        EXPECT_EQ(service.childFile(name, "signals"), "15\n") << name;
    }
}

INSTANTIATE_TEST_SUITE_P(Child, StartPauseTest, testing::Values("alpha", "beta", "gamma"),
                         [](const auto& child) { return child.param; });

// ---- A signal in the midst of a ping ----

TEST_F(ProcessMomentsTest, ASignalWhileAConnectionIsInTheAirEndsTheRoundAndThenTheService) {
    const HeldPort peer(true);
    bootstrapWith({pingedAt("tcp://127.0.0.1:" + peer.str(), 1)});
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitFor("a connection", [&] { return peer.isBeingConnected(); }));
    signalAndAwait(daemon);
    EXPECT_FALSE(service.hasEnded(daemon));
    expectOrderlyEnd(daemon, 20);
    EXPECT_TRUE(
        service.inOrder({"INFO ZORSignalHandlerThread Signalled to shutdown.",
                         "DEBUG PingChildProcess ping of process alpha failed. Will begin restart sequence.",
                         "INFO PingChildProcess stopping child process(es)."}));
    EXPECT_EQ(service.childFile("alpha", "signals"), "15\n");
}

TEST_F(ProcessMomentsTest, ASignalInTheMidstOfAHandshakeEndsTheRoundAndThenTheService) {
    HeldPort peer;
    bootstrapWith({pingedAt("tls://127.0.0.1:" + peer.str(), 1)});
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitFor("a greeting", [&] { return !peer.received().empty(); }));
    signalAndAwait(daemon);
    // The peer stays silent for good: at most twelve seconds are given to a handshake.
    expectOrderlyEnd(daemon, 25);
    EXPECT_TRUE(
        service.inOrder({"INFO ZORSignalHandlerThread Signalled to shutdown.",
                         "DEBUG PingChildProcess ping of process alpha failed. Will begin restart sequence.",
                         "INFO PingChildProcess stopping child process(es)."}));
}

TEST_F(ProcessMomentsTest, ASignalInTheMidstOfAHandshakeThatBreaksEndsTheServiceAtOnce) {
    HeldPort peer;
    bootstrapWith({pingedAt("tls://127.0.0.1:" + peer.str(), 1)});
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitFor("a greeting", [&] { return !peer.received().empty(); }));
    signalAndAwait(daemon);
    peer.hangUp();
    expectOrderlyEnd(daemon);
    EXPECT_TRUE(service.neverLogged("not finished after 10 s"));
}

TEST_F(ProcessMomentsTest, ASignalWhileAnAnswerIsAwaitedLetsItCount) {
    HeldPort peer;
    bootstrapWith({pingedAt("tcp://127.0.0.1:" + peer.str(), 60)});
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitFor("a ping", [&] { return peer.received() == "PING"; }));
    signalAndAwait(daemon);
    EXPECT_TRUE(service.neverLogged("stopping child process(es)."));
    peer.answer("READY");
    expectOrderlyEnd(daemon);
    EXPECT_TRUE(service.inOrder({"INFO ZORSignalHandlerThread Signalled to shutdown.",
                                 "DEBUG PingChildProcess process alpha pinged successfully.",
                                 "INFO PingChildProcess stopping child process(es)."}));
    EXPECT_EQ(service.countLogged("DEBUG", "PingChildProcess", "Pinging process alpha. Ping counter: -10"),
              1U);
}

TEST_F(ProcessMomentsTest, ASignalWhileAnAnswerIsAwaitedThatNeverComesIsBounded) {
    HeldPort peer;
    bootstrapWith({pingedAt("tcp://127.0.0.1:" + peer.str(), 2)});
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitFor("a ping", [&] { return peer.received() == "PING"; }));
    signalAndAwait(daemon);
    expectOrderlyEnd(daemon, 15);
    EXPECT_TRUE(service.inOrder({"INFO ZORSignalHandlerThread Signalled to shutdown.",
                                 "ERROR ZORSocketCommand no response,  SEK_Poll timed out.",
                                 "INFO PingChildProcess stopping child process(es)."}));
}

// ---- A signal during a restart ----

TEST_F(ProcessMomentsTest, ASignalWhileAChildIsAskedToStopForARestartAsksItOnceMore) {
    const ReservedPort nobody;
    ChildXml alpha = pingedAt("tcp://127.0.0.1:" + nobody.str(), 1);
    alpha.options = {"ignoreTerm"};
    alpha.stop =
        "<stop type=\"spawn\"><spawn sync=\"2\"><path>${bin_path}/fakechild</path>"
        "<param>${install_path}/temp</param><param>exit</param></spawn></stop>";
    bootstrapWith({alpha});
    haveNoPatience();
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitFor("the stop program", [&] { return service.exists("temp/pids"); }));
    signalAndAwait(daemon);
    expectOrderlyEnd(daemon);
    EXPECT_TRUE(service.inOrder({"WARN PingChildProcess process alpha appears to still be alive, so stop it.",
                                 "INFO ZORSignalHandlerThread Signalled to shutdown.",
                                 "INFO PingChildProcess stopping child process(es).",
                                 "DEBUG PingChildProcess stopping process \"alpha\"",
                                 "DEBUG PingChildProcess kill all processes."}));
    EXPECT_EQ(service.countLogged("DEBUG", "PingChildProcess", "stopping process \"alpha\""), 2U);
    EXPECT_EQ(service.childPids().size(), 1U) << "it is not started again";
    EXPECT_EQ(service.countLogged("DEBUG", "ZORChildProcess", "killing process \"alpha\""), 1U);
}

TEST_F(ProcessMomentsTest, ASignalInTheStartPauseOfARestartStopsTheNewChild) {
    ChildXml alpha;
    alpha.startAttributes = "sync=\"2\"";
    const ReservedPort nobody;
    alpha.ping = pingedAt("tcp://127.0.0.1:" + nobody.str(), 1).ping;
    bootstrapWith({alpha});
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitForStarts(1));
    ASSERT_EQ(kill(service.childPids().front(), SIGKILL), 0);
    ASSERT_TRUE(service.waitForStarts(2));
    signalAndAwait(daemon);
    expectOrderlyEnd(daemon);
    EXPECT_EQ(service.childPids().size(), 2U);
    EXPECT_EQ(service.childFile("alpha", "signals"), "15\n");
    EXPECT_TRUE(
        service.logged("DEBUG", "ZORSignalAction",
                       "Signalling process (handle = " + std::to_string(service.childPids().back()) + ")."));
}

// ---- A signal during the shutdown ----

TEST_F(ProcessMomentsTest, FurtherSignalsOfEveryKindDuringTheShutdownChangeNothing) {
    bootstrapWith({ChildXml{.options = {"ignoreTerm"}}});
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitForStarts(1));
    const pid_t alpha = service.childPids().front();
    signalAndAwait(daemon);
    // Each at a stage of its own; then the child dies.
    ASSERT_EQ(kill(daemon, SIGHUP), 0);
    ASSERT_TRUE(service.waitForLog("WARN", "PingChildProcess", "stopAction->execute() return status = 0"));
    ASSERT_EQ(kill(daemon, SIGINT), 0);
    ASSERT_TRUE(service.waitForLog("DEBUG", "PingChildProcess", "Waiting for processes to die."));
    ASSERT_EQ(kill(daemon, SIGQUIT), 0);
    ASSERT_EQ(kill(alpha, SIGKILL), 0);
    expectOrderlyEnd(daemon);
    EXPECT_TRUE(service.neverLogged("is already stopping"));
    EXPECT_TRUE(service.neverLogged("kill all processes.")) << "the child was gone by then";
    EXPECT_TRUE(service.logged("INFO", "PingChildProcess", "no processes are alive."));
}

// ---- Deaths ----

TEST_F(ProcessMomentsTest, AChildThatDiesWhileItsAnswerIsOnTheWayIsReplacedInTheNextRound) {
    HeldPort peer;
    bootstrapWith({pingedAt("tcp://127.0.0.1:" + peer.str(), 60)});
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitFor("a ping", [&] { return peer.received() == "PING"; }));
    ASSERT_TRUE(service.waitForStarts(1));
    const pid_t alpha = service.childPids().front();
    ASSERT_EQ(kill(alpha, SIGKILL), 0);
    ASSERT_TRUE(service.waitForEnd(alpha));
    peer.answer("READY");
    ASSERT_TRUE(service.waitForStarts(2));
    EXPECT_TRUE(service.inOrder(
        {"DEBUG PingChildProcess process alpha pinged successfully.",
         "ERROR PingChildProcess ping loop: process \"alpha\" is not active, so restarting it."}));
    ASSERT_EQ(kill(daemon, SIGTERM), 0);
    ASSERT_TRUE(service.waitForLog("INFO", "ZORSignalHandlerThread", kSignalled));
    peer.hangUp();
    expectOrderlyEnd(daemon);
    EXPECT_EQ(service.childPids().size(), 2U);
}

TEST_F(ProcessMomentsTest, ChildrenThatDieAllAtOnceAreReplacedOnceEach) {
    std::vector<ChildXml> children;
    const std::vector<std::string> names{"alpha", "beta", "gamma", "delta"};
    children.reserve(names.size());
    for (const std::string& name : names)
        children.push_back({.name = name});
    bootstrapWith(children);
    const pid_t daemon = runningInForeground();
    std::set<pid_t> first;
    for (const std::string& name : names) {
        ASSERT_TRUE(service.waitForStarts(1, name));
        first.insert(service.childPids(name).front());
    }
    const std::size_t descriptors = ProcessView(daemon).entriesOf("fd");
    for (const pid_t pid : first)
        ASSERT_EQ(kill(pid, SIGKILL), 0);
    for (const std::string& name : names)
        ASSERT_TRUE(service.waitForStarts(2, name));
    EXPECT_LE(ProcessView(daemon).entriesOf("fd"), descriptors + 1)
        << "the last one's may be kept a round longer";
    // Once more, together with the end.
    for (const std::string& name : names)
        ASSERT_EQ(kill(service.childPids(name).back(), SIGKILL), 0);
    signalAndAwait(daemon);
    expectOrderlyEnd(daemon);
    for (const std::string& name : names)
        EXPECT_LE(service.childPids(name).size(), 3U)
            << "the round in progress may have replaced it once more";
}

TEST_F(ProcessMomentsTest, AChildThatDiesBetweenItsStopAndTheLookIsNotKilledOnceMore) {
    bootstrapWith({ChildXml{.options = {"ignoreTerm"}}, ChildXml{.name = "beta", .options = {"ignoreTerm"}}});
    const pid_t daemon = runningInForeground();
    // Started before beta, it may come to tell of itself after it.
    ASSERT_TRUE(service.waitForStarts(1, "alpha"));
    ASSERT_TRUE(service.waitForStarts(1, "beta"));
    const pid_t alpha = service.childPids("alpha").front();
    ASSERT_EQ(kill(daemon, SIGTERM), 0);
    // Alpha dies when it has been told; beta stays to the end.
    ASSERT_TRUE(
        service.waitFor("alpha's signal", [&] { return !service.childFile("alpha", "signals").empty(); }));
    ASSERT_EQ(kill(alpha, SIGKILL), 0);
    expectOrderlyEnd(daemon);
    EXPECT_TRUE(service.inOrder({"DEBUG ZORChildProcess killing process \"alpha\"",
                                 "DEBUG ZORChildProcess Process ID used is -1",
                                 "DEBUG ZORChildProcess killing process \"beta\""}));
}

// ---- Commands at once ----

TEST_F(ProcessMomentsTest, SignalsDoNotReachACommandThatWaits) {
    HeldPort peer;
    bootstrapWith({pingedAt("tcp://127.0.0.1:" + peer.str(), 60)});
    const pid_t start = service.begin({.arguments = {"-start", "-testReadyInterval=1"}});
    ASSERT_TRUE(service.waitFor("the command's own ping", [&] {
        return peer.received().find("PING") != std::string::npos &&
               service.countLogged("DEBUG", "ZORSockSendAction", "successful send, now read response...",
                                   "start") > 0;
    }));
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM})
        ASSERT_EQ(kill(start, signal), 0);
    EXPECT_FALSE(service.hasEnded(start));
    // Both pings, the command's and the daemon's, are answered from here on.
    ASSERT_TRUE(service.waitFor("the command's end", [&] {
        if (!peer.received().empty()) peer.answer("READY");
        return service.hasEnded(start);
    }));
    EXPECT_EQ(service.exitCodeOf(start), 0);
    const pid_t daemon = service.daemonPid();
    ASSERT_EQ(kill(daemon, SIGTERM), 0);
    ASSERT_TRUE(service.waitFor("the daemon's end", [&] {
        if (!peer.received().empty()) peer.answer("READY");
        return service.hasEnded(daemon);
    }));
}

TEST_F(ProcessMomentsTest, FourStartsAtOnceLockNothingAndEveryDaemonEndsInOrder) {
    // Held until all four have looked for a daemon: none may see another's PID file first.
    bootstrapWith({ChildXml{.startAttributes = "sync=\"3\""}});
    std::vector<pid_t> commands;
    commands.reserve(4);
    for (int i = 0; i < 4; ++i)
        commands.push_back(service.begin({.arguments = {"-start", "-testReadyInterval=1"}}));
    for (const pid_t command : commands)
        EXPECT_EQ(service.finish(command).exitCode, 0);
    ASSERT_TRUE(service.waitForStarts(1));
    const std::size_t spawned = service.countLogged(
        "INFO", "ZORBootstrapService",
        "startDaemon() - spawned daemon, waiting for child processes to be ready.", "start");
    const std::size_t refused = service.countLogged(
        "WARN", "ZORBootstrapService",
        "startDaemon() - daemon is already running, will not attempt to start it.", "start");
    EXPECT_EQ(spawned + refused, 4U);
    EXPECT_GE(spawned, 1U);
    ASSERT_TRUE(service.waitForStarts(spawned));
    std::set<pid_t> daemons;
    ASSERT_TRUE(service.waitFor("all daemons", [&] {
        daemons.clear();
        for (const pid_t pid : service.processes()) {
            const bool isDaemon = ProcessView(pid).commandLine().find("runAsDaemon") != std::string::npos;
            // A sanitizer may have a thread of its own.
            if (isDaemon && ProcessView(pid).entriesOf("task") >= 3) daemons.insert(pid);
        }
        return daemons.size() == spawned;
    }));
    const pid_t named = service.daemonPid();
    EXPECT_EQ(daemons.count(named), 1U) << "the last one to write it is in the PID file";
    // One that is not named runs on when the named one is stopped, and no command finds it any more.
    EXPECT_EQ(service.run({"-stop", "-testDeadInterval=1"}).exitCode, 0);
    daemons.erase(named);
    EXPECT_TRUE(service.hasEnded(named));
    EXPECT_FALSE(service.exists(kPidFile));
    EXPECT_EQ(service.run({"-isrunning"}).exitCode, 1);
    for (const pid_t daemon : daemons) {
        EXPECT_FALSE(service.hasEnded(daemon));
        stopDaemon(daemon);
    }
    EXPECT_TRUE(service.waitFor(
        "the children's end", [&] { return service.processes().empty(); }, 10));
}

TEST_F(ProcessMomentsTest, AStartThatFindsADaemonLeavesItsPidFileAlone) {
    const pid_t daemon = runningDaemon();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(service.run({"-start"}).exitCode, 0);
    EXPECT_EQ(service.daemonPid(), daemon);
    EXPECT_FALSE(service.hasEnded(daemon));
    stopDaemon(daemon);
}

TEST_F(ProcessMomentsTest, AStopBeforeThePidFileFindsNothingAndTheStartSucceeds) {
    bootstrapWith({ChildXml{.startAttributes = "sync=\"3\""}});
    const pid_t start = service.begin({.arguments = {"-start", "-testReadyInterval=1"}});
    ASSERT_TRUE(service.waitForStarts(1));
    EXPECT_FALSE(service.exists(kPidFile));
    EXPECT_EQ(service.run({"-stop"}).exitCode, 0);
    EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService",
                               "stopRunningUnix() - process is dead, nothing to stop.", "stop"));
    EXPECT_EQ(service.finish(start).exitCode, 0);
    stopDaemon(service.daemonPid());
}

TEST_F(ProcessMomentsTest, AStopDuringAStartStopsAndTheStartGivesUpAtItsTime) {
    const ReservedPort port;
    ChildXml alpha;
    alpha.pinged(port);
    bootstrapWith({alpha});
    service.answer("STARTING");
    const pid_t start = service.begin({.arguments = {"-start", "-testReadyInterval=1", "-testReadyTries=6"}});
    ASSERT_TRUE(service.waitForLog("DEBUG", "PingChildProcess", "process alpha pinged successfully."));
    const pid_t daemon = service.daemonPid();
    EXPECT_EQ(service.run({"-stop", "-testDeadInterval=1"}).exitCode, 0);
    EXPECT_TRUE(service.hasEnded(daemon));
    EXPECT_EQ(service.finish(start).exitCode, 1);
    EXPECT_TRUE(service.logged("ERROR", "ZORBootstrapService",
                               "testReadyByPinging() - child processes not yet ready, giving up.", "start"));
    EXPECT_FALSE(service.exists(kPidFile));
}

TEST_F(ProcessMomentsTest, TwoStopsAtOnceBothSucceedAndTheServiceStopsOnce) {
    bootstrapWith({ChildXml{.options = {"ignoreTerm"}}});
    const pid_t daemon = runningDaemon();
    const std::vector<std::string> stop{"-stop", "-testDeadInterval=1"};
    const pid_t first = service.begin({.arguments = stop});
    const pid_t second = service.begin({.arguments = stop});
    EXPECT_EQ(service.finish(first).exitCode, 0);
    EXPECT_EQ(service.finish(second).exitCode, 0);
    expectOrderlyEnd(daemon);
    EXPECT_EQ(service.childFile("alpha", "signals"), "15\n");
}

}  // namespace
