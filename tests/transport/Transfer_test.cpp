#include <chrono>
#include <future>
#include <thread>
#include <vector>

#include "TransportTest.h"

namespace {

// Every transfer behaves the same over either kind of connection.
class TransferTest : public TlsTest, public testing::WithParamInterface<const char*> {
  protected:
    bool isSecure() const { return std::string(GetParam()) == "https"; }
    TestPeer::Script script(TestPeer::Script rest) const {
        return isSecure() ? tlsScript(std::move(rest)) : std::move(rest);
    }
    static void open(SekHandle& handle, const TestPeer& peer) {
        ASSERT_EQ(handle.open(peer.url(GetParam())), SEK_Ok) << handle.details();
    }
};

INSTANTIATE_TEST_SUITE_P(Schemes, TransferTest, testing::Values("http", "https"),
                         [](const auto& scheme) { return std::string(scheme.param); });

TEST_P(TransferTest, SendsEveryByteOfALargeMessage) {
    std::string received;
    TestPeer peer(script([&](PeerConnection& connection) {
        for (std::string block = connection.read(); !block.empty(); block = connection.read())
            received += block;
    }));
    std::string message;
    for (std::size_t i = 0; i < 3'000'000; ++i)
        message += static_cast<char>(i * 7 % 251);
    {
        SekHandle handle;
        open(handle, peer);
        long sent = 0;
        EXPECT_EQ(handle.send(message, &sent), SEK_Ok) << handle.details();
        EXPECT_EQ(sent, static_cast<long>(message.size()));
    }
    peer.join();
    EXPECT_EQ(received, message);
}

TEST_P(TransferTest, AnEmptyMessageIsSentAsNothing) {
    TestPeer peer(script([](PeerConnection& connection) { connection.waitForEnd(); }));
    SekHandle handle;
    open(handle, peer);
    long sent = -1;
    EXPECT_EQ(handle.send("", &sent), SEK_Ok);
    EXPECT_EQ(sent, 0);
    EXPECT_EQ(SEK_Send(handle.get(), nullptr, 0, 0, nullptr, nullptr), SEK_Ok) << handle.details();
}

TEST_P(TransferTest, ReadsAnAnswerInSeveralBlocks) {
    TestPeer peer(script([](PeerConnection& connection) {
        connection.read();
        for (int i = 0; i < 100; ++i)
            connection.write(std::string(1000, static_cast<char>('a' + i % 26)));
        connection.closePolitely();
    }));
    SekHandle handle;
    open(handle, peer);
    ASSERT_EQ(handle.send("ping"), SEK_Ok);
    const Received all = handle.receiveAll();
    EXPECT_EQ(all.result, SEK_Ok) << handle.details();
    EXPECT_EQ(all.data.size(), 100'000U);
    EXPECT_EQ(all.data.substr(0, 1001), std::string(1000, 'a') + "b");
}

TEST_P(TransferTest, ReadsNoMoreThanThereIsRoomFor) {
    TestPeer peer(script([](PeerConnection& connection) {
        connection.write("abcdef");
        connection.waitForEnd();
    }));
    SekHandle handle;
    open(handle, peer);
    EXPECT_EQ(handle.receive(2).data, "ab");
    const Received nothing = handle.receive(0);
    EXPECT_EQ(nothing.result, SEK_Ok);
    EXPECT_EQ(nothing.data, "");
    EXPECT_EQ(handle.receive(100).data, "cdef");
}

TEST_P(TransferTest, AnswersThatDripArriveOneByOne) {
    TestPeer peer(script([](PeerConnection& connection) {
        for (const char* byte : {"a", "b", "c"}) {
            connection.write(byte);
            connection.read();
        }
    }));
    SekHandle handle;
    open(handle, peer);
    for (const char* byte : {"a", "b", "c"}) {
        ASSERT_EQ(handle.poll(10000).result, SEK_Ok);
        EXPECT_EQ(handle.receive().data, byte);
        EXPECT_EQ(handle.send("next"), SEK_Ok);
    }
}

TEST_P(TransferTest, TheReceiveLimitEndsTheWait) {
    TestPeer peer(script([](PeerConnection& connection) { connection.waitForEnd(); }));
    SekHandle handle;
    open(handle, peer);
    handle.limit(SO_RCVTIMEO, 50);
    EXPECT_EQ(handle.receive().result, SEK_Failed);
    EXPECT_EQ(handle.details(),
              "cannot receive from 127.0.0.1:" + std::to_string(peer.port()) + ": no data in time");
}

TEST_P(TransferTest, AReadWithoutLimitWaitsForTheAnswer) {
    std::promise<void> go;
    TestPeer peer(script([&](PeerConnection& connection) {
        go.get_future().wait();
        connection.write("late");
        connection.waitForEnd();
    }));
    SekHandle handle;
    open(handle, peer);
    auto answer = std::async(std::launch::async, [&] { return handle.receive().data; });
    EXPECT_EQ(answer.wait_for(std::chrono::milliseconds(30)), std::future_status::timeout);
    go.set_value();
    EXPECT_EQ(answer.get(), "late");
}

TEST_P(TransferTest, BadArgumentsAreRefused) {
    TestPeer peer(script([](PeerConnection& connection) { connection.waitForEnd(); }));
    SekHandle handle;
    open(handle, peer);
    char byte = 0;
    long count = 0;
    EXPECT_EQ(SEK_Send(handle.get(), &byte, -1, 0, &count, nullptr), SEK_Failed);
    EXPECT_EQ(handle.details(), "negative length");
    EXPECT_EQ(SEK_Send(handle.get(), nullptr, 1, 0, &count, nullptr), SEK_Failed);
    EXPECT_EQ(handle.details(), "no memory given");
    EXPECT_EQ(SEK_Send(handle.get(), &byte, 1, 1, &count, nullptr), SEK_Failed);
    EXPECT_EQ(handle.details(), "flags are not supported");
    EXPECT_EQ(SEK_Recv(handle.get(), &byte, -1, 0, &count, nullptr), SEK_Failed);
    EXPECT_EQ(handle.details(), "negative length");
    EXPECT_EQ(SEK_Recv(handle.get(), &byte, 1, 1, &count, nullptr), SEK_Failed);
    EXPECT_EQ(handle.details(), "flags are not supported");
    EXPECT_EQ(SEK_Recv(handle.get(), &byte, 1, 0, nullptr, nullptr), SEK_Failed);
    EXPECT_EQ(handle.details(), "no place for the number of bytes given");
}

TEST_P(TransferTest, ManyThreadsUseTheirOwnHandles) {
    constexpr int threads = 8;
    constexpr int rounds = 5;
    std::vector<std::unique_ptr<TestPeer>> peers;
    std::vector<std::future<int>> results;
    for (int i = 0; i < threads; ++i) {
        peers.push_back(std::make_unique<TestPeer>(script([](PeerConnection& connection) {
                                                       connection.write(connection.read());
                                                       connection.closePolitely();
                                                   }),
                                                   rounds));
        results.push_back(std::async(std::launch::async, [&peer = *peers.back(), i] {
            int good = 0;
            for (int round = 0; round < rounds; ++round) {
                SekHandle handle;
                const std::string message = std::to_string(i * rounds + round);
                if (handle.open(peer.url(GetParam())) != SEK_Ok) continue;
                if (handle.send(message) == SEK_Ok && handle.receive().data == message) ++good;
            }
            return good;
        }));
    }
    for (std::future<int>& result : results)
        EXPECT_EQ(result.get(), rounds);
}

TEST_P(TransferTest, AHandleMayMoveBetweenThreads) {
    TestPeer peer(script([](PeerConnection& connection) {
        connection.write(connection.read());
        connection.waitForEnd();
    }));
    SekHandle handle;
    std::thread([&] { open(handle, peer); }).join();
    std::thread([&] { EXPECT_EQ(handle.send("ping"), SEK_Ok); }).join();
    std::thread([&] { EXPECT_EQ(handle.receive().data, "ping"); }).join();
    EXPECT_EQ(handle.send("again"), SEK_Ok);
}

}  // namespace
