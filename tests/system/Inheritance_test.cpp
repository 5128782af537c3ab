// What a child has at its birth, read from /proc: in the foreground and under the daemon, started as it is and with
// a clean slate. The children are programs of the machine that change nothing of it themselves.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "FileContent.h"
#include "ProcessView.h"
#include "ServiceUnderTest.h"

namespace {

constexpr const char* kSleep = "/usr/bin/sleep";

// As the guide and the sample document have it.
constexpr const char* kCleanSlate = "--default-signal=TERM,INT,QUIT,HUP,PIPE,CHLD,XFSZ";

// Two lengths that tell the two apart.
constexpr const char* kAsItIs = "301";
constexpr const char* kClean = "302";

constexpr const char* kNoSignal = "0000000000000000";

std::string processXml(const std::string& name, const std::vector<std::string>& command, int stopSignal) {
    std::string xml = "<process name=\"" + name + "\"><start><spawn><path>" + command.front() + "</path>";
    for (auto argument = command.begin() + 1; argument != command.end(); ++argument)
        xml += "<param>" + *argument + "</param>";
    return xml + "</spawn></start><stop type=\"signal\"><signal signal=\"" + std::to_string(stopSignal) +
           "\"/></stop></process>";
}

// What the tests' own build adds.
bool isOfASanitizer(const std::string& variable) {
    return variable.find("SAN_OPTIONS=") != std::string::npos || variable.rfind("LD_LIBRARY_PATH=", 0) == 0;
}

// Something of this process that its programs inherit, changed for the time of a test, so that a child that has the
// same has it from here and not by chance.
class OwnTraits {
  public:
    OwnTraits() : m_umask(umask(0027)) {
        getrlimit(RLIMIT_NOFILE, &m_files);
        rlimit fewer = m_files;
        fewer.rlim_cur = 500;
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &fewer), 0);
        m_outOfMemoryScore = ProcessView(getpid()).content("oom_score_adj");
        std::ofstream("/proc/self/oom_score_adj") << 321;
    }
    ~OwnTraits() {
        std::ofstream("/proc/self/oom_score_adj") << m_outOfMemoryScore;
        setrlimit(RLIMIT_NOFILE, &m_files);
        umask(m_umask);
    }
    OwnTraits(const OwnTraits&) = delete;
    OwnTraits& operator=(const OwnTraits&) = delete;

  private:
    mode_t m_umask;
    rlimit m_files{};
    std::string m_outOfMemoryScore;
};

class InheritanceTest : public SystemTest {
  protected:
    void twoChildren(int stopSignal = SIGKILL) {
        BootstrapXml document;
        document.children.clear();
        document.extra = processXml("as it is", {kSleep, kAsItIs}, stopSignal) +
                         processXml("clean", {"/usr/bin/env", kCleanSlate, kSleep, kClean}, stopSignal);
        service.bootstrap(document);
    }

    // 0 until it is the program it is to become.
    pid_t sleeping(const std::string& length) {
        for (const pid_t pid : service.processes()) {
            if (ProcessView(pid).commandLine() == kSleep + (" " + length) + " ") return pid;
        }
        return 0;
    }

    ProcessView child(const std::string& length) {
        EXPECT_TRUE(service.waitFor("the child that sleeps " + length, [&] { return sleeping(length) > 0; }));
        return ProcessView(sleeping(length));
    }
};

enum class Mode { Foreground, Daemon };

class InheritanceInBothModesTest : public InheritanceTest, public testing::WithParamInterface<Mode> {
  protected:
    // An orderly stop has nothing to add here and would take longer than all the rest.
    void TearDown() override {
        service.cleanUp();
        InheritanceTest::TearDown();
    }

    // The process that has the children.
    pid_t running(ServiceUnderTest::Launch launch = {}) {
        twoChildren();
        const bool foreground = GetParam() == Mode::Foreground;
        launch.arguments = foreground ? std::vector<std::string>{"-d"}
                                      : std::vector<std::string>{"-start", "-testReadyInterval=1"};
        const pid_t program = service.begin(launch);
        if (!foreground) {
            EXPECT_EQ(service.finish(program).exitCode, 0);
        }
        EXPECT_TRUE(service.waitFor("the PID file", [&] { return service.daemonPid() > 0; }));
        return service.daemonPid();
    }

    bool inTheForeground() const { return GetParam() == Mode::Foreground; }
};

INSTANTIATE_TEST_SUITE_P(Mode, InheritanceInBothModesTest, testing::Values(Mode::Foreground, Mode::Daemon),
                         [](const auto& mode) {
                             return std::string(mode.param == Mode::Foreground ? "Foreground" : "Daemon");
                         });

TEST_P(InheritanceInBothModesTest, FourSignalsAreBlockedAndThreeIgnoredUnlessTheSlateIsClean) {
    running();
    const ProcessView asItIs = child(kAsItIs);
    EXPECT_EQ(asItIs.status("SigBlk"), "0000000000004007") << "SIGHUP, SIGINT, SIGQUIT and SIGTERM";
    EXPECT_EQ(asItIs.status("SigIgn"), "0000000001011000") << "SIGPIPE, SIGCHLD and SIGXFSZ";
    const ProcessView clean = child(kClean);
    EXPECT_EQ(clean.status("SigBlk"), kNoSignal);
    EXPECT_EQ(clean.status("SigIgn"), kNoSignal);
    for (const ProcessView& any : {asItIs, clean}) {
        EXPECT_EQ(any.status("SigCgt"), kNoSignal);
        EXPECT_EQ(any.status("SigPnd"), kNoSignal);
        EXPECT_EQ(any.status("ShdPnd"), kNoSignal);
    }
}

TEST_P(InheritanceInBothModesTest, DescriptorsAreTheCallersAndNoneIsTheServices) {
    service.write("temp/handed.txt", "");
    const int handed = open(service.path("temp/handed.txt").c_str(), O_RDONLY | O_CLOEXEC);
    const pid_t daemon = running({.kept = handed});
    const std::string passedOn = std::to_string(handed) + " " + service.path("temp/handed.txt") + "\n";
    const std::string standard = inTheForeground() ? "0 /dev/null\n1 " + service.path("output/0.out") +
                                                         "\n2 " + service.path("output/0.err") + "\n"
                                                   : "0 /dev/null\n1 /dev/null\n2 /dev/null\n";
    EXPECT_EQ(child(kAsItIs).descriptors(), standard + passedOn);
    EXPECT_EQ(child(kClean).descriptors(), standard + passedOn);
    EXPECT_EQ(ProcessView(daemon).inheritableDescriptors(), passedOn);
    EXPECT_GT(ProcessView(daemon).entriesOf("fd"), 4U) << "its logs at least";
    close(handed);
}

TEST_P(InheritanceInBothModesTest, ParentGroupSessionAndFolderAreTheServices) {
    const ProcessView parent(running());
    for (const ProcessView& any : {child(kAsItIs), child(kClean)}) {
        EXPECT_EQ(any.parent(), parent.pid());
        EXPECT_EQ(any.group(), parent.group());
        EXPECT_EQ(any.session(), parent.session());
        EXPECT_EQ(any.target("cwd"), service.path("bin"));
    }
    EXPECT_EQ(parent.session() == getsid(0), inTheForeground()) << "the daemon has a session of its own";
    EXPECT_EQ(parent.group() == getpgrp(), inTheForeground());
}

TEST_P(InheritanceInBothModesTest, MaskLimitsAndScoreAreTheCallers) {
    const OwnTraits traits;
    const ProcessView self(getpid());
    running();
    for (const ProcessView& any : {child(kAsItIs), child(kClean)}) {
        EXPECT_EQ(any.status("Umask"), "0027");
        EXPECT_EQ(any.content("limits"), self.content("limits"));
        EXPECT_EQ(any.content("oom_score_adj"), "321\n");
        for (const char* const key : {"Uid", "Gid", "Groups", "CapEff", "NoNewPrivs", "Cpus_allowed"})
            EXPECT_EQ(any.status(key), self.status(key)) << key;
    }
}

TEST_P(InheritanceInBothModesTest, TheEnvironmentIsTheCallersAndHasNothingTheFileAdds) {
    service.write("configuration/zorEnvironmentVars.ini", "SHADE=dark\nONLY_IN_THE_FILE=1\nCOLOUR=red\n");
    running({.environment = {{"COLOUR", "blue = green"}, {"SHADE", "light"}}});
    // A variable that the caller has is replaced where it stands, until the file brings the first new one: from
    // there on the C library keeps an environment that is the service's own.
    const std::vector<std::string> expected{"COLOUR=blue = green", "JAVA_HOME=/opt/java",
                                            "PATH=/usr/bin:/bin", "SHADE=dark"};
    for (const ProcessView& any : {child(kAsItIs), child(kClean)}) {
        std::vector<std::string> variables = any.environment();
        std::erase_if(variables, isOfASanitizer);
        std::sort(variables.begin(), variables.end());
        EXPECT_EQ(variables, expected);
    }
}

// ---- Standard streams that the caller has closed ----

class ClosedStreamTest : public InheritanceTest, public testing::WithParamInterface<std::vector<int>> {
  protected:
    // Pinged twice, with log lines going to standard output all the time.
    pid_t pinged(const std::vector<std::string>& arguments) {
        BootstrapXml document;
        document.children[0].pinged(m_port);
        service.bootstrap(document);
        service.answer("READY");
        const pid_t program = service.begin({.arguments = arguments, .closed = GetParam()});
        EXPECT_TRUE(service.waitFor("two pings", [&] {
            return service.countLogged("DEBUG", "PingChildProcess", "process alpha pinged successfully.") > 1;
        }));
        return program;
    }

    void onlyPingsCame() {
        std::istringstream commands(service.childFile("alpha", "commands"));
        std::size_t count = 0;
        for (std::string command; std::getline(commands, command); ++count)
            ASSERT_EQ(command, "PING");
        EXPECT_GT(count, 1U);
    }

    static bool isClosed(int descriptor) {
        const std::vector<int> closed = GetParam();
        return std::find(closed.begin(), closed.end(), descriptor) != closed.end();
    }

  private:
    ReservedPort m_port;
};

INSTANTIATE_TEST_SUITE_P(Closed, ClosedStreamTest,
                         testing::Values(std::vector<int>{0}, std::vector<int>{1}, std::vector<int>{2},
                                         std::vector<int>{0, 1, 2}),
                         [](const auto& closed) {
                             std::string name = "Descriptor";
                             for (const int descriptor : closed.param)
                                 name += std::to_string(descriptor);
                             return name;
                         });

TEST_P(ClosedStreamTest, InTheForegroundAConnectionNeverGetsItsNumber) {
    const pid_t program = pinged({"-d", "-stdoutLog=DEBUG"});
    onlyPingsCame();
    const std::vector<std::string> open{"/dev/null", service.path("output/0.out"),
                                        service.path("output/0.err")};
    std::string inherited;
    for (int descriptor = 0; descriptor < 3; ++descriptor) {
        const std::string& stream = open[static_cast<std::size_t>(descriptor)];
        EXPECT_EQ(ProcessView(program).target("fd/" + std::to_string(descriptor)),
                  isClosed(descriptor) ? "/" : stream);
        if (!isClosed(descriptor)) inherited += std::to_string(descriptor) + " " + stream + "\n";
    }
    EXPECT_EQ(service.childFile("alpha", "fds"), inherited) << "as the caller has them";
    stopDaemon(program);
}

TEST_P(ClosedStreamTest, UnderTheDaemonAConnectionNeverGetsItsNumber) {
    const pid_t start = pinged({"-start", "-stdoutLog=DEBUG", "-testReadyInterval=1"});
    EXPECT_EQ(service.finish(start).exitCode, 0);
    onlyPingsCame();
    EXPECT_EQ(service.childFile("alpha", "fds"), "0 /dev/null\n1 /dev/null\n2 /dev/null\n");
    stopDaemon(service.daemonPid());
}

// ---- What follows from it ----

TEST_F(InheritanceTest, OnlyTheCleanSlateLetsAPlainProgramBeTerminated) {
    twoChildren(SIGTERM);
    const pid_t daemon = runningInForeground();
    const pid_t asItIs = child(kAsItIs).pid();
    const pid_t clean = child(kClean).pid();
    ASSERT_EQ(kill(daemon, SIGTERM), 0);
    EXPECT_TRUE(service.waitForLog("DEBUG", "PingChildProcess", "1 processes are still alive."));
    EXPECT_TRUE(service.hasEnded(clean));
    ASSERT_TRUE(service.waitForEnd(daemon));
    EXPECT_TRUE(service.waitForEnd(asItIs));
    EXPECT_TRUE(service.inOrder({"DEBUG PingChildProcess kill all processes.",
                                 "DEBUG ZORChildProcess killing process \"as it is\"",
                                 "DEBUG ZORChildProcess Process ID used is " + std::to_string(asItIs)}));
}

TEST_F(InheritanceTest, AChildsOwnVariablesComeFromItsDocument) {
    BootstrapXml document;
    document.children.clear();
    document.extra = processXml(
        "painted", {"/usr/bin/env", "--unset=SHADE", kCleanSlate, "COLOUR=blue", kSleep, kClean}, SIGKILL);
    service.bootstrap(document);
    service.begin({.arguments = {"-d"}, .environment = {{"SHADE", "light"}, {"COLOUR", "red"}}});
    const std::vector<std::string> variables = child(kClean).environment();
    EXPECT_EQ(std::count(variables.begin(), variables.end(), "COLOUR=blue"), 1);
    EXPECT_EQ(std::count(variables.begin(), variables.end(), "COLOUR=red"), 0);
    EXPECT_EQ(std::count(variables.begin(), variables.end(), "SHADE=light"), 0);
    service.cleanUp();
}

// The element of the sample document, to the letter.
std::string housekeepingElement() {
    const std::string sample = contentOf(VBS_SAMPLE_FOLDER "/bin/bootstrap_linuxi38632.xml");
    const std::size_t from = sample.find("<process name=\"housekeeping\">");
    const std::string end = "</process>";
    EXPECT_NE(from, std::string::npos);
    return sample.substr(from, sample.find(end, from) + end.size() - from);
}

TEST_F(InheritanceTest, TheSamplesScriptWorksAndEndsInOrder) {
    BootstrapXml document;
    document.children.clear();
    document.extra = housekeepingElement();
    service.bootstrap(document);
    std::filesystem::copy(VBS_SAMPLE_FOLDER "/bin/housekeeping", service.path("bin/housekeeping"));
    const auto old = std::filesystem::file_time_type::clock::now() - std::chrono::hours(24 * 9);
    for (const char* const file : {"temp/old.tmp", "temp/new.tmp", "temp/old.txt"})
        service.write(file, "");
    for (const char* const file : {"temp/old.tmp", "temp/old.txt"})
        std::filesystem::last_write_time(service.path(file), old);
    const pid_t daemon = runningInForeground();
    EXPECT_TRUE(service.waitFor("its first round", [&] { return !service.exists("temp/old.tmp"); }));
    EXPECT_TRUE(service.exists("temp/new.tmp"));
    EXPECT_TRUE(service.exists("temp/old.txt"));
    EXPECT_TRUE(
        service.waitFor("its programs to have ended", [&] { return service.processes().size() == 2; }));
    stopDaemon(daemon);
    EXPECT_TRUE(service.logged("WARN", "PingChildProcess", "stopAction->execute() return status = 0"));
    EXPECT_TRUE(service.logged("INFO", "PingChildProcess", "no processes are alive."));
    EXPECT_TRUE(service.neverLogged("kill all processes."));
}

}  // namespace
