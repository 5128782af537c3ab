// The security library at run time: missing, incomplete, replaced, and TLS between the service and its child.

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "ServiceUnderTest.h"
#include "TestPki.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kLibrary = "bin/libSEK_Crypto_Interface.so";

// Paths of the shared libraries in a process.
std::set<std::string> librariesOf(pid_t pid) {
    std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    std::set<std::string> libraries;
    for (std::string line; std::getline(maps, line);) {
        const std::size_t path = line.find('/');
        if (path != std::string::npos && line.find(".so", path) != std::string::npos)
            libraries.insert(line.substr(path));
    }
    return libraries;
}

bool anyNamed(const std::set<std::string>& libraries, const std::string& part) {
    for (const std::string& library : libraries) {
        if (fs::path(library).filename().string().find(part) != std::string::npos) return true;
    }
    return false;
}

// What a library that cannot be used leads to, whatever the mode.
const std::vector<std::string> kUnusable{
    "FATAL ZORCryptoHelper failed to initialize crypto.",
    "FATAL ZORCryptoHelper SEK_CryptoTerminate failed, return code: -1 ",
    "FATAL ZORCryptoHelper SEK_CryptoTerminate failed, SEK error details:  "};

class SecurityLibraryTest : public SystemTest {
  protected:
    std::string linesOfUnusable() const {
        std::string lines;
        for (const std::string& line : kUnusable)
            lines += line + "\n";
        return lines;
    }

    std::string fatalLines() {
        const RunResult result = service.run({"-isrunning", "-stdoutLog=FATAL"});
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_EQ(result.signal, 0);
        return ServiceUnderTest::normalised(result.out);
    }
};

// ---- Libraries that cannot be used ----

TEST_F(SecurityLibraryTest, AMissingLibraryIsToldAtBothEnds) {
    service.remove(kLibrary);
    EXPECT_EQ(fatalLines(), linesOfUnusable());
}

TEST_F(SecurityLibraryTest, AnIncompleteLibraryIsLikeAMissingOne) {
    service.useLibrary(VBS_INCOMPLETE_LIBRARY);
    EXPECT_EQ(fatalLines(), linesOfUnusable());
}

TEST_F(SecurityLibraryTest, AFileThatIsNoLibraryIsLikeAMissingOne) {
    service.remove(kLibrary);
    service.write(kLibrary, "no library");
    EXPECT_EQ(fatalLines(), linesOfUnusable());
}

TEST_F(SecurityLibraryTest, AUsableLibraryIsWorthNoMessage) {
    EXPECT_EQ(fatalLines(), "");
}

TEST_F(SecurityLibraryTest, HelpDoesNotNeedTheLibrary) {
    service.remove(kLibrary);
    EXPECT_EQ(service.run({"-help"}).exitCode, 0);
    EXPECT_EQ(service.read("logs/zordefault.log"), "");
}

TEST_F(SecurityLibraryTest, WithoutTheLibraryChildrenAreStillSupervised) {
    service.remove(kLibrary);
    const ReservedPort port;
    BootstrapXml document;
    document.children[0].pinged(port);
    service.bootstrap(document);
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitForLog("ERROR", "ZORSocketCommand", "failed to create SEK handle:  "));
    ASSERT_EQ(kill(service.childPids().at(0), SIGKILL), 0);
    ASSERT_TRUE(service.waitForStarts(2));
    stopDaemon(daemon);
    EXPECT_TRUE(service.inOrder(kUnusable));
}

// ---- Which library is loaded ----

TEST_F(SecurityLibraryTest, TheLibraryBesideTheExecutableIsLoaded) {
    const pid_t daemon = runningInForeground();
    const std::set<std::string> libraries = librariesOf(daemon);
    EXPECT_EQ(libraries.count(service.path(kLibrary)), 1U);
    EXPECT_TRUE(anyNamed(libraries, "libssl"));
    stopDaemon(daemon);
}

TEST_F(SecurityLibraryTest, TheLibraryPathOfTheEnvironmentWins) {
    fs::create_directory(service.path("other"));
    fs::copy_file(VBS_OTHER_LIBRARY, service.path("other/libSEK_Crypto_Interface.so"));
    const pid_t daemon =
        service.begin({.arguments = {"-d"}, .environment = {{"LD_LIBRARY_PATH", service.path("other")}}});
    ASSERT_TRUE(service.waitFor("the PID file", [&] { return service.daemonPid() == daemon; }));
    const std::set<std::string> libraries = librariesOf(daemon);
    EXPECT_EQ(libraries.count(service.path("other/libSEK_Crypto_Interface.so")), 1U);
    EXPECT_EQ(libraries.count(service.path(kLibrary)), 0U);
    EXPECT_FALSE(anyNamed(libraries, "libssl"));
    stopDaemon(daemon);
}

TEST_F(SecurityLibraryTest, TheExecutableItselfNeedsFewLibrariesAndNoCryptography) {
    service.remove(kLibrary);
    const pid_t daemon = runningInForeground();
    const std::set<std::string> libraries = librariesOf(daemon);
    for (const char* const name : {"libssl", "libcrypto", "libcurl", "libSEK", "libgnutls"})
        EXPECT_FALSE(anyNamed(libraries, name)) << name;
    std::string names;
    std::size_t count = 0;
    for (const std::string& library : libraries) {
        // Sanitizers bring their own.
        const bool sanitizer =
            library.find("san.so") != std::string::npos || library.find("librt") != std::string::npos;
        if (sanitizer) continue;
        names += library + "\n";
        ++count;
    }
    EXPECT_LE(count, 8U) << names;
    stopDaemon(daemon);
}

// ---- TLS ----

// Connected, and never says a word.
class SilentClient {
  public:
    explicit SilentClient(const ReservedPort& port)
        : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(port.str())));
        EXPECT_EQ(connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    ~SilentClient() { close(m_socket); }
    SilentClient(const SilentClient&) = delete;
    SilentClient& operator=(const SilentClient&) = delete;

  private:
    int m_socket;
};

class ServiceTlsTest : public SystemTest {
  protected:
    ServiceTlsTest() : m_pki(service.path("configuration")) {
        m_uri = "https://localhost:" + m_port.str() + "/dispatch";
        service.startup(
            "<ZOR><vrx:parameter name=\"dispatcherStopWaitTime\"><vrx:value xsi:type=\"xsd:unsignedShort\">"
            "5</vrx:value></vrx:parameter></ZOR><temp>../temp</temp><internalDispatcher>" +
            m_uri + "</internalDispatcher>");
        trust("VerifyCAFile = " + m_pki.authorityFile().string());
    }

    void trust(const std::string& commands) {
        service.write("configuration/sek.cnf", "[gateway]\n" + commands + "\n[BTSV]\n");
    }

    // The dispatcher shows this certificate; it is pinged and stopped over TLS. It works in a folder of its
    // own, so that a test can do with the service's settings what it likes.
    void dispatcherShows(const TestPki::Issued& certificate, const std::string& spawnAttributes = {},
                         const std::string& pingAttributes = {}) {
        fs::create_directories(service.path("temp/dispatcher/bin"));
        fs::create_directories(service.path("temp/dispatcher/configuration"));
        service.write("temp/dispatcher/configuration/sek.cnf",
                      "[shown]\nCertificate = " + certificate.certificate.string() +
                          "\nPrivateKey = " + certificate.key.string() + "\n");
        const auto parameter = [](const std::string& text) { return "<param>" + text + "</param>"; };
        BootstrapXml document;
        document.children.clear();
        document.extra =
            "<process name=\"dispatcher\"><start><spawn " + spawnAttributes + "><path>/usr/bin/env</path>" +
            parameter("--chdir=" + service.path("temp/dispatcher/bin")) +
            parameter("${bin_path}/sampledispatcher") + parameter("--listen=${dispatcherURI}") +
            parameter("--service=shown") + parameter("--log-file=" + service.path("logs/dispatcher.log")) +
            "</spawn></start><stop type=\"socketSend\"><socketSend URI=\"${dispatcherURI}\" "
            "commandString=\"SHUTDOWN\"/></stop><ping><socketSend URI=\"${dispatcherURI}\" "
            "commandString=\"PING\" "
            "sockIOTimeoutSec=\"5\" responseSize=\"64\" responseOK=\"READY\" responseFatal=\"FATAL\" "
            "responseRetry=\"STARTING\" " +
            pingAttributes + "/></ping></process>";
        service.bootstrap(document);
    }

    // A start that fails because the certificate is refused, for this reason; the daemon is then stopped.
    void expectRefusal(const std::string& reason) {
        EXPECT_EQ(service.startDaemon({"-testReadyTries=3"}).exitCode, 1);
        const std::string line =
            "ERROR ZORSocketCommand failed to establish, SEK error: TLS handshake with localhost "
            "(127.0.0.1:" +
            m_port.str() + ") failed: certificate verify failed: " + reason + " (";
        EXPECT_NE(service.log("start").find(line), std::string::npos) << service.log("start");
        EXPECT_NE(service.log("start").find("certificate of CN="), std::string::npos);
        ASSERT_TRUE(service.waitFor("the PID file", [&] { return service.daemonPid() > 0; }));
        // The stop command cannot be sent either, so the child is killed at once.
        stopDaemon(service.daemonPid());
        EXPECT_TRUE(
            service.logged("DEBUG", "PingChildProcess",
                           "Detected that the stop command was not sent, don't bother waiting for death."));
    }

    ReservedPort m_port;
    TestPki m_pki;
    std::string m_uri;
};

TEST_F(ServiceTlsTest, ADispatcherIsPingedAndStoppedOverTls) {
    dispatcherShows(m_pki.issueForLocalhost());
    const RunResult started = service.startDaemon();
    EXPECT_EQ(started.exitCode, 0) << testing::PrintToString(started);
    EXPECT_TRUE(
        service.inOrder({"DEBUG ZORSockSendAction got response \"READY\"",
                         "DEBUG ZORSockSendAction successfully detected success string in response.",
                         "INFO ZORBootstrapService testReadyByPinging() - pinged all children successfully."},
                        "start"));
    const pid_t daemon = service.daemonPid();
    ASSERT_TRUE(service.waitForLog("INFO", "ZORBootstrapService",
                                   "ZORBootstrapService::Run() - child process(es) is/are ready."));
    EXPECT_EQ(service.run({"-stop", "-testDeadInterval=1"}).exitCode, 0);
    EXPECT_EQ(service.exitCodeOf(daemon), 0);
    EXPECT_TRUE(service.inOrder({"WARN PingChildProcess stopAction->execute() return status = 1",
                                 "INFO PingChildProcess no processes are alive."}));
    EXPECT_NE(service.read("logs/dispatcher.log").find("shutdown command, ending"), std::string::npos);
}

// The whole of a log but what is there to be informed by.
std::vector<std::string> complaintsOf(const std::string& log) {
    std::istringstream lines(log);
    std::vector<std::string> complaints;
    for (std::string line; std::getline(lines, line);) {
        for (const char* const level : {"WARN ", "ERROR ", "FATAL "}) {
            if (line.rfind(level, 0) == 0) complaints.push_back(line);
        }
    }
    return complaints;
}

TEST_F(ServiceTlsTest, ACleanLifeIsNothingToComplainAbout) {
    const auto parameter = [](const std::string& name, const std::string& type, const std::string& value) {
        return "<vrx:parameter name=\"" + name + "\"><vrx:value xsi:type=\"xsd:" + type + "\">" + value +
               "</vrx:value></vrx:parameter>";
    };
    service.startup("<ZOR>" + parameter("dispatcherStopWaitTime", "unsignedShort", "5") +
                    parameter("dispatcherPingTimeout", "unsignedShort", "60") +
                    parameter("dispatcherMaxMemory", "unsignedInt", "1024") +
                    parameter("shutdownPort", "unsignedShort", "9301") +
                    "</ZOR><temp>../temp</temp><internalDispatcher>" + m_uri +
                    "</internalDispatcher><components><component name=\"dispatcher\" version=\"1.0\"/>"
                    "</components>");
    // The dispatcher is given the time to listen before it is pinged.
    dispatcherShows(m_pki.issueForLocalhost(), "sync=\"2\"", "dependency=\"dispatcher\"");
    const RunResult started = service.startDaemon();
    EXPECT_EQ(started.exitCode, 0) << testing::PrintToString(started);
    EXPECT_EQ(service.run({"-isrunning"}).exitCode, 0);
    ASSERT_TRUE(service.waitFor("three pings", [&] {
        return service.countLogged("DEBUG", "PingChildProcess", "process dispatcher pinged successfully.") >=
               3;
    }));
    const pid_t daemon = service.daemonPid();
    EXPECT_EQ(service.run({"-stop", "-testDeadInterval=1"}).exitCode, 0);
    EXPECT_EQ(service.exitCodeOf(daemon), 0);
    EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService", "Done."));
    // How a child was stopped is told as a warning, whatever the outcome.
    EXPECT_EQ(complaintsOf(service.log()),
              std::vector<std::string>{"WARN PingChildProcess stopAction->execute() return status = 1"});
    for (const char* const command : {"start", "isrunning", "stop"}) {
        EXPECT_NE(service.log(command), "") << command;
        EXPECT_EQ(complaintsOf(service.log(command)), std::vector<std::string>{}) << command;
    }
}

TEST_F(ServiceTlsTest, AClientStuckInItsHandshakeDelaysNoPing) {
    dispatcherShows(m_pki.issueForLocalhost());
    ASSERT_EQ(service.startDaemon().exitCode, 0);
    const SilentClient first(m_port);
    const SilentClient second(m_port);
    const auto answers = [&] {
        return service.countLogged("DEBUG", "ZORSockSendAction", "got response \"READY\"");
    };
    const std::size_t before = answers();
    EXPECT_TRUE(service.waitFor(
        "two more answers", [&] { return answers() >= before + 2; }, 20));
    EXPECT_EQ(service.log().find("failed to establish"), std::string::npos);
    stopDaemon(service.daemonPid());
}

TEST_F(ServiceTlsTest, ACertificateOfAnUnknownAuthorityIsRefused) {
    TestPki stranger(service.path("temp"), "stranger");
    dispatcherShows(stranger.issueForLocalhost());
    expectRefusal("unable to get local issuer certificate");
}

TEST_F(ServiceTlsTest, ACertificateForAnotherHostIsRefused) {
    dispatcherShows(m_pki.issue({.name = "elsewhere", .alternatives = {"DNS:elsewhere.example"}}));
    expectRefusal("hostname mismatch");
}

TEST_F(ServiceTlsTest, AnExpiredCertificateIsRefused) {
    dispatcherShows(m_pki.issue(
        {.name = "old", .alternatives = {"DNS:localhost"}, .notBeforeSec = -7200, .notAfterSec = -3600}));
    expectRefusal("certificate has expired");
}

TEST_F(ServiceTlsTest, WithoutSettingsThePeerIsVerifiedAllTheSame) {
    service.remove("configuration/sek.cnf");
    dispatcherShows(m_pki.issueForLocalhost());
    expectRefusal("unable to get local issuer certificate");
}

TEST_F(ServiceTlsTest, VerificationCanBeSwitchedOff) {
    trust("VerifyMode = None");
    TestPki stranger(service.path("temp"), "stranger");
    dispatcherShows(stranger.issueForLocalhost());
    EXPECT_EQ(service.startDaemon().exitCode, 0);
    stopDaemon(service.daemonPid());
}

TEST_F(ServiceTlsTest, APeerThatSpeaksNoTlsIsRefused) {
    BootstrapXml document;
    document.children[0].pinged(m_port);
    std::string& ping = document.children[0].ping;
    ping.replace(ping.find("tcp://127.0.0.1"), 15, "tls://localhost");
    service.bootstrap(document);
    service.answer("READY and more, but in the clear");
    EXPECT_EQ(service.startDaemon({"-testReadyTries=3"}).exitCode, 1);
    EXPECT_NE(service.log("start").find(
                  "ERROR ZORSocketCommand failed to establish, SEK error: TLS handshake with "),
              std::string::npos)
        << service.log("start");
    ASSERT_TRUE(service.waitFor("the PID file", [&] { return service.daemonPid() > 0; }));
    stopDaemon(service.daemonPid());
}

TEST_F(ServiceTlsTest, AnErrorInTheSettingsIsToldAndRefuses) {
    trust("VerifyCAFile = nowhere.pem");
    dispatcherShows(m_pki.issueForLocalhost());
    EXPECT_EQ(service.startDaemon({"-testReadyTries=3"}).exitCode, 1);
    const std::string log = service.log("start");
    EXPECT_NE(log.find("nowhere.pem"), std::string::npos) << log;
    EXPECT_TRUE(service.neverLogged("got response", "start"));
    ASSERT_TRUE(service.waitFor("the PID file", [&] { return service.daemonPid() > 0; }));
    stopDaemon(service.daemonPid());
}

TEST_F(ServiceTlsTest, ADispatcherMayListenOnIPv6) {
    service.startup("<ZOR/><temp>../temp</temp><internalDispatcher>https://[::1]:" + m_port.str() +
                    "/dispatch</internalDispatcher>");
    dispatcherShows(m_pki.issueForLocalhost());
    EXPECT_EQ(service.startDaemon().exitCode, 0);
    // The shutdown command takes IPv4 whatever the address, cannot be sent, and the dispatcher is killed.
    stopDaemon(service.daemonPid());
    EXPECT_TRUE(service.logged("WARN", "PingChildProcess", "stopAction->execute() return status = -1"));
}

}  // namespace
