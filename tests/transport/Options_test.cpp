#include <netinet/in.h>
#include <unistd.h>

#include <cstring>

#include "TransportTest.h"

namespace {

using OptionsTest = TransportTest;

TEST_F(OptionsTest, SocketOptionsReachTheSystem) {
    SekHandle handle;
    const int on = 1;
    ASSERT_EQ(SEK_SetSockOpt(handle.get(), SO_KEEPALIVE, &on, sizeof on, nullptr), SEK_Ok)
        << handle.details();
    int value = 0;
    long length = sizeof value;
    ASSERT_EQ(SEK_GetSockOpt(handle.get(), SO_KEEPALIVE, &value, &length, nullptr), SEK_Ok)
        << handle.details();
    EXPECT_EQ(value, 1);
    EXPECT_EQ(length, long{sizeof value});
}

TEST_F(OptionsTest, OptionsOutliveAFailedAttempt) {
    SekHandle handle;
    const int on = 1;
    ASSERT_EQ(SEK_SetSockOpt(handle.get(), SO_OOBINLINE, &on, sizeof on, nullptr), SEK_Ok);
    const int listener = listenOnLoopback(AF_INET, 1);
    const std::string url = "tcp://127.0.0.1:" + std::to_string(portOf(listener));
    close(listener);
    ASSERT_EQ(handle.connectUrl(url), SEK_Failed);
    ASSERT_EQ(handle.connectUrl(url), SEK_Failed);
    int value = 0;
    long length = sizeof value;
    ASSERT_EQ(SEK_GetSockOpt(handle.get(), SO_OOBINLINE, &value, &length, nullptr), SEK_Ok);
    EXPECT_EQ(value, 1);
}

TEST_F(OptionsTest, TimeLimitsAreKeptByTheLibrary) {
    SekHandle handle;
    timeval value{};
    long length = sizeof value;
    ASSERT_EQ(SEK_GetSockOpt(handle.get(), SO_SNDTIMEO, &value, &length, nullptr), SEK_Ok);
    EXPECT_EQ(value.tv_sec, 60);
    ASSERT_EQ(SEK_GetSockOpt(handle.get(), SO_RCVTIMEO, &value, &length, nullptr), SEK_Ok);
    EXPECT_EQ(value.tv_sec, 0);
    handle.limit(SO_RCVTIMEO, 1500);
    ASSERT_EQ(SEK_GetSockOpt(handle.get(), SO_RCVTIMEO, &value, &length, nullptr), SEK_Ok);
    EXPECT_EQ(value.tv_sec, 1);
    EXPECT_EQ(value.tv_usec, 500'000);
}

// A limit of half a millisecond is not none, and none ends before its time.
TEST_F(OptionsTest, TimeLimitsAreRoundedUp) {
    SekHandle handle;
    for (const long microseconds : {1L, 500L, 1'001L, 1'999L}) {
        const timeval limit{0, microseconds};
        ASSERT_EQ(SEK_SetSockOpt(handle.get(), SO_RCVTIMEO, &limit, sizeof limit, nullptr), SEK_Ok);
        timeval value{};
        long length = sizeof value;
        ASSERT_EQ(SEK_GetSockOpt(handle.get(), SO_RCVTIMEO, &value, &length, nullptr), SEK_Ok);
        EXPECT_EQ(value.tv_usec, microseconds <= 1'000 ? 1'000 : 2'000);
    }
}

TEST_F(OptionsTest, WrongOptionsAreRefusedInWords) {
    SekHandle handle;
    const int on = 1;
    EXPECT_EQ(SEK_SetSockOpt(handle.get(), 9999, &on, sizeof on, nullptr), SEK_Failed);
    EXPECT_EQ(handle.details(), "cannot set socket option 9999: Protocol not available");
    EXPECT_EQ(SEK_SetSockOpt(handle.get(), SO_RCVTIMEO, &on, sizeof on, nullptr), SEK_Failed);
    EXPECT_EQ(handle.details(), "cannot set the time limit: not a timeval");
    EXPECT_EQ(SEK_SetSockOpt(handle.get(), SO_KEEPALIVE, nullptr, 4, nullptr), SEK_Failed);
    EXPECT_EQ(handle.details(), "no memory given");
    EXPECT_EQ(SEK_SetSockOpt(handle.get(), SO_KEEPALIVE, &on, -4, nullptr), SEK_Failed);
    EXPECT_EQ(handle.details(), "negative length");
    int value = 0;
    EXPECT_EQ(SEK_GetSockOpt(handle.get(), SO_KEEPALIVE, &value, nullptr, nullptr), SEK_Failed);
    EXPECT_EQ(handle.details(), "no length given");
    long length = 1;
    EXPECT_EQ(SEK_GetSockOpt(handle.get(), SO_RCVTIMEO, &value, &length, nullptr), SEK_Failed);
    EXPECT_EQ(handle.details(), "cannot read the time limit: no room for a timeval");
}

TEST_F(OptionsTest, NamesTellBothEnds) {
    TestPeer peer([](PeerConnection& connection) { connection.waitForEnd(); });
    SekHandle handle;
    ASSERT_EQ(handle.connectUrl(peer.url("tcp")), SEK_Ok);
    sockaddr_storage address{};
    sockaddr_in v4{};
    long length = sizeof address;
    ASSERT_EQ(SEK_GetPeerName(handle.get(), &address, &length, nullptr), SEK_Ok) << handle.details();
    std::memcpy(&v4, &address, sizeof v4);
    EXPECT_EQ(ntohs(v4.sin_port), peer.port());
    EXPECT_EQ(length, long{sizeof v4});
    ASSERT_EQ(SEK_GetSockName(handle.get(), &address, &length, nullptr), SEK_Ok) << handle.details();
    std::memcpy(&v4, &address, sizeof v4);
    EXPECT_EQ(ntohl(v4.sin_addr.s_addr), INADDR_LOOPBACK);
}

TEST_F(OptionsTest, NamesNeedAConnectionAndRoom) {
    SekHandle handle;
    sockaddr_storage address{};
    long length = sizeof address;
    EXPECT_EQ(SEK_GetPeerName(handle.get(), &address, &length, nullptr), SEK_Failed);
    EXPECT_EQ(handle.details(), "cannot read the peer's address: Transport endpoint is not connected");
    EXPECT_EQ(SEK_GetSockName(handle.get(), nullptr, &length, nullptr), SEK_Failed);
    EXPECT_EQ(handle.details(), "no room for the address given");
    length = 2;  // a short place is filled as far as it goes, and the full length is told
    ASSERT_EQ(SEK_GetSockName(handle.get(), &address, &length, nullptr), SEK_Ok);
    EXPECT_EQ(length, long{sizeof(sockaddr_in)});
}

}  // namespace
