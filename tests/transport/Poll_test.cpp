#include <sys/socket.h>

#include <chrono>
#include <future>
#include <vector>

#include "SEK_HandleSet.h"
#include "TransportTest.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

class PollTest : public TlsTest {
  protected:
    // A peer that sends what the test asks for, when it asks.
    TestPeer::Script onDemand(bool secure) {
        return [this, secure, context = server()](PeerConnection& connection) {
            if (secure && !connection.acceptTls(context)) return;
            m_go.get_future().wait();
            connection.write("answer");
            connection.waitForEnd();
        };
    }
    void letPeerAnswer() { m_go.set_value(); }

  private:
    std::promise<void> m_go;
};

TEST_F(PollTest, TimesOutWithoutData) {
    TestPeer peer(onDemand(true));
    SekHandle handle;
    ASSERT_EQ(handle.open(peer.url("https")), SEK_Ok) << handle.details();
    const auto start = steady_clock::now();
    // The session tickets that follow the handshake are no data.
    const Polled polled = handle.poll(120);
    EXPECT_EQ(polled.result, SEK_TimedOut);
    EXPECT_FALSE(polled.readable);
    EXPECT_GE(steady_clock::now() - start, milliseconds(119));
    EXPECT_EQ(handle.poll(0).result, SEK_TimedOut);
    letPeerAnswer();
    EXPECT_EQ(handle.poll(10000).result, SEK_Ok);
    EXPECT_EQ(handle.receive().data, "answer");
}

TEST_F(PollTest, WaitsWithoutLimitForAPlainAnswer) {
    TestPeer peer(onDemand(false));
    SekHandle handle;
    ASSERT_EQ(handle.open(peer.url("http")), SEK_Ok);
    EXPECT_EQ(handle.poll(0).result, SEK_TimedOut);
    letPeerAnswer();
    const Polled polled = handle.poll(-1);
    EXPECT_EQ(polled.result, SEK_Ok);
    EXPECT_TRUE(polled.readable);
}

TEST_F(PollTest, DataThatTlsHasAlreadyTakenInCounts) {
    TestPeer peer(tlsScript([](PeerConnection& connection) {
        connection.write("one record");
        connection.waitForEnd();
    }));
    SekHandle handle;
    ASSERT_EQ(handle.open(peer.url("https")), SEK_Ok) << handle.details();
    EXPECT_EQ(handle.receive(4).data, "one ");
    EXPECT_EQ(handle.poll(0).result, SEK_Ok);
    EXPECT_EQ(handle.receive(100).data, "record");
    EXPECT_EQ(handle.poll(0).result, SEK_TimedOut);
}

TEST_F(PollTest, TicketsBeforeTheAnswerDoNotCount) {
    std::promise<void> go;
    TestPeer peer(tlsScript([&](PeerConnection& connection) {
        for (int i = 0; i < 5; ++i) {
            SSL_new_session_ticket(connection.tls());
            SSL_do_handshake(connection.tls());
        }
        go.get_future().wait();
        connection.write("answer");
        connection.waitForEnd();
    }));
    SekHandle handle;
    ASSERT_EQ(handle.open(peer.url("https")), SEK_Ok) << handle.details();
    EXPECT_EQ(handle.poll(100).result, SEK_TimedOut);
    go.set_value();
    EXPECT_EQ(handle.poll(10000).result, SEK_Ok);
    EXPECT_EQ(handle.receive().data, "answer");
}

TEST_F(PollTest, ThePeersEndIsReadable) {
    for (const char* scheme : {"http", "https"}) {
        const bool secure = std::string(scheme) == "https";
        TestPeer peer([secure, context = server()](PeerConnection& connection) {
            if (secure) connection.acceptTls(context);
            connection.closePolitely();
        });
        SekHandle handle;
        ASSERT_EQ(handle.open(peer.url(scheme)), SEK_Ok) << handle.details();
        const Polled polled = handle.poll(10000);
        EXPECT_EQ(polled.result, SEK_Ok);
        EXPECT_TRUE(polled.readable);
        const Received received = handle.receive();
        EXPECT_EQ(received.result, SEK_Ok) << handle.details();
        EXPECT_EQ(received.data, "");
    }
}

TEST_F(PollTest, WritableIsReportedWhenAskedFor) {
    TestPeer peer(onDemand(true));
    SekHandle handle;
    ASSERT_EQ(handle.open(peer.url("https")), SEK_Ok) << handle.details();
    const Polled polled = handle.poll(10000, SEK_Readable | SEK_Writable);
    EXPECT_EQ(polled.result, SEK_Ok);
    EXPECT_TRUE(polled.writable);
    EXPECT_FALSE(polled.readable);
    letPeerAnswer();
}

TEST_F(PollTest, AListenerIsReadableWhenSomebodyCalls) {
    SekHandle listener;
    const std::uint16_t port = listener.listen("https");
    EXPECT_EQ(listener.poll(0).result, SEK_TimedOut);
    PeerConnection caller(connectPlain(port));
    EXPECT_EQ(listener.poll(10000).result, SEK_Ok);
}

TEST_F(PollTest, FindsTheOneOfManyThatHasData) {
    constexpr int count = 20;
    SekHandle listener;
    const std::uint16_t port = listener.listen("tcp");
    std::vector<std::unique_ptr<SekHandle>> handles;
    std::vector<std::unique_ptr<PeerConnection>> callers;  // end first, so that no handle waits for them
    std::vector<SEK_Pollfd> entries;
    for (int i = 0; i < count; ++i) {
        callers.push_back(std::make_unique<PeerConnection>(connectPlain(port)));
        handles.push_back(std::make_unique<SekHandle>(listener.accept()));
        entries.push_back({handles.back()->get(), SEK_Readable, 0xffff});
    }
    entries.push_back({nullptr, SEK_Readable, 0xffff});  // passed over
    EXPECT_EQ(SEK_Poll(entries.data(), count + 1, 0, nullptr, nullptr), SEK_TimedOut);
    callers[13]->write("x");
    ASSERT_EQ(SEK_Poll(entries.data(), count + 1, 10000, nullptr, nullptr), SEK_Ok);
    for (int i = 0; i <= count; ++i)
        EXPECT_EQ(entries[static_cast<std::size_t>(i)].revents, i == 13 ? SEK_Readable : 0) << i;
}

TEST_F(PollTest, WrongEntriesAreRefused) {
    int somethingElse = 0;
    SEK_Pollfd wrong{&somethingElse, SEK_Readable, 0};
    char* details = nullptr;
    EXPECT_EQ(SEK_Poll(&wrong, 1, 0, nullptr, &details), SEK_Failed);
    EXPECT_STREQ(details, "not a handle of this library");
    SEK_CryptoFree(details, nullptr);
    EXPECT_EQ(SEK_Poll(nullptr, 1, 0, nullptr, nullptr), SEK_Failed);
    EXPECT_EQ(detailsOf(nullptr), "no memory given");
    EXPECT_EQ(SEK_Poll(&wrong, -1, 0, nullptr, nullptr), SEK_Failed);
    EXPECT_EQ(detailsOf(nullptr), "negative length");
    SekHandle fresh;
    EXPECT_EQ(fresh.poll(0).result, SEK_Failed);
    EXPECT_EQ(detailsOf(nullptr), "cannot wait for a socket that is not connected");
}

class SelectTest : public PollTest {
  protected:
    struct Sets {
        SEK_Handle_Set read{};
        SEK_Handle_Set write{};
    };
    static void add(SEK_Handle_Set& set, const SekHandle& handle) { set.handles[set.count++] = handle.get(); }
};

TEST_F(SelectTest, LeavesTheReadyHandles) {
    SekHandle listener;
    const std::uint16_t port = listener.listen("tcp");
    PeerConnection first(connectPlain(port));
    SekHandle one(listener.accept());
    PeerConnection second(connectPlain(port));
    SekHandle two(listener.accept());
    second.write("x");
    const auto sets = std::make_unique<Sets>();
    add(sets->read, one);
    add(sets->read, two);
    add(sets->write, one);
    long ready = -1;
    const timeval limit{10, 0};
    // Writing is possible at once; the wait for the data must not depend on it.
    ASSERT_EQ(two.poll(10000).result, SEK_Ok);
    ASSERT_EQ(SEK_Select(&sets->read, &sets->write, nullptr, &limit, &ready, nullptr, nullptr), SEK_Ok);
    EXPECT_EQ(ready, 2);
    ASSERT_EQ(sets->read.count, 1U);
    EXPECT_EQ(sets->read.handles[0], two.get());
    EXPECT_EQ(sets->write.count, 1U);
}

TEST_F(SelectTest, TimesOutWithEmptySets) {
    SekHandle listener;
    listener.listen("tcp");
    const auto sets = std::make_unique<Sets>();
    add(sets->read, listener);
    long ready = -1;
    const timeval limit{0, 1000};
    EXPECT_EQ(SEK_Select(&sets->read, nullptr, nullptr, &limit, &ready, nullptr, nullptr), SEK_TimedOut);
    EXPECT_EQ(ready, 0);
    EXPECT_EQ(sets->read.count, 0U);
}

TEST_F(SelectTest, UrgentDataIsAnException) {
    SekHandle listener;
    PeerConnection peer(connectPlain(listener.listen("tcp")));
    SekHandle handle(listener.accept());
    ASSERT_EQ(send(peer.descriptor(), "!", 1, MSG_OOB), 1);
    const auto sets = std::make_unique<Sets>();
    add(sets->read, handle);
    const timeval limit{10, 0};
    EXPECT_EQ(SEK_Select(nullptr, nullptr, &sets->read, &limit, nullptr, nullptr, nullptr), SEK_Ok);
    EXPECT_EQ(sets->read.count, 1U);
}

// The system tells it whatever was asked for: a wait that passed it over would never rest.
TEST_F(SelectTest, AResetIsAnException) {
    SekHandle listener;
    PeerConnection peer(connectPlain(listener.listen("tcp")));
    SekHandle handle(listener.accept());
    peer.reset();
    const auto sets = std::make_unique<Sets>();
    add(sets->read, handle);
    const timeval limit{10, 0};
    EXPECT_EQ(SEK_Select(nullptr, nullptr, &sets->read, &limit, nullptr, nullptr, nullptr), SEK_Ok);
    EXPECT_EQ(sets->read.count, 1U);
}

TEST_F(SelectTest, WrongArgumentsAreRefused) {
    const auto sets = std::make_unique<Sets>();
    sets->read.count = SEK_HandleSetCapacity + 1;
    char* details = nullptr;
    EXPECT_EQ(SEK_Select(&sets->read, nullptr, nullptr, nullptr, nullptr, nullptr, &details), SEK_Failed);
    EXPECT_STREQ(details, "handle set beyond its capacity");
    SEK_CryptoFree(details, nullptr);
    const timeval negative{-1, 0};
    EXPECT_EQ(SEK_Select(nullptr, nullptr, nullptr, &negative, nullptr, nullptr, nullptr), SEK_Failed);
    EXPECT_EQ(detailsOf(nullptr), "bad time limit");
}

}  // namespace
