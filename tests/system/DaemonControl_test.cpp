// "-start", "-stop" and "-isrunning" against daemons, PID files and children of every kind.

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>

#include "ServiceUnderTest.h"

namespace {

constexpr const char* kPidFile = "logs/velbootstrap_service.pid";

// A process that takes no notice of SIGTERM, ended with this object.
class StubbornProcess {
  public:
    StubbornProcess() : m_pid(fork()) {
        if (m_pid != 0) return;
        std::signal(SIGTERM, SIG_IGN);
        for (;;)
            pause();
    }
    ~StubbornProcess() {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    StubbornProcess(const StubbornProcess&) = delete;
    StubbornProcess& operator=(const StubbornProcess&) = delete;

    std::string id() const { return std::to_string(m_pid); }

  private:
    pid_t m_pid;
};

// A process that ends by SIGTERM, unless it was ended with this object.
class Bystander {
  public:
    Bystander() : m_pid(fork()) {
        if (m_pid != 0) return;
        std::signal(SIGTERM, SIG_DFL);
        for (;;)
            pause();
    }
    ~Bystander() {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    Bystander(const Bystander&) = delete;
    Bystander& operator=(const Bystander&) = delete;

    std::string id() const { return std::to_string(m_pid); }
    bool lives() const { return waitpid(m_pid, nullptr, WNOHANG) == 0; }

  private:
    pid_t m_pid;
};

std::string idOfAnEndedProcess() {
    const pid_t pid = fork();
    if (pid == 0) _exit(0);
    waitpid(pid, nullptr, 0);
    return std::to_string(pid);
}

class DaemonControlTest : public SystemTest {
  protected:
    void bootstrapWithPing(const std::string& answer) {
        BootstrapXml document;
        document.children[0].pinged(m_port);
        service.bootstrap(document);
        service.answer(answer);
    }

    void daemonIs(const std::string& spawn) {
        BootstrapXml document;
        document.daemonSpawn = "<daemonSpawn>" + spawn + "</daemonSpawn>";
        service.bootstrap(document);
    }

    template <typename Action>
    static double secondsFor(Action action) {
        const auto before = std::chrono::steady_clock::now();
        action();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - before).count();
    }

    ReservedPort m_port;
};

// ---- A daemon from start to stop ----

TEST_F(DaemonControlTest, ADaemonIsStartedAskedForAndStopped) {
    bootstrapWithPing("READY");
    const RunResult started = service.startDaemon();
    EXPECT_EQ(started.exitCode, 0) << testing::PrintToString(started);
    EXPECT_EQ(started.out + started.err, "");
    const std::string asked =
        "DEBUG ZORBootstrapService testReadyByPinging() - spawned process is alive, so see if all children "
        "were "
        "pinged OK.";
    EXPECT_TRUE(service.inOrder(
        {"INFO ZORBootstrapService Starting the daemon.",
         "INFO ZORBootstrapService startDaemon() - spawned daemon, waiting for child processes to be ready.",
         "DEBUG ZORBootstrapService testReadyByPinging() - test if spawned process is alive.", asked,
         "DEBUG PingChildProcess process alpha pinged successfully.",
         "INFO ZORBootstrapService testReadyByPinging() - pinged all children successfully."},
        "start"));
    const pid_t daemon = service.daemonPid();
    EXPECT_EQ(service.read(kPidFile), std::to_string(daemon) + "\n");
    EXPECT_TRUE(
        service.logged("INFO", "ZORBootstrapService",
                       "Velmora Bootstrap Service running as process " + std::to_string(daemon) + "."));
    EXPECT_EQ(service.run({"-isrunning"}).exitCode, 0);
    EXPECT_TRUE(service.inOrder({"DEBUG ZORBootstrapService isRunningUnix() - process is alive.",
                                 "INFO ZORBootstrapService Process is running."},
                                "isrunning"));
    const std::string id = std::to_string(daemon);
    EXPECT_EQ(service.run({"-stop", "-testDeadInterval=1"}).exitCode, 0);
    EXPECT_TRUE(service.inOrder(
        {"INFO ZORBootstrapService Stopping daemon.", "DEBUG ZORBootstrapService called stopRunningUnix()",
         "INFO ZORBootstrapService daemon process is alive, so will signal it to stop.",
         "DEBUG ZORBootstrapService stopRunningUnix() - process is alive, so will kill it with SIGTERM "
         "[PID: " +
             id + "]",
         "DEBUG ZORBootstrapService Tell process to stop by sending SIGTERM, pid=" + id,
         "INFO ZORBootstrapService Waiting for daemon to stop....",
         "DEBUG ZORBootstrapService waitTillDead() - test if ZOR daemon is alive.",
         "INFO ZORBootstrapService Daemon has stopped."},
        "stop"));
    EXPECT_TRUE(service.hasEnded(daemon));
    EXPECT_EQ(service.exitCodeOf(daemon), 0);
    EXPECT_FALSE(service.exists(kPidFile));
    EXPECT_EQ(service.run({"-isrunning"}).exitCode, 1);
}

TEST_F(DaemonControlTest, StartingTwiceStartsOnce) {
    const pid_t daemon = runningDaemon();
    service.remove("logs/start.log");
    EXPECT_EQ(service.startDaemon().exitCode, 0);
    EXPECT_TRUE(service.logged("WARN", "ZORBootstrapService",
                               "startDaemon() - daemon is already running, will not attempt to start it.",
                               "start"));
    EXPECT_TRUE(service.neverLogged("Spawning child process:", "start"));
    EXPECT_EQ(service.daemonPid(), daemon);
    EXPECT_EQ(service.childPids().size(), 1U);
    stopDaemon(daemon);
}

TEST_F(DaemonControlTest, StoppingWithoutADaemonSucceeds) {
    EXPECT_EQ(service.run({"-stop"}).exitCode, 0);
    EXPECT_TRUE(service.inOrder(
        {"DEBUG ZORBootstrapService getPID() - stat() failed on file: " + service.path(kPidFile) + " errno=2",
         "INFO ZORBootstrapService stopRunningUnix() - process is dead, nothing to stop."},
        "stop"));
}

TEST_F(DaemonControlTest, AskingWithoutADaemonFails) {
    EXPECT_EQ(service.run({"-isrunning"}).exitCode, 1);
    EXPECT_TRUE(service.inOrder({"INFO ZORBootstrapService Testing to see if daemon is running.",
                                 "DEBUG ZORBootstrapService called isRunningUnix()",
                                 "DEBUG ZORBootstrapService isRunningUnix() - process is dead.",
                                 "INFO ZORBootstrapService Process is not running."},
                                "isrunning"));
}

// ---- PID files of another user's ----

class ForeignPidFileTest : public DaemonControlTest, public testing::WithParamInterface<std::string> {};

INSTANTIATE_TEST_SUITE_P(Belongs, ForeignPidFileTest, testing::Values(kPidFile, "logs"),
                         [](const auto& what) {
                             return std::string(what.param == "logs" ? "TheFolder" : "TheFile");
                         });

TEST_P(ForeignPidFileTest, RootsProcessIsNotStoppedByIt) {
    if (geteuid() != 0) return;  // only root can give a file away, and only root is in danger
    constexpr uid_t kUser = 12345;
    const Bystander bystander;
    service.write(kPidFile, bystander.id() + "\n");
    ASSERT_EQ(chown(service.path(GetParam()).c_str(), kUser, kUser), 0);
    EXPECT_EQ(service.run({"-stop"}).exitCode, 0);
    EXPECT_TRUE(service.inOrder(
        {"DEBUG ZORBootstrapService isRunningUnix() - testing pid " + bystander.id() +
             " to see if process is alive.",
         "DEBUG ZORBootstrapService testPID() - sigsend failed, errno=1",
         "DEBUG ZORBootstrapService process may not be not alive but pid file is hanging around.",
         "INFO ZORBootstrapService stopRunningUnix() - process is dead, nothing to stop."},
        "stop"));
    EXPECT_EQ(service.run({"-isrunning"}).exitCode, 1);
    EXPECT_TRUE(bystander.lives());
    service.remove(kPidFile);
}

TEST_F(DaemonControlTest, RootStopsTheDaemonOfAnotherUser) {
    service.asOrdinaryUser();
    const pid_t daemon = runningDaemon();
    EXPECT_EQ(service.run({.arguments = {"-isrunning"}, .asMyself = true}).exitCode, 0);
    EXPECT_EQ(service.run({.arguments = {"-stop", "-testDeadInterval=1"}, .asMyself = true}).exitCode, 0);
    EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService", "Daemon has stopped.", "stop"));
    EXPECT_TRUE(service.hasEnded(daemon));
    EXPECT_EQ(service.exitCodeOf(daemon), 0);
}

// ---- Start and the children's answers ----

TEST_F(DaemonControlTest, WithNoTriesTheDaemonIsSpawnedAllTheSame) {
    EXPECT_EQ(service.run({"-start", "-testReadyTries=0"}).exitCode, 1);
    EXPECT_TRUE(service.logged("ERROR", "ZORBootstrapService",
                               "testReadyByPinging() - child processes not yet ready, giving up.", "start"));
    EXPECT_TRUE(service.neverLogged("test if spawned process is alive", "start"));
    ASSERT_TRUE(service.waitFor("the PID file", [&] { return service.daemonPid() > 0; }));
    stopDaemon(service.daemonPid());
}

TEST_F(DaemonControlTest, AChildThatNeverAnswersFailsTheStartAndKeepsTheDaemon) {
    bootstrapWithPing("");
    EXPECT_EQ(service.startDaemon({"-testReadyTries=3"}).exitCode, 1);
    EXPECT_TRUE(service.inOrder(
        {"ERROR ZORSocketCommand no response,  SEK_Poll timed out.",
         "DEBUG PingChildProcess ping of process alpha failed.",
         "DEBUG ZORBootstrapService testReadyByPinging() - child processes not yet ready so sleep a bit",
         "ERROR ZORBootstrapService testReadyByPinging() - child processes not yet ready, giving up."},
        "start"));
    const pid_t daemon = service.daemonPid();
    EXPECT_EQ(service.run({"-isrunning"}).exitCode, 0);
    stopDaemon(daemon);
}

TEST_F(DaemonControlTest, AFatalAnswerEndsTheStartAndTheDaemon) {
    bootstrapWithPing("BROKEN");
    EXPECT_EQ(service.startDaemon().exitCode, 1);
    EXPECT_TRUE(service.inOrder(
        {"DEBUG ZORSockSendAction detected fatal error string in response.",
         "DEBUG PingChildProcess ping of process alpha failed, fatal error happened.",
         "INFO ZORBootstrapService testReadyByPinging() - detected fatal errors, stop all processes.",
         "DEBUG ZORBootstrapService startDaemon() - Fatal error happened, waiting for daemon to stop....",
         "INFO ZORBootstrapService Daemon has stopped."},
        "start"));
    EXPECT_TRUE(service.logged("ERROR", "ZORBootstrapService",
                               "askPCPifReady() - some child processes got fatal errors, return -1."));
    EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService", "Done."));
    EXPECT_FALSE(service.exists(kPidFile));
}

TEST_F(DaemonControlTest, AChildThatIsNotReadyYetIsAskedAgain) {
    bootstrapWithPing("STARTING");
    const pid_t start = service.begin({.arguments = {"-start", "-testReadyInterval=1"}});
    ASSERT_TRUE(service.waitFor("the answer to come", [&] {
        return service.countLogged("DEBUG", "ZORSockSendAction", "Tomcat is not ready, retry...", "start") >
               0;
    }));
    service.answer("READY");
    EXPECT_EQ(service.finish(start).exitCode, 0);
    EXPECT_TRUE(service.inOrder(
        {"DEBUG ZORSockSendAction Tomcat is not ready, retry...",
         "DEBUG ZORBootstrapService testReadyByPinging() - child processes not yet ready so sleep a bit",
         "DEBUG PingChildProcess process alpha pinged successfully."},
        "start"));
    stopDaemon(service.daemonPid());
}

TEST_F(DaemonControlTest, AnAnswerShorterThanTheSuccessMarkerIsNotClassified) {
    bootstrapWithPing("NO");
    EXPECT_EQ(service.startDaemon().exitCode, 0);
    EXPECT_TRUE(service.inOrder({"DEBUG ZORSockSendAction got response \"NO\"",
                                 "DEBUG PingChildProcess process alpha pinged successfully."},
                                "start"));
    stopDaemon(service.daemonPid());
}

TEST_F(DaemonControlTest, WhenNobodyListensTheStartSaysSo) {
    BootstrapXml document;
    document.children[0].pinged(m_port).options.clear();
    service.bootstrap(document);
    EXPECT_EQ(service.startDaemon({"-testReadyTries=3"}).exitCode, 1);
    EXPECT_TRUE(service.logged("ERROR", "ZORSocketCommand",
                               "failed to connect, SEK error: cannot connect to 127.0.0.1:" + m_port.str() +
                                   " (IPv4): 127.0.0.1:" + m_port.str() + ": Connection refused ",
                               "start"));
    stopDaemon(service.daemonPid());
}

TEST_F(DaemonControlTest, AnIntervalThatIsNoNumberIsSixSeconds) {
    daemonIs("<path>/bin/true</path>");
    const double seconds = secondsFor([&] {
        EXPECT_EQ(service.run({"-start", "-testReadyTries=1", "-testReadyInterval=abc"}).exitCode, 1);
    });
    EXPECT_GE(seconds, 6);
    EXPECT_TRUE(service.logged("DEBUG", "ZORBootstrapService",
                               "testReadyByPinging() - spawned process is not yet alive, so sleep a bit",
                               "start"));
}

TEST_F(DaemonControlTest, TriesThatAreNoNumberAreTwenty) {
    daemonIs("<path>/bin/true</path>");
    EXPECT_EQ(service.run({"-start", "-testReadyTries=5x", "-testReadyInterval=0"}).exitCode, 1);
    EXPECT_EQ(service.countLogged("DEBUG", "ZORBootstrapService",
                                  "testReadyByPinging() - test if spawned process is alive.", "start"),
              20U);
}

TEST_F(DaemonControlTest, ADaemonProgramThatDoesNotExistFailsTheStart) {
    daemonIs("<path>${bin_path}/nothing</path><param>runAsDaemon</param>");
    EXPECT_EQ(service.run({"-start", "-testReadyTries=2", "-testReadyInterval=0"}).exitCode, 1);
    EXPECT_TRUE(service.waitFor("the failed execve", [&] {
        return service.countLogged("FATAL", "ZORSpawnAction", "execve failed, errno=2", "start") == 1;
    }));
}

TEST_F(DaemonControlTest, AFailedForkFailsTheStart) {
    service.asOrdinaryUser();
    daemonIs("<path>/bin/true</path><param>one</param><param>two</param>");
    const RunResult result = service.run({.arguments = {"-start", "-stdoutLog=ERROR"}, .cannotFork = true});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(ServiceUnderTest::normalised(result.out),
              "ERROR ZORSpawnAction spawn failed, errno: 11\n"
              "ERROR ZORSpawnAction Spawning child process:\nPath: /bin/true\nParameters: "
              "\n\t/bin/true\n\tone\n\ttwo\n\n"
              "ERROR ZORBootstrapService startDaemon() - failed to spawn ZOR daemon.\n");
}

// ---- Stop that takes too long ----

TEST_F(DaemonControlTest, AStopWaitsForAsLongAsItIsTold) {
    const StubbornProcess daemon;
    service.write(kPidFile, daemon.id() + "\n");
    const double seconds = secondsFor([&] {
        EXPECT_EQ(service.run({"-stop", "-testDeadTries=3", "-testDeadInterval=1"}).exitCode, 1);
    });
    EXPECT_GE(seconds, 3);
    EXPECT_LT(seconds, 10);
    EXPECT_EQ(service.countLogged("DEBUG", "ZORBootstrapService",
                                  "waitTillDead() - ZOR daemon (process id " + daemon.id() +
                                      ") is still alive, so wait a bit.",
                                  "stop"),
              3U);
    EXPECT_TRUE(service.logged(
        "ERROR", "ZORBootstrapService",
        "waitTillDead() - daemon is still alive, but we aren't going to wait any more.", "stop"));
    service.cleanUp();
}

TEST_F(DaemonControlTest, AStopWithNoTriesTestsNothing) {
    const StubbornProcess daemon;
    service.write(kPidFile, daemon.id() + "\n");
    EXPECT_EQ(service.run({"-stop", "-testDeadTries=0"}).exitCode, 1);
    EXPECT_TRUE(service.neverLogged("waitTillDead()", "stop"));
    service.cleanUp();
}

// ---- PID files of every kind ----

TEST_F(DaemonControlTest, AStalePidFileReadsAsNotRunningAndStays) {
    const std::string id = idOfAnEndedProcess();
    service.write(kPidFile, id + "\n");
    EXPECT_EQ(service.run({"-isrunning"}).exitCode, 1);
    EXPECT_TRUE(service.inOrder(
        {"DEBUG ZORBootstrapService isRunningUnix() - testing pid " + id + " to see if process is alive.",
         "DEBUG ZORBootstrapService testPID() - sigsend failed, errno=3",
         "DEBUG ZORBootstrapService process may not be not alive but pid file is hanging around."},
        "isrunning"));
    EXPECT_EQ(service.run({"-stop"}).exitCode, 0);
    EXPECT_EQ(service.read(kPidFile), id + "\n");
    service.cleanUp();
}

TEST_F(DaemonControlTest, AStalePidFileDoesNotHinderAStart) {
    service.write(kPidFile, idOfAnEndedProcess() + "\n");
    stopDaemon(runningDaemon());
    EXPECT_FALSE(service.exists(kPidFile));
}

TEST_F(DaemonControlTest, APidFileWithoutAProcessIdNeverSignalsAnybody) {
    // Should one be signalled all the same, it is this process's own group and nobody else's.
    ASSERT_EQ(setpgid(0, 0), 0);
    for (const std::string& content : {"-" + std::to_string(getpgrp()), std::string("0"), std::string("abc"),
                                       std::string("\n"), std::string()}) {
        service.write(kPidFile, content);
        EXPECT_EQ(service.run({"-isrunning"}).exitCode, 1) << content;
        EXPECT_EQ(service.run({"-stop"}).exitCode, 0) << content;
        EXPECT_TRUE(service.neverLogged("will signal it to stop", "stop")) << content;
        EXPECT_EQ(service.read(kPidFile), content);
    }
    service.cleanUp();
}

TEST_F(DaemonControlTest, APidFileThatNamesEverybodyReadsAsNotRunning) {
    // Asked only: a stop that got this wrong would reach the whole machine.
    service.write(kPidFile, "-1");
    EXPECT_EQ(service.run({"-isrunning"}).exitCode, 1);
    EXPECT_TRUE(
        service.logged("DEBUG", "ZORBootstrapService", "testPID() - sigsend failed, errno=3", "isrunning"));
    service.cleanUp();
}

TEST_F(DaemonControlTest, ThePidIsReadLeniently) {
    const StubbornProcess daemon;
    service.write(kPidFile, "  " + daemon.id() + " and more\nsecond line\n");
    EXPECT_EQ(service.run({"-isrunning"}).exitCode, 0);
    service.cleanUp();
}

TEST_F(DaemonControlTest, AProcessOfAnotherUserReadsAsNotRunning) {
    service.asOrdinaryUser();
    service.write(kPidFile, "1\n");
    EXPECT_EQ(service.run({"-isrunning"}).exitCode, 1);
    EXPECT_TRUE(
        service.logged("DEBUG", "ZORBootstrapService", "testPID() - sigsend failed, errno=1", "isrunning"));
    EXPECT_EQ(service.run({"-stop"}).exitCode, 0);
    service.cleanUp();
}

TEST_F(DaemonControlTest, AnUnreadablePidFileReadsAsNotRunning) {
    service.write(kPidFile, std::to_string(getpid()) + "\n");
    chmod(service.path(kPidFile).c_str(), 0);
    service.asOrdinaryUser();
    EXPECT_EQ(service.run({"-isrunning"}).exitCode, 1);
    EXPECT_TRUE(service.logged("DEBUG", "ZORBootstrapService",
                               "getPID() - couldn't open \"" + service.path(kPidFile) + "\".", "isrunning"));
    service.cleanUp();
}

}  // namespace
