// start, stop, restart and restart-child before real instances.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "ExternalProgram.h"
#include "ProcessView.h"
#include "ServiceUnderTest.h"
#include "TerminalProgram.h"

namespace fs = std::filesystem;

namespace {

constexpr uid_t kStranger = 65534;

bool isRoot() {
    return geteuid() == 0;
}

class ControlTest : public SystemTest {
  protected:
    ControlTest() {
        service.write("bin/zorlogconfig.xml",
                      "<log><run><logging level='INFO'><logFiles><file name='../logs/the.log' append='true'/>"
                      "</logFiles></logging></run><start><logging level='INFO'><logFiles><file "
                      "name='../logs/the.log' append='true'/></logFiles></logging></start></log>");
        document.children = {ChildXml{}.pinged(port)};
        service.bootstrap(document);
        service.answer("READY");
    }

    std::vector<std::string> command(const std::vector<std::string>& words) const {
        std::vector<std::string> all{"env", "JAVA_HOME=/opt/java", VBS_BIN "/velbootstrapctl", "--instance",
                                     service.path()};
        all.insert(all.end(), words.begin(), words.end());
        return all;
    }
    int given(const std::vector<std::string>& words) {
        ExternalProgram program(command(words));
        const int exitCode = program.waitForEnd();
        said = program.words();
        return exitCode;
    }
    bool hasSaid(const std::string& words) const { return said.find(words) != std::string::npos; }

    ReservedPort port;
    BootstrapXml document;
    std::string said;
};

// ---- Start and stop ----

TEST_F(ControlTest, AServiceIsStartedUntilItsChildrenAnswerAndStoppedUntilTheyAreGone) {
    EXPECT_EQ(given({"start"}), 0) << said;
    EXPECT_TRUE(hasSaid("startDaemon() - spawned daemon")) << said;
    EXPECT_TRUE(hasSaid("testReadyByPinging() - pinged all children successfully.")) << said;
    EXPECT_TRUE(hasSaid("The service runs, and every child answers.\n")) << said;
    const pid_t daemon = service.daemonPid();
    ASSERT_GT(daemon, 0);
    EXPECT_EQ(given({"start"}), 0);
    EXPECT_TRUE(hasSaid("runs already, as process " + std::to_string(daemon))) << said;
    EXPECT_EQ(given({"stop"}), 0);
    EXPECT_TRUE(hasSaid("The service has stopped, and so have its children.\n")) << said;
    EXPECT_TRUE(service.hasEnded(daemon));
    EXPECT_TRUE(service.hasEnded(service.childPids().back()));
    EXPECT_EQ(given({"stop"}), 0);
    EXPECT_EQ(said, "The service does not run.\n");
}

TEST_F(ControlTest, ARestartIsAnotherDaemon) {
    ASSERT_EQ(given({"start"}), 0) << said;
    const pid_t daemon = service.daemonPid();
    EXPECT_EQ(given({"restart"}), 0) << said;
    EXPECT_NE(service.daemonPid(), daemon);
    EXPECT_EQ(given({"stop"}), 0) << said;
}

TEST_F(ControlTest, ACommandThatTheServiceEndsWithZeroWithoutAServiceIsAFailure) {
    ExternalProgram program(
        {"env", "-u", "JAVA_HOME", VBS_BIN "/velbootstrapctl", "--instance", service.path(), "start"});
    EXPECT_EQ(program.waitForEnd(), 1);
    EXPECT_NE(program.words().find("A value for JAVA_HOME must be provided"), std::string::npos)
        << program.words();
    EXPECT_NE(program.words().find("velbootstrapctl: the service does not run: there is no PID file\n"),
              std::string::npos)
        << program.words();
}

TEST_F(ControlTest, ABrokenDocumentIsAFailureWithTheServicesWords) {
    service.write("bin/bootstrap_linuxi38632.xml", "<bootstrap");
    EXPECT_EQ(given({"start"}), 1);
    EXPECT_TRUE(hasSaid("Error parsing bootstrap.xml file")) << said;
}

TEST_F(ControlTest, AChildThatIsLeftOutIsAFailure) {
    document.extra = "<process name=\"broken\"><start/></process>";
    document.schema = Schema::Refuses;
    service.bootstrap(document);
    EXPECT_EQ(given({"start"}), 1);
    EXPECT_TRUE(hasSaid("a child of the document is left out")) << said;
    EXPECT_EQ(given({"stop"}), 0) << said;
}

TEST_F(ControlTest, AChildThatDoesNotAnswerIsAFailureAndTheServiceGoesOn) {
    service.answer("STARTING");
    EXPECT_EQ(given({"start", "--timeout", "5"}), 1);
    EXPECT_TRUE(hasSaid("not all children were ready within 5 s; the service goes on starting")) << said;
    EXPECT_GT(service.daemonPid(), 0);
    EXPECT_EQ(given({"stop"}), 0) << said;
}

// ---- At a terminal ----

TEST_F(ControlTest, CtrlCEndsTheWaitingAndNothingElse) {
    service.answer("STARTING");
    TerminalProgram program(command({"start"}));
    program.waitFor("starting, ");
    program.waitFor("running as process");
    program.type("\x03");
    EXPECT_EQ(program.waitForEnd(), 130);
    EXPECT_NE(program.shown().find("\r\x1b[K"), std::string::npos) << program.shown();
    EXPECT_NE(program.shown().find("the waiting has ended; what was begun goes on"), std::string::npos);
    EXPECT_FALSE(service.hasEnded(service.daemonPid()));
    // The command that was waited for has ended as well.
    EXPECT_TRUE(
        service.waitFor("only the service's own processes", [&] { return service.processes().size() == 2; }));
    EXPECT_EQ(given({"stop"}), 0) << said;
}

TEST_F(ControlTest, WithoutATerminalThereIsNoProgress) {
    EXPECT_EQ(given({"start"}), 0);
    EXPECT_FALSE(hasSaid("Ctrl-C")) << said;
    EXPECT_FALSE(hasSaid("\x1b")) << said;
    EXPECT_EQ(given({"stop"}), 0) << said;
}

// ---- A PID file that is wrong ----

TEST_F(ControlTest, AStrangerInThePidFileIsNeitherStoppedNorTakenForTheService) {
    ExternalProgram stranger({"sh", "-c", "echo $$; exec sleep 60"});
    const std::string pid = stranger.waitForLine("");
    service.write("logs/velbootstrap_service.pid", pid + "\n");
    EXPECT_EQ(given({"stop"}), 1);
    EXPECT_TRUE(hasSaid("the PID file does not name the service")) << said;
    EXPECT_EQ(given({"start"}), 1);
    EXPECT_TRUE(hasSaid("remove " + service.path("logs/velbootstrap_service.pid"))) << said;
    EXPECT_EQ(kill(std::stoi(pid), 0), 0);
    service.remove("logs/velbootstrap_service.pid");
}

TEST_F(ControlTest, ADaemonThatDoesNotStopIsAFailure) {
    ASSERT_EQ(given({"start"}), 0) << said;
    const pid_t daemon = service.daemonPid();
    ASSERT_EQ(kill(daemon, SIGSTOP), 0);
    EXPECT_EQ(given({"stop", "--timeout", "2"}), 1);
    EXPECT_TRUE(hasSaid("it still runs after 2 s, and goes on stopping") || hasSaid("-stop has failed"))
        << said;
    ASSERT_EQ(kill(daemon, SIGCONT), 0);
    EXPECT_TRUE(service.waitForEnd(daemon));
}

// ---- One child ----

TEST_F(ControlTest, AChildIsReplacedByAnotherThatAnswers) {
    ASSERT_EQ(given({"start"}), 0) << said;
    const pid_t first = service.childPids().back();
    // Children are born with SIGTERM blocked, so this one is killed.
    EXPECT_EQ(given({"restart-child", "alpha", "--grace", "1"}), 0) << said;
    EXPECT_TRUE(service.hasEnded(first));
    ASSERT_EQ(service.childPids().size(), 2U);
    EXPECT_TRUE(
        hasSaid("alpha runs as process " + std::to_string(service.childPids().back()) + ", and answers.\n"))
        << said;
    EXPECT_EQ(given({"restart-child", "beta"}), 64);
    EXPECT_EQ(said, "velbootstrapctl: the document has no child \"beta\"; it has: alpha\n");
    EXPECT_EQ(given({"stop"}), 0) << said;
    EXPECT_EQ(given({"restart-child", "alpha"}), 1);
    EXPECT_TRUE(hasSaid("the service does not run")) << said;
}

TEST_F(ControlTest, OfChildrenThatAreAlikeNoneIsEnded) {
    const std::string start =
        "<start><spawn><path>/bin/sleep</path><param>600</param></spawn></start>"
        "<stop type=\"signal\"><signal signal=\"9\"/></stop></process>";
    document.children = {ChildXml{}};
    document.extra = "<process name=\"one\">" + start + "<process name=\"two\">" + start;
    service.bootstrap(document);
    ASSERT_EQ(given({"start"}), 0) << said;
    EXPECT_EQ(given({"restart-child", "one"}), 1);
    EXPECT_TRUE(hasSaid("several children are started like one")) << said;
    EXPECT_EQ(given({"stop"}), 0) << said;
}

// ---- Users ----

TEST_F(ControlTest, RootBecomesTheInstancesUserAndOthersAreToldWhomToBe) {
    service.asOrdinaryUser();
    struct stat tree {};
    ASSERT_EQ(stat(service.path("logs").c_str(), &tree), 0);
    ASSERT_EQ(given({"start"}), 0) << said;
    const std::string uid = std::to_string(tree.st_uid);
    EXPECT_EQ(ProcessView(service.daemonPid()).status("Uid").substr(0, uid.size() + 1), uid + "\t");
    EXPECT_EQ(given({"stop"}), 0) << said;
    const std::string reuid = "--reuid=" + std::to_string(kStranger);
    std::vector<std::string> words{"setpriv", reuid, "--clear-groups"};
    if (!isRoot()) words = {"env"};
    const std::vector<std::string> start = command({"start"});
    words.insert(words.end(), start.begin(), start.end());
    if (isRoot() && tree.st_uid != kStranger) {
        ExternalProgram stranger(words);
        EXPECT_EQ(stranger.waitForEnd(), 77) << stranger.words();
        EXPECT_NE(stranger.words().find("give the command as that user, or as root"), std::string::npos);
    }
}

TEST_F(ControlTest, RootRunsNoProgramOfAThirdUser) {
    const std::string program = service.path("bin/velbootstrapservice");
    // It may be another name of the program that was built.
    fs::copy_file(program, program + ".copy");
    fs::rename(program + ".copy", program);
    const bool isThirds = chown(program.c_str(), kStranger, kStranger) == 0;
    EXPECT_EQ(given({"start"}), isThirds ? 77 : 0) << said;
    EXPECT_EQ(hasSaid("root does not run it"), isThirds) << said;
    EXPECT_EQ(service.daemonPid() == 0, isThirds);
    EXPECT_EQ(given({"stop"}), isThirds ? 77 : 0);
}

}  // namespace
