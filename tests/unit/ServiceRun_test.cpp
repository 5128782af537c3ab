// The life of the service: its base class, its run with all threads, its stop path, its PID file, its
// detaching.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <deque>
#include <functional>
#include <memory>

#include "FailingOs.h"
#include "TestWorld.h"
#include "ZORCmdLine.h"
#include "ZORSignalHandlerThread.h"
#include "ZORSpawnAction.h"

namespace {

constexpr const char* kLogger = "ZORBootstrapService";

class ServiceRunTest : public WorldTest {
  protected:
    ServiceRunTest() {
        setProperty("install_path", folder.path().c_str());
        setProperty("bin_path", folder.path("bin").c_str());
        setProperty("temp", folder.path("temp").c_str());
    }
    void configure(const std::vector<ChildXml>& children, const std::string& manager,
                   const std::string& rootAttributes = {}) {
        folder.write("bin/bootstrap_linuxi38632.xml", documentText(children, manager, rootAttributes));
        ASSERT_EQ(service.OnInit(), 1);
        for (const ChildXml& configured : children) {
            answers(configured.name, "READY");
            stopPeer(configured.name).onCommand = [this, name = configured.name](const std::string&) {
                processOf(name).alive = false;
            };
        }
    }
    bool logged(const std::string& level, const std::string& text) const {
        return log.has(level, kLogger, text);
    }
    std::string pidFile() const { return "logs/velbootstrap_service.pid"; }
};

TEST_F(ServiceRunTest, TheWholeLifeInOrder) {
    configure({ChildXml{"alpha"}, ChildXml{"beta"}}, "<processManager pollIntervalsec='30'/>");
    std::string pidContent;
    os.at(60000, [&] { pidContent = folder.read(pidFile()); });
    os.at(100000, [&] { os.raiseSignal(SIGTERM); });
    service.Run();
    EXPECT_EQ(pidContent, std::to_string(getpid()) + "\n");
    EXPECT_FALSE(folder.exists(pidFile()));
    EXPECT_TRUE(log.inOrder({
        {"DEBUG", kLogger, "ZORBootstrapService::Run() - starting \"alpha\"", {}},
        {"DEBUG", "ZORChildProcess", "starting process \"alpha\"", {}},
        {"DEBUG", kLogger, "ZORBootstrapService::Run() - starting \"beta\"", {}},
        {"DEBUG", "ZORChildProcess", "starting process \"beta\"", {}},
        {"DEBUG", kLogger, "test ready...", {}},
        {"DEBUG", kLogger, "askPCPifReady() - PCP reports all children are OK.", {}},
        {"INFO", kLogger, "ZORBootstrapService::Run() - child process(es) is/are ready.", {}},
        {"DEBUG", kLogger, "ZORBootstrapService::Run() - calls m_semaMainThreadWait->wait()", {}},
        {"DEBUG", "ZORSignalHandlerThread", "Signal 15 caught.", {}},
        {"INFO", "ZORSignalHandlerThread", "Signalled to shutdown.", {}},
        {"INFO", "PingChildProcess", "Child process supervisor has been told to stop", {}},
        {"INFO", "PingChildProcess", "stopping child process(es).", {}},
        {"INFO", "PingChildProcess", "no processes are alive.", {}},
        {"INFO", kLogger, "ZORBootstrapService::Run() - returned from m_semaMainThreadWait->wait()", {}},
        {"INFO", kLogger, "Done.", {}},
    })) << log.raw();
    EXPECT_TRUE(log.inOrder({
        {"DEBUG", "ZORSignalHandlerThread", "Signal Handling Thread started.", {}},
        {"INFO",
         kLogger,
         "Velmora Bootstrap Service running as process " + std::to_string(getpid()) + ".",
         {}},
        {"DEBUG", "ZORSignalHandlerThread", "Signal 15 caught.", {}},
        {"DEBUG", "ZORSignalHandlerThread", "Signal Handling Thread terminating.", {}},
    }));
    EXPECT_EQ(os.threadsStarted(), 2);
}

// What somebody has to look at.
std::vector<LogLine> complaints(const LogCapture& log) {
    std::vector<LogLine> lines = log.lines();
    std::erase_if(lines, [](const LogLine& line) { return line.level == "INFO" || line.level == "DEBUG"; });
    return lines;
}

TEST_F(ServiceRunTest, ACleanLifeIsNothingToComplainAbout) {
    writeStartup("<components><component name='alpha' version='1'/></components>");
    ChildXml alpha{.name = "alpha", .stopType = "signal"};
    alpha.pingAttributes += " dependency='alpha'";
    configure({alpha}, "<processManager pollIntervalsec='30'/>");
    os.at(200000, [&] { os.raiseSignal(SIGTERM); });
    service.Run();
    EXPECT_EQ(pingPeer("alpha").connects, 6);
    EXPECT_EQ(log.count("DEBUG", "PingChildProcess", "process alpha pinged successfully."), 6U);
    EXPECT_TRUE(logged("INFO", "Done."));
    // How a child was stopped is told as a warning, whatever the outcome.
    EXPECT_EQ(
        complaints(log),
        (std::vector<LogLine>{{"WARN", "PingChildProcess", "stopAction->execute() return status = 0", {}}}));
}

TEST_F(ServiceRunTest, EveryTerminationSignalStops) {
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
        ZORBootstrapService another;
        folder.write("bin/bootstrap_linuxi38632.xml",
                     documentText({ChildXml{.name = "alpha", .stopType = "signal"}}, ""));
        answers("alpha", "READY");
        ASSERT_EQ(another.OnInit(), 1);
        os.at(os.nowMs() + 50000, [&] { os.raiseSignal(signal); });
        another.Run();
        EXPECT_TRUE(
            log.has("DEBUG", "ZORSignalHandlerThread", "Signal " + std::to_string(signal) + " caught."));
    }
    EXPECT_EQ(log.count("INFO", "ZORSignalHandlerThread", "Signalled to shutdown."), 4U);
}

TEST_F(ServiceRunTest, AWaitThatEndsWithoutASignalGoesOn) {
    configure({ChildXml{}}, "");
    os.at(40000, [&] { os.raiseSignal(0); });
    os.at(50000, [&] { os.raiseSignal(SIGUSR1); });
    os.at(90000, [&] { os.raiseSignal(SIGHUP); });
    service.Run();
    EXPECT_TRUE(log.inOrder({
        {"DEBUG", "ZORSignalHandlerThread", "Signal 0 caught.", {}},
        {"DEBUG", "ZORSignalHandlerThread", "Signal 10 caught.", {}},
        {"DEBUG", "ZORSignalHandlerThread", "Signal 1 caught.", {}},
        {"INFO", "ZORSignalHandlerThread", "Signalled to shutdown.", {}},
    }));
    EXPECT_GE(os.nowMs(), 90000);
}

TEST_F(ServiceRunTest, ASecondSignalDuringTheShutdownHasNoEffect) {
    configure({ChildXml{}}, "");
    stopPeer("alpha").onCommand = nullptr;  // a stubborn child: the shutdown takes its time
    os.at(50000, [&] { os.raiseSignal(SIGTERM); });
    os.at(55000, [&] { os.raiseSignal(SIGTERM); });
    service.Run();
    EXPECT_EQ(log.count("DEBUG", "ZORSignalHandlerThread", "Signal 15 caught."), 1U);
    EXPECT_FALSE(log.has("ERROR", "PingChildProcess",
                         "Child process supervisor has been told to stop but is already stopping."));
}

TEST_F(ServiceRunTest, ASignalBeforeTheSupervisorRunsStopsAfterOneInterval) {
    // The pause between the two threads lets the first one take the signal before the second one is there.
    configure({ChildXml{}}, "<processManager pollIntervalsec='30'/>", "startupDelaySec='1'");
    os.raiseSignal(SIGTERM);
    int pid = 0;
    os.at(5, [&] {
        pid = child("alpha").getProcessHandle();
        EXPECT_TRUE(log.has("INFO", "PingChildProcess", "Child process supervisor has been told to stop"));
        EXPECT_FALSE(log.has("DEBUG", "PingChildProcess", "entering timedWait, interval = 30000"));
    });
    os.at(5 + 30000 - 1, [&] {
        EXPECT_FALSE(log.has("INFO", "PingChildProcess", "stopping child process(es)."))
            << "a whole interval";
    });
    os.at(5 + 30000 + 2000 + 500 + 1,
          [&] { EXPECT_TRUE(log.has("INFO", "PingChildProcess", "no processes are alive.")); });
    service.Run();
    EXPECT_EQ(log.count("DEBUG", "PingChildProcess", "entering timedWait, interval = 30000"), 1U);
    EXPECT_TRUE(logged("INFO", "Done."));
    EXPECT_EQ(pingPeer("alpha").connects, 0);
    EXPECT_EQ(stopPeer("alpha").commands, std::vector<std::string>{"STOP"});
    EXPECT_FALSE(os.process(pid).alive);
    // The main thread asks for readiness every six seconds, and once more after the end.
    EXPECT_EQ(os.nowMs(), 5 + 6 * 6000);
}

TEST_F(ServiceRunTest, AnyStartupDelayPausesFiveMilliseconds) {
    configure({ChildXml{}}, "", "startupDelaySec='30'");
    os.at(50000, [&] { os.raiseSignal(SIGTERM); });
    service.Run();
    ASSERT_FALSE(os.sleeps().empty());
    EXPECT_EQ(os.sleeps().front(), 5);
    EXPECT_EQ(std::count(os.sleeps().begin(), os.sleeps().end(), 30000), 0);
}

TEST_F(ServiceRunTest, WithoutAStartupDelayThereIsNoPause) {
    configure({ChildXml{}}, "");
    os.at(50000, [&] { os.raiseSignal(SIGTERM); });
    service.Run();
    EXPECT_EQ(std::count(os.sleeps().begin(), os.sleeps().end(), 5), 0);
}

TEST_F(ServiceRunTest, ReadinessIsAskedFiftyTimesAndThenTheServiceGoesOn) {
    configure({ChildXml{}}, "");
    pingPeer("alpha").refuses = true;
    std::size_t asked = 0;
    os.at(500000, [&] {
        asked = log.count("DEBUG", kLogger, "askPCPifReady() - ask if spawned process is alive.");
        os.raiseSignal(SIGTERM);
    });
    service.Run();
    EXPECT_EQ(asked, 50U);
    EXPECT_TRUE(log.inOrder({
        {"ERROR", kLogger, "askPCPifReady() - child processes not yet ready, giving up.", {}},
        {"DEBUG", kLogger, "ZORBootstrapService::Run() - calls m_semaMainThreadWait->wait()", {}},
    }));
    EXPECT_FALSE(logged("INFO", "ZORBootstrapService::Run() - child process(es) is/are ready."));
}

TEST_F(ServiceRunTest, TheDaemonWaitMarkerMakesItAskWithoutLimit) {
    folder.write("temp/zordaemonwait", "");
    configure({ChildXml{}}, "");
    pingPeer("alpha").refuses = true;
    os.at(2000000, [&] { pingPeer("alpha").refuses = false; });
    os.at(2100000, [&] { os.raiseSignal(SIGTERM); });
    service.Run();
    EXPECT_GT(log.count("DEBUG", kLogger, "askPCPifReady() - waiting indefinitely"), 300U);
    EXPECT_TRUE(logged("INFO", "ZORBootstrapService::Run() - child process(es) is/are ready."));
    EXPECT_FALSE(logged("ERROR", "askPCPifReady() - child processes not yet ready, giving up."));
}

TEST_F(ServiceRunTest, AFatalAnswerEndsTheWaitForReadinessOnly) {
    configure({ChildXml{}}, "");
    answers("alpha", "it is BROKEN");
    os.at(200000, [&] { os.raiseSignal(SIGTERM); });
    service.Run();
    EXPECT_TRUE(logged("ERROR", "askPCPifReady() - some child processes got fatal errors, return -1."));
    EXPECT_TRUE(logged("INFO", "Done."));
}

TEST_F(ServiceRunTest, AChildThatCannotBeStartedDoesNotKeepTheOthers) {
    configure({ChildXml{"alpha"}, ChildXml{"beta"}}, "");
    os.failForks(1, EAGAIN);
    os.at(100000, [&] { os.raiseSignal(SIGTERM); });
    service.Run();
    EXPECT_TRUE(log.has("DEBUG", "ZORChildProcess", "process handle is -1"));
    EXPECT_TRUE(log.has("DEBUG", "PingChildProcess", "process beta pinged successfully."));
    EXPECT_TRUE(log.has("DEBUG", "PingChildProcess", "process alpha pinged successfully."));
}

TEST_F(ServiceRunTest, AWaitThatTheSystemRefusesIsLoggedAndEndsTheRun) {
    configure({ChildXml{}}, "");
    // The supervisor's own waits have limits: this is the main thread's, once it is ready.
    int pid = 0;
    os.at(35000, [&] {
        pid = child("alpha").getProcessHandle();
        os.failNextWait();
    });
    service.Run();
    EXPECT_TRUE(log.inOrder({
        {"ERROR", kLogger, "wait() threw a TVLThreadResourceError Exception ", {}},
        {"INFO", "PingChildProcess", "no processes are alive.", {}},
        {"INFO", kLogger, "Done.", {}},
    }));
    EXPECT_FALSE(os.process(pid).alive);
}

// ---- Threads that come and go ----

class ThreadlessRunTest : public ServiceRunTest {
  protected:
    ThreadlessRunTest() {
        configure({ChildXml{"alpha"}, ChildXml{"beta"}}, "<processManager pollIntervalsec='30'/>");
    }
    // Runs the service, which is given that many threads; the ids of its children.
    std::vector<int> runWithThreads(int count) {
        FailingOs failing;
        failing.failNth(OsKind::StartThread, count + 1, EAGAIN);
        service.Run();
        return {child("alpha").getProcessHandle(), child("beta").getProcessHandle()};
    }
    static constexpr const char* kRefused =
        "ZORBootstrapService::Run() - cannot start a thread: Resource temporarily unavailable";
};

TEST_F(ThreadlessRunTest, WithoutASignalThreadTheChildrenAreStopped) {
    runWithThreads(0);
    EXPECT_TRUE(log.inOrder({
        {"DEBUG", "ZORChildProcess", "starting process \"beta\"", {}},
        {"FATAL", kLogger, kRefused, {}},
        {"DEBUG", "PingChildProcess", "stopping process \"alpha\"", {}},
        {"DEBUG", "PingChildProcess", "stopping process \"beta\"", {}},
        {"INFO", "PingChildProcess", "no processes are alive.", {}},
        {"INFO", kLogger, "Done.", {}},
    })) << log.raw();
    EXPECT_EQ(stopPeer("alpha").commands.size(), 1U);
    EXPECT_EQ(stopPeer("beta").commands.size(), 1U);
    EXPECT_TRUE(os.kills().empty()) << "they ended by themselves";
    EXPECT_FALSE(log.has("DEBUG", "ZORSignalHandlerThread", "Signal Handling Thread started."));
    EXPECT_FALSE(logged("DEBUG", "test ready..."));
}

TEST_F(ThreadlessRunTest, WithoutASupervisorTheChildrenAreStoppedAndThePidFileGoes) {
    runWithThreads(1);
    EXPECT_EQ(log.count("FATAL", kLogger, kRefused), 1U);
    EXPECT_TRUE(logged("INFO", "Done."));
    EXPECT_EQ(stopPeer("alpha").commands.size(), 1U);
    EXPECT_EQ(stopPeer("beta").commands.size(), 1U);
    EXPECT_EQ(pingPeer("alpha").connects, 0);
    EXPECT_TRUE(log.has("DEBUG", "ZORSignalHandlerThread", "Signal Handling Thread terminating."));
    EXPECT_FALSE(folder.exists(pidFile()));
}

TEST_F(ThreadlessRunTest, WithoutASupervisorAStubbornChildIsKilled) {
    stopPeer("beta").onCommand = nullptr;
    const std::vector<int> pids = runWithThreads(1);
    EXPECT_TRUE(log.inOrder({
        {"INFO",
         "PingChildProcess",
         "1 processes are still alive, but we're not going to wait any longer for them to die.",
         {}},
        {"DEBUG", "PingChildProcess", "kill all processes.", {}},
        {"INFO", kLogger, "Done.", {}},
    }));
    EXPECT_EQ(os.process(pids[1]).signals, std::vector<int>{SIGKILL});
    EXPECT_FALSE(os.process(pids[1]).alive);
}

TEST_F(ThreadlessRunTest, WithoutASupervisorAChildThatCannotBeToldIsKilledAtOnce) {
    stopPeer("beta").refuses = true;
    const std::vector<int> pids = runWithThreads(1);
    EXPECT_EQ(os.process(pids[1]).signals, std::vector<int>{SIGKILL});
    EXPECT_FALSE(log.has("DEBUG", "PingChildProcess", "Waiting for processes to die."));
}

TEST_F(ServiceRunTest, ADismissedSignalThreadStopsNothing) {
    configure({ChildXml{}}, "");
    // As in Run(): a stop would find somebody to tell.
    TestAccess::mainThreadWait(service) = &finished;
    {
        ZORSignalHandlerThread thread(&service);
        thread.start();
        TVLThread::sleep(1000);  // it waits for a signal by then
    }
    EXPECT_EQ(log.linesOf("ZORSignalHandlerThread"),
              (std::vector<LogLine>{
                  {"DEBUG", "ZORSignalHandlerThread", "Signal Handling Thread started.", {}},
                  {"DEBUG", "ZORSignalHandlerThread", "Signal Handling Thread terminating.", {}}}));
    EXPECT_FALSE(log.has("INFO", "PingChildProcess", "Child process supervisor has been told to stop"));
}

TEST_F(ServiceRunTest, TheEndOfTheServiceIsTheEndOfItsSupervisor) {
    auto another = std::make_unique<ZORBootstrapService>();
    ZORBootstrapService* const inside = another.get();
    // Were the supervisor not told, only this would end it.
    os.at(100000, [&] { TestAccess::supervisor(*inside).stop(&finished); });
    TestAccess::supervisor(*another).start();
    another.reset();
    EXPECT_TRUE(log.has("INFO", "PingChildProcess", "no processes are alive."));
    EXPECT_LT(os.nowMs(), 100000);
}

TEST_F(ServiceRunTest, TheEndOfTheServiceStopsItsChildren) {
    auto another = std::make_unique<ZORBootstrapService>();
    const XmlText document(documentText({ChildXml{}}, ""));
    ASSERT_EQ(another->parseParams(document.root()), 1);
    another->getChildren().front()->start();
    const int pid = another->getChildren().front()->getProcessHandle();
    stopPeer("alpha").onCommand = [&](const std::string&) { os.process(pid).alive = false; };
    TestAccess::supervisor(*another).start();
    another.reset();
    EXPECT_EQ(stopPeer("alpha").commands, std::vector<std::string>{"STOP"});
    EXPECT_FALSE(os.process(pid).alive);
}

TEST_F(ServiceRunTest, TheDaemonWaitMarkerStaysOpenAndIsNotInherited) {
    folder.write("temp/zordaemonwait", "");
    const auto markers = [&] {
        std::vector<int> descriptors;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code error;
            if (std::filesystem::read_symlink(entry.path(), error) == folder.path("temp/zordaemonwait"))
                descriptors.push_back(std::stoi(entry.path().filename()));
        }
        return descriptors;
    };
    ASSERT_TRUE(markers().empty());
    configure({ChildXml{}}, "");
    ASSERT_EQ(markers().size(), 1U);
    EXPECT_EQ(fcntl(markers()[0], F_GETFD), FD_CLOEXEC);
}

TEST_F(ServiceRunTest, TheOtherWayToStopWaitsForTheChildrenAndWakesTheMainThread) {
    configure({ChildXml{}}, "");
    struct Stopper : TVLThreadRunnable {
        explicit Stopper(ZORBootstrapService& s) : stopped(s) {}
        void run() override {
            TVLThread::sleep(100000);
            stopped.OnStop();
        }
        ZORBootstrapService& stopped;
    } stopper(service);
    TVLThread thread(&stopper, 1 << 20);
    thread.start();
    service.Run();
    thread.join();
    EXPECT_TRUE(log.inOrder({
        {"INFO", kLogger, "Waiting for processes to stop.", {}},
        {"INFO", "PingChildProcess", "no processes are alive.", {}},
        {"INFO", kLogger, "Done wait for processes to stop.", {}},
        {"INFO", kLogger, "signal main thread to wake (and die).", {}},
        {"INFO", kLogger, "ZORBootstrapService::Run() - returned from m_semaMainThreadWait->wait()", {}},
        {"INFO", kLogger, "Done.", {}},
    }));
}

TEST_F(ServiceRunTest, StoppingBeforeTheRunDoesNothing) {
    configure({ChildXml{}}, "");
    service.stopChildProcess();
    EXPECT_FALSE(log.has("INFO", "PingChildProcess", "Child process supervisor has been told to stop"));
    service.wakeupMainThread();
    EXPECT_TRUE(logged("INFO", "signal main thread to wake (and die)."));
}

TEST_F(ServiceRunTest, APidFileThatCannotBeWrittenIsAWarning) {
    configure({ChildXml{}}, "");
    std::filesystem::remove_all(folder.path("logs"));
    os.at(100000, [&] { os.raiseSignal(SIGTERM); });
    service.Run();
    EXPECT_TRUE(
        logged("WARN",
               "Process ID could not be written to file.  The velbootstrapservice -stop command will not "
               "work. Use 'kill -9' instead."));
    EXPECT_TRUE(logged("INFO", "Done."));
}

// Writing to a regular file fails, as on a full disk.
class NoFileGrows {
  public:
    NoFileGrows() : m_handler(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit none{0, m_before.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
    }
    ~NoFileGrows() {
        setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_handler);
    }
    NoFileGrows(const NoFileGrows&) = delete;
    NoFileGrows& operator=(const NoFileGrows&) = delete;

  private:
    void (*m_handler)(int);
    rlimit m_before{};
};

TEST_F(ServiceRunTest, ThePidFileIsForAllToReadWhateverTheUmask) {
    configure({ChildXml{}}, "");
    const mode_t before = umask(0077);
    service.WritePIDFile();
    EXPECT_EQ(umask(before), 0077U) << "the umask is the children's, too";
    EXPECT_EQ(std::filesystem::status(TestAccess::pidFile(service).path()).permissions(),
              std::filesystem::perms{0644});
    EXPECT_EQ(log.raw().find("belongs to the user"), std::string::npos);
}

TEST_F(ServiceRunTest, APidFileThatBecomesAnotherUsersIsAWarning) {
    ASSERT_EQ(geteuid(), 0U) << "this test gives a folder to another user, which needs root";
    configure({ChildXml{}}, "");
    ASSERT_EQ(chown(folder.path("logs").c_str(), 12345, 12345), 0);
    service.WritePIDFile();
    EXPECT_TRUE(
        logged("WARN", "PID file \"" + TestAccess::pidFile(service).path() +
                           "\" belongs to the user with id 12345, so commands will not find this process. "
                           "Run the service and its commands as that user."));
}

TEST_F(ServiceRunTest, APidFileOnAFullDiskIsAWarning) {
    configure({ChildXml{}}, "");
    {
        const NoFileGrows full;
        service.WritePIDFile();
    }
    EXPECT_TRUE(
        logged("WARN",
               "Process ID could not be written to file.  The velbootstrapservice -stop command will not "
               "work. Use 'kill -9' instead."));
    EXPECT_EQ(log.raw().find("running as process"), std::string::npos);
}

TEST_F(ServiceRunTest, RunningAsAnApplicationFailsWhenTheInitialisationDoes) {
    EXPECT_EQ(service.RunAsApplication(), 0);
    EXPECT_TRUE(os.sleeps().empty());
    EXPECT_EQ(os.threadsStarted(), 0);
}

// ---- Detaching ----

TEST_F(ServiceRunTest, TheStarterReturnsFromDetachingAtOnce) {
    EXPECT_EQ(service.runAsDaemon(), 0);
    EXPECT_EQ(os.lastPid(), 1001);
    EXPECT_EQ(os.threadsStarted(), 0);
}

TEST_F(ServiceRunTest, AForkThatFailsWhileDetachingIsLogged) {
    os.failForks(1, EAGAIN);
    EXPECT_EQ(service.runAsDaemon(), 0);
    EXPECT_TRUE(logged("ERROR", "runAsDaemon() - fork failed, errno=11"));
}

// Detaches in a process of its own, in which the forks go as told. With everything else it is real.
class Detaching : public VirtualOs {
  public:
    explicit Detaching(std::deque<pid_t> forks) : m_forks(std::move(forks)) {}
    pid_t fork() override {
        const pid_t result = m_forks.front();
        m_forks.pop_front();
        if (result < 0) errno = EAGAIN;
        return result;
    }
    bool hasForkedAsTold() const { return m_forks.empty(); }

  private:
    std::deque<pid_t> m_forks;
};

class DetachingTest : public ServiceRunTest {
  protected:
    // Whether in such a process all of that is so afterwards.
    bool holdsAfter(const std::deque<pid_t>& forks, const std::function<bool()>& condition) {
        const pid_t process = ::fork();
        if (process == 0) {
            const Detaching detaching(forks);
            const bool returnedZero = service.runAsDaemon() == 0;
            ::_exit(returnedZero && detaching.hasForkedAsTold() && condition() ? 0 : 1);
        }
        int status = -1;
        return waitpid(process, &status, 0) == process && status == 0;
    }
    bool triedToRun() const { return log.raw().find("attempt to load config from") != std::string::npos; }
    bool complained() const { return log.raw().find("ERROR") != std::string::npos; }
    static bool standardOutputIsNull() {
        struct stat output {};
        struct stat null {};
        return fstat(STDOUT_FILENO, &output) == 0 && stat("/dev/null", &null) == 0 &&
               output.st_rdev == null.st_rdev;
    }
};

TEST_F(DetachingTest, OnlyTheChildOfTheChildRunsTheService) {
    EXPECT_TRUE(
        holdsAfter({0, 1002}, [&] { return standardOutputIsNull() && !triedToRun() && !complained(); }));
    EXPECT_TRUE(holdsAfter({0, 0}, [&] { return standardOutputIsNull() && triedToRun(); }));
}

TEST_F(DetachingTest, ASecondForkThatFailsIsLoggedAndNothingRuns) {
    EXPECT_TRUE(holdsAfter(
        {0, -1}, [&] { return logged("ERROR", "runAsDaemon() - fork failed, errno=11") && !triedToRun(); }));
}

// ---- Signal names ----

TEST_F(ServiceRunTest, OneSignalNameIsKnown) {
    for (const char* const name : {"SIGTERM", "SigTerm", "sigterm"}) {
        I18NString text(name);
        EXPECT_EQ(ZORBootstrapService::resolveSignal(text), 15) << name;
    }
    for (const char* const name : {"sigkill", "15", "", "sigterm "}) {
        I18NString text(name);
        EXPECT_EQ(ZORBootstrapService::resolveSignal(text), -1) << name;
    }
}

// ---- The base class ----

struct PlainService : ZORNTService {
    using ZORNTService::ZORNTService;
    int OnInit() override { return initResult; }
    int Run() override {
        ++runs;
        return 7;
    }
    using ZORNTService::setExitCode;
    int initResult = 1;
    int runs = 0;
};

TEST(ZORNTServiceTest, ItRemembersTheLatestInstanceAndItsName) {
    PlainService first("first");
    EXPECT_EQ(ZORNTService::m_pThis, &first);
    PlainService second(nullptr);
    EXPECT_EQ(ZORNTService::m_pThis, &second);
    EXPECT_STREQ(first.getServiceName(), "first");
    EXPECT_STREQ(second.getServiceName(), "");
    EXPECT_EQ(first.isRunningAsService(), 0);
    EXPECT_EQ(first.getExitCode(), 0);
}

TEST(ZORNTServiceTest, AnInstanceIsForgottenAtItsEnd) {
    { const PlainService only("only"); }
    EXPECT_EQ(ZORNTService::m_pThis, nullptr);
    auto first = std::make_unique<PlainService>("first");
    const PlainService second("second");
    first.reset();
    EXPECT_EQ(ZORNTService::m_pThis, &second) << "it is the latest that is remembered";
}

TEST(ZORNTServiceTest, NamesAreCutAtTwoHundredFiftyFiveCharacters) {
    PlainService service(std::string(300, 'n').c_str());
    EXPECT_EQ(std::string(service.getServiceName()), std::string(255, 'n'));
    service.setServiceName("short");
    EXPECT_STREQ(service.getServiceName(), "short");
    service.setServiceName(nullptr);
    EXPECT_STREQ(service.getServiceName(), "");
}

TEST(ZORNTServiceTest, RunningAsAnApplicationGivesWhatTheRunGives) {
    PlainService service("x");
    service.setExitCode(5);
    EXPECT_EQ(service.RunAsApplication(), 7);
    EXPECT_EQ(service.getExitCode(), 0);
    EXPECT_EQ(service.runs, 1);
}

TEST(ZORNTServiceTest, AFailedInitialisationLeavesTheExitCodeAlone) {
    PlainService service("x");
    service.initResult = 0;
    service.setExitCode(5);
    EXPECT_EQ(service.RunAsApplication(), 0);
    EXPECT_EQ(service.getExitCode(), 5);
    EXPECT_EQ(service.runs, 0);
}

TEST(ZORNTServiceTest, TheBaseClassHasNothingToRun) {
    ZORNTService service("x");
    EXPECT_EQ(service.Run(), 0);
}

TEST(ZORNTServiceTest, TheBaseClassInitialisesNothingAndDoesNothing) {
    ZORNTService service("x");
    EXPECT_EQ(service.OnInit(), 0);
    EXPECT_EQ(service.RunAsApplication(), 0);
    service.OnStop();
    service.OnInterrogate();
    service.OnPause();
    service.OnContinue();
    service.OnShutdown();
    EXPECT_EQ(service.getExitCode(), 0);
}

TEST_F(ServiceRunTest, TheServiceIsNamedAfterTheProduct) {
    EXPECT_STREQ(service.getServiceName(), "Velmora 8");
}

}  // namespace
