#include <netinet/in.h>

#include <cstring>
#include <future>

#include "TransportTest.h"

namespace {

// A client on a thread of its own; its result is what it received.
template <typename Work>
std::future<std::string> client(std::uint16_t port, Work work, int family = AF_INET) {
    return std::async(std::launch::async, [=] {
        PeerConnection connection(connectPlain(port, family));
        return std::string(work(connection));
    });
}

class ServerTest : public TlsTest {
  protected:
    void SetUp() override {
        TlsTest::SetUp();
        serveWith(identity(), "");
    }
    void serveWith(const TestPki::Issued& issued, const std::string& more) {
        writeSettings("[gateway]\nVerifyCAFile = " + pki().authorityFile().string() + "\nCertificate = " +
                      issued.certificate.string() + "\nPrivateKey = " + issued.key.string() + "\n" + more);
    }
    // A TLS client with that certificate, which reads once.
    std::future<std::string> clientShowing(const TestPki::Issued& issued, std::uint16_t port) const {
        return client(port, [ca = pki().authorityFile(), issued](PeerConnection& peer) {
            const PeerContext context = clientContext(ca);
            SSL_CTX_use_certificate_chain_file(context.get(), issued.certificate.c_str());
            SSL_CTX_use_PrivateKey_file(context.get(), issued.key.c_str(), SSL_FILETYPE_PEM);
            return peer.connectTls(context, "localhost") ? peer.read() : peer.lastTlsError();
        });
    }
};

TEST_F(ServerTest, ServesPlainConnections) {
    SekHandle listener;
    auto answer = client(listener.listen("tcp"), [](PeerConnection& peer) {
        peer.write("ping");
        return peer.read();
    });
    SekHandle accepted(listener.accept());
    EXPECT_EQ(accepted.receive().data, "ping");
    EXPECT_EQ(accepted.send("pong"), SEK_Ok);
    EXPECT_EQ(answer.get(), "pong");
}

TEST_F(ServerTest, ServesTlsConnections) {
    SekHandle listener;
    auto answer = client(listener.listen("https"), [ca = pki().authorityFile()](PeerConnection& peer) {
        if (!peer.connectTls(clientContext(ca), "localhost")) return peer.lastTlsError();
        peer.write("ping");
        return peer.read();
    });
    SekHandle accepted(listener.accept());
    EXPECT_EQ(accepted.send("early"), SEK_Failed);  // never in the clear
    ASSERT_EQ(accepted.establish(), SEK_Ok) << accepted.details();
    EXPECT_EQ(accepted.receive().data, "ping");
    EXPECT_EQ(accepted.send("pong"), SEK_Ok);
    EXPECT_EQ(answer.get(), "pong");
}

TEST_F(ServerTest, BothEndsMayBeTheLibrarys) {
    SekHandle listener("IPv6");
    const std::uint16_t port = listener.listen("https", "[::1]");
    auto answer = std::async(std::launch::async, [port] {
        SekHandle handle("IPv6");
        if (handle.open("https://[::1]:" + std::to_string(port)) != SEK_Ok) return handle.details();
        handle.send("ping");
        return handle.receive().data;
    });
    SekHandle accepted(listener.accept());
    ASSERT_EQ(accepted.establish(), SEK_Ok) << accepted.details();
    EXPECT_EQ(accepted.receive().data, "ping");
    EXPECT_EQ(accepted.send("pong"), SEK_Ok);
    EXPECT_EQ(answer.get(), "pong");
}

TEST_F(ServerTest, WithoutACertificateTheHandshakeSaysWhatIsMissing) {
    trust(pki());
    SekHandle listener;
    auto answer = client(listener.listen("https"), [ca = pki().authorityFile()](PeerConnection& peer) {
        peer.connectTls(clientContext(ca), "localhost");
        return peer.lastTlsError();
    });
    SekHandle accepted(listener.accept());
    EXPECT_EQ(accepted.establish(), SEK_Failed);
    EXPECT_NE(
        accepted.details().find("../configuration/sek.cnf [gateway]: no Certificate for the server's side"),
        std::string::npos)
        << accepted.details();
    accepted.close();
    EXPECT_NE(answer.get(), "");
}

TEST_F(ServerTest, ARequiredClientCertificateIsVerified) {
    serveWith(identity(), "VerifyMode = Peer,Require\n");
    SekHandle listener;
    auto answer = clientShowing(pki().issueForClient("client"), listener.listen("https"));
    SekHandle accepted(listener.accept());
    ASSERT_EQ(accepted.establish(), SEK_Ok) << accepted.details();
    EXPECT_EQ(accepted.send("welcome"), SEK_Ok);
    EXPECT_EQ(answer.get(), "welcome");
}

TEST_F(ServerTest, ACertificateForServersIsRefusedFromAClient) {
    serveWith(identity(), "VerifyMode = Peer,Require\n");
    SekHandle listener;
    auto answer = clientShowing(pki().issueForLocalhost("no-client"), listener.listen("https"));
    SekHandle accepted(listener.accept());
    EXPECT_EQ(accepted.establish(), SEK_Failed);
    EXPECT_NE(accepted.details().find("certificate purpose"), std::string::npos) << accepted.details();
    accepted.close();
    EXPECT_EQ(answer.get(), "");
}

TEST_F(ServerTest, ARevokedClientIsRefusedAndOthersAreNot) {
    const TestPki::Issued revoked = pki().issueForClient("revoked");
    const std::string list = pki().revocationList(revoked.certificate).string();
    serveWith(identity(), "VerifyMode = Peer,Require\nCRLFile = " + list + "\n");
    SekHandle listener;
    const std::uint16_t port = listener.listen("https");
    auto refused = clientShowing(revoked, port);
    SekHandle first(listener.accept());
    EXPECT_EQ(first.establish(), SEK_Failed);
    EXPECT_NE(first.details().find("certificate revoked"), std::string::npos) << first.details();
    first.close();
    EXPECT_EQ(refused.get(), "");
    auto welcomed = clientShowing(pki().issueForClient("good"), port);
    SekHandle second(listener.accept());
    ASSERT_EQ(second.establish(), SEK_Ok) << second.details();
    EXPECT_EQ(second.send("welcome"), SEK_Ok);
    EXPECT_EQ(welcomed.get(), "welcome");
}

TEST_F(ServerTest, AClientWithoutTheRequiredCertificateIsRefused) {
    serveWith(identity(), "VerifyMode = Require\n");
    SekHandle listener;
    auto answer = client(listener.listen("https"), [ca = pki().authorityFile()](PeerConnection& peer) {
        peer.connectTls(clientContext(ca), "localhost");
        return peer.read();
    });
    SekHandle accepted(listener.accept());
    EXPECT_EQ(accepted.establish(), SEK_Failed);
    EXPECT_NE(accepted.details().find("peer did not return a certificate"), std::string::npos)
        << accepted.details();
    accepted.close();
    EXPECT_EQ(answer.get(), "");
}

TEST_F(ServerTest, ARenewedCertificateServesTheNextConnection) {
    SekHandle listener;
    const std::uint16_t port = listener.listen("https");
    const auto serialSeen = [&] {
        auto answer = client(port, [ca = pki().authorityFile()](PeerConnection& peer) {
            if (!peer.connectTls(clientContext(ca), "localhost")) return peer.lastTlsError();
            const X509* certificate = SSL_get0_peer_certificate(peer.tls());
            return std::to_string(ASN1_INTEGER_get(X509_get0_serialNumber(certificate)));
        });
        SekHandle accepted(listener.accept());
        EXPECT_EQ(accepted.establish(), SEK_Ok) << accepted.details();
        return answer.get();
    };
    const std::string before = serialSeen();
    serveWith(pki().issueForLocalhost("renewed"), "");
    EXPECT_NE(serialSeen(), before);
}

TEST_F(ServerTest, AcceptTellsThePeersAddress) {
    SekHandle listener;
    PeerConnection peer(connectPlain(listener.listen("tcp")));
    sockaddr_storage address{};
    long length = sizeof address;
    void* accepted = nullptr;
    ASSERT_EQ(SEK_Accept(listener.get(), &accepted, &address, &length, nullptr), SEK_Ok)
        << listener.details();
    SekHandle owner(accepted);
    EXPECT_EQ(length, long{sizeof(sockaddr_in)});
    sockaddr_in v4{};
    std::memcpy(&v4, &address, sizeof v4);
    EXPECT_EQ(ntohs(v4.sin_port), portOf(peer.descriptor()));
}

// The connection waits in the queue and is gone before it is taken from there.
TEST_F(ServerTest, AcceptTellsTheAddressOfAPeerThatHasResetAlready) {
    SekHandle listener;
    const std::uint16_t port = listener.listen("tcp");
    PeerConnection gone(connectPlain(port));
    const std::uint16_t portOfPeer = portOf(gone.descriptor());
    gone.reset();
    sockaddr_storage address{};
    long length = sizeof address;
    void* accepted = nullptr;
    ASSERT_EQ(SEK_Accept(listener.get(), &accepted, &address, &length, nullptr), SEK_Ok)
        << listener.details();
    sockaddr_in v4{};
    std::memcpy(&v4, &address, sizeof v4);
    EXPECT_EQ(ntohs(v4.sin_port), portOfPeer);
    SekHandle lost(accepted);
    EXPECT_EQ(lost.receive().result, SEK_Failed);
    EXPECT_EQ(lost.details(),
              "cannot receive from 127.0.0.1:" + std::to_string(portOfPeer) + ": Connection reset by peer");
    PeerConnection next(connectPlain(port));
    SekHandle good(listener.accept());
    EXPECT_EQ(good.send("x"), SEK_Ok) << good.details();
}

TEST_F(ServerTest, AcceptEndsAtItsLimit) {
    SekHandle listener;
    const std::uint16_t port = listener.listen("tcp");
    listener.limit(SO_RCVTIMEO, 50);
    void* accepted = nullptr;
    EXPECT_EQ(SEK_Accept(listener.get(), &accepted, nullptr, nullptr, nullptr), SEK_Failed);
    EXPECT_EQ(listener.details(),
              "cannot accept on 127.0.0.1:" + std::to_string(port) + ": no connection in time");
    EXPECT_EQ(accepted, nullptr);
}

TEST_F(ServerTest, AnOccupiedPortIsNamed) {
    SekHandle first;
    const std::string url = "tcp://127.0.0.1:" + std::to_string(first.listen("tcp"));
    SekHandle second;
    ASSERT_EQ(SEK_Bind_Url(second.get(), text(url), nullptr), SEK_Failed);
    EXPECT_EQ(second.details(), "cannot bind to " + url.substr(6) + ": Address already in use");
}

TEST_F(ServerTest, AnyAddressIsWrittenAsAStar) {
    SekHandle listener;
    PeerConnection peer(connectPlain(listener.listen("tcp", "*")));
    SekHandle accepted(listener.accept());
    EXPECT_NE(accepted.get(), nullptr);
}

TEST_F(ServerTest, BindByAddressServesToo) {
    sockaddr_in v4{};
    v4.sin_family = AF_INET;
    v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    sockaddr_storage address{};
    std::memcpy(&address, &v4, sizeof v4);
    SekHandle listener;
    ASSERT_EQ(SEK_Bind(listener.get(), &address, sizeof address, nullptr), SEK_Ok) << listener.details();
    ASSERT_EQ(SEK_Listen(listener.get(), 4, nullptr), SEK_Ok) << listener.details();
    long length = sizeof address;
    ASSERT_EQ(SEK_GetSockName(listener.get(), &address, &length, nullptr), SEK_Ok);
    std::memcpy(&v4, &address, sizeof v4);
    PeerConnection peer(connectPlain(ntohs(v4.sin_port)));
    SekHandle accepted(listener.accept());
    EXPECT_NE(accepted.get(), nullptr);
}

TEST_F(ServerTest, CallsInTheWrongStateAreRefused) {
    SekHandle listener;
    listener.listen("tcp");
    EXPECT_EQ(listener.connectUrl("tcp://127.0.0.1:1"), SEK_Failed);
    EXPECT_EQ(listener.details(), "cannot connect: the socket is listening");
    EXPECT_EQ(listener.send("x"), SEK_Failed);
    EXPECT_EQ(listener.details(), "cannot transfer data: the socket is listening");
    SekHandle fresh;
    EXPECT_EQ(SEK_Accept(fresh.get(), nullptr, nullptr, nullptr, nullptr), SEK_Failed);
    EXPECT_EQ(fresh.details(), "no place for the handle given");
    void* accepted = nullptr;
    EXPECT_EQ(SEK_Accept(fresh.get(), &accepted, nullptr, nullptr, nullptr), SEK_Failed);
    EXPECT_EQ(fresh.details(), "cannot accept: the socket is not connected");
    EXPECT_EQ(fresh.establish(), SEK_Failed);
    EXPECT_EQ(fresh.details(), "cannot start TLS: the socket is not connected");
}

}  // namespace
