// A second invocation's control of the daemon: PID file, ask, stop, start, readiness.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <optional>

#include "TVLFile.h"
#include "TestWorld.h"
#include "ZORCmdLine.h"
#include "ZORPidFileOwner.h"

namespace {

constexpr const char* kLogger = "ZORBootstrapService";

class DaemonControlTest : public WorldTest {
  protected:
    DaemonControlTest() {
        setProperty("install_path", folder.path().c_str());
        setProperty("bin_path", folder.path("bin").c_str());
        setProperty("temp", folder.path("temp").c_str());
        folder.write("bin/bootstrap_linuxi38632.xml", documentText({ChildXml{}}, ""));
        answers("alpha", "READY");
    }
    void loseDocument() const { std::filesystem::remove(folder.path("bin/bootstrap_linuxi38632.xml")); }
    void writePid(const std::string& content) const {
        folder.write("logs/velbootstrap_service.pid", content);
    }
    // A daemon that lives, as far as the system can tell.
    VirtualOs::Process& daemon() {
        writePid("4711\n");
        return os.process(4711);
    }
    bool logged(const std::string& level, const std::string& text) const {
        return log.has(level, kLogger, text);
    }
    static ZORCmdLine commandLine(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "velbootstrapservice");
        std::vector<char*> argv;
        for (std::string& argument : arguments)
            argv.push_back(argument.data());
        return {static_cast<int>(argv.size()), argv.data()};
    }
    int stop(const std::vector<std::string>& arguments = {}) {
        ZORCmdLine line = commandLine(arguments);
        return service.stopRunningUnix(line);
    }
    int start(const std::vector<std::string>& arguments = {}) {
        ZORCmdLine line = commandLine(arguments);
        return service.startDaemon(line);
    }
};

// ---- testPID ----

using TestPidTest = DaemonControlTest;

TEST_F(TestPidTest, AProcessThatExistsIsFound) {
    static ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("caller");
    os.process(77);
    EXPECT_EQ(testPID(77, logger), 1);
}

TEST_F(TestPidTest, AProcessThatCannotBeSignalledCountsAsNotRunning) {
    static ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("caller");
    EXPECT_EQ(testPID(78, logger), 0);
    EXPECT_TRUE(log.has("DEBUG", "caller", "testPID() - sigsend failed, errno=3"));
}

TEST_F(TestPidTest, AnIdBelowOneIsNoProcess) {
    static ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("caller");
    for (const int pid : {0, -1, -4711}) {
        os.process(pid);
        EXPECT_EQ(testPID(pid, logger), 0) << pid;
    }
    EXPECT_EQ(log.count("DEBUG", "caller", "testPID() - sigsend failed, errno=3"), 3U);
    EXPECT_EQ(os.aliveTests(), 0);
}

// ---- Asking ----

TEST_F(DaemonControlTest, ARunningDaemonIsFoundByItsPidFile) {
    daemon();
    EXPECT_EQ(service.isRunningUnix(), 1);
    EXPECT_TRUE(log.inOrder({
        {"INFO", kLogger, "Testing to see if daemon is running.", {}},
        {"DEBUG", kLogger, "called isRunningUnix()", {}},
        {"DEBUG", kLogger, "isRunningUnix() - testing pid 4711 to see if process is alive.", {}},
        {"DEBUG", kLogger, "isRunningUnix() - process is alive.", {}},
        {"INFO", kLogger, "Process is running.", {}},
    }));
}

TEST_F(DaemonControlTest, WithoutAPidFileNothingRuns) {
    EXPECT_EQ(service.isRunningUnix(), 0);
    EXPECT_TRUE(logged("DEBUG", "getPID() - stat() failed on file: " +
                                    folder.path("logs/velbootstrap_service.pid") + " errno=2"));
    EXPECT_TRUE(logged("DEBUG", "isRunningUnix() - process is dead."));
    EXPECT_TRUE(logged("INFO", "Process is not running."));
}

TEST_F(DaemonControlTest, AStalePidFileIsLeftInPlace) {
    writePid("4712\n");
    EXPECT_EQ(service.isRunningUnix(), 0);
    EXPECT_TRUE(logged("DEBUG", "process may not be not alive but pid file is hanging around."));
    EXPECT_TRUE(folder.exists("logs/velbootstrap_service.pid"));
}

TEST_F(DaemonControlTest, TheIdOfAProcessThatIsGoneIsNotHandedOut) {
    writePid("4712\n");
    ASSERT_EQ(service.isRunningUnix(), 0);
    int pid = 5;
    EXPECT_EQ(service.getPid(&pid), 0);
    EXPECT_EQ(pid, 0);
}

TEST_F(DaemonControlTest, APidFileWithoutANumberNamesNoProcess) {
    for (const char* const content : {"garbage\n", "0\n", "-1\n", "\n"}) {
        writePid(content);
        EXPECT_EQ(stop(), 1) << content;
    }
    EXPECT_TRUE(os.kills().empty());
}

TEST_F(DaemonControlTest, AnEmptyPidFileNamesNoProcess) {
    writePid("");
    EXPECT_EQ(service.isRunningUnix(), 0);
    EXPECT_EQ(log.raw().find("testing pid"), std::string::npos);
}

TEST_F(DaemonControlTest, ThePidIsReadUpToTheFirstOtherCharacter) {
    os.process(4711);
    writePid("  4711abc\nsecond line");
    int pid = 0;
    ASSERT_EQ(service.isRunningUnix(), 1);
    EXPECT_EQ(service.getPid(&pid), 1);
    EXPECT_EQ(pid, 4711);
}

TEST_F(DaemonControlTest, APidFileThatCannotBeOpenedIsLogged) {
    ASSERT_EQ(service.isRunningUnix(), 0);
    // A socket can be looked at but not opened.
    TestAccess::pidFile(service).setPath(folder.path("logs/socket"));
    ASSERT_EQ(mknod(TestAccess::pidFile(service).path().c_str(), S_IFSOCK | 0600, 0), 0);
    int pid = 5;
    EXPECT_EQ(service.getPid(&pid), 0);
    EXPECT_TRUE(logged("DEBUG", "getPID() - couldn't open \"" + TestAccess::pidFile(service).path() + "\"."));
}

// ---- Whose PID file it is ----

// With root's rights the file is given to another user; without them there is nobody to give it to, and every file
// is as good as the system's answer.
class PidFileOwnerTest : public DaemonControlTest {
  protected:
    static constexpr uid_t kUser = 12345;

    static bool isRoot() { return geteuid() == 0; }
    void belongsToUser(const std::string& file) const {
        if (!isRoot()) return;
        ASSERT_EQ(chown(folder.path(file).c_str(), kUser, kUser), 0);
    }
};

TEST_F(PidFileOwnerTest, AUsersFileNamesTheUsersProcess) {
    daemon().user = kUser;
    belongsToUser("logs/velbootstrap_service.pid");
    EXPECT_EQ(service.isRunningUnix(), 1);
    EXPECT_EQ(stop(), 1);
    ASSERT_EQ(os.kills().size(), 1U);
    EXPECT_EQ(os.kills()[0].pid, 4711);
}

TEST_F(PidFileOwnerTest, AUsersFileNamesNobodyElsesProcessToRoot) {
    daemon();
    belongsToUser("logs/velbootstrap_service.pid");
    EXPECT_EQ(stop(), 1);
    EXPECT_EQ(logged("DEBUG", "testPID() - sigsend failed, errno=1"), isRoot());
    EXPECT_EQ(logged("DEBUG", "process may not be not alive but pid file is hanging around."), isRoot());
    EXPECT_EQ(logged("INFO", "stopRunningUnix() - process is dead, nothing to stop."), isRoot());
    EXPECT_EQ(os.kills().empty(), isRoot());
}

TEST_F(PidFileOwnerTest, AFileInAUsersFolderNamesNobodyElsesProcessToRoot) {
    daemon();
    belongsToUser("logs");
    EXPECT_EQ(service.isRunningUnix(), isRoot() ? 0 : 1);
    EXPECT_EQ(logged("DEBUG", "testPID() - sigsend failed, errno=1"), isRoot());
}

TEST_F(PidFileOwnerTest, AnIdThatNobodyHasIsNotRunning) {
    writePid("4712\n");
    belongsToUser("logs/velbootstrap_service.pid");
    EXPECT_EQ(service.isRunningUnix(), 0);
    EXPECT_EQ(log.count("DEBUG", kLogger, "testPID() - sigsend failed, errno=3"), 1U);
}

// A number that somebody else has put there under this name, or could have.
TEST_F(PidFileOwnerTest, ARootsFileThatOthersCouldHaveBroughtHereNamesNobody) {
    writePid("4711\n");
    const std::string path = folder.path("logs/velbootstrap_service.pid");
    const TVLFilePtr file = TVLFile::openForReading(path.c_str(), 4096);
    ASSERT_TRUE(file);
    const auto expected = isRoot() ? std::optional(ZORPidFileOwner::kNobody) : std::nullopt;
    std::filesystem::permissions(folder.path("logs"), std::filesystem::perms{0777});
    EXPECT_EQ(ZORPidFileOwner::of(file.get(), path), expected);
    std::filesystem::permissions(folder.path("logs"), std::filesystem::perms{01777});
    EXPECT_EQ(ZORPidFileOwner::of(file.get(), path), std::nullopt);
    std::filesystem::create_hard_link(path, folder.path("logs/further"));
    EXPECT_EQ(ZORPidFileOwner::of(file.get(), path), expected);
}

// It is still root's with one name, but what the folder says of it is no longer so.
TEST_F(PidFileOwnerTest, AFileThatHasAnotherNameByNowNamesNobody) {
    writePid("4711\n");
    const std::string path = folder.path("logs/velbootstrap_service.pid");
    const TVLFilePtr file = TVLFile::openForReading(path.c_str(), 4096);
    ASSERT_TRUE(file);
    const auto expected = isRoot() ? std::optional(ZORPidFileOwner::kNobody) : std::nullopt;
    std::filesystem::rename(path, folder.path("temp/moved"));
    EXPECT_EQ(ZORPidFileOwner::of(file.get(), path), expected) << "nothing has it";
    writePid("4711\n");
    EXPECT_EQ(ZORPidFileOwner::of(file.get(), path), expected) << "another file has it";
}

// Each of the two rights alone is enough, of the folder as of the file.
TEST_F(PidFileOwnerTest, WhereTheGroupOrOthersMayWriteRootsFileNamesNobody) {
    writePid("4711\n");
    const std::string path = folder.path("logs/velbootstrap_service.pid");
    const TVLFilePtr file = TVLFile::openForReading(path.c_str(), 4096);
    ASSERT_TRUE(file);
    const auto expected = isRoot() ? std::optional(ZORPidFileOwner::kNobody) : std::nullopt;
    for (const unsigned int mode : {0775U, 0757U}) {
        std::filesystem::permissions(folder.path("logs"), std::filesystem::perms{mode});
        EXPECT_EQ(ZORPidFileOwner::of(file.get(), path), expected) << mode;
    }
    std::filesystem::permissions(folder.path("logs"), std::filesystem::perms{0755});
    for (const unsigned int mode : {0664U, 0646U}) {
        std::filesystem::permissions(path, std::filesystem::perms{mode});
        EXPECT_EQ(ZORPidFileOwner::of(file.get(), path), expected) << mode;
    }
    std::filesystem::permissions(path, std::filesystem::perms{0644});
    EXPECT_EQ(ZORPidFileOwner::of(file.get(), path), std::nullopt);
}

// In a process of its own, whose root folder is the test's.
TEST_F(PidFileOwnerTest, TheFolderOfAFileIsFoundHoweverTheFileIsNamed) {
    ASSERT_TRUE(isRoot()) << "this test changes the root folder of a process, which needs root";
    writePid("4711\n");
    const pid_t process = fork();
    if (process == 0) {
        const std::string name = "velbootstrap_service.pid";
        if (chdir(folder.path("logs").c_str()) != 0 || chroot(".") != 0) ::_exit(2);
        const TVLFilePtr file = TVLFile::openForReading(name.c_str(), 4096);
        const bool found = file && !ZORPidFileOwner::of(file.get(), name) &&
                           !ZORPidFileOwner::of(file.get(), "./" + name) &&
                           !ZORPidFileOwner::of(file.get(), "/" + name);
        ::_exit(found ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(process, &status, 0), process);
    EXPECT_EQ(status, 0);
}

TEST_F(PidFileOwnerTest, AFileThatIsNoLongerInItsFolderNamesNobody) {
    writePid("4711\n");
    const TVLFilePtr file =
        TVLFile::openForReading(folder.path("logs/velbootstrap_service.pid").c_str(), 4096);
    ASSERT_TRUE(file);
    const std::string path = folder.path("logs/velbootstrap_service.pid");
    EXPECT_EQ(ZORPidFileOwner::of(file.get(), path), std::nullopt);
    std::filesystem::remove(path);
    writePid("4711\n");
    EXPECT_EQ(ZORPidFileOwner::of(file.get(), path),
              isRoot() ? std::optional(ZORPidFileOwner::kNobody) : std::nullopt);
    std::filesystem::remove_all(folder.path("logs"));
    EXPECT_EQ(ZORPidFileOwner::of(file.get(), path),
              isRoot() ? std::optional(ZORPidFileOwner::kNobody) : std::nullopt);
}

TEST_F(DaemonControlTest, AskingWithoutADocumentFails) {
    loseDocument();
    daemon();
    EXPECT_EQ(service.isRunningUnix(), 0);
    EXPECT_TRUE(logged("ERROR", "isRunningUnix() - OnInit() call failed."));
}

// ---- Stopping ----

TEST_F(DaemonControlTest, StoppingSignalsTheDaemonAndWaitsUntilItIsGone) {
    daemon().ignoresTerm = true;
    os.at(15000, [&] { os.process(4711).alive = false; });
    EXPECT_EQ(stop(), 1);
    EXPECT_TRUE(log.inOrder({
        {"INFO", kLogger, "Stopping daemon.", {}},
        {"DEBUG", kLogger, "called stopRunningUnix()", {}},
        {"INFO", kLogger, "daemon process is alive, so will signal it to stop.", {}},
        {"DEBUG",
         kLogger,
         "stopRunningUnix() - process is alive, so will kill it with SIGTERM [PID: 4711]",
         {}},
        {"DEBUG", kLogger, "Tell process to stop by sending SIGTERM, pid=4711", {}},
        {"INFO", kLogger, "Waiting for daemon to stop....", {}},
        {"DEBUG", kLogger, "waitTillDead() - test if ZOR daemon is alive.", {}},
        {"DEBUG",
         kLogger,
         "waitTillDead() - ZOR daemon (process id 4711) is still alive, so wait a bit.",
         {}},
        {"INFO", kLogger, "Daemon has stopped.", {}},
    }));
    EXPECT_EQ(os.nowMs(), 18000);
}

TEST_F(DaemonControlTest, StoppingWhatDoesNotRunSucceeds) {
    EXPECT_EQ(stop(), 1);
    EXPECT_TRUE(logged("INFO", "stopRunningUnix() - process is dead, nothing to stop."));
    EXPECT_TRUE(os.kills().empty());
}

TEST_F(DaemonControlTest, StoppingGivesUpAfterTwentyChecksSixSecondsApart) {
    daemon().ignoresTerm = true;
    EXPECT_EQ(stop(), 0);
    EXPECT_EQ(log.count("DEBUG", kLogger, "waitTillDead() - test if ZOR daemon is alive."), 20U);
    EXPECT_TRUE(
        logged("ERROR", "waitTillDead() - daemon is still alive, but we aren't going to wait any more."));
    EXPECT_EQ(os.nowMs(), 20 * 6000);
}

TEST_F(DaemonControlTest, StoppingTakesTriesAndIntervalFromTheCommandLine) {
    daemon().ignoresTerm = true;
    EXPECT_EQ(stop({"-testDeadTries=3", "-testDeadInterval=1"}), 0);
    EXPECT_EQ(os.nowMs(), 3000);
}

TEST_F(DaemonControlTest, StoppingWithoutTriesGivesUpAtOnce) {
    daemon().ignoresTerm = true;
    EXPECT_EQ(stop({"-testDeadTries=0"}), 0);
    EXPECT_EQ(os.nowMs(), 0);
    EXPECT_FALSE(logged("DEBUG", "waitTillDead() - test if ZOR daemon is alive."));
}

TEST_F(DaemonControlTest, ASignalThatCannotBeSentIsLoggedAndTheWaitGoesOn) {
    daemon();
    os.failKills(EPERM);
    EXPECT_EQ(stop({"-testDeadTries=2", "-testDeadInterval=1"}), 0);
    EXPECT_TRUE(log.inOrder({
        {"ERROR", kLogger, "Tell process to stop by sending SIGTERM, pid=4711, kill failed, errno=1", {}},
        {"ERROR", kLogger, "Failed to signal the daemon process: it may not stop.", {}},
        {"INFO", kLogger, "Waiting for daemon to stop....", {}},
    }));
    EXPECT_EQ(os.nowMs(), 2000);
}

TEST_F(DaemonControlTest, StoppingWithoutADocumentFails) {
    loseDocument();
    daemon();
    EXPECT_EQ(stop(), 0);
    EXPECT_TRUE(logged("FATAL", "stopRunningUnix() - OnInit() call failed."));
    EXPECT_TRUE(os.kills().empty());
}

// ---- Starting ----

TEST_F(DaemonControlTest, StartingSpawnsTheDaemonAndPingsUntilAllAnswer) {
    os.at(10000, [&] { daemon(); });
    pingPeer("alpha").refuses = true;
    os.at(30000, [&] { pingPeer("alpha").refuses = false; });
    EXPECT_EQ(start(), 1);
    EXPECT_TRUE(log.inOrder({
        {"INFO", kLogger, "Starting the daemon.", {}},
        {"INFO", kLogger, "startDaemon() - spawned daemon, waiting for child processes to be ready.", {}},
        {"DEBUG", kLogger, "testReadyByPinging() - test if spawned process is alive.", {}},
        {"DEBUG", kLogger, "testReadyByPinging() - spawned process is not yet alive, so sleep a bit", {}},
        {"DEBUG",
         kLogger,
         "testReadyByPinging() - spawned process is alive, so see if all children were pinged OK.",
         {}},
        {"DEBUG", kLogger, "testReadyByPinging() - child processes not yet ready so sleep a bit", {}},
        {"INFO", kLogger, "testReadyByPinging() - pinged all children successfully.", {}},
    }));
    EXPECT_EQ(os.lastPid(), 1001);
    EXPECT_EQ(os.threadsStarted(), 0);
}

TEST_F(DaemonControlTest, StartingWhatAlreadyRunsSpawnsNothing) {
    daemon();
    EXPECT_EQ(start(), 1);
    EXPECT_TRUE(logged("WARN", "startDaemon() - daemon is already running, will not attempt to start it."));
    EXPECT_EQ(os.lastPid(), 1000);
}

TEST_F(DaemonControlTest, ADaemonThatCannotBeSpawnedIsAFailure) {
    os.failForks(1, EAGAIN);
    EXPECT_EQ(start(), 0);
    EXPECT_TRUE(logged("ERROR", "startDaemon() - failed to spawn ZOR daemon."));
}

TEST_F(DaemonControlTest, StartingWithoutADocumentFails) {
    loseDocument();
    EXPECT_EQ(start(), 0);
    EXPECT_TRUE(logged("ERROR", "startDaemon() - OnInit() call failed."));
}

TEST_F(DaemonControlTest, StartingWithoutTriesSpawnsAndGivesUp) {
    EXPECT_EQ(start({"-testReadyTries=0"}), 0);
    EXPECT_EQ(os.lastPid(), 1001);
    EXPECT_EQ(os.nowMs(), 0);
    EXPECT_TRUE(logged("ERROR", "testReadyByPinging() - child processes not yet ready, giving up."));
    EXPECT_FALSE(logged("DEBUG", "testReadyByPinging() - test if spawned process is alive."));
}

TEST_F(DaemonControlTest, StartingGivesUpAfterTwentyChecksSixSecondsApart) {
    EXPECT_EQ(start(), 0);
    EXPECT_EQ(os.nowMs(), 20 * 6000);
    EXPECT_TRUE(logged("ERROR", "testReadyByPinging() - child processes not yet ready, giving up."));
}

TEST_F(DaemonControlTest, AnIntervalThatIsNoNumberIsIgnored) {
    EXPECT_EQ(start({"-testReadyTries=2", "-testReadyInterval=abc"}), 0);
    EXPECT_EQ(os.nowMs(), 2 * 6000);
}

TEST_F(DaemonControlTest, AChildThatIsNotReadyIsAskedAgain) {
    daemon();
    answers("alpha", "come LATER");
    // The daemon is already there for the readiness check alone.
    ASSERT_EQ(service.OnInit(), 1);
    EXPECT_EQ(service.testReadyByPinging(3, 6), 0);
    EXPECT_EQ(
        log.count("DEBUG", kLogger, "testReadyByPinging() - child processes not yet ready so sleep a bit"),
        3U);
}

TEST_F(DaemonControlTest, AFatalAnswerStopsTheDaemonAndFailsTheStart) {
    os.at(5000, [&] { daemon(); });
    answers("alpha", "it is BROKEN");
    EXPECT_EQ(start(), 0);
    EXPECT_TRUE(log.inOrder({
        {"INFO", kLogger, "testReadyByPinging() - detected fatal errors, stop all processes.", {}},
        {"DEBUG",
         kLogger,
         "testReadyByPinging() - daemon process is alive, so will kill it with SIGTERM [PID: 4711]",
         {}},
        {"DEBUG", kLogger, "Tell process to stop by sending SIGTERM, pid=4711", {}},
        {"DEBUG", kLogger, "startDaemon() - Fatal error happened, waiting for daemon to stop....", {}},
        {"INFO", kLogger, "Daemon has stopped.", {}},
    }));
    EXPECT_EQ(os.process(4711).signals, std::vector<int>{SIGTERM});
}

TEST_F(DaemonControlTest, AFatalAnswerOfADaemonThatIsGoneHasNothingToStop) {
    daemon();
    answers("alpha", "it is BROKEN");
    pingPeer("alpha").onCommand = [&](const std::string&) { os.process(4711).alive = false; };
    ASSERT_EQ(service.OnInit(), 1);
    EXPECT_EQ(service.testReadyByPinging(3, 6), -1);
    EXPECT_TRUE(logged("INFO", "testReadyByPinging() - process is dead, nothing to stop."));
    EXPECT_TRUE(os.kills().empty());
}

TEST_F(DaemonControlTest, AFatalAnswerWhoseSignalFailsIsLogged) {
    daemon();
    answers("alpha", "it is BROKEN");
    os.failKills(EPERM);
    ASSERT_EQ(service.OnInit(), 1);
    EXPECT_EQ(service.testReadyByPinging(3, 6), -1);
    EXPECT_TRUE(logged("ERROR", "Failed to signal the daemon process: it may not stop."));
}

// ---- The daemon's own readiness ----

TEST_F(DaemonControlTest, AskingTheSupervisorWithoutTriesGivesUp) {
    EXPECT_EQ(service.askPCPifReady(0, 6), 0);
    EXPECT_TRUE(logged("ERROR", "askPCPifReady() - child processes not yet ready, giving up."));
    EXPECT_FALSE(logged("DEBUG", "askPCPifReady() - ask if spawned process is alive."));
}

TEST_F(DaemonControlTest, BothReadinessFlagsAreNeeded) {
    TestAccess::setFlags(supervisor, 1, 0, 0);
    EXPECT_EQ(service.askPCPifReady(2, 6), 0);
    TestAccess::setFlags(supervisor, 0, 1, 0);
    EXPECT_EQ(service.askPCPifReady(2, 6), 0);
    EXPECT_EQ(log.count("DEBUG", kLogger,
                        "askPCPifReady() - PCP reports some child processes not yet ready so sleep a bit"),
              4U);
    TestAccess::setFlags(supervisor, 1, 1, 1);
    EXPECT_EQ(service.askPCPifReady(2, 6), 1);
    EXPECT_TRUE(logged("DEBUG", "askPCPifReady() - PCP reports all children are OK."));
}

TEST_F(DaemonControlTest, AFatalSupervisorEndsTheAsking) {
    TestAccess::setFlags(supervisor, 1, 0, 1);
    EXPECT_EQ(service.askPCPifReady(5, 6), -1);
    EXPECT_TRUE(logged("ERROR", "askPCPifReady() - some child processes got fatal errors, return -1."));
    EXPECT_EQ(os.nowMs(), 0);
}

}  // namespace
