#include <netinet/in.h>
#include <unistd.h>

#include <chrono>
#include <future>

#include "TransportTest.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

std::int64_t msSince(steady_clock::time_point start) {
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - start).count();
}

std::string refusalOf(SekHandle& handle, const TestPeer& peer, const std::string& what) {
    const std::string prefix = what + "127.0.0.1:" + std::to_string(peer.port());
    const std::string text = handle.details();
    return text.rfind(prefix, 0) == 0 ? text.substr(prefix.size()) : "not about the peer: " + text;
}

class MisbehaviourTest : public TlsTest {
  protected:
    // The script of a peer that speaks that scheme.
    TestPeer::Script script(const std::string& scheme, TestPeer::Script rest) const {
        return scheme == "https" ? tlsScript(std::move(rest)) : rest;
    }
};

TEST_F(MisbehaviourTest, ASilentPeerMakesTheHandshakeAskToBeCalledAgain) {
    TestPeer peer([](PeerConnection& connection) { connection.waitForEnd(); });
    SekHandle handle;
    ASSERT_EQ(handle.connectUrl(peer.url("https")), SEK_HandshakePending);
    const auto start = steady_clock::now();
    EXPECT_EQ(handle.establish(), SEK_CallAgain);
    EXPECT_GE(msSince(start), 1900);
    EXPECT_LT(msSince(start), 4000);
    EXPECT_FALSE(handle.hasDetails());
    EXPECT_EQ(handle.connectUrl(peer.url("https")), SEK_HandshakePending);
}

TEST_F(MisbehaviourTest, AHandshakeThatTakesUndulyLongSaysSo) {
    TestPeer peer([](PeerConnection& connection) { connection.waitForEnd(); });
    SekHandle handle;
    ASSERT_EQ(handle.connectUrl(peer.url("https")), SEK_HandshakePending);
    for (int call = 1; call < 5; ++call) {
        EXPECT_EQ(handle.establish(), SEK_CallAgain);
        EXPECT_FALSE(handle.hasDetails()) << call;
    }
    EXPECT_EQ(handle.establish(), SEK_CallAgain);
    EXPECT_EQ(refusalOf(handle, peer, "TLS handshake with "), " not finished after 10 s");
    EXPECT_EQ(handle.connectUrl(peer.url("https")), SEK_HandshakePending);
}

TEST_F(MisbehaviourTest, AHandshakeThatWasInterruptedGoesOnWhereItWas) {
    std::promise<void> mayAnswer;
    TestPeer peer([&, context = server()](PeerConnection& connection) {
        mayAnswer.get_future().wait();
        if (connection.acceptTls(context)) connection.waitForEnd();
    });
    SekHandle handle;
    ASSERT_EQ(handle.connectUrl(peer.url("https")), SEK_HandshakePending);
    EXPECT_EQ(handle.establish(), SEK_CallAgain);
    mayAnswer.set_value();
    EXPECT_EQ(handle.establish(), SEK_Ok) << handle.details();
}

TEST_F(MisbehaviourTest, ClosingAtOnceFailsTheHandshake) {
    TestPeer peer([](PeerConnection& connection) { connection.closePolitely(); });
    SekHandle handle;
    EXPECT_EQ(handle.open(peer.url("https")), SEK_Failed);
    EXPECT_EQ(refusalOf(handle, peer, "TLS handshake with "),
              " failed: unexpected eof while reading (the peer ended the connection without a TLS close "
              "notification)");
}

TEST_F(MisbehaviourTest, ResetBeforeTheHandshakeIsReported) {
    TestPeer peer([](PeerConnection& connection) { connection.reset(); });
    SekHandle handle;
    // The reset may arrive while the connection is being made or when the first bytes are sent.
    ASSERT_NE(handle.open(peer.url("https")), SEK_Ok);
    EXPECT_NE(handle.details().find("127.0.0.1:" + std::to_string(peer.port())), std::string::npos);
    EXPECT_NE(handle.details().find("Connection reset by peer"), std::string::npos) << handle.details();
}

TEST_F(MisbehaviourTest, ResetDuringTheHandshakeIsReported) {
    TestPeer peer([](PeerConnection& connection) {
        connection.read();
        connection.reset();
    });
    SekHandle handle;
    EXPECT_EQ(handle.open(peer.url("https")), SEK_Failed);
    EXPECT_EQ(refusalOf(handle, peer, "TLS handshake with "), " failed: Connection reset by peer");
}

TEST_F(MisbehaviourTest, ResetAfterTheHandshakeIsReportedByTheRead) {
    TestPeer peer(tlsScript([](PeerConnection& connection) {
        connection.read();
        connection.reset();
    }));
    SekHandle handle;
    ASSERT_EQ(handle.open(peer.url("https")), SEK_Ok) << handle.details();
    ASSERT_EQ(handle.send("ping"), SEK_Ok);
    const Polled polled = handle.poll(10000);
    EXPECT_EQ(polled.result, SEK_Ok);
    EXPECT_TRUE(polled.readable);
    EXPECT_EQ(handle.receive().result, SEK_Failed);
    EXPECT_EQ(refusalOf(handle, peer, "cannot receive from "), ": Connection reset by peer");
    EXPECT_EQ(handle.receive().result, SEK_Failed);  // and once more, with the same reason
    EXPECT_EQ(refusalOf(handle, peer, "cannot receive from "), ": Connection reset by peer");
}

TEST_F(MisbehaviourTest, ResetBeforeTheCommandIsReadIsReported) {
    for (const char* scheme : {"http", "https"}) {
        std::promise<void> sent;
        TestPeer peer(script(scheme, [&](PeerConnection& connection) {
            sent.get_future().wait();
            connection.reset();
        }));
        SekHandle handle;
        ASSERT_EQ(handle.open(peer.url(scheme)), SEK_Ok) << handle.details();
        ASSERT_EQ(handle.send("ping"), SEK_Ok) << handle.details();
        sent.set_value();
        EXPECT_EQ(handle.poll(10000).result, SEK_Ok);
        EXPECT_EQ(handle.receive().result, SEK_Failed);
        EXPECT_EQ(refusalOf(handle, peer, "cannot receive from "), ": Connection reset by peer");
    }
}

TEST_F(MisbehaviourTest, ResetWithinTheAnswerIsReportedAfterItsBeginning) {
    for (const char* scheme : {"http", "https"}) {
        std::promise<void> read;
        TestPeer peer(script(scheme, [&](PeerConnection& connection) {
            connection.read();
            connection.write("half an ans");
            read.get_future().wait();
            connection.reset();
        }));
        SekHandle handle;
        ASSERT_EQ(handle.open(peer.url(scheme)), SEK_Ok) << handle.details();
        ASSERT_EQ(handle.send("ping"), SEK_Ok) << handle.details();
        EXPECT_EQ(handle.receive().data, "half an ans");
        read.set_value();
        EXPECT_EQ(handle.poll(10000).result, SEK_Ok);
        EXPECT_EQ(handle.receive().result, SEK_Failed);
        EXPECT_EQ(refusalOf(handle, peer, "cannot receive from "), ": Connection reset by peer");
    }
}

TEST_F(MisbehaviourTest, ResetInPlaceOfAFarewellDoesNotTroubleTheClose) {
    for (const char* scheme : {"http", "https"}) {
        TestPeer peer(script(scheme, [](PeerConnection& connection) {
            connection.waitForEnd();
            connection.reset();
        }));
        SekHandle handle;
        ASSERT_EQ(handle.open(peer.url(scheme)), SEK_Ok) << handle.details();
        EXPECT_EQ(handle.close(), SEK_Ok);
        EXPECT_FALSE(::hasDetails(nullptr));
    }
}

// Neither side of the connection is ended by the other: the close waits its tenth of a second and leaves.
TEST_F(MisbehaviourTest, APeerThatNeverClosesDoesNotHoldTheClose) {
    for (const char* scheme : {"http", "https"}) {
        std::promise<void> closed;
        TestPeer peer(script(scheme, [&](PeerConnection&) { closed.get_future().wait(); }));
        SekHandle handle;
        ASSERT_EQ(handle.open(peer.url(scheme)), SEK_Ok) << handle.details();
        const auto start = steady_clock::now();
        EXPECT_EQ(handle.close(), SEK_Ok);
        EXPECT_GE(msSince(start), 90);
        EXPECT_LT(msSince(start), 2000);
        closed.set_value();
    }
}

TEST_F(MisbehaviourTest, PlainResetIsReportedByTheRead) {
    TestPeer peer([](PeerConnection& connection) {
        connection.read();
        connection.reset();
    });
    SekHandle handle;
    ASSERT_EQ(handle.open(peer.url("http")), SEK_Ok);
    ASSERT_EQ(handle.send("ping"), SEK_Ok);
    EXPECT_EQ(handle.poll(10000).result, SEK_Ok);
    EXPECT_EQ(handle.receive().result, SEK_Failed);
    EXPECT_EQ(refusalOf(handle, peer, "cannot receive from "), ": Connection reset by peer");
}

// The write that follows a reset would raise SIGPIPE, which this process has left at its default: it would
// end here.
TEST_F(MisbehaviourTest, WritingToAPeerThatHasGoneNeverRaisesSigpipe) {
    for (const char* scheme : {"http", "https"}) {
        TestPeer peer(script(scheme, [](PeerConnection& connection) {
            connection.read();
            connection.reset();
        }));
        SekHandle handle;
        ASSERT_EQ(handle.open(peer.url(scheme)), SEK_Ok) << handle.details();
        ASSERT_EQ(handle.send("go"), SEK_Ok) << handle.details();
        peer.join();
        EXPECT_EQ(handle.poll(10000).result, SEK_Ok);
        EXPECT_EQ(handle.receive().result, SEK_Failed);
        EXPECT_EQ(handle.send("ping"), SEK_Failed);
        EXPECT_EQ(handle.send("ping"), SEK_Failed);
        EXPECT_EQ(handle.details().rfind("cannot send to 127.0.0.1:", 0), 0U) << handle.details();
    }
}

TEST_F(MisbehaviourTest, AnAnswerCutOffWithoutNotificationIsAFailure) {
    TestPeer peer(tlsScript([](PeerConnection& connection) {
        connection.read();
        connection.write("half an ans");
        connection.closeAbruptly();
    }));
    SekHandle handle;
    ASSERT_EQ(handle.open(peer.url("https")), SEK_Ok) << handle.details();
    ASSERT_EQ(handle.send("ping"), SEK_Ok);
    EXPECT_EQ(handle.receive().data, "half an ans");
    EXPECT_EQ(handle.poll(10000).result, SEK_Ok);
    EXPECT_EQ(handle.receive().result, SEK_Failed);
    EXPECT_EQ(
        refusalOf(handle, peer, "cannot receive from "),
        ": unexpected eof while reading (the peer ended the connection without a TLS close notification)");
}

TEST_F(MisbehaviourTest, DataThatIsNoRecordIsAFailure) {
    TestPeer peer(tlsScript([](PeerConnection& connection) {
        connection.read();
        const std::string noise = "this is no record at all, far from it";
        EXPECT_GT(send(connection.descriptor(), noise.data(), noise.size(), MSG_NOSIGNAL), 0);
        connection.waitForEnd();
    }));
    SekHandle handle;
    ASSERT_EQ(handle.open(peer.url("https")), SEK_Ok) << handle.details();
    ASSERT_EQ(handle.send("ping"), SEK_Ok);
    EXPECT_EQ(handle.poll(10000).result, SEK_Ok);
    EXPECT_EQ(handle.receive().result, SEK_Failed);
    EXPECT_NE(refusalOf(handle, peer, "cannot receive from "), "");
}

TEST_F(MisbehaviourTest, AHandshakeThatDripsIsCutIntoCalls) {
    // A record header that promises more than ever comes: a byte now and then keeps the connection alive, and
    // each call still ends at its limit.
    TestPeer peer([](PeerConnection& connection) {
        const std::string header("\x16\x03\x03\x40\x00", 5);
        connection.write(header);
        const timeval pace{0, 100'000};
        setsockopt(connection.descriptor(), SOL_SOCKET, SO_RCVTIMEO, &pace, sizeof pace);
        bool open = true;
        while (open) {
            char byte = 0;
            open = connection.write("x") && recv(connection.descriptor(), &byte, 1, 0) != 0;
        }
    });
    SekHandle handle;
    ASSERT_EQ(handle.connectUrl(peer.url("https")), SEK_HandshakePending);
    const auto start = steady_clock::now();
    EXPECT_EQ(handle.establish(), SEK_CallAgain) << handle.details();
    EXPECT_LT(msSince(start), 4000);
    handle.close();
}

TEST_F(MisbehaviourTest, APeerThatTakesNoDataEndsTheSend) {
    for (const char* scheme : {"http", "https"}) {
        const bool secure = std::string(scheme) == "https";
        std::promise<void> done;
        TestPeer peer([secure, &done, context = server()](PeerConnection& connection) {
            if (!secure || connection.acceptTls(context)) done.get_future().wait();
        });
        SekHandle handle;
        ASSERT_EQ(handle.open(peer.url(scheme)), SEK_Ok) << handle.details();
        handle.limit(SO_SNDTIMEO, 100);
        long sent = -1;
        EXPECT_EQ(handle.send(std::string(64U << 20U, 'x'), &sent), SEK_Failed);
        EXPECT_EQ(refusalOf(handle, peer, "cannot send to "), ": the peer takes no data");
        EXPECT_GT(sent, 0);
        EXPECT_LT(sent, long{64L << 20});
        // A record that was cut off cannot be taken up again; plain bytes could.
        if (secure) {
            EXPECT_EQ(handle.send("more"), SEK_Failed);
        }
        const auto start = steady_clock::now();
        handle.close();
        EXPECT_LT(msSince(start), 2000);
        done.set_value();
    }
}

TEST_F(MisbehaviourTest, EndlessDataDoesNotHoldTheClose) {
    for (const char* scheme : {"http", "https"}) {
        TestPeer peer(script(scheme, [](PeerConnection& connection) {
            while (connection.write(std::string(16384, 'x')))
                continue;
        }));
        SekHandle handle;
        ASSERT_EQ(handle.open(peer.url(scheme)), SEK_Ok) << handle.details();
        EXPECT_EQ(handle.receive(100).data.size(), 100U);
        const auto start = steady_clock::now();
        EXPECT_EQ(handle.close(), SEK_Ok);
        EXPECT_LT(msSince(start), 2000);
    }
}

TEST_F(MisbehaviourTest, ClosingAfterHalfAnAnswerLeavesThePeerUndisturbed) {
    bool endedCleanly = false;
    TestPeer peer([&](PeerConnection& connection) {
        connection.read();
        connection.write(std::string(200'000, 'x'));
        char byte = 0;
        endedCleanly = recv(connection.descriptor(), &byte, 1, 0) == 0;
    });
    {
        SekHandle handle;
        ASSERT_EQ(handle.open(peer.url("http")), SEK_Ok);
        ASSERT_EQ(handle.send("ping"), SEK_Ok);
        EXPECT_EQ(handle.receive(4).data, "xxxx");
    }
    peer.join();
    EXPECT_TRUE(endedCleanly);
}

TEST_F(MisbehaviourTest, CloseTellsATlsPeerTheEnd) {
    int shutdown = 0;
    TestPeer peer(tlsScript([&](PeerConnection& connection) {
        connection.waitForEnd();
        shutdown = SSL_get_shutdown(connection.tls());
    }));
    {
        SekHandle handle;
        ASSERT_EQ(handle.open(peer.url("https")), SEK_Ok) << handle.details();
    }
    peer.join();
    EXPECT_EQ(shutdown & SSL_RECEIVED_SHUTDOWN, SSL_RECEIVED_SHUTDOWN);
}

TEST_F(MisbehaviourTest, ARequestToRenegotiateIsNotFollowed) {
    const PeerContext context = server();
    SSL_CTX_set_max_proto_version(context.get(), TLS1_2_VERSION);
    TestPeer peer([context](PeerConnection& connection) {
        if (!connection.acceptTls(context)) return;
        SSL_renegotiate(connection.tls());
        SSL_do_handshake(connection.tls());
        connection.write("answer");
        connection.waitForEnd();
    });
    SekHandle handle;
    ASSERT_EQ(handle.open(peer.url("https")), SEK_Ok) << handle.details();
    const Received received = handle.receive();
    EXPECT_TRUE(received.result == SEK_Failed || received.data == "answer");
}

}  // namespace
