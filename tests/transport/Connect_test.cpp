#include <netinet/in.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <vector>

#include "TransportTest.h"

namespace {

using ConnectTest = TransportTest;

// A port of the loopback interface on which nobody listens.
std::uint16_t refusedPort(int family = AF_INET) {
    const int listener = listenOnLoopback(family, 1);
    const std::uint16_t port = portOf(listener);
    close(listener);
    return port;
}

std::string address(const std::string& host, std::uint16_t port) {
    return host + ":" + std::to_string(port);
}

sockaddr_storage loopback(std::uint16_t port) {
    sockaddr_in v4{};
    v4.sin_family = AF_INET;
    v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    v4.sin_port = htons(port);
    sockaddr_storage address{};
    std::memcpy(&address, &v4, sizeof v4);
    return address;
}

TEST_F(ConnectTest, PlainSchemesAreReadyAtOnce) {
    for (const char* scheme : {"http", "tcp", "HTTP"}) {
        TestPeer peer([](PeerConnection& connection) { connection.waitForEnd(); });
        SekHandle handle;
        EXPECT_EQ(handle.connectUrl(peer.url(scheme)), SEK_Ok) << handle.details();
        EXPECT_FALSE(handle.hasDetails());
    }
}

TEST_F(ConnectTest, RepeatedConnectToTheSameAddressIsFine) {
    TestPeer peer([](PeerConnection& connection) { connection.waitForEnd(); });
    SekHandle handle;
    ASSERT_EQ(handle.connectUrl(peer.url("tcp")), SEK_Ok);
    EXPECT_EQ(handle.connectUrl(peer.url("tcp")), SEK_Ok);
    EXPECT_EQ(handle.connectUrl("tcp://127.0.0.1:1"), SEK_Failed);
    EXPECT_EQ(handle.details(), "cannot connect to tcp://127.0.0.1:1: already connected to " +
                                    address("127.0.0.1", peer.port()));
}

TEST_F(ConnectTest, LocalhostIsResolvedInTheSessionsFamily) {
    TestPeer v4([](PeerConnection& connection) { connection.waitForEnd(); });
    TestPeer v6([](PeerConnection& connection) { connection.waitForEnd(); }, 1, AF_INET6);
    SekHandle first("IPv4");
    EXPECT_EQ(first.connectUrl(v4.url("http", "localhost")), SEK_Ok) << first.details();
    SekHandle second("IPv6");
    EXPECT_EQ(second.connectUrl(v6.url("http", "[::1]")), SEK_Ok) << second.details();
}

TEST_F(ConnectTest, TheOtherFamilyIsNeverTried) {
    TestPeer v6([](PeerConnection&) {}, 1, AF_INET6);
    SekHandle handle("IPv4");
    ASSERT_EQ(handle.connectUrl(v6.url("http", "localhost")), SEK_Failed);
    EXPECT_EQ(handle.details(), "cannot connect to " + address("localhost", v6.port()) +
                                    " (IPv4): " + address("127.0.0.1", v6.port()) + ": Connection refused");
}

TEST_F(ConnectTest, RefusedPortNamesTheAddress) {
    const std::uint16_t port = refusedPort(AF_INET6);
    SekHandle handle("IPv6");
    ASSERT_EQ(handle.connectUrl("http://" + address("[::1]", port)), SEK_Failed);
    EXPECT_EQ(handle.details(), "cannot connect to " + address("[::1]", port) +
                                    " (IPv6): " + address("[::1]", port) + ": Connection refused");
}

TEST_F(ConnectTest, ARefusedHandleMayTryAgain) {
    const std::uint16_t port = refusedPort();
    SekHandle handle;
    ASSERT_EQ(handle.connectUrl("http://" + address("127.0.0.1", port)), SEK_Failed);
    TestPeer peer([](PeerConnection& connection) { connection.waitForEnd(); });
    EXPECT_EQ(handle.connectUrl(peer.url("http")), SEK_Ok) << handle.details();
    EXPECT_FALSE(handle.hasDetails());
}

TEST_F(ConnectTest, UnresolvableNameSaysSo) {
    SekHandle handle;
    ASSERT_EQ(handle.connectUrl("http://no-such-host.invalid:80"), SEK_Failed);
    EXPECT_EQ(handle.details().rfind("cannot resolve no-such-host.invalid (IPv4): ", 0), 0U)
        << handle.details();
}

TEST_F(ConnectTest, LiteralOfTheOtherFamilyIsRefused) {
    SekHandle v4("IPv4");
    ASSERT_EQ(v4.connectUrl("http://[::1]:80"), SEK_Failed);
    EXPECT_EQ(v4.details().rfind("cannot resolve ::1 (IPv4): ", 0), 0U) << v4.details();
    SekHandle v6("IPv6");
    ASSERT_EQ(v6.connectUrl("http://127.0.0.1:80"), SEK_Failed);
    EXPECT_EQ(v6.details().rfind("cannot resolve 127.0.0.1 (IPv6): ", 0), 0U) << v6.details();
}

TEST_F(ConnectTest, AFailureNamesTheZoneOfTheAddress) {
    SekHandle handle("IPv6");
    ASSERT_EQ(handle.connectUrl("http://[fe80::1%25lo]:81"), SEK_Failed);
    // Whether nobody listens or nothing leads there depends on the machine.
    EXPECT_EQ(handle.details().rfind("cannot connect to [fe80::1%lo]:81 (IPv6): [fe80::1%lo]:81: ", 0), 0U)
        << handle.details();
}

TEST_F(ConnectTest, BadAddressesAreRefused) {
    SekHandle handle;
    EXPECT_EQ(handle.connectUrl("ftp://host"), SEK_Failed);
    EXPECT_EQ(handle.details(), "bad address \"ftp://host\": unknown scheme");
    EXPECT_EQ(handle.connectUrl("http://127.0.0.1:0"), SEK_Failed);
    EXPECT_EQ(handle.details(), "cannot connect to 127.0.0.1:0: no port");
    EXPECT_EQ(SEK_Connect_Url(handle.get(), nullptr, nullptr), SEK_Failed);
    EXPECT_EQ(handle.details(), "no URL given");
}

TEST_F(ConnectTest, DetailsAreOneLineWhateverTheAddressHolds) {
    SekHandle handle;
    EXPECT_EQ(handle.connectUrl("http://a\nERROR b\x7f"), SEK_Failed);
    EXPECT_EQ(handle.details(), "bad address \"http://a ERROR b \": bad host name");
}

TEST_F(ConnectTest, TheConnectDocumentIsCheckedToo) {
    SekHandle handle;
    const std::string url = "http://127.0.0.1:1";
    EXPECT_EQ(SEK_Connect_Url(handle.get(), text(url), text("<x/>")), SEK_Failed);
    EXPECT_EQ(handle.details(), "bad sessionConfigDocument: root element is x");
    EXPECT_EQ(SEK_Connect_Url(handle.get(), text(url), text(sessionDocument("IPv6"))), SEK_Failed);
    EXPECT_EQ(handle.details(), "bad sessionConfigDocument: the handle is for IPv4");
}

TEST_F(ConnectTest, ConnectByAddressIsPlain) {
    TestPeer peer([](PeerConnection& connection) { connection.write("hello"); });
    sockaddr_storage address = loopback(peer.port());
    SekHandle handle;
    ASSERT_EQ(SEK_Connect(handle.get(), &address, sizeof address, nullptr), SEK_Ok) << handle.details();
    EXPECT_EQ(handle.receive().data, "hello");
}

// The URL of an attempt that failed says nothing of the plain connection that follows on the same handle.
TEST_F(ConnectTest, APlainConnectionIsNotThatOfAnEarlierUrl) {
    TestPeer peer([](PeerConnection& connection) {
        connection.write("no handshake");
        connection.waitForEnd();
    });
    SekHandle handle;
    ASSERT_EQ(handle.connectUrl(peer.url("https")), SEK_HandshakePending);
    ASSERT_EQ(SEK_EstablishSecure(handle.get(), nullptr), SEK_Failed);
    sockaddr_storage address = loopback(peer.port());
    ASSERT_EQ(SEK_Connect(handle.get(), &address, sizeof address, nullptr), SEK_Ok) << handle.details();
    EXPECT_EQ(handle.connectUrl(peer.url("https")), SEK_Failed);
}

TEST_F(ConnectTest, BadAddressArgumentsAreRefused) {
    SekHandle handle;
    sockaddr_storage address{};
    EXPECT_EQ(SEK_Connect(handle.get(), nullptr, 16, nullptr), SEK_Failed);
    EXPECT_EQ(handle.details(), "no address given");
    EXPECT_EQ(SEK_Connect(handle.get(), &address, 3, nullptr), SEK_Failed);
    EXPECT_EQ(handle.details(), "address too short");
    EXPECT_EQ(SEK_Connect(handle.get(), &address, -1, nullptr), SEK_Failed);
    EXPECT_EQ(handle.details(), "address too short");
    address.ss_family = AF_INET6;
    EXPECT_EQ(SEK_Connect(handle.get(), &address, sizeof address, nullptr), SEK_Failed);
    EXPECT_EQ(handle.details(), "address is not of the session's family IPv4");
}

}  // namespace
