// TLS on a connected, non-blocking socket.
//
// Purpose: handshake, reading, writing and the polite end, each as one step that never waits and reads a bounded
//   number of bytes, however many the peer sends; the caller waits for the socket and calls again.
// Ownership: owns its SSL object; the descriptor stays the socket's and must outlive the stream.
// Threads: used by one thread at a time.
// Units: bytes.
// Errors: the steps throw SEKFailure with OpenSSL's or the system's reason. A stream that has failed once
//   fails ever after with the same reason.
#pragma once

#include <openssl/ssl.h>

#include <cstddef>
#include <memory>
#include <string>

#include "SEKSettings.h"

class SEKTlsStream {
  public:
    enum class Step { Done, WantRead, WantWrite, EndOfStream };

    SEKTlsStream(SSL_CTX* context, int descriptor, SEKRole role);

    // Client only, before the handshake: the host name or address that the peer's certificate must be for. A
    // name is also sent to the peer, so that it can choose its certificate.
    void expectPeer(const std::string& host);

    Step handshake();
    bool isEstablished() const { return m_established; }
    // Established only: the XML text of SEKPeerDescription.
    std::string describePeer() const;

    Step read(void* buffer, std::size_t capacity, std::size_t& received);
    // Takes in records until application data is there; Done when a read would find some.
    Step peek();
    Step write(const void* data, std::size_t length, std::size_t& sent);

    // Later steps fail with this reason: records that were cut off in the middle cannot be continued.
    void breakOff(const char* reason) noexcept;

    // Tells the peer the end, if that is possible at once.
    void sayGoodbye() noexcept;

  private:
    struct SslFreer {
        void operator()(SSL* ssl) const { SSL_free(ssl); }
    };
    void begin() const;
    Step outcome(int result);
    Step inputOutcome(int result);  // of a call that looks for data of the application
    std::string reasonFor(int error) const;
    void requireEncryption();
    void requireVerifiedPeer();
    void requireExpectedPeer();
    std::string surfeitReason() const;
    [[noreturn]] void fail(const std::string& reason);

    std::unique_ptr<SSL, SslFreer> m_ssl;
    std::string m_expected;  // whom the certificate must be for; empty: nobody in particular
    bool m_established = false;
    bool m_isBroken = false;  // since the first failure
    std::string m_broken;     // its reason, unless there was no memory for it
};
