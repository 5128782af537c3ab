// A Tomcat in all the situations that the service is there for.

#include <csignal>

#include "ProcessView.h"
#include "TestPki.h"
#include "TomcatTest.h"

namespace {

constexpr const char* kLimitIsHit =
    "process tomcat hit ping failure limit, will restart, but first make sure it is really dead.";
constexpr const char* kIsKilled =
    "unresponsive process tomcat still hasn't stopped after two polls intervals, so kill it";

}  // namespace

TEST_F(TomcatTest, ItIsStartedUntilItAnswersAndStoppedInOrder) {
    const pid_t daemon = started();
    const pid_t tomcat = jvm();
    ASSERT_GT(tomcat, 0);
    EXPECT_EQ(service.run({"-isrunning"}).exitCode, 0);
    EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService",
                               "testReadyByPinging() - pinged all children successfully.", "start"));

    const Said page = get("/dispatch/");
    EXPECT_EQ(page.exitCode, 0) << page.words;
    EXPECT_NE(page.words.find("Process " + std::to_string(tomcat) + ","), std::string::npos) << page.words;
    EXPECT_NE(page.words.find("\n200"), std::string::npos) << page.words;

    EXPECT_EQ(stop().exitCode, 0);
    EXPECT_EQ(service.exitCodeOf(daemon), 0);
    EXPECT_EQ(service.run({"-isrunning"}).exitCode, 1);
    EXPECT_EQ(applicationTold("opened"), 1U);
    EXPECT_EQ(applicationTold("closed in order"), 1U);
    EXPECT_TRUE(
        service.inOrder({"DEBUG PingChildProcess stopping process \"tomcat\"",
                         "WARN PingChildProcess stopAction->execute() return status = 1",
                         "DEBUG PingChildProcess Process \"tomcat\", is dead.",
                         "INFO PingChildProcess no processes are alive.", "INFO ZORBootstrapService Done."}));
}

TEST_F(TomcatTest, ItsMemoryPortsAndVendorOptionsComeFromTheConfiguration) {
    started();
    const ProcessView tomcat(jvm());
    const std::string command = tomcat.commandLine();
    for (const std::string& option :
         {std::string("/bin/java -Xmx256m -Xms64m "), std::string(" -XX:+ExitOnOutOfMemoryError "),
          " -XX:ErrorFile=" + service.path("logs/java_error_%p.log") + " ",
          " -Djava.io.tmpdir=" + service.path("tomcat/temp") + " ",
          " -Dvelmora.dispatcherPort=" + port().str() + " ",
          " -Dcatalina.base=" + service.path("tomcat") + " "})
        EXPECT_NE(command.find(option), std::string::npos) << option << " in " << command;
    const std::string users = tomcat.status("Uid");
    EXPECT_NE(users, "");
    EXPECT_EQ(("\t" + users + "\t").find("\t0\t"), std::string::npos) << "runs as root";
    EXPECT_EQ(stop().exitCode, 0);
}

TEST_F(TomcatTest, AnUnknownVendorTakesAwayTheOptionsOfItsJvm) {
    service.remove("temp/zor.prefs");
    started();
    const std::string command = ProcessView(jvm()).commandLine();
    ASSERT_NE(command.find("/bin/java -Xmx"), std::string::npos) << command;
    EXPECT_EQ(command.find("-XX:"), std::string::npos) << command;
    EXPECT_EQ(stop().exitCode, 0);
}

TEST_F(TomcatTest, FrozenForLessThanTheLimitItIsLeftAlone) {
    started();
    const pid_t tomcat = jvm();
    ASSERT_TRUE(isPingedWell());
    ASSERT_EQ(kill(tomcat, SIGSTOP), 0);
    EXPECT_TRUE(isLoggedAgain("DEBUG", "PingChildProcess",
                              "ping of process tomcat failed. Will begin restart sequence."));
    ASSERT_EQ(kill(tomcat, SIGCONT), 0);
    EXPECT_TRUE(isPingedWell());
    EXPECT_EQ(jvm(), tomcat);
    EXPECT_TRUE(service.neverLogged(kLimitIsHit));
    EXPECT_EQ(stop().exitCode, 0);
    EXPECT_EQ(applicationTold("closed in order"), 1U);
}

TEST_F(TomcatTest, FrozenBeyondTheLimitItIsToldToStopKilledAndReplaced) {
    started();
    const pid_t tomcat = jvm();
    ASSERT_TRUE(isPingedWell());
    ASSERT_EQ(kill(tomcat, SIGSTOP), 0);
    ASSERT_TRUE(service.waitForLog("WARN", "PingChildProcess", "restarting process tomcat.", 120));
    EXPECT_TRUE(
        service.inOrder({"DEBUG PingChildProcess ping of process tomcat failed. Will begin restart sequence.",
                         "DEBUG PingChildProcess ping of process tomcat failed. Will begin restart sequence.",
                         std::string("WARN PingChildProcess ") + kLimitIsHit,
                         "WARN PingChildProcess process tomcat appears to still be alive, so stop it.",
                         "DEBUG PingChildProcess stopping process \"tomcat\"",
                         "WARN PingChildProcess stopAction->execute() return status = 1",
                         "WARN PingChildProcess unresponsive process tomcat hasn't yet finished stopping.",
                         std::string("DEBUG PingChildProcess ") + kIsKilled,
                         "WARN PingChildProcess unresponsive process tomcat hasn't yet finished stopping.",
                         "WARN PingChildProcess restarting process tomcat."}));
    // The reason of a failed ping stands in the log.
    EXPECT_NE(service.log().find(
                  "ERROR ZORSocketCommand failed to establish, SEK error: TLS handshake with localhost "
                  "(127.0.0.1:" +
                  port().str() + ") not finished after 10 s"),
              std::string::npos);
    EXPECT_TRUE(service.waitForEnd(tomcat));
    EXPECT_NE(jvmAfter(tomcat), tomcat);
    EXPECT_TRUE(isPingedWell());
    EXPECT_EQ(applicationTold("opened"), 2U);
    EXPECT_EQ(applicationTold("closed in order"), 0U);
    EXPECT_EQ(stop().exitCode, 0);
    EXPECT_EQ(applicationTold("closed in order"), 1U);
}

TEST_F(TomcatTest, KilledItIsReplaced) {
    started();
    const pid_t tomcat = jvm();
    ASSERT_EQ(kill(tomcat, SIGKILL), 0);
    ASSERT_TRUE(service.waitForLog("ERROR", "PingChildProcess",
                                   "ping loop: process \"tomcat\" is not active, so restarting it."));
    EXPECT_NE(jvmAfter(tomcat), tomcat);
    EXPECT_TRUE(isPingedWell());
    EXPECT_EQ(get("/dispatch/ready.jsp").words, "status: ready\n200");
    EXPECT_EQ(applicationTold("opened"), 2U);
    EXPECT_EQ(stop().exitCode, 0);
}

TEST_F(TomcatTest, NotReadyItIsNeverRestarted) {
    applicationSays("not ready");
    EXPECT_EQ(start(3).exitCode, 1);
    EXPECT_TRUE(service.logged("ERROR", "ZORBootstrapService",
                               "testReadyByPinging() - child processes not yet ready, giving up.", "start"));
    const pid_t tomcat = jvm();
    ASSERT_GT(tomcat, 0);
    // More of them than failed pings would be allowed.
    EXPECT_TRUE(isLoggedAgain("DEBUG", "ZORSockSendAction", "Tomcat is not ready, retry...", 4));
    EXPECT_EQ(get("/dispatch/ready.jsp").words, "status: not ready\n503");
    applicationSays("ready");
    EXPECT_TRUE(
        isLoggedAgain("DEBUG", "ZORSockSendAction", "successfully detected success string in response."));
    EXPECT_EQ(jvm(), tomcat);
    EXPECT_TRUE(service.neverLogged(kLimitIsHit));
    EXPECT_EQ(stop().exitCode, 0);
    EXPECT_EQ(applicationTold("opened"), 1U);
}

TEST_F(TomcatTest, AFatalAnswerEndsTheStartAndStopsTheDaemon) {
    applicationSays("fatal");
    EXPECT_EQ(start().exitCode, 1);
    EXPECT_TRUE(service.inOrder(
        {"DEBUG ZORSockSendAction detected fatal error string in response.",
         "DEBUG PingChildProcess ping of process tomcat failed, fatal error happened.",
         "INFO ZORBootstrapService testReadyByPinging() - detected fatal errors, stop all processes.",
         "DEBUG ZORBootstrapService startDaemon() - Fatal error happened, waiting for daemon to stop....",
         "INFO ZORBootstrapService Daemon has stopped."},
        "start"));
    EXPECT_EQ(service.daemonPid(), 0);
    // Who keeps the JVM's words sees a moment later that there will be no more.
    EXPECT_TRUE(service.waitFor("nothing left", [&] { return service.leftovers().empty(); }))
        << service.leftovers();
    EXPECT_EQ(applicationTold("closed in order"), 1U);
}

TEST_F(TomcatTest, AnExpiredCertificateFailsThePingsAndTheLogSaysWhy) {
    TestPki pki(service.path("temp"));
    const TestPki::Issued expired = pki.issue(
        {.name = "expired", .alternatives = {"DNS:localhost"}, .notBeforeSec = -7200, .notAfterSec = -60});
    service.write("configuration/ca.pem", service.read("temp/" + pki.authorityFile().filename().string()));
    service.write("configuration/dispatcher.pem", service.read("temp/expired.pem"));
    service.write("configuration/dispatcher.key", service.read("temp/" + expired.key.filename().string()));

    // Enough checks for a Tomcat on a busy machine to have opened its port at the last of them.
    EXPECT_EQ(start(12).exitCode, 1);
    // The dates follow, to the second.
    const std::string begin =
        "failed to establish, SEK error: TLS handshake with localhost (127.0.0.1:" + port().str() +
        ") failed: certificate verify failed: certificate has expired (certificate of CN=expired, names "
        "DNS:localhost, good from ";
    const std::string started = service.log("start");
    const std::size_t at = started.find(begin);
    ASSERT_NE(at, std::string::npos) << started;
    const std::string reason = started.substr(at, started.find('\n', at) - at);
    EXPECT_TRUE(isLoggedAgain("ERROR", "ZORSocketCommand", reason));
    EXPECT_TRUE(isLoggedAgain("DEBUG", "PingChildProcess",
                              "ping of process tomcat failed. Will begin restart sequence."));
    EXPECT_GE(service.countLogged("ERROR", "ZORSocketCommand", reason, "start"), 1U);
    EXPECT_TRUE(service.neverLogged("process tomcat pinged successfully."));
    // curl finds the same fault.
    EXPECT_EQ(get("/dispatch/").exitCode, 60);
    EXPECT_EQ(stop().exitCode, 0);
}
