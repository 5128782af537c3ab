// The library as the server of "openssl s_client" and of curl.

#include <cstdint>

#include "InteropTest.h"

namespace {

class ClientsTest : public InteropTest {
  protected:
    void SetUp() override {
        InteropTest::SetUp();
        serveWith(identity());
    }
    void serveWith(const TestPki::Issued& issued, const std::string& more = {}) const {
        writeSettings("[gateway]\nVerifyCAFile = " + authority() + "\nCertificate = " +
                      issued.certificate.string() + "\nPrivateKey = " + issued.key.string() + "\n" + more);
    }
    std::vector<std::string> sClient(int family, std::uint16_t port,
                                     const std::vector<std::string>& options) const {
        std::vector<std::string> command{
            "openssl",          "s_client",      "-quiet",
            "-verify_quiet",    "-noservername", "-verify_return_error",
            "-verify_hostname", "localhost",     "-CAfile",
            authority(),        "-connect",      loopbackHost(family) + ":" + std::to_string(port)};
        command.insert(command.end(), options.begin(), options.end());
        return command;
    }
    std::vector<std::string> curl(std::uint16_t port, const std::vector<std::string>& options) const {
        std::vector<std::string> command{"curl",
                                         "--disable",
                                         "--silent",
                                         "--show-error",
                                         "--noproxy",
                                         "*",
                                         "--max-time",
                                         "15",
                                         "--cacert",
                                         authority(),
                                         "https://127.0.0.1:" + std::to_string(port) + "/"};
        command.insert(command.end(), options.begin(), options.end());
        return command;
    }
};

// What the client has printed, but for the line with which later versions of OpenSSL begin.
std::string told(const ExternalProgram& client) {
    std::string words = client.words();
    if (words.starts_with("Connecting to ")) words.erase(0, words.find('\n') + 1);
    return words;
}

// One line comes, one goes, and the connection ends.
void answerLine(SekHandle& connection) {
    ASSERT_EQ(connection.establish(), SEK_Ok) << connection.details();
    EXPECT_EQ(connection.receive().data, "ping\n") << connection.details();
    EXPECT_EQ(connection.send("pong\n"), SEK_Ok) << connection.details();
    EXPECT_EQ(connection.close(), SEK_Ok);
}

void answerRequest(SekHandle& connection) {
    ASSERT_EQ(connection.establish(), SEK_Ok) << connection.details();
    std::string request;
    while (request.find("\r\n\r\n") == std::string::npos) {
        const Received block = connection.receive();
        ASSERT_EQ(block.result, SEK_Ok) << connection.details();
        ASSERT_NE(block.data, "") << "the client left after: " << request;
        request += block.data;
    }
    EXPECT_EQ(connection.send("HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\n\r\npong"), SEK_Ok);
    EXPECT_EQ(connection.close(), SEK_Ok);
}

class ClientsExchangeTest : public ClientsTest, public testing::WithParamInterface<Exchange> {};

INSTANTIATE_TEST_SUITE_P(All, ClientsExchangeTest, everyExchange("-tls1_2", "-tls1_3"), exchangeName);

TEST_P(ClientsExchangeTest, OpensslIsServedFromHandshakeToClose) {
    const auto& [version, key, family] = GetParam();
    serveWith(identityWith(key));
    SekHandle listener(familyName(family));
    const std::uint16_t port = listener.listen("tls", loopbackHost(family));
    ExternalProgram client(sClient(family, port, {version}));
    ASSERT_TRUE(client.type("ping\n"));
    SekHandle connection(listener.accept());
    answerLine(connection);
    EXPECT_EQ(client.waitForEnd(), 0);
    EXPECT_EQ(told(client), "pong\n");
}

TEST_F(ClientsTest, OpensslShowsTheRequiredCertificate) {
    serveWith(identity(), "VerifyMode = Peer,Require\n");
    const TestPki::Issued shown = pki().issueForClient();
    for (const char* version : {"-tls1_2", "-tls1_3"}) {
        SekHandle listener;
        const std::uint16_t port = listener.listen("tls");
        ExternalProgram client(sClient(
            AF_INET, port, {version, "-cert", shown.certificate.string(), "-key", shown.key.string()}));
        ASSERT_TRUE(client.type("ping\n"));
        SekHandle connection(listener.accept());
        answerLine(connection);
        EXPECT_EQ(client.waitForEnd(), 0);
        EXPECT_EQ(told(client), "pong\n");
    }
}

TEST_F(ClientsTest, OpensslWithoutTheRequiredCertificateIsRefused) {
    serveWith(identity(), "VerifyMode = Peer,Require\n");
    for (const char* version : {"-tls1_2", "-tls1_3"}) {
        SekHandle listener;
        const std::uint16_t port = listener.listen("tls");
        ExternalProgram client(sClient(AF_INET, port, {version}));
        SekHandle connection(listener.accept());
        EXPECT_EQ(connection.establish(), SEK_Failed);
        EXPECT_NE(connection.details().find("peer did not return a certificate"), std::string::npos)
            << connection.details();
        connection.close();
        EXPECT_EQ(client.waitForEnd(), 1);
        EXPECT_NE(client.words().find("alert"), std::string::npos) << client.words();
    }
}

TEST_F(ClientsTest, ACertificateOfAnotherAuthorityIsRefused) {
    serveWith(identity(), "VerifyMode = Peer,Require\n");
    TestPki stranger(configuration(), "stranger");
    const TestPki::Issued shown = stranger.issueForClient();
    SekHandle listener;
    const std::uint16_t port = listener.listen("tls");
    ExternalProgram client(
        sClient(AF_INET, port, {"-cert", shown.certificate.string(), "-key", shown.key.string()}));
    SekHandle connection(listener.accept());
    EXPECT_EQ(connection.establish(), SEK_Failed);
    EXPECT_NE(connection.details().find("certificate verify failed"), std::string::npos)
        << connection.details();
    connection.close();
    EXPECT_EQ(client.waitForEnd(), 1);
    EXPECT_NE(client.words().find("alert unknown ca"), std::string::npos) << client.words();
}

TEST_F(ClientsTest, AVersionBefore12IsRefused) {
    SekHandle listener;
    const std::uint16_t port = listener.listen("tls");
    ExternalProgram client(sClient(AF_INET, port, {"-tls1_1", "-cipher", "DEFAULT@SECLEVEL=0"}));
    SekHandle connection(listener.accept());
    EXPECT_EQ(connection.establish(), SEK_Failed);
    EXPECT_NE(connection.details().find("unsupported protocol"), std::string::npos) << connection.details();
    connection.close();
    EXPECT_EQ(client.waitForEnd(), 1);
    EXPECT_NE(client.words().find("alert protocol version"), std::string::npos) << client.words();
}

TEST_F(ClientsTest, AClientThatDistrustsTheServerSaysSo) {
    TestPki stranger(configuration(), "stranger");
    serveWith(stranger.issueForLocalhost("strange-server"));
    SekHandle listener;
    const std::uint16_t port = listener.listen("tls");
    ExternalProgram client(sClient(AF_INET, port, {"-tls1_2"}));
    SekHandle connection(listener.accept());
    EXPECT_EQ(connection.establish(), SEK_Failed);
    EXPECT_NE(connection.details().find("alert unknown ca"), std::string::npos) << connection.details();
    connection.close();
    EXPECT_EQ(client.waitForEnd(), 1);
}

TEST_F(ClientsTest, CurlIsServed) {
    for (const auto& version : std::vector<std::vector<std::string>>{{"--tls-max", "1.2"}, {"--tlsv1.3"}}) {
        SekHandle listener;
        ExternalProgram client(curl(listener.listen("https"), version));
        SekHandle connection(listener.accept());
        answerRequest(connection);
        EXPECT_EQ(client.waitForEnd(), 0);
        EXPECT_EQ(client.words(), "pong");
    }
}

TEST_F(ClientsTest, CurlShowsTheRequiredCertificate) {
    serveWith(identity(), "VerifyMode = Peer,Require\n");
    const TestPki::Issued shown = pki().issueForClient();
    SekHandle listener;
    ExternalProgram client(
        curl(listener.listen("https"), {"--cert", shown.certificate.string(), "--key", shown.key.string()}));
    SekHandle connection(listener.accept());
    answerRequest(connection);
    EXPECT_EQ(client.waitForEnd(), 0);
    EXPECT_EQ(client.words(), "pong");
}

TEST_F(ClientsTest, CurlWithoutTheRequiredCertificateIsRefused) {
    serveWith(identity(), "VerifyMode = Peer,Require\n");
    SekHandle listener;
    ExternalProgram client(curl(listener.listen("https"), {}));
    SekHandle connection(listener.accept());
    EXPECT_EQ(connection.establish(), SEK_Failed);
    connection.close();
    EXPECT_NE(client.waitForEnd(), 0);
    EXPECT_NE(client.words().find("certificate required"), std::string::npos) << client.words();
}

}  // namespace
