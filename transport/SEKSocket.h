// What a handle stands for: one socket, plain or TLS, on either side of a connection.
//
// Purpose: listens, accepts, shakes hands, sends and receives; SEKConnector connects it. A socket is Fresh, then either
//   Listening or Connected; a connection or a handshake that failed leaves it Fresh again, so that the
//   caller may try once more.
// Ownership: owns its endpoint and its TLS stream; handed out by shared pointer, so that closing a handle
//   cannot pull it from under a call that runs.
// Threads: used by one thread at a time.
// Units: milliseconds and bytes.
// Errors: every operation throws SEKFailure that names the peer or the local address and the reason.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "SEKAddress.h"
#include "SEKDeadline.h"
#include "SEKDescriptor.h"
#include "SEKEndpoint.h"
#include "SEKSession.h"
#include "SEKTlsStream.h"

class SEKSocket {
  public:
    static constexpr std::int64_t handshakeLimitMs = 2'000;      // one call of establishSecure
    static constexpr std::int64_t handshakePatienceMs = 10'000;  // all calls, before one leaves a text
    static constexpr std::size_t slowestSendBytesPerMs = 16;     // a long send may last that much longer
    static constexpr std::int64_t farewellLimitMs = 100;         // waiting for the peer's end when closing

    explicit SEKSocket(const SEKSession& session);
    // The server's end of an accepted connection.
    SEKSocket(const SEKSession& session, SEKDescriptor descriptor, const SEKAddress& peer, bool secure);
    ~SEKSocket() { close(); }
    SEKSocket(const SEKSocket&) = delete;
    SEKSocket& operator=(const SEKSocket&) = delete;

    void bind(const SEKAddress& address);
    void bindUrl(const std::string& url);
    void listen(int backlog);
    // Waits for the next connection, at most as long as the receive limit says. Tells the peer's address, which a
    // connection that the peer has reset by now could not be asked for.
    std::shared_ptr<SEKSocket> accept(SEKAddress& peer);

    void connect(const SEKAddress& address);
    // The document may be null: then the handle's own session holds. True when nothing is left to do, false
    // when establishSecure comes next.
    bool connectUrl(const std::string& url, const char* sessionDocument);
    // True when the handshake is finished, false when the call must be repeated. When that has gone on for
    // longer than the patience, a failure of the code SEK_CallAgain says so; the handshake goes on all the same.
    bool establishSecure();

    // Sends everything; `sent` counts what was sent also when it fails. The send limit holds between two bytes that
    // the peer takes; all in all there is as much time, and what the length takes at the slowest pace.
    void send(const char* data, std::size_t length, std::size_t& sent);
    // Waits for one block; 0 at the end of the stream.
    std::size_t receive(char* buffer, std::size_t capacity);
    // Ends the connection politely: close notification, then a short wait for the peer's own end, since data
    // that arrives after the close would make the system reset the connection.
    void close() noexcept;

    // With whom, and how, an established TLS connection speaks, as an XML text.
    std::string describePeer() const;
    SEKAddress localAddress() const { return m_endpoint.localAddress(); }
    SEKAddress peerAddress() const { return m_endpoint.peerAddress(); }
    void getOption(int option, void* value, socklen_t& length) const {
        m_endpoint.getOption(option, value, length);
    }
    void setOption(int option, const void* value, socklen_t length) {
        m_endpoint.setOption(option, value, length);
    }

    // For waiting on many sockets. hasInput takes in TLS records and says whether a receive would return at
    // once; if not, `events` says what to wait for.
    void requireWaitable() const;
    bool hasInput(short& events) noexcept;
    bool needsInputCheck() const { return m_stream.has_value() && m_stream->isEstablished(); }
    int descriptor() const { return m_endpoint.descriptor(); }
    int family() const { return m_endpoint.family(); }

    std::string details;  // the text of this handle's last failure; empty when there is none

  private:
    enum class State { Fresh, Listening, Connected };
    using Step = SEKTlsStream::Step;

    void useSession(const SEKSession& session);
    void connectTo(const std::string& url);
    void becomeConnected(const SEKAddress& address, const std::string& host);
    void disconnect() noexcept;
    void drain() const noexcept;

    bool shakeHands();
    void startTls();
    void requireState(State state, const char* what) const;
    void requireTransfer() const;
    SEKDeadline deadlineOfSend(std::size_t length) const;
    Step sendOnce(const char* data, std::size_t length, std::size_t& sent);
    Step receiveOnce(char* buffer, std::size_t capacity, std::size_t& received);
    bool waitForStep(Step step, const SEKDeadline& deadline) const;

    SEKSession m_session;
    SEKEndpoint m_endpoint;
    State m_state = State::Fresh;
    SEKRole m_role = SEKRole::Client;
    bool m_isSecure = false;  // TLS is wanted before any data may pass
    std::optional<SEKTlsStream> m_stream;
    std::optional<SEKDeadline> m_handshakePatience;  // set with the stream
    std::string m_url;                               // of the connection
    std::string m_host;                              // that the peer's certificate must be for
    std::string m_peerText;                          // "localhost:9300 (127.0.0.1:9300)", for messages
};
