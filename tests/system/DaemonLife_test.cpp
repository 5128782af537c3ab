// The daemon as a process: how it detaches, what children are given, how signals end it, what it leaves behind.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "ProcessView.h"
#include "ServiceUnderTest.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kPidFile = "logs/velbootstrap_service.pid";

class DaemonLifeTest : public SystemTest {
  protected:
    void bootstrapWith(const ChildXml& child, Schema schema = Schema::Accepts) {
        BootstrapXml document;
        document.children = {child};
        document.schema = schema;
        service.bootstrap(document);
    }

    pid_t child() { return service.childPids().empty() ? 0 : service.childPids().back(); }

    void waitUntilReady(int deadlineSec = 40) {
        ASSERT_TRUE(service.waitForLog("INFO", "ZORBootstrapService",
                                       "ZORBootstrapService::Run() - child process(es) is/are ready.",
                                       deadlineSec));
    }
};

// ---- Detaching ----

TEST_F(DaemonLifeTest, TheDaemonLeavesItsStarterBehind) {
    const pid_t daemon = runningDaemon();
    EXPECT_NE(getsid(daemon), getsid(0));
    EXPECT_NE(getsid(daemon), daemon) << "a session leader could gain a terminal";
    EXPECT_EQ(getpgid(daemon), getsid(daemon));
    EXPECT_EQ(ProcessView(daemon).status("PPid"), std::to_string(getpid())) << "its parents are gone";
    for (const char* const descriptor : {"fd/0", "fd/1", "fd/2"})
        EXPECT_EQ(ProcessView(daemon).target(descriptor), "/dev/null");
    EXPECT_EQ(ProcessView(daemon).target("cwd"), service.path("bin"));
    EXPECT_EQ(ProcessView(daemon).target("exe"), service.path("bin/velbootstrapservice"));
    EXPECT_EQ(service.processes().size(), 2U) << "daemon and child, no process between";
    stopDaemon(daemon);
}

TEST_F(DaemonLifeTest, TheDaemonMayBeStartedByHand) {
    const pid_t first = service.begin({.arguments = {"runAsDaemon"}});
    EXPECT_EQ(service.finish(first).exitCode, 0);
    ASSERT_TRUE(service.waitFor("the PID file", [&] { return service.daemonPid() > 0; }));
    EXPECT_NE(service.daemonPid(), first);
    stopDaemon(service.daemonPid());
}

TEST_F(DaemonLifeTest, ADaemonThatCannotInitialiseEndsSilently) {
    service.remove("bin/bootstrap_linuxi38632.xml");
    EXPECT_EQ(service.run({"runAsDaemon"}).exitCode, 0);
    ASSERT_TRUE(service.waitFor("the daemon's end", [&] { return service.processes().empty(); }));
    EXPECT_TRUE(service.logged(
        "FATAL", "ZORBootstrapService",
        "cannot open bootstrap config file \"" + service.path("bin/bootstrap_linuxi38632.xml") + "\"."));
    EXPECT_FALSE(service.exists(kPidFile));
}

TEST_F(DaemonLifeTest, ADaemonHasThreeThreads) {
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitForLog("DEBUG", "PingChildProcess", "entering timedWait, interval = 1000"));
#if defined(__SANITIZE_THREAD__)
    constexpr std::size_t kOfTheSanitizer = 1;
#else
    constexpr std::size_t kOfTheSanitizer = 0;
#endif
    EXPECT_EQ(ProcessView(daemon).entriesOf("task"), 3U + kOfTheSanitizer) << "main, signals, supervisor";
    stopDaemon(daemon);
}

TEST_F(DaemonLifeTest, EveryThreadBlocksTheTerminationSignals) {
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitForLog("DEBUG", "PingChildProcess", "entering timedWait, interval = 1000"));
    for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(daemon) + "/task")) {
        const std::string status =
            ProcessView(daemon).content("task/" + task.path().filename().string() + "/status");
        const unsigned long blocked = std::strtoul(ProcessView::field(status, "SigBlk").c_str(), nullptr, 16);
        for (const int signal : {SIGINT, SIGQUIT, SIGHUP, SIGTERM}) {
            // The signal thread takes them while it waits: its mask shows them as open then.
            const bool waits = ProcessView(daemon)
                                   .content("task/" + task.path().filename().string() + "/wchan")
                                   .find("sigtimedwait") != std::string::npos;
            EXPECT_TRUE(waits || (blocked >> (signal - 1) & 1) != 0) << signal;
        }
    }
    stopDaemon(daemon);
}

// ---- What children are given ----

TEST_F(DaemonLifeTest, AChildIsGivenTheStandardStreamsAndNothingElse) {
    const pid_t daemon = runningDaemon();
    EXPECT_EQ(service.childFile("alpha", "fds"), "0 /dev/null\n1 /dev/null\n2 /dev/null\n");
    EXPECT_EQ(ProcessView(daemon).inheritableDescriptors(), "");
    stopDaemon(daemon);
}

TEST_F(DaemonLifeTest, TheMarkersDescriptorStaysInTheDaemon) {
    service.write("temp/zordaemonwait", "");
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitForStarts(1));
    EXPECT_TRUE(
        service.logged("DEBUG", "ZORBootstrapService", "m_sDaemonWaitFileName is \"../temp/zordaemonwait\""));
    // Whatever else the process has opened and closed since: long after the start it is there, once.
    ASSERT_TRUE(service.waitForLog("INFO", "ZORBootstrapService",
                                   "ZORBootstrapService::Run() - child process(es) is/are ready."));
    const std::string descriptors = ProcessView(daemon).descriptors();
    const std::string marker = " " + service.path("temp/zordaemonwait") + "\n";
    const std::size_t at = descriptors.find(marker);
    ASSERT_NE(at, std::string::npos) << descriptors;
    EXPECT_EQ(descriptors.find(marker, at + 1), std::string::npos) << descriptors;
    EXPECT_EQ(ProcessView(daemon).inheritableDescriptors(), "");
    const std::string childs = service.childFile("alpha", "fds");
    EXPECT_NE(childs.find("0 /dev/null\n"), std::string::npos) << childs;
    EXPECT_EQ(childs.find("zordaemonwait"), std::string::npos) << childs;
    stopDaemon(daemon);
}

TEST_F(DaemonLifeTest, ADescriptorOfTheCallerIsPassedOn) {
    service.write("temp/handed.txt", "");
    const int handed = open(service.path("temp/handed.txt").c_str(), O_RDONLY | O_CLOEXEC);
    const pid_t program = service.begin({.arguments = {"-d"}, .kept = handed});
    ASSERT_TRUE(service.waitForStarts(1));
    EXPECT_NE(service.childFile("alpha", "fds")
                  .find("\n" + std::to_string(handed) + " " + service.path("temp/handed.txt")),
              std::string::npos);
    EXPECT_NE(service.childFile("alpha", "fds").find("1 " + service.path("output/0.out")), std::string::npos);
    close(handed);
    ASSERT_TRUE(service.waitFor("the PID file", [&] { return service.daemonPid() == program; }));
    stopDaemon(program);
}

TEST_F(DaemonLifeTest, AChildHasTheStartersEnvironment) {
    const RunResult started = service.run(
        {.arguments = {"-start", "-testReadyInterval=1"}, .environment = {{"COLOUR", "blue = green"}}});
    EXPECT_EQ(started.exitCode, 0);
    const std::string variables = std::string(1, '\0') + service.childFile("alpha", "environ");
    for (const std::string entry : {"COLOUR=blue = green", "JAVA_HOME=/opt/java", "PATH=/usr/bin:/bin"})
        EXPECT_NE(variables.find(std::string(1, '\0') + entry + std::string(1, '\0')), std::string::npos)
            << entry;
    EXPECT_TRUE(service.logged("DEBUG", "ZORBootstrapService", "COLOUR=blue = green"));
    stopDaemon(service.daemonPid());
}

TEST_F(DaemonLifeTest, AChildIsGivenItsArguments) {
    ChildXml alpha;
    alpha.options = {"two words",
                     "${dispatcherURI}</param><param condName=\"${java_home}\" condValue=\"/opt/java\">met",
                     "</param><param condName=\"${java_home}\" condValue=\"/opt/other\">unmet"};
    bootstrapWith(alpha);
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitForStarts(1));
    std::string expected;
    for (const std::string& argument :
         {service.path("bin/fakechild"), service.path("temp/alpha"), std::string("two words"),
          std::string("https://localhost:9300/dispatch"), std::string("met"), std::string("")})
        expected += argument + std::string(1, '\0');
    EXPECT_EQ(service.childFile("alpha", "args"), expected);
    EXPECT_TRUE(service.logged("DEBUG", "ZORSpawnAction",
                               "Spawning child process:\nPath: " + service.path("bin/fakechild") +
                                   "\nParameters: \n\t" + service.path("bin/fakechild") + "\n\t" +
                                   service.path("temp/alpha") +
                                   "\n\ttwo words\n\thttps://localhost:9300/dispatch\n\tmet\n\t\n"));
    stopDaemon(daemon);
}

TEST_F(DaemonLifeTest, TheSpawnLogNeverShowsTheEnvironment) {
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitForStarts(1));
    EXPECT_TRUE(service.neverLogged("environment:"));
    EXPECT_EQ(service.countLogged("DEBUG", "ZORBootstrapService", "PATH=/usr/bin:/bin"), 1U)
        << "from the start only";
    stopDaemon(daemon);
}

// ---- Starting children ----

TEST_F(DaemonLifeTest, ChildrenStartInTheDocumentsOrder) {
    BootstrapXml document;
    document.children = {ChildXml{.name = "second"}, ChildXml{.name = "first"}};
    document.extra = "<group><more>" + ChildXml{.name = "nested"}.str() + "</more></group>";
    document.schema = Schema::Refuses;
    service.bootstrap(document);
    fs::create_directory(service.path("temp/nested"));
    const pid_t daemon = runningInForeground();
    EXPECT_TRUE(service.inOrder({"DEBUG ZORBootstrapService ZORBootstrapService::Run() - starting \"second\"",
                                 "DEBUG ZORBootstrapService ZORBootstrapService::Run() - starting \"first\"",
                                 "DEBUG ZORBootstrapService ZORBootstrapService::Run() - starting \"nested\"",
                                 "DEBUG ZORSignalHandlerThread Signal Handling Thread started."}));
    ASSERT_TRUE(service.waitForStarts(1, "nested"));
    stopDaemon(daemon);
    EXPECT_TRUE(service.inOrder({"DEBUG PingChildProcess Stop all processes.",
                                 "DEBUG PingChildProcess stopping process \"second\"",
                                 "DEBUG PingChildProcess stopping process \"first\"",
                                 "DEBUG PingChildProcess stopping process \"nested\""}));
}

TEST_F(DaemonLifeTest, AProgramThatDoesNotExistIsToldByItsChildInEveryCycle) {
    bootstrapWith(ChildXml{.path = "${bin_path}/nothing"});
    const pid_t daemon = runningInForeground();
    EXPECT_TRUE(service.waitFor("a second start", [&] {
        return service.countLogged("FATAL", "ZORSpawnAction", "execve failed, errno=2") >= 2;
    }));
    EXPECT_TRUE(service.logged("DEBUG", "PingChildProcess", "Process alpha is not alive. Resuscitating."));
    stopDaemon(daemon);
    ASSERT_TRUE(service.waitFor("the last attempt's end", [&] { return service.processes().empty(); }));
}

TEST_F(DaemonLifeTest, AChildThatIsGoneNeedsNoStop) {
    BootstrapXml document;
    document.manager = "<processManager pollIntervalsec=\"60\"/>";
    document.children = {ChildXml{.options = {"exit"}}};
    service.bootstrap(document);
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitForStarts(1));
    ASSERT_TRUE(service.waitForEnd(child()));
    stopDaemon(daemon);
    EXPECT_TRUE(
        service.inOrder({"DEBUG PingChildProcess process \"alpha\" is not alive, so don't need to stop it.",
                         "INFO PingChildProcess no processes are alive."}));
}

TEST_F(DaemonLifeTest, AProgramThatIsNotExecutableIsToldByItsChild) {
    bootstrapWith(ChildXml{.path = "${bin_path}/zorlogconfig.xml"});
    const pid_t daemon = runningInForeground();
    EXPECT_TRUE(service.waitForLog("FATAL", "ZORSpawnAction", "execve failed, errno=13"));
    stopDaemon(daemon);
}

TEST_F(DaemonLifeTest, SyncPausesAfterTheStart) {
    bootstrapWith(ChildXml{.startAttributes = "sync=\"2\" wait_time=\"1\""});
    const auto before = std::chrono::steady_clock::now();
    const pid_t daemon = runningInForeground();
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::seconds(3));
    EXPECT_TRUE(service.logged("DEBUG", "ZORAction", "delay for 1000 ms."));
    stopDaemon(daemon);
}

TEST_F(DaemonLifeTest, AStartupDelayIsOnlyASwitch) {
    BootstrapXml document;
    document.rootAttributes = "startupDelaySec=\"3000\" pingRetries=\"7\" pingRetryIntervalSec=\"8\"";
    service.bootstrap(document);
    const pid_t daemon = runningInForeground();
    EXPECT_TRUE(service.waitForLog("DEBUG", "PingChildProcess", "entering timedWait, interval = 1000"));
    EXPECT_TRUE(
        service.inOrder({"DEBUG ZORBootstrapService configured startup delay is 3000000 ms.",
                         "DEBUG ZORBootstrapService configured startup ping retries is 7.",
                         "DEBUG ZORBootstrapService configured startup ping retry interval is 8 sec."}));
    stopDaemon(daemon);
}

TEST_F(DaemonLifeTest, TheMarkerLetsTheDaemonWaitWithoutLimit) {
    service.write("temp/zordaemonwait", "");
    const ReservedPort port;
    ChildXml alpha;
    alpha.pinged(port);
    bootstrapWith(alpha);
    service.answer("WHO KNOWS");
    const pid_t daemon = runningInForeground();
    EXPECT_TRUE(service.waitForLog("DEBUG", "ZORBootstrapService", "askPCPifReady() - waiting indefinitely"));
    EXPECT_TRUE(
        service.logged("DEBUG", "ZORBootstrapService", "m_sDaemonWaitFileName is \"../temp/zordaemonwait\""));
    EXPECT_TRUE(service.logged("DEBUG", "ZORPropertyInserter",
                               "Added property daemonWaitIndefinitely with value \"true\""));
    stopDaemon(daemon);
}

TEST_F(DaemonLifeTest, WithoutTheMarkerTriesAreCounted) {
    const pid_t daemon = runningInForeground();
    waitUntilReady();
    EXPECT_TRUE(service.neverLogged("waiting indefinitely"));
    EXPECT_TRUE(service.neverLogged("daemonWaitIndefinitely"));
    stopDaemon(daemon);
}

// ---- Stopping ----

class TerminationTest : public DaemonLifeTest, public testing::WithParamInterface<int> {};

TEST_P(TerminationTest, StopsTheChildrenAndTheService) {
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitForStarts(1));
    const pid_t alpha = child();
    stopDaemon(daemon, GetParam());
    EXPECT_TRUE(service.hasEnded(alpha));
    EXPECT_FALSE(service.exists(kPidFile));
    EXPECT_EQ(service.childFile("alpha", "signals"), "15\n");
    EXPECT_TRUE(
        service.inOrder({"DEBUG ZORSignalHandlerThread Signal " + std::to_string(GetParam()) + " caught.",
                         "INFO ZORSignalHandlerThread Signalled to shutdown.",
                         "INFO PingChildProcess Child process supervisor has been told to stop"}));
    EXPECT_TRUE(service.inOrder(
        {"INFO PingChildProcess Child process supervisor has been told to stop",
         "INFO PingChildProcess stopping child process(es).",
         "DEBUG PingChildProcess stopping, leaving ping loop", "DEBUG PingChildProcess Stop all processes.",
         "DEBUG PingChildProcess stopping process \"alpha\"",
         "DEBUG ZORSignalAction Signalling process (handle = " + std::to_string(alpha) + ").",
         "WARN PingChildProcess stopAction->execute() return status = 0",
         "DEBUG PingChildProcess Waiting for processes to die.",
         "DEBUG PingChildProcess Process \"alpha\", is dead.",
         "INFO PingChildProcess no processes are alive.",
         "DEBUG PingChildProcess raise semaphore to signal finished stopping.",
         "INFO ZORBootstrapService ZORBootstrapService::Run() - returned from m_semaMainThreadWait->wait()",
         "INFO ZORBootstrapService Done."}));
}

INSTANTIATE_TEST_SUITE_P(Signal, TerminationTest, testing::Values(SIGHUP, SIGINT, SIGQUIT, SIGTERM),
                         [](const auto& signal) { return std::string(sigabbrev_np(signal.param)); });

TEST_F(DaemonLifeTest, ASignalBeforeTheServiceRunsIsNotLost) {
    // A pipe as the logging document holds the program in its first steps.
    const std::string pipe = service.path("temp/logging");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const pid_t daemon = service.begin({.arguments = {"-d", "-logconfig=" + pipe}});
    int writer = -1;
    ASSERT_TRUE(service.waitFor("a reader of the logging document", [&] {
        writer = open(pipe.c_str(), O_WRONLY | O_NONBLOCK);
        return writer >= 0;
    }));
    ASSERT_EQ(kill(daemon, SIGTERM), 0);
    const std::string logging = service.read("bin/zorlogconfig.xml");
    EXPECT_EQ(write(writer, logging.data(), logging.size()), static_cast<ssize_t>(logging.size()));
    close(writer);
    EXPECT_EQ(service.finish(daemon).exitCode, 0);
    EXPECT_TRUE(service.inOrder({"DEBUG ZORSignalHandlerThread Signal 15 caught.",
                                 "INFO PingChildProcess stopping child process(es).",
                                 "INFO ZORBootstrapService Done."}));
    ASSERT_TRUE(service.waitFor("the child's end", [&] { return service.processes().empty(); }));
}

TEST_F(DaemonLifeTest, AStubbornChildIsKilledAtTheEndAndASecondSignalChangesNothing) {
    bootstrapWith(ChildXml{.options = {"ignoreTerm"}});
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitForStarts(1));
    const pid_t alpha = child();
    ASSERT_EQ(kill(daemon, SIGTERM), 0);
    ASSERT_TRUE(service.waitForLog("DEBUG", "PingChildProcess", "Waiting for processes to die."));
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT})
        EXPECT_EQ(kill(daemon, signal), 0);
    ASSERT_TRUE(service.waitForEnd(daemon));
    EXPECT_EQ(service.exitCodeOf(daemon), 0);
    EXPECT_TRUE(service.waitForEnd(alpha));
    EXPECT_EQ(service.childFile("alpha", "signals"), "15\n");
    EXPECT_EQ(service.countLogged("INFO", "ZORSignalHandlerThread", "Signalled to shutdown."), 1U);
    // A second every 100 ms, and one check more.
    EXPECT_TRUE(service.logged("DEBUG", "PingChildProcess", "max checks for child process shutdown = 10"));
    EXPECT_EQ(service.countLogged("DEBUG", "PingChildProcess", "1 processes are still alive."), 11U);
    const std::string gaveUp =
        "INFO PingChildProcess 1 processes are still alive, but we're not going to wait any longer for them "
        "to die.";
    EXPECT_TRUE(service.inOrder({gaveUp, "DEBUG PingChildProcess kill all processes.",
                                 "DEBUG ZORChildProcess killing process \"alpha\"",
                                 "DEBUG ZORChildProcess Process ID used is " + std::to_string(alpha),
                                 "DEBUG PingChildProcess raise semaphore to signal finished stopping."}));
}

TEST_F(DaemonLifeTest, AStopSignalThatCannotBeSentLeadsToTheKillAtOnce) {
    bootstrapWith(ChildXml{.stop = "<stop type=\"signal\"><signal signal=\"99\"/></stop>"}, Schema::Refuses);
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitForStarts(1));
    stopDaemon(daemon);
    EXPECT_TRUE(service.waitForEnd(child()));
    EXPECT_TRUE(service.inOrder({"WARN PingChildProcess stopAction->execute() return status = -1",
                                 "DEBUG PingChildProcess Detected that the stop command was not sent, don't "
                                 "bother waiting for death.",
                                 "DEBUG PingChildProcess kill all processes."}));
}

TEST_F(DaemonLifeTest, AStopProgramIsRunAndItsSuccessIsItsStart) {
    bootstrapWith(ChildXml{.stop = "<stop type=\"spawn\"><spawn><path>${bin_path}/fakechild</path>"
                                   "<param>${install_path}/temp</param><param>exit</param></spawn></stop>"});
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitForStarts(1));
    stopDaemon(daemon);
    EXPECT_TRUE(service.waitForEnd(child()));
    const std::string stopper = service.read("temp/pids");
    EXPECT_TRUE(
        service.logged("WARN", "PingChildProcess",
                       "stopAction->execute() return status = " + stopper.substr(0, stopper.find('\n'))));
    EXPECT_TRUE(service.logged("DEBUG", "PingChildProcess", "kill all processes."));
}

TEST_F(DaemonLifeTest, AStopCommandReachesItsChild) {
    const ReservedPort port;
    ChildXml alpha{.options = {"port=" + port.str()}};
    alpha.stop = "<stop type=\"socketSend\"><socketSend URI=\"tcp://127.0.0.1:" + port.str() +
                 "\" commandString=\"SHUTDOWN\"/></stop>";
    bootstrapWith(alpha);
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitForStarts(1));
    stopDaemon(daemon);
    EXPECT_EQ(service.childFile("alpha", "commands"), "SHUTDOWN\n");
    EXPECT_EQ(service.childFile("alpha", "signals"), "");
    EXPECT_TRUE(service.inOrder({"DEBUG ZORSockSendAction successful send, no response to read.",
                                 "WARN PingChildProcess stopAction->execute() return status = 1",
                                 "INFO PingChildProcess no processes are alive."}));
}

// ---- Folders and files in the way ----

TEST_F(DaemonLifeTest, APidFileThatCannotBeWrittenIsOnlyAWarning) {
    fs::create_directories(service.path(kPidFile) + "/in the way");
    const pid_t daemon = service.begin({.arguments = {"-d"}});
    EXPECT_TRUE(service.waitForLog("WARN", "ZORBootstrapService",
                                   "Process ID could not be written to file.  The velbootstrapservice -stop "
                                   "command will not work. Use 'kill "
                                   "-9' instead."));
    EXPECT_TRUE(service.neverLogged("running as process"));
    ASSERT_TRUE(service.waitForStarts(1));
    stopDaemon(daemon);
    service.cleanUp();
}

TEST_F(DaemonLifeTest, AnUnwritableLogsFolderIsOnlyAWarning) {
    service.asOrdinaryUser();
    chmod(service.path("logs").c_str(), 0555);
    const pid_t daemon = service.begin({.arguments = {"-d", "-stdoutLog=WARN"}});
    EXPECT_TRUE(service.waitFor("the warning", [&] {
        return service.read("output/0.out").find("Process ID could not be written to file.  ") !=
               std::string::npos;
    }));
    stopDaemon(daemon);
    EXPECT_TRUE(fs::is_empty(service.path("logs")));
}

TEST_F(DaemonLifeTest, AFullDiskDoesNotStopTheDaemon) {
    service.write("bin/zorlogconfig.xml",
                  "<c><run><logging level=\"DEBUG\"><logFiles><file "
                  "name=\"/dev/full\"/></logFiles></logging></run></c>");
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitForStarts(1));
    stopDaemon(daemon);
}

TEST_F(DaemonLifeTest, AFileSizeLimitEndsNothing) {
    constexpr long kLimit = 16384;
    const ReservedPort port;
    ChildXml alpha;
    alpha.pinged(port);
    bootstrapWith(alpha);
    service.answer("READY");
    const pid_t daemon = service.begin({.arguments = {"-d"}, .fileSizeBytes = kLimit});
    ASSERT_TRUE(service.waitFor("the log at its limit", [&] {
        return service.read("logs/run.log").size() >= static_cast<std::size_t>(kLimit);
    }));
    const auto pings = [&] { return service.childFile("alpha", "commands").size(); };
    const std::size_t before = pings();
    EXPECT_TRUE(service.waitFor("further pings", [&] { return pings() > before + 5; }));
    EXPECT_EQ(service.childPids().size(), 1U);
    stopDaemon(daemon);
    EXPECT_TRUE(service.hasEnded(service.childPids().front()));
    EXPECT_EQ(service.childFile("alpha", "signals"), "15\n") << "stopped in order";
}

TEST_F(DaemonLifeTest, AClosedStandardStreamDoesNotTakeALog) {
    const pid_t first = service.begin({.arguments = {"runAsDaemon"}, .closed = {0, 1, 2}});
    EXPECT_EQ(service.finish(first).exitCode, 0);
    ASSERT_TRUE(service.waitForStarts(1));
    EXPECT_EQ(service.childFile("alpha", "fds"), "0 /dev/null\n1 /dev/null\n2 /dev/null\n");
    ASSERT_TRUE(service.waitFor("the PID file", [&] { return service.daemonPid() > 0; }));
    stopDaemon(service.daemonPid());
    EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService", "Done."));
}

// ---- Nothing grows ----

TEST_F(DaemonLifeTest, RestartsCostNoDescriptorAndNoThread) {
    bootstrapWith(ChildXml{.options = {"exit"}});
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitForStarts(2));
    const std::size_t descriptors = ProcessView(daemon).entriesOf("fd");
    const std::size_t threads = ProcessView(daemon).entriesOf("task");
    ASSERT_TRUE(service.waitForStarts(8));
    // One for the last child, which may have ended before or after it could be opened.
    EXPECT_LE(ProcessView(daemon).entriesOf("fd"), descriptors + 1);
    EXPECT_EQ(ProcessView(daemon).entriesOf("task"), threads);
    EXPECT_EQ(ProcessView(daemon).status("State").substr(0, 1), "S");
    stopDaemon(daemon);
}

TEST_F(DaemonLifeTest, PingsCostNoDescriptorAndNoThread) {
    const ReservedPort port;
    ChildXml alpha;
    alpha.pinged(port);
    bootstrapWith(alpha);
    service.answer("READY");
    const pid_t daemon = runningInForeground();
    const auto pings = [&] {
        return service.countLogged("DEBUG", "PingChildProcess", "process alpha pinged successfully.");
    };
    const auto idle = [&](std::size_t count) {
        return service.waitFor("the end of a ping", [&] {
            const std::string log = service.log();
            const std::string last = "entering timedWait, interval = 1000\n";
            return pings() >= count && log.size() > last.size() &&
                   log.compare(log.size() - last.size(), last.size(), last) == 0;
        });
    };
    ASSERT_TRUE(idle(1));
    const std::size_t descriptors = ProcessView(daemon).entriesOf("fd");
    const std::size_t threads = ProcessView(daemon).entriesOf("task");
    ASSERT_TRUE(idle(4));
    EXPECT_EQ(ProcessView(daemon).entriesOf("fd"), descriptors);
    EXPECT_EQ(ProcessView(daemon).entriesOf("task"), threads);
    stopDaemon(daemon);
}

}  // namespace
