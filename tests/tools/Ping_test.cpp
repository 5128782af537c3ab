// The command "ping" before real peers, good ones and bad ones.

#include <gtest/gtest.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "ExternalProgram.h"
#include "JsonCheck.h"
#include "ServiceUnderTest.h"
#include "TerminalProgram.h"
#include "TestPeer.h"
#include "TestPki.h"

using nlohmann::json;

namespace {

struct Said {
    int exitCode = -1;
    std::string words;
};

constexpr const char* kMarkers =
    "responseSize=\"16\" responseOK=\"READY\" responseFatal=\"BROKEN\" responseRetry=\"BUSY\"";

class PingTest : public SystemTest {
  protected:
    // The document's one child is pinged there.
    void pinged(const std::string& uri, const std::string& attributes = kMarkers,
                const std::string& command = "PING") const {
        BootstrapXml document;
        document.children[0].ping = "<ping><socketSend URI=\"" + uri + "\" commandString=\"" + command +
                                    "\" sockIOTimeoutSec=\"1\" " + attributes + "/></ping>";
        service.bootstrap(document);
    }
    // A TLS server's script: what comes after the handshake.
    TestPeer::Script tls(const TestPki::Issued& identity, TestPeer::Script rest) const {
        return [context = serverContext(identity), rest](PeerConnection& connection) {
            if (connection.acceptTls(context)) rest(connection);
        };
    }
    void trust(const TestPki& pki) const {
        service.write("configuration/sek.cnf",
                      "[gateway]\nVerifyCAFile = " + pki.authorityFile().string() + "\n");
    }
    Said ping(const std::vector<std::string>& options = {}) const {
        std::vector<std::string> command{VBS_BIN "/velbootstrapctl", "--instance", service.path(), "ping"};
        command.insert(command.end(), options.begin(), options.end());
        ExternalProgram program(command);
        const int exitCode = program.waitForEnd();
        return {exitCode, program.words()};
    }
    // The one exchange, with what the schema has to say about it.
    json exchange(int expectedExitCode) const {
        const Said said = ping({"--json"});
        EXPECT_EQ(said.exitCode, expectedExitCode) << said.words;
        EXPECT_EQ(jsonComplaints("velbootstrapctl-ping", said.words), "") << said.words;
        const json document = json::parse(said.words);
        EXPECT_EQ(document["exitCode"], said.exitCode);
        EXPECT_EQ(document["exchanges"].size(), 1U);
        return document["exchanges"][0];
    }
};

TestPeer::Script answering(const std::string& answer) {
    return [answer](PeerConnection& connection) {
        connection.read();
        connection.write(answer);
        connection.waitForEnd();
    };
}

std::vector<std::string> stepsOf(const json& exchange) {
    std::vector<std::string> names;
    for (const json& step : exchange["steps"])
        names.push_back(step["step"]);
    return names;
}

using Steps = std::vector<std::string>;

}  // namespace

TEST_F(PingTest, EveryStepOfAGoodExchangeIsShown) {
    TestPeer peer(answering("READY"));
    pinged(peer.url("tcp"));
    const json found = exchange(0);
    EXPECT_EQ(stepsOf(found), (Steps{"prepare", "connect", "send", "wait", "receive"}));
    EXPECT_EQ(found["child"], "alpha");
    EXPECT_EQ(found["family"], "IPv4");
    EXPECT_EQ(found["familyDecidedBy"], "the host in the URI");
    EXPECT_EQ(found["address"], "127.0.0.1:" + std::to_string(peer.port()));
    EXPECT_EQ(found["sent"], "PING");
    EXPECT_EQ(found["received"]["text"], "READY");
    EXPECT_EQ(found["rule"], "responseOK");
    EXPECT_EQ(found["marker"], "READY");
    EXPECT_EQ(found["code"], 5);
    EXPECT_EQ(found["sparedPauseMs"], 2000);
    EXPECT_TRUE(found["peer"].is_null());
    EXPECT_LT(found["ms"], 2000) << "the pause was not left out";
}

TEST_F(PingTest, APersonReadsTheSame) {
    TestPeer peer(answering("READY"));
    pinged(peer.url("tcp"));
    const Said said = ping({"alpha"});
    EXPECT_EQ(said.exitCode, 0);
    for (const char* const words :
         {"alpha\n", "IPv4, decided by the host in the URI", "address     127.0.0.1:",
          "2000 ms, left out; the service makes it", "\"PING\", 4 bytes", "\"READY\", 5 of at most 16 bytes",
          "\"responseOK\" found: \"READY\"", "it is well, its failed pings are forgotten"})
        EXPECT_NE(said.words.find(words), std::string::npos) << words << "\n" << said.words;
}

TEST_F(PingTest, OverTlsTheChainIsShownWithNamesAndDates) {
    TestPki pki(service.path("configuration"));
    trust(pki);
    TestPeer peer(tls(pki.issueForLocalhost(), answering("READY")));
    pinged(peer.url("https", "localhost"));
    const json found = exchange(0);
    EXPECT_EQ(stepsOf(found), (Steps{"prepare", "connect", "handshake", "send", "wait", "receive"}));
    EXPECT_EQ(found["familyDecidedBy"], "\"networkConfiguration\" in configuration/startup.xml");
    EXPECT_TRUE(found["peer"]["verified"]);
    EXPECT_EQ(found["peer"]["protocol"], "TLSv1.3");
    ASSERT_EQ(found["peer"]["chain"].size(), 2U);
    EXPECT_EQ(found["peer"]["chain"][0]["names"][0], "DNS:localhost");
    EXPECT_LT(found["peer"]["chain"][0]["notBefore"], found["peer"]["chain"][0]["notAfter"]);
}

TEST_F(PingTest, ACertificateThatIsNotBelievedIsDescribed) {
    TestPki pki(service.path("configuration"));
    TestPki stranger(service.path("configuration"), "stranger");
    trust(pki);
    TestPeer peer(tls(stranger.issueForLocalhost("strange"), answering("READY")));
    pinged(peer.url("https", "localhost"));
    const json found = exchange(1);
    EXPECT_EQ(stepsOf(found).back(), "handshake");
    EXPECT_EQ(found["rule"], "not sent");
    EXPECT_NE(found["failure"].get<std::string>().find("handshake: "), std::string::npos) << found["failure"];
    EXPECT_NE(found["failure"].get<std::string>().find("certificate"), std::string::npos) << found["failure"];
    EXPECT_NE(found["supervisor"].get<std::string>().find("a failed ping"), std::string::npos);
}

TEST_F(PingTest, ASilentPeerIsWaitedForAsLongAsTheDocumentSays) {
    TestPeer peer([](PeerConnection& connection) { connection.waitForEnd(); });
    pinged(peer.url("tcp"));
    const json found = exchange(1);
    EXPECT_EQ(stepsOf(found).back(), "wait");
    EXPECT_EQ(found["rule"], "no answer");
    EXPECT_EQ(found["failure"], "wait: no answer within 1 s");
    EXPECT_TRUE(found["received"].is_null());
}

TEST_F(PingTest, ARefusedConnectionSaysWhere) {
    const ReservedPort port;
    pinged("tcp://127.0.0.1:" + port.str());
    const json found = exchange(1);
    EXPECT_EQ(stepsOf(found), (Steps{"prepare", "connect"}));
    EXPECT_NE(found["failure"].get<std::string>().find(port.str()), std::string::npos) << found["failure"];
}

TEST_F(PingTest, AnAnswerThatIsTornIsJudgedAsTheServiceJudgesIt) {
    TestPeer peer([](PeerConnection& connection) {
        connection.read();
        connection.write("REA");
        connection.reset();
    });
    pinged(peer.url("tcp"));
    const json found = exchange(0);
    EXPECT_EQ(found["rule"], "short answer");
    EXPECT_EQ(found["code"], 3);
}

TEST_F(PingTest, ATlsStreamThatIsCutOffIsNoAnswer) {
    TestPki pki(service.path("configuration"));
    trust(pki);
    TestPeer peer(tls(pki.issueForLocalhost(), [](PeerConnection& connection) {
        connection.read();
        connection.closeAbruptly();
    }));
    pinged(peer.url("https", "localhost"));
    const json found = exchange(1);
    EXPECT_EQ(stepsOf(found).back(), "receive");
    EXPECT_EQ(found["rule"], "no answer");
    EXPECT_EQ(found["code"], -1);
}

TEST_F(PingTest, TheRuleThatDecidesHasItsExitCode) {
    struct Row {
        const char* answer;
        const char* attributes;
        int exitCode;
        const char* rule;
        int code;
    };
    const std::vector<Row> rows{
        {"BROKEN for good", kMarkers, 2, "responseFatal", -3},  {"BUSY", kMarkers, 0, "short answer", 4},
        {"BUSY now", kMarkers, 3, "responseRetry", -4},         {"nothing", kMarkers, 1, "no marker", -2},
        {"nothing", "responseSize=\"16\"", 0, "any answer", 7}, {"nothing", "", 0, "sent", 1}};
    for (const Row& row : rows) {
        TestPeer peer(answering(row.answer));
        pinged(peer.url("tcp"), row.attributes);
        const json found = exchange(row.exitCode);
        EXPECT_EQ(found["rule"], row.rule) << row.answer;
        EXPECT_EQ(found["code"], row.code) << row.answer;
    }
}

TEST_F(PingTest, WhatAPeerSaysCannotSteerATerminal) {
    TestPeer peer(answering("READY\x1b[2J\xff\n"));
    pinged(peer.url("tcp"));
    const Said said = ping();
    EXPECT_EQ(said.exitCode, 0);
    EXPECT_EQ(said.words.find('\x1b'), std::string::npos) << said.words;
    EXPECT_NE(said.words.find(R"("READY\x1b[2J\xff\n", 11 of)"), std::string::npos) << said.words;
    EXPECT_NE(said.words.find("read as     \"READY [2J  \""), std::string::npos) << said.words;
}

TEST_F(PingTest, TheBytesAreThereAsTheyCame) {
    TestPeer peer(answering(std::string("READY\0\xff", 7)));
    pinged(peer.url("tcp"));
    const json received = exchange(0)["received"];
    EXPECT_EQ(received["bytes"], 7);
    EXPECT_EQ(received["hex"], "524541445900ff");
    EXPECT_EQ(received["tidied"], "READY");
}

TEST_F(PingTest, TheAddressFamilyFollowsTheUriTheSettingOrTheCommand) {
    TestPeer six(answering("READY"), 2, AF_INET6);
    pinged(six.url("tcp", "[::1]"));
    EXPECT_EQ(exchange(0)["family"], "IPv6");
    service.startup(ServiceUnderTest::startupDefaults() +
                    "<networkConfiguration>IPv6</networkConfiguration>");
    pinged(six.url("tcp", "localhost"));
    const json found = exchange(0);
    EXPECT_EQ(found["family"], "IPv6");
    EXPECT_EQ(found["familyDecidedBy"], "\"networkConfiguration\" in configuration/startup.xml");
    TestPeer four(answering("READY"));
    pinged(four.url("tcp", "localhost"), kMarkers, "SHUTDOWN");
    EXPECT_EQ(exchange(0)["familyDecidedBy"], "the command: SHUTDOWN always goes out over IPv4");
}

TEST_F(PingTest, TheLimitIsTheOneThatTheServiceWouldHeed) {
    const ReservedPort port;
    pinged("tcp://127.0.0.1:" + port.str());
    EXPECT_EQ(exchange(1)["failedPingLimit"], 60);
    service.write("bin/zor.failedPingLimit", "7\n");
    const json found = exchange(1);
    EXPECT_EQ(found["failedPingLimit"], 7);
    EXPECT_EQ(found["supervisor"],
              "a failed ping: 7 in a row, 17 for a fresh child, and it is stopped and restarted");
}

TEST_F(PingTest, AChildThatIsNotThereIsAnErrorAndOneWithoutAPingIsNone) {
    const Said unknown = ping({"beta"});
    EXPECT_EQ(unknown.exitCode, 64);
    EXPECT_EQ(unknown.words, "velbootstrapctl: no child is called \"beta\"; there are: alpha\n");
    EXPECT_EQ(ping({"alpha"}).exitCode, 4);
    EXPECT_EQ(ping().exitCode, 4);
}

TEST_F(PingTest, DocumentsThatTheServiceWouldNotUseAreAnError) {
    service.write("bin/bootstrap_linuxi38632.xml", "<bootstrap><process");
    const Said said = ping();
    EXPECT_EQ(said.exitCode, 70);
    EXPECT_NE(said.words.find("Error parsing bootstrap.xml file"), std::string::npos) << said.words;
}

// ---- The sample's dispatcher ----

TEST_F(PingTest, TheSampleDispatcherAnswersPlain) {
    const ReservedPort port;
    const std::string uri = "tcp://127.0.0.1:" + port.str();
    ExternalProgram dispatcher({service.path("bin/sampledispatcher"), "--listen=" + uri, "--ready=READY"},
                               service.path("bin"));
    pinged(uri);
    ASSERT_TRUE(service.waitFor("an answer", [&] { return ping().exitCode == 0; }));
}

TEST_F(PingTest, TheSampleDispatcherAnswersOverTls) {
    const ReservedPort port;
    TestPki pki(service.path("configuration"));
    const TestPki::Issued identity = pki.issueForLocalhost();
    service.write("configuration/sek.cnf",
                  "[gateway]\nVerifyCAFile = " + pki.authorityFile().string() +
                      "\n[dispatcher]\nCertificate = " + identity.certificate.string() +
                      "\nPrivateKey = " + identity.key.string() + "\n");
    const std::string uri = "tls://localhost:" + port.str();
    ExternalProgram dispatcher(
        {service.path("bin/sampledispatcher"), "--listen=" + uri, "--service=dispatcher", "--ready=READY"},
        service.path("bin"));
    pinged(uri);
    ASSERT_TRUE(service.waitFor("an answer", [&] { return ping().exitCode == 0; }));
    EXPECT_EQ(exchange(0)["peer"]["chain"].size(), 2U);
}

// ---- Watching ----

TEST_F(PingTest, WatchingTellsTheDistributionAndProposesATimeOut) {
    TestPeer peer(answering("READY"), 3);
    pinged(peer.url("tcp"));
    const Said said = ping({"--watch", "--interval", "0", "--count", "3", "--json"});
    EXPECT_EQ(said.exitCode, 0) << said.words;
    EXPECT_EQ(jsonComplaints("velbootstrapctl-ping", said.words, true), "");
    std::istringstream lines(said.words);
    json last;
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count)
        last = json::parse(line);
    EXPECT_EQ(count, 3);
    const json distribution = last["exchanges"][0]["distribution"];
    EXPECT_EQ(distribution["answers"], 3);
    EXPECT_EQ(distribution["failed"], 0);
    EXPECT_LE(distribution["minimumMs"], distribution["medianMs"]);
    EXPECT_LE(distribution["medianMs"], distribution["maximumMs"]);
    EXPECT_GE(distribution["proposedTimeoutSec"], 1);
}

TEST_F(PingTest, WatchingOnATerminalEndsOnCtrlC) {
    TestPeer peer(answering("READY"), 2);
    pinged(peer.url("tcp"));
    TerminalProgram watch(
        {VBS_BIN "/velbootstrapctl", "--instance", service.path(), "ping", "--watch", "--interval", "1"});
    watch.waitFor("2 answers, 0 without");
    watch.waitFor("that is too few to rely on");
    watch.type("\x03");
    EXPECT_EQ(watch.waitForEnd(), 0) << watch.shown();
}

TEST_F(PingTest, CtrlCEndsAnExchangeThatIsWaitedFor) {
    TestPeer peer([](PeerConnection& connection) {
        connection.read();
        connection.waitForEnd();
    });
    BootstrapXml document;
    document.children[0].ping =
        "<ping><socketSend URI=\"" + peer.url("tcp") +
        "\" commandString=\"PING\" sockIOTimeoutSec=\"600\" responseSize=\"5\"/></ping>";
    service.bootstrap(document);
    TerminalProgram waiting(
        {"sh", "-c", "echo begun; exec " VBS_BIN "/velbootstrapctl --instance " + service.path() + " ping"});
    waiting.waitFor("begun");
    waiting.type("\x03");
    const int exitCode = waiting.waitForEnd();
    EXPECT_EQ(exitCode, 130) << waiting.shown();
}
