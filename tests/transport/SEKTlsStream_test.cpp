#include "SEKTlsStream.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "SEKDescriptor.h"
#include "SEKErrors.h"

namespace {

unsigned showKey(SSL*, const char*, char* identity, unsigned room, unsigned char* key, unsigned keyRoom) {
    std::strncpy(identity, "client", room);
    const unsigned length = std::min(keyRoom, 32U);
    std::memset(key, 'k', length);
    return length;
}

unsigned findKey(SSL*, const char*, unsigned char* key, unsigned keyRoom) {
    const unsigned length = std::min(keyRoom, 32U);
    std::memset(key, 'k', length);
    return length;
}

// Both ends of a connection in one thread, with contexts that no settings would give.
class SEKTlsStreamTest : public testing::Test {
  protected:
    void SetUp() override {
        std::array<int, 2> ends{};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()), 0);
        m_clientEnd = SEKDescriptor(ends[0]);
        m_serverEnd = SEKDescriptor(ends[1]);
        SSL_CTX_set_verify(client.get(), SSL_VERIFY_PEER, nullptr);
    }
    void offer(const char* ciphers, int version) const {
        for (SSL_CTX* const context : {client.get(), server.get()}) {
            SSL_CTX_set_min_proto_version(context, version);
            SSL_CTX_set_max_proto_version(context, version);
            if (ciphers == nullptr) continue;
            ASSERT_EQ(SSL_CTX_set_cipher_list(context, ciphers), 1);
        }
    }
    void shareAKey() const {
        SSL_CTX_set_psk_client_callback(client.get(), showKey);
        SSL_CTX_set_psk_server_callback(server.get(), findKey);
    }
    // What the client says; "" when the connection is established.
    std::string handshake() {
        SEKTlsStream asking(client.get(), m_clientEnd.get(), SEKRole::Client);
        SEKTlsStream answering(server.get(), m_serverEnd.get(), SEKRole::Server);
        try {
            for (int i = 0; i < 100 && !asking.isEstablished(); ++i) {
                asking.handshake();
                if (!answering.isEstablished()) answering.handshake();
            }
        } catch (const SEKFailure& reason) {
            EXPECT_FALSE(asking.isEstablished());
            EXPECT_THROW(asking.peek(), SEKFailure);
            return reason.what();
        }
        return asking.isEstablished() ? "" : "not finished";
    }

    SEKContextPtr client{SSL_CTX_new(TLS_client_method())};
    SEKContextPtr server{SSL_CTX_new(TLS_server_method())};

  private:
    SEKDescriptor m_clientEnd;
    SEKDescriptor m_serverEnd;
};

TEST_F(SEKTlsStreamTest, AnAnonymousPeerIsRefusedAfterTheHandshake) {
    offer("aNULL:@SECLEVEL=0", TLS1_2_VERSION);
    EXPECT_EQ(handshake(), "the peer showed no certificate");
}

TEST_F(SEKTlsStreamTest, APeerWithASharedKeyAloneIsRefused) {
    offer("PSK", TLS1_2_VERSION);
    shareAKey();
    EXPECT_EQ(handshake(), "the peer showed no certificate");
}

TEST_F(SEKTlsStreamTest, APeerWithASharedKeyAloneIsRefusedIn13) {
    offer(nullptr, TLS1_3_VERSION);
    shareAKey();
    EXPECT_EQ(handshake(), "the peer showed no certificate");
}

TEST_F(SEKTlsStreamTest, WithoutVerificationAnAnonymousPeerWillDo) {
    offer("aNULL:@SECLEVEL=0", TLS1_2_VERSION);
    SSL_CTX_set_verify(client.get(), SSL_VERIFY_NONE, nullptr);
    EXPECT_EQ(handshake(), "");
}

}  // namespace
