// The library as the client of "openssl s_server".

#include "InteropTest.h"

namespace {

// The server answers each line with its letters in reverse.
const std::vector<std::string> reversing{"-rev"};

std::vector<std::string> with(std::vector<std::string> options, const std::vector<std::string>& more) {
    options.insert(options.end(), more.begin(), more.end());
    return options;
}

void expectExchange(const std::string& url, const std::string& family = "IPv4") {
    SekHandle handle(family);
    ASSERT_EQ(handle.open(url), SEK_Ok) << handle.details();
    ASSERT_EQ(handle.send("ping\n"), SEK_Ok) << handle.details();
    const Polled polled = handle.poll(10000);
    EXPECT_EQ(polled.result, SEK_Ok);
    EXPECT_TRUE(polled.readable);
    EXPECT_EQ(handle.receive().data, "gnip\n") << handle.details();
    EXPECT_EQ(handle.close(), SEK_Ok);
}

// The server has seen a whole connection: handshake, data, and the close notification at its end.
void expectCleanLog(OpensslServer& server) {
    const std::string log = server.log();
    EXPECT_NE(log.find("CONNECTION ESTABLISHED"), std::string::npos) << log;
    EXPECT_NE(log.find("CONNECTION CLOSED"), std::string::npos) << log;
    EXPECT_EQ(log.find("ERROR"), std::string::npos) << log;
    EXPECT_EQ(log.find("error:"), std::string::npos) << log;
}

class OpensslExchangeTest : public InteropTest, public testing::WithParamInterface<Exchange> {};

INSTANTIATE_TEST_SUITE_P(All, OpensslExchangeTest, everyExchange("-tls1_2", "-tls1_3"), exchangeName);

TEST_P(OpensslExchangeTest, IsCleanFromHandshakeToClose) {
    const auto& [version, key, family] = GetParam();
    OpensslServer server(identityWith(key), with(reversing, {version}), family);
    expectExchange(server.url(), familyName(family));
    expectCleanLog(server);
}

class OpensslServerTest : public InteropTest {
  protected:
    // It tells names in the same spelling whatever its version.
    std::vector<std::string> requiringCertificate(const std::string& version) const {
        return with(reversing, {version, "-Verify", "1", "-verify_return_error", "-CAfile", authority(),
                                "-nameopt", "oneline"});
    }
    // What the library says at the end of an exchange that the server refuses. With TLS 1.3 the client's
    // handshake is over before the server has looked at its certificate.
    static std::string refusal(const OpensslServer& server) {
        SekHandle handle;
        if (handle.open(server.url()) != SEK_Ok) return handle.details();
        EXPECT_EQ(handle.poll(10000).result, SEK_Ok);
        EXPECT_EQ(handle.receive().result, SEK_Failed);
        return handle.details();
    }
};

TEST_F(OpensslServerTest, TheNameIsVerifiedAndSent) {
    TestPki::Request request{"by-name", {"DNS:localhost"}};
    OpensslServer server(pki().issue(request), reversing);
    expectExchange(server.url("tls", "localhost"));
    expectCleanLog(server);
}

TEST_F(OpensslServerTest, ACertificateForAnotherHostIsRefused) {
    TestPki::Request request{"elsewhere", {"DNS:elsewhere.example"}};
    OpensslServer server(pki().issue(request), reversing);
    SekHandle handle;
    EXPECT_EQ(handle.open(server.url("https", "localhost")), SEK_Failed);
    EXPECT_NE(handle.details().find("certificate verify failed: hostname mismatch"), std::string::npos)
        << handle.details();
}

TEST_F(OpensslServerTest, ASelfSignedCertificateIsRefused) {
    const std::string folder = configuration().string();
    ExternalProgram maker({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
                           "-nodes", "-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost",
                           "-keyout", "self.key", "-out", "self.pem"},
                          folder);
    ASSERT_EQ(maker.waitForEnd(), 0) << maker.words();
    OpensslServer server({folder + "/self.pem", folder + "/self.key"}, reversing);
    SekHandle handle;
    EXPECT_EQ(handle.open(server.url("https", "localhost")), SEK_Failed);
    EXPECT_NE(handle.details().find("certificate verify failed: self-signed certificate"), std::string::npos)
        << handle.details();
    // The server is told why, and not merely left.
    EXPECT_NE(server.log().find("alert unknown ca"), std::string::npos) << server.log();
}

TEST_F(OpensslServerTest, AVersionBefore12IsRefused) {
    for (const char* version : {"-tls1", "-tls1_1"}) {
        OpensslServer server(identity(), with(reversing, {version, "-cipher", "DEFAULT@SECLEVEL=0"}));
        SekHandle handle;
        EXPECT_EQ(handle.open(server.url()), SEK_Failed);
        EXPECT_NE(handle.details().find("protocol version"), std::string::npos) << handle.details();
    }
}

TEST_F(OpensslServerTest, ARequiredClientCertificateIsShown) {
    showCertificate(pki().issueForClient());
    for (const char* version : {"-tls1_2", "-tls1_3"}) {
        OpensslServer server(identity(), requiringCertificate(version));
        expectExchange(server.url());
        expectCleanLog(server);
        EXPECT_NE(server.log().find("Peer certificate: CN = client"), std::string::npos) << server.log();
    }
}

TEST_F(OpensslServerTest, AMissingClientCertificateIsReported) {
    OpensslServer older(identity(), requiringCertificate("-tls1_2"));
    const std::string olderText = refusal(older);
    EXPECT_NE(olderText.find("handshake failure"), std::string::npos) << olderText;
    OpensslServer newer(identity(), requiringCertificate("-tls1_3"));
    const std::string newerText = refusal(newer);
    EXPECT_NE(newerText.find("certificate required"), std::string::npos) << newerText;
}

TEST_F(OpensslServerTest, AClientCertificateOfAnotherAuthorityIsReported) {
    TestPki stranger(configuration(), "stranger");
    showCertificate(stranger.issueForClient());
    for (const char* version : {"-tls1_2", "-tls1_3"}) {
        OpensslServer server(identity(), requiringCertificate(version));
        const std::string text = refusal(server);
        EXPECT_NE(text.find("unknown ca"), std::string::npos) << text;
    }
}

TEST_F(OpensslServerTest, ManyTicketsBeforeTheAnswerAreNoAnswer) {
    OpensslServer server(identity(), with(reversing, {"-tls1_3", "-num_tickets", "8"}));
    SekHandle handle;
    ASSERT_EQ(handle.open(server.url()), SEK_Ok) << handle.details();
    EXPECT_EQ(handle.poll(200).result, SEK_TimedOut);
    ASSERT_EQ(handle.send("ping\n"), SEK_Ok);
    EXPECT_EQ(handle.poll(10000).result, SEK_Ok);
    EXPECT_EQ(handle.receive().data, "gnip\n");
}

// The server's own commands are typed into it as lines of a single letter.
TEST_F(OpensslServerTest, RenewedKeysAreNoAnswerAndTheAnswerFollows) {
    OpensslServer server(identity(), {"-tls1_3", "-state"});
    SekHandle handle;
    ASSERT_EQ(handle.open(server.url()), SEK_Ok) << handle.details();
    ASSERT_EQ(handle.send("ping\n"), SEK_Ok);
    ASSERT_NE(server.program().waitForLine("ping"), "");
    ASSERT_TRUE(server.program().type("K\n"));
    ASSERT_NE(server.program().waitForLine("write server key update"), "");
    EXPECT_EQ(handle.poll(200).result, SEK_TimedOut);
    ASSERT_TRUE(server.program().type("pong\n"));
    EXPECT_EQ(handle.poll(10000).result, SEK_Ok);
    EXPECT_EQ(handle.receive().data, "pong\n") << handle.details();
    EXPECT_EQ(handle.send("again\n"), SEK_Ok) << handle.details();
    EXPECT_NE(server.program().waitForLine("again"), "");
}

TEST_F(OpensslServerTest, ADemandToRenegotiateIsRefused) {
    OpensslServer server(identity(), {"-tls1_2"});
    SekHandle handle;
    ASSERT_EQ(handle.open(server.url()), SEK_Ok) << handle.details();
    ASSERT_EQ(handle.send("ping\n"), SEK_Ok);
    ASSERT_NE(server.program().waitForLine("ping"), "");
    ASSERT_TRUE(server.program().type("r\n"));
    // The server gives the connection up when it is told no.
    EXPECT_EQ(handle.poll(10000).result, SEK_Ok);
    EXPECT_EQ(handle.receive().result, SEK_Failed);
    EXPECT_NE(handle.details(), "");
    EXPECT_NE(server.program().waitForLine("no renegotiation"), "") << server.program().words();
}

TEST_F(OpensslServerTest, PlainTextOnATlsPortEndsInAnAlert) {
    OpensslServer server(identity(), reversing);
    SekHandle handle;
    ASSERT_EQ(handle.open(server.url("http")), SEK_Ok) << handle.details();
    ASSERT_EQ(handle.send("SHUTDOWN and some more text\n"), SEK_Ok);
    EXPECT_EQ(handle.receiveAll().data.find("NWODTUHS"), std::string::npos);
    EXPECT_NE(server.log().find("CONNECTION FAILURE"), std::string::npos) << server.log();
}

TEST_F(OpensslServerTest, AKilledServerIsTheEndOfTheConnection) {
    OpensslServer server(identity(), reversing);
    SekHandle handle;
    ASSERT_EQ(handle.open(server.url()), SEK_Ok) << handle.details();
    // A server that leaves bytes unread resets the connection instead, so it is made to read all of them.
    ASSERT_EQ(handle.send("ping\n"), SEK_Ok) << handle.details();
    ASSERT_EQ(handle.receive().data, "gnip\n") << handle.details();
    server.program().interrupt();
    EXPECT_EQ(handle.poll(10000).result, SEK_Ok);
    EXPECT_EQ(handle.receive().result, SEK_Failed);
    EXPECT_NE(handle.details().find("without a TLS close notification"), std::string::npos)
        << handle.details();
}

}  // namespace
