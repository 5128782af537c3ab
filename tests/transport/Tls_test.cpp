#include <algorithm>

#include "TransportTest.h"

namespace {

const TestPeer::Script answerOnce = [](PeerConnection& peer) {
    if (peer.read() == "ping") peer.write("pong");
    peer.closePolitely();
};

std::string handshakeFailure(const TestPeer& peer, const std::string& reason) {
    return "TLS handshake with 127.0.0.1:" + std::to_string(peer.port()) + " failed: " + reason;
}

void expectExchange(const std::string& url, const std::string& family = "IPv4") {
    SekHandle handle(family);
    ASSERT_EQ(handle.open(url), SEK_Ok) << handle.details();
    ASSERT_EQ(handle.send("ping"), SEK_Ok) << handle.details();
    ASSERT_EQ(handle.poll(10000).result, SEK_Ok);
    EXPECT_EQ(handle.receive().data, "pong") << handle.details();
    const Received end = handle.receive();
    EXPECT_EQ(end.result, SEK_Ok) << handle.details();
    EXPECT_EQ(end.data, "");
}

TEST_F(TlsTest, ConnectAnswersPendingUntilTheHandshakeIsDone) {
    TestPeer peer(tlsScript(answerOnce));
    SekHandle handle;
    EXPECT_EQ(handle.connectUrl(peer.url("https")), SEK_HandshakePending);
    EXPECT_FALSE(handle.hasDetails());
    EXPECT_EQ(handle.connectUrl(peer.url("https")), SEK_HandshakePending);
    EXPECT_EQ(handle.establish(), SEK_Ok) << handle.details();
    EXPECT_FALSE(handle.hasDetails());
    EXPECT_EQ(handle.connectUrl(peer.url("https")), SEK_Ok);
    EXPECT_EQ(handle.establish(), SEK_Ok);
}

TEST_F(TlsTest, DataNeedsTheHandshakeFirst) {
    TestPeer peer(tlsScript(answerOnce));
    SekHandle handle;
    ASSERT_EQ(handle.connectUrl(peer.url("https")), SEK_HandshakePending);
    const std::string refusal =
        "cannot transfer data with 127.0.0.1:" + std::to_string(peer.port()) + ": TLS is not established";
    EXPECT_EQ(handle.send("ping"), SEK_Failed);
    EXPECT_EQ(handle.details(), refusal);
    EXPECT_EQ(handle.receive().result, SEK_Failed);
    EXPECT_EQ(handle.details(), refusal);
}

TEST_F(TlsTest, ExchangesByNameAndByAddress) {
    TestPeer v4(tlsScript(answerOnce), 3);
    expectExchange(v4.url("https", "localhost"));
    expectExchange(v4.url("tls", "127.0.0.1"));
    expectExchange(v4.url("https", "LOCALHOST"));
    TestPeer v6(tlsScript(answerOnce), 1, AF_INET6);
    expectExchange(v6.url("https", "[::1]"), "IPv6");
}

TEST_F(TlsTest, SpeaksBothVersions) {
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        const PeerContext context = server();
        SSL_CTX_set_min_proto_version(context.get(), version);
        SSL_CTX_set_max_proto_version(context.get(), version);
        TestPeer peer([context](PeerConnection& connection) {
            if (connection.acceptTls(context)) answerOnce(connection);
        });
        expectExchange(peer.url("https"));
    }
}

TEST_F(TlsTest, RefusesVersionsBefore12) {
    const PeerContext context = server();
    SSL_CTX_set_security_level(context.get(), 0);
    SSL_CTX_set_min_proto_version(context.get(), TLS1_VERSION);
    SSL_CTX_set_max_proto_version(context.get(), TLS1_1_VERSION);
    TestPeer peer([context](PeerConnection& connection) { connection.acceptTls(context); });
    SekHandle handle;
    EXPECT_EQ(handle.open(peer.url("https")), SEK_Failed);
    EXPECT_NE(handle.details().find("protocol version"), std::string::npos) << handle.details();
}

TEST_F(TlsTest, AcceptsAnRsaCertificate) {
    TestPki::Request request{"rsa", {"IP:127.0.0.1"}};
    request.key = TestPki::Key::Rsa;
    const PeerContext context = serverContext(pki().issue(request));
    TestPeer peer([context](PeerConnection& connection) {
        if (connection.acceptTls(context)) answerOnce(connection);
    });
    expectExchange(peer.url("https"));
}

TEST_F(TlsTest, SendsTheNameButNeverAnAddressToThePeer) {
    std::string name;
    TestPeer peer(tlsScript([&](PeerConnection& connection) {
                      const char* sent = SSL_get_servername(connection.tls(), TLSEXT_NAMETYPE_host_name);
                      name += std::string(sent != nullptr ? sent : "-") + " ";
                      connection.waitForEnd();
                  }),
                  2);
    {
        SekHandle byName;
        ASSERT_EQ(byName.open(peer.url("https", "localhost")), SEK_Ok) << byName.details();
    }
    {
        SekHandle byAddress;
        ASSERT_EQ(byAddress.open(peer.url("https")), SEK_Ok) << byAddress.details();
    }
    peer.join();
    EXPECT_EQ(name, "localhost - ");
}

// What the library says to a server with that certificate.
class VerificationTest : public TlsTest {
  protected:
    void expectRefusal(const PeerContext& context, const std::string& reason,
                       const std::string& host = "127.0.0.1") {
        TestPeer peer([context](PeerConnection& connection) { connection.acceptTls(context); });
        SekHandle handle;
        ASSERT_EQ(handle.connectUrl(peer.url("https", host)), SEK_HandshakePending) << handle.details();
        EXPECT_EQ(handle.establish(), SEK_Failed);
        EXPECT_NE(handle.details().find(": certificate verify failed: " + reason), std::string::npos)
            << handle.details();
        EXPECT_EQ(handle.send("ping"), SEK_Failed);
    }
    PeerContext serverWith(const TestPki::Request& request) { return serverContext(pki().issue(request)); }
};

TEST_F(VerificationTest, UnknownAuthority) {
    TestPki stranger(configuration(), "stranger");
    expectRefusal(serverContext(stranger.issueForLocalhost("strange-server")),
                  "unable to get local issuer certificate");
}

TEST_F(VerificationTest, WrongHostName) {
    expectRefusal(serverWith({"other-name", {"DNS:elsewhere.example"}}), "hostname mismatch", "localhost");
}

TEST_F(VerificationTest, CommonNameAloneIsNotEnoughWhenNamesAreGiven) {
    expectRefusal(serverWith({"localhost", {"DNS:elsewhere.example"}}), "hostname mismatch", "localhost");
}

TEST_F(VerificationTest, CommonNameNeverCounts) {
    expectRefusal(serverWith({"localhost"}),
                  "hostname mismatch (expected localhost, certificate of CN=localhost, no names, good from ",
                  "localhost");
}

TEST_F(VerificationTest, AHostileCertificateIsDescribedOnOneBoundedLine) {
    TestPki::Request request{"hostile", {}};
    request.commonName = "a\nb\x01\xC3\xBC, CN=localhost";
    for (int i = 0; i < 2000; ++i)
        request.alternatives.push_back("DNS:name" + std::to_string(i) + "\x02.example");
    const PeerContext context = serverWith(request);
    TestPeer peer([context](PeerConnection& connection) { connection.acceptTls(context); });
    SekHandle handle;
    EXPECT_EQ(handle.open(peer.url("https")), SEK_Failed);
    const std::string text = handle.details();
    EXPECT_NE(
        text.find("certificate of CN=a\\0Ab\\01\\C3\\BC\\, CN=localhost, names DNS:name0\\02.example, "),
        std::string::npos)
        << text;
    EXPECT_NE(text.find(" and 1990 more, good from "), std::string::npos) << text;
    EXPECT_LT(text.size(), 1500U);
    EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c < 0x7F; })) << text;
}

TEST_F(VerificationTest, LongNamesOfACertificateAreCutAndThoseAfterThemCounted) {
    const std::string longName = "https://" + std::string(2000, 'x');
    const PeerContext context =
        serverWith({"long", {"URI:" + longName, "URI:" + longName, "DNS:third", "DNS:fourth"}});
    TestPeer peer([context](PeerConnection& connection) { connection.acceptTls(context); });
    SekHandle handle;
    EXPECT_EQ(handle.open(peer.url("https")), SEK_Failed);
    const std::string text = handle.details();
    EXPECT_NE(text.find("names URI:https://xxx"), std::string::npos) << text;
    EXPECT_NE(text.find("xxx... and 2 more, good from "), std::string::npos) << text;
    EXPECT_LT(text.size(), 1500U);
}

TEST_F(VerificationTest, WrongAddress) {
    expectRefusal(serverWith({"other-address", {"IP:127.0.0.2", "DNS:localhost"}}), "IP address mismatch");
}

TEST_F(VerificationTest, AddressWrittenAsANameDoesNotCount) {
    expectRefusal(serverWith({"address-as-name", {"DNS:127.0.0.1"}}), "IP address mismatch");
}

TEST_F(VerificationTest, Expired) {
    TestPki::Request request{"expired", {"IP:127.0.0.1"}};
    request.notAfterSec = -60;
    expectRefusal(serverWith(request), "certificate has expired");
}

TEST_F(VerificationTest, NotYetValid) {
    TestPki::Request request{"early", {"IP:127.0.0.1"}};
    request.notBeforeSec = 1800;
    expectRefusal(serverWith(request), "certificate is not yet valid");
}

TEST_F(VerificationTest, CertificateForClientsOnly) {
    TestPki::Request request{"client-only", {"IP:127.0.0.1"}};
    request.purpose = TestPki::Purpose::Client;
    const PeerContext context = serverWith(request);
    TestPeer peer([context](PeerConnection& connection) { connection.acceptTls(context); });
    SekHandle handle;
    ASSERT_EQ(handle.connectUrl(peer.url("https")), SEK_HandshakePending);
    EXPECT_EQ(handle.establish(), SEK_Failed);
    EXPECT_NE(handle.details().find("purpose"), std::string::npos) << handle.details();
}

TEST_F(VerificationTest, FailureNamesThePeer) {
    TestPki stranger(configuration(), "stranger");
    const PeerContext context = serverContext(stranger.issueForLocalhost("strange-server"));
    TestPeer peer([context](PeerConnection& connection) { connection.acceptTls(context); });
    SekHandle handle;
    const std::string port = std::to_string(peer.port());
    ASSERT_EQ(handle.open(peer.url("https", "localhost")), SEK_Failed);
    const std::string beginning =
        "TLS handshake with localhost (127.0.0.1:" + port +
        ") failed: certificate verify failed: unable to get local issuer certificate (certificate of "
        "CN=strange-server, names DNS:localhost, IP:127.0.0.1, IP:::1, good from 20";
    EXPECT_EQ(handle.details().substr(0, beginning.size()), beginning);
}

TEST_F(VerificationTest, AFailedHandshakeMayBeTriedAgain) {
    const PeerContext strange = serverContext(TestPki(configuration(), "s").issueForLocalhost("sv"));
    int connections = 0;
    TestPeer peer(
        [&, good = server()](PeerConnection& connection) {
            if (connection.acceptTls(++connections == 1 ? strange : good)) answerOnce(connection);
        },
        2);
    SekHandle handle;
    EXPECT_EQ(handle.open(peer.url("https")), SEK_Failed);
    EXPECT_EQ(handle.open(peer.url("https")), SEK_Ok) << handle.details();
}

TEST_F(TlsTest, AuthenticatesWithAClientCertificate) {
    const TestPki::Issued client = pki().issueForClient();
    writeSettings("[gateway]\nVerifyCAFile = " + pki().authorityFile().string() + "\nCertificate = " +
                  client.certificate.string() + "\nPrivateKey = " + client.key.string() + "\n");
    const PeerContext context = server();
    SSL_CTX_load_verify_locations(context.get(), pki().authorityFile().c_str(), nullptr);
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    TestPeer peer([context](PeerConnection& connection) {
        if (connection.acceptTls(context)) answerOnce(connection);
    });
    expectExchange(peer.url("https"));
}

TEST_F(TlsTest, AMissingClientCertificateIsReportedByTheRead) {
    const PeerContext context = server();
    SSL_CTX_load_verify_locations(context.get(), pki().authorityFile().c_str(), nullptr);
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    TestPeer peer([context](PeerConnection& connection) { connection.acceptTls(context); });
    SekHandle handle;
    ASSERT_EQ(handle.open(peer.url("https")), SEK_Ok) << handle.details();
    const Polled polled = handle.poll(10000);
    EXPECT_EQ(polled.result, SEK_Ok);
    EXPECT_TRUE(polled.readable);
    EXPECT_EQ(handle.receive().result, SEK_Failed);
    EXPECT_NE(handle.details().find("certificate required"), std::string::npos) << handle.details();
}

TEST_F(TlsTest, PlainPeerOnATlsPortIsToldApart) {
    TestPeer peer([](PeerConnection& connection) {
        connection.write("HTTP/1.1 400 Bad Request\r\n\r\n");
        connection.waitForEnd();
    });
    SekHandle handle;
    EXPECT_EQ(handle.open(peer.url("https")), SEK_Failed);
    EXPECT_EQ(handle.details(),
              handshakeFailure(peer, "wrong version number (the peer seems not to speak TLS)"));
}

TEST_F(TlsTest, TlsPeerOnAPlainPortAnswersWithARecord) {
    TestPeer peer(tlsScript(answerOnce));
    SekHandle handle;
    ASSERT_EQ(handle.open(peer.url("http")), SEK_Ok);
    ASSERT_EQ(handle.send("GET / HTTP/1.0\r\n\r\n"), SEK_Ok);
    // Its alert arrives as data, then the stream ends; nothing hangs and nothing is taken for an answer.
    const Received received = handle.receiveAll();
    EXPECT_EQ(received.data.find("pong"), std::string::npos);
}

}  // namespace
