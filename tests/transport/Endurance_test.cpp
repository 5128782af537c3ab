#include <malloc.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

#include "TransportTest.h"

namespace {

// Bytes of the heap in use, the peer's thread included. Resident pages would also count what a sanitizer sets
// aside; it looks for leaks itself.
std::size_t heapInUse() {
    return mallinfo2().uordblks;
}

class EnduranceTest : public TlsTest {
  protected:
    static void echoPing(PeerConnection& connection) {
        connection.write(connection.read());
        connection.closePolitely();
    }
    static void exchange(const std::string& url) {
        SekHandle handle;
        ASSERT_EQ(handle.open(url), SEK_Ok) << handle.details();
        ASSERT_EQ(handle.send("ping"), SEK_Ok) << handle.details();
        ASSERT_EQ(handle.receive().data, "ping") << handle.details();
    }
    // After a first tenth, which fills caches, neither descriptors nor memory may grow.
    static void expectSteady(const std::string& url, int count) {
        for (int i = 0; i < count / 10; ++i)
            exchange(url);
        const std::size_t descriptors = openDescriptors();
        const std::size_t heap = heapInUse();
        for (int i = count / 10; i < count; ++i) {
            exchange(url);
            if (HasFatalFailure()) return;
        }
        // The peer may hold one connection more or less at the moment of either count.
        EXPECT_LE(openDescriptors(), descriptors + 1);
        EXPECT_LE(heapInUse(), heap + growthLimitBytes);
    }
    // Room for the one connection that may be under way; a small leak per connection is above it.
    static constexpr std::size_t growthLimitBytes = 192U << 10U;
};

TEST_F(EnduranceTest, TenThousandPlainConnectionsLeaveNothingBehind) {
    constexpr int count = 10'000;
    TestPeer peer(echoPing, count);
    expectSteady(peer.url("http"), count);
}

TEST_F(EnduranceTest, AThousandTlsConnectionsLeaveNothingBehind) {
    constexpr int count = 1'000;
    TestPeer peer(tlsScript(echoPing), count);
    expectSteady(peer.url("https"), count);
}

TEST_F(EnduranceTest, AnUnansweredConnectEndsAfterTenSeconds) {
    // A listener whose queue is full lets further attempts wait for ever.
    const int listener = listenOnLoopback(AF_INET, 0);
    const std::uint16_t port = portOf(listener);
    PeerConnection first(connectPlain(port));
    const std::string url = "https://127.0.0.1:" + std::to_string(port);
    SekHandle handle;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(handle.connectUrl(url), SEK_Failed);
    const auto taken = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(handle.details(), "cannot connect to 127.0.0.1:" + std::to_string(port) +
                                    " (IPv4): 127.0.0.1:" + std::to_string(port) + ": no answer in time");
    EXPECT_GE(taken, std::chrono::milliseconds(9'900));
    EXPECT_LT(taken, std::chrono::milliseconds(12'000));
    close(listener);
}

}  // namespace
