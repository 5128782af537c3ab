// The library as the client of nginx.

#include <filesystem>
#include <fstream>

#include "InteropTest.h"

namespace {

struct Answer {
    std::string text;  // head and body
    std::string error;
};

Answer ask(const std::string& url, const std::string& family = "IPv4", const std::string& path = "/") {
    SekHandle handle(family);
    if (handle.open(url) != SEK_Ok) return {"", handle.details()};
    if (handle.send("GET " + path + " HTTP/1.0\r\nHost: localhost\r\n\r\n") != SEK_Ok)
        return {"", handle.details()};
    const Received all = handle.receiveAll();
    Answer answer{all.data, all.result == SEK_Ok ? "" : handle.details()};
    handle.close();
    return answer;
}

// The status line and the last line of an answer, which are short here.
std::string inShort(const Answer& answer) {
    if (!answer.error.empty()) return answer.error;
    return answer.text.substr(0, answer.text.find('\r')) + "|" +
           answer.text.substr(answer.text.rfind("\r\n") + 2);
}

constexpr const char* tellProtocol =
    "    location / { return 200 \"$ssl_protocol $ssl_client_verify $ssl_server_name\"; }\n";

class NginxExchangeTest : public InteropTest, public testing::WithParamInterface<Exchange> {};

INSTANTIATE_TEST_SUITE_P(All, NginxExchangeTest, everyExchange("TLSv1.2", "TLSv1.3"), exchangeName);

TEST_P(NginxExchangeTest, IsCleanFromHandshakeToClose) {
    const auto& [version, key, family] = GetParam();
    NginxServer server(configuration() / "nginx", " ssl",
                       NginxServer::tls(identityWith(key), version) + tellProtocol, family);
    EXPECT_EQ(inShort(ask(server.url("https"), familyName(family))),
              "HTTP/1.1 200 OK|" + std::string(version) + " NONE ");
    EXPECT_EQ(server.complaints(), "");
}

class NginxServerTest : public InteropTest {
  protected:
    std::string requiringCertificate(const std::string& version) const {
        return NginxServer::tls(identity(), version) + "    ssl_client_certificate " + authority() +
               ";\n    ssl_verify_client on;\n" + tellProtocol;
    }
    static constexpr const char* versions[] = {"TLSv1.2", "TLSv1.3"};
    std::filesystem::path folder() { return configuration() / ("nginx" + std::to_string(++m_servers)); }

  private:
    int m_servers = 0;
};

TEST_F(NginxServerTest, PlainConnectionsOfBothFamilies) {
    for (const int family : {AF_INET, AF_INET6}) {
        NginxServer server(folder(), "", "    location / { return 200 \"pong\"; }\n", family);
        EXPECT_EQ(inShort(ask(server.url("http"), familyName(family))), "HTTP/1.1 200 OK|pong");
        EXPECT_EQ(server.complaints(), "");
    }
}

TEST_F(NginxServerTest, TheNameIsSentAndAnAddressIsNot) {
    NginxServer server(folder(), " ssl", NginxServer::tls(identity(), "TLSv1.3") + tellProtocol);
    EXPECT_EQ(inShort(ask(server.url("https", "localhost"))), "HTTP/1.1 200 OK|TLSv1.3 NONE localhost");
    EXPECT_EQ(inShort(ask(server.url("https", "127.0.0.1"))), "HTTP/1.1 200 OK|TLSv1.3 NONE ");
}

TEST_F(NginxServerTest, TheVersionIsHeldToTheSettings) {
    writeSettings("[gateway]\nVerifyCAFile = " + authority() + "\nMinProtocol = TLSv1.3\n");
    NginxServer older(folder(), " ssl", NginxServer::tls(identity(), "TLSv1.2") + tellProtocol);
    const std::string refusal = ask(older.url("https")).error;
    EXPECT_NE(refusal.find("protocol version"), std::string::npos) << refusal;
    NginxServer both(folder(), " ssl", NginxServer::tls(identity()) + tellProtocol);
    EXPECT_EQ(inShort(ask(both.url("https"))), "HTTP/1.1 200 OK|TLSv1.3 NONE ");
}

TEST_F(NginxServerTest, ARequiredClientCertificateIsAccepted) {
    showCertificate(pki().issueForClient());
    for (const char* version : versions) {
        NginxServer server(folder(), " ssl", requiringCertificate(version));
        EXPECT_EQ(inShort(ask(server.url("https"))), "HTTP/1.1 200 OK|" + std::string(version) + " SUCCESS ");
        EXPECT_EQ(server.complaints(), "");
    }
}

TEST_F(NginxServerTest, AMissingClientCertificateIsAnsweredWithARefusal) {
    for (const char* version : versions) {
        NginxServer server(folder(), " ssl", requiringCertificate(version));
        const Answer answer = ask(server.url("https"));
        EXPECT_NE(answer.text.find("400 No required SSL certificate was sent"), std::string::npos)
            << answer.text << answer.error;
    }
}

TEST_F(NginxServerTest, AClientCertificateOfAnotherAuthorityIsAnsweredWithARefusal) {
    TestPki stranger(configuration(), "stranger");
    showCertificate(stranger.issueForClient());
    for (const char* version : versions) {
        NginxServer server(folder(), " ssl", requiringCertificate(version));
        const Answer answer = ask(server.url("https"));
        EXPECT_NE(answer.text.find("400 The SSL certificate error"), std::string::npos)
            << answer.text << answer.error;
    }
}

TEST_F(NginxServerTest, AServerOfAnotherAuthorityIsRefused) {
    TestPki stranger(configuration(), "stranger");
    NginxServer server(folder(), " ssl",
                       NginxServer::tls(stranger.issueForLocalhost("strange-server")) + tellProtocol);
    const std::string refusal = ask(server.url("https")).error;
    EXPECT_NE(refusal.find("certificate verify failed: unable to get local issuer certificate"),
              std::string::npos)
        << refusal;
}

TEST_F(NginxServerTest, ARevokedServerIsRefused) {
    NginxServer server(folder(), " ssl", NginxServer::tls(identity()) + tellProtocol);
    writeSettings("[gateway]\nVerifyCAFile = " + authority() +
                  "\nCRLFile = " + pki().revocationList(identity().certificate).string() + "\n");
    const std::string refusal = ask(server.url("https")).error;
    EXPECT_NE(refusal.find("certificate verify failed: certificate revoked"), std::string::npos) << refusal;
}

TEST_F(NginxServerTest, PlainTextOnATlsPortIsAnsweredInPlainText) {
    NginxServer server(folder(), " ssl", NginxServer::tls(identity()) + tellProtocol);
    const Answer answer = ask(server.url("http"));
    EXPECT_NE(answer.text.find("The plain HTTP request was sent to HTTPS port"), std::string::npos)
        << answer.text << answer.error;
}

TEST_F(NginxServerTest, TlsOnAPlainPortIsToldApart) {
    NginxServer server(folder(), "", "    location / { return 200 \"pong\"; }\n");
    const std::string refusal = ask(server.url("https")).error;
    EXPECT_NE(refusal.find("wrong version number (the peer seems not to speak TLS)"), std::string::npos)
        << refusal;
}

TEST_F(NginxServerTest, AnAnswerOfManyRecordsArrivesWhole) {
    std::string content;
    for (int i = 0; content.size() < (4U << 20U); ++i)
        content += std::to_string(i) + "\n";
    std::ofstream(configuration() / "content") << content;
    for (const std::string kind : {"", " ssl"}) {
        NginxServer server(folder(), kind,
                           (kind.empty() ? "" : NginxServer::tls(identity())) + "    root " +
                               configuration().string() + ";\n");
        const Answer answer = ask(server.url(kind.empty() ? "http" : "https"), "IPv4", "/content");
        EXPECT_EQ(answer.error, "");
        EXPECT_TRUE(answer.text.substr(answer.text.find("\r\n\r\n") + 4) == content) << answer.text.size();
        EXPECT_EQ(server.complaints(), "");
    }
}

TEST_F(NginxServerTest, LeavingInTheMidstOfAnAnswerIsNoErrorToTheServer) {
    std::ofstream(configuration() / "content") << std::string(300'000, 'x');
    NginxServer server(folder(), " ssl",
                       NginxServer::tls(identity()) + "    root " + configuration().string() + ";\n");
    {
        SekHandle handle;
        ASSERT_EQ(handle.open(server.url("https")), SEK_Ok) << handle.details();
        ASSERT_EQ(handle.send("GET /content HTTP/1.0\r\n\r\n"), SEK_Ok);
        EXPECT_EQ(handle.receive(5).data, "HTTP/");
    }
    EXPECT_EQ(server.complaints(), "");
}

}  // namespace
