#include "SEKSocket.h"

#include <netinet/in.h>
#include <netinet/tcp.h>

#include <array>
#include <cerrno>
#include <utility>

#include "SEKConnector.h"
#include "SEKErrors.h"
#include "SEKLibrary.h"
#include "SEKUri.h"
#include "SEK_Crypto_Interface.h"

namespace {

constexpr std::size_t farewellLimitBytes = 1U << 20U;  // more unread data than this is not waited for

std::string errnoReason() {
    return SEKErrors::systemReason(errno);
}

// Errors of accept that concern one connection that has already gone, not the listener.
bool isPassing(int error) {
    return error == EINTR || error == EAGAIN || error == ECONNABORTED || error == EPROTO ||
           error == ENETDOWN || error == ENETUNREACH || error == EHOSTUNREACH || error == EHOSTDOWN ||
           error == ENONET || error == ENOPROTOOPT || error == EOPNOTSUPP;
}

}  // namespace

SEKSocket::SEKSocket(const SEKSession& session) : m_session(session), m_endpoint(session.family) {}

SEKSocket::SEKSocket(const SEKSession& session, SEKDescriptor descriptor, const SEKAddress& peer, bool secure)
    : m_session(session),
      m_endpoint(session.family, std::move(descriptor)),
      m_role(SEKRole::Server),
      m_isSecure(secure) {
    becomeConnected(peer, peer.hostText());
}

void SEKSocket::bind(const SEKAddress& address) {
    requireState(State::Fresh, "bind");
    m_endpoint.bind(address);
}

void SEKSocket::bindUrl(const std::string& url) {
    const SEKUri uri = SEKUri::parse(url);
    bind(SEKAddress::resolve(uri.host(), uri.port(), m_session.family, SEKAddress::Use::Bind,
                             SEKDeadline(SEKConnector::limitMs))
             .front());
    m_isSecure = uri.isSecure();
}

void SEKSocket::listen(int backlog) {
    if (m_state == State::Connected) requireState(State::Fresh, "listen");
    if (::listen(descriptor(), backlog) != 0)
        throw SEKFailure("cannot listen on " + localAddress().text() + ": " + errnoReason());
    m_state = State::Listening;
}

std::shared_ptr<SEKSocket> SEKSocket::accept(SEKAddress& peer) {
    requireState(State::Listening, "accept");
    const SEKDeadline deadline(m_endpoint.options().receiveLimitMs());
    while (SEKWait::waitFor(descriptor(), POLLIN, deadline)) {
        peer = SEKAddress();
        socklen_t length = peer.length();
        SEKDescriptor accepted = SEKDescriptor::aboveStandard(
            [&] { return accept4(descriptor(), peer.buffer(), &length, SOCK_CLOEXEC | SOCK_NONBLOCK); });
        if (accepted.isOpen()) {
            peer.setLength(length);
            return std::make_shared<SEKSocket>(m_session, std::move(accepted), peer, m_isSecure);
        }
        if (!isPassing(errno))
            throw SEKFailure("cannot accept on " + localAddress().text() + ": " + errnoReason());
    }
    throw SEKFailure("cannot accept on " + localAddress().text() + ": no connection in time");
}

void SEKSocket::connect(const SEKAddress& address) {
    requireState(State::Fresh, "connect");
    SEKConnector(m_endpoint).connect(address);
    m_isSecure = false;
    becomeConnected(address, address.hostText());
}

bool SEKSocket::connectUrl(const std::string& url, const char* sessionDocument) {
    if (m_state != State::Connected) {
        requireState(State::Fresh, "connect");
        // Callers hand over the document that they made the handle with, which is read already.
        if (sessionDocument != nullptr && m_session.text != sessionDocument)
            useSession(SEKSession::parse(sessionDocument));
        connectTo(url);
    }
    if (m_url.empty() || m_url != url)
        throw SEKFailure("cannot connect to " + url + ": already connected to " + m_peerText);
    return !m_isSecure || (m_stream.has_value() && m_stream->isEstablished());
}

void SEKSocket::useSession(const SEKSession& session) {
    if (session.family != family())
        throw SEKFailure(std::string("bad sessionConfigDocument: the handle is for ") +
                         SEKAddress::familyName(family()));
    m_session = session;
}

void SEKSocket::connectTo(const std::string& url) {
    const SEKUri uri = SEKUri::parse(url);
    const SEKAddress reached = SEKConnector(m_endpoint).connect(uri);
    m_isSecure = uri.isSecure();
    becomeConnected(reached, uri.host());
    m_url = url;
}

void SEKSocket::becomeConnected(const SEKAddress& address, const std::string& host) {
    // Answers are short and waited for: nothing is gained by collecting bytes. A peer whose machine has gone
    // must be noticed some day, even by a read without limit.
    m_endpoint.switchOn(IPPROTO_TCP, TCP_NODELAY);
    m_endpoint.switchOn(SOL_SOCKET, SO_KEEPALIVE);
    m_state = State::Connected;
    m_url.clear();
    m_host = host;
    m_peerText = address.text();
    if (host != address.hostText()) m_peerText = host + " (" + m_peerText + ")";
}

bool SEKSocket::establishSecure() {
    requireState(State::Connected, "start TLS");
    if (shakeHands()) return true;
    if (!m_handshakePatience->expired()) return false;
    // The call may still be repeated, but whoever gives up now can say why.
    throw SEKFailure("TLS handshake with " + m_peerText + " not finished after " +
                         std::to_string(handshakePatienceMs / 1000) + " s",
                     SEK_CallAgain);
}

// False when this call's time is over before the handshake is finished.
bool SEKSocket::shakeHands() {
    try {
        if (!m_stream.has_value()) startTls();
        const SEKDeadline deadline(handshakeLimitMs);
        while (!m_stream->isEstablished()) {
            const Step step = m_stream->handshake();
            if (step != Step::Done && !waitForStep(step, deadline)) return false;
        }
        return true;
    } catch (const std::exception& reason) {
        // First of all: a stream that was left half made would go on without what it lacks.
        disconnect();
        throw SEKFailure("TLS handshake with " + m_peerText + " failed: " + SEKErrors::reasonOf(reason));
    }
}

void SEKSocket::startTls() {
    const SEKContextPtr context = SEKLibrary::instance().contextFor(m_session.serviceID, m_role);
    m_stream.emplace(context.get(), descriptor(), m_role);
    if (m_role == SEKRole::Client) m_stream->expectPeer(m_host);
    m_isSecure = true;
    m_handshakePatience.emplace(handshakePatienceMs);
}

void SEKSocket::send(const char* data, std::size_t length, std::size_t& sent) {
    requireTransfer();
    sent = 0;
    const SEKDeadline whole = deadlineOfSend(length);
    bool hasTaken = false;  // also the beginning of a TLS record, which does not count as sent
    try {
        while (sent < length) {
            std::size_t count = 0;
            const Step step = sendOnce(data + sent, length - sent, count);
            sent += count;
            if (step == Step::Done) continue;
            if (!waitForStep(step, SEKDeadline(m_endpoint.options().sendLimitMs()).butNotAfter(whole)))
                throw SEKFailure(hasTaken && whole.expired() ? "the peer takes the data too slowly"
                                                             : "the peer takes no data");
            hasTaken = true;
        }
    } catch (const std::exception& reason) {
        // A record that was cut off cannot be taken up again.
        if (m_stream.has_value()) m_stream->breakOff(SEKErrors::reasonOf(reason));
        throw SEKFailure("cannot send to " + m_peerText + ": " + SEKErrors::reasonOf(reason));
    }
}

// A peer that takes a byte now and then cannot hold a send for as long as it likes.
SEKDeadline SEKSocket::deadlineOfSend(std::size_t length) const {
    const std::int64_t limitMs = m_endpoint.options().sendLimitMs();
    if (limitMs < 0) return SEKDeadline(-1);
    return SEKDeadline(limitMs + static_cast<std::int64_t>(length / slowestSendBytesPerMs));
}

SEKSocket::Step SEKSocket::sendOnce(const char* data, std::size_t length, std::size_t& sent) {
    if (m_stream.has_value()) return m_stream->write(data, length, sent);
    const ssize_t count = ::send(descriptor(), data, length, MSG_NOSIGNAL);
    if (count >= 0) {
        sent = static_cast<std::size_t>(count);
        return Step::Done;
    }
    if (errno == EAGAIN || errno == EINTR) return Step::WantWrite;
    throw SEKFailure(errnoReason());
}

std::size_t SEKSocket::receive(char* buffer, std::size_t capacity) {
    requireTransfer();
    const SEKDeadline deadline(m_endpoint.options().receiveLimitMs());
    try {
        std::size_t received = 0;
        while (capacity > 0) {
            const Step step = receiveOnce(buffer, capacity, received);
            if (step == Step::Done || step == Step::EndOfStream) break;
            if (!waitForStep(step, deadline)) throw SEKFailure("no data in time");
        }
        return received;
    } catch (const std::exception& reason) {
        throw SEKFailure("cannot receive from " + m_peerText + ": " + SEKErrors::reasonOf(reason));
    }
}

SEKSocket::Step SEKSocket::receiveOnce(char* buffer, std::size_t capacity, std::size_t& received) {
    if (m_stream.has_value()) return m_stream->read(buffer, capacity, received);
    const ssize_t count = recv(descriptor(), buffer, capacity, 0);
    if (count > 0) received = static_cast<std::size_t>(count);
    if (count >= 0) return count > 0 ? Step::Done : Step::EndOfStream;
    if (errno == EAGAIN || errno == EINTR) return Step::WantRead;
    throw SEKFailure(errnoReason());
}

bool SEKSocket::waitForStep(Step step, const SEKDeadline& deadline) const {
    return SEKWait::waitFor(descriptor(), step == Step::WantWrite ? POLLOUT : POLLIN, deadline);
}

void SEKSocket::close() noexcept {
    disconnect();
    m_endpoint.close();
}

void SEKSocket::disconnect() noexcept {
    if (m_state == State::Connected) {
        if (m_stream.has_value()) m_stream->sayGoodbye();
        if (shutdown(descriptor(), SHUT_WR) == 0) drain();
    }
    m_stream.reset();
    m_state = State::Fresh;
    m_endpoint.wearOut();
}

void SEKSocket::drain() const noexcept {
    try {
        const SEKDeadline deadline(farewellLimitMs);
        std::array<char, 4096> rest{};
        std::size_t total = 0;
        while (total < farewellLimitBytes && SEKWait::waitFor(descriptor(), POLLIN, deadline)) {
            const ssize_t count = recv(descriptor(), rest.data(), rest.size(), 0);
            if (count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN)) return;
            total += count > 0 ? static_cast<std::size_t>(count) : 0;
        }
    } catch (const std::exception&) {
        // The farewell is a courtesy; the close that follows needs nothing from it.
        return;
    }
}

std::string SEKSocket::describePeer() const {
    requireState(State::Connected, "describe the peer");
    if (!m_stream.has_value() || !m_stream->isEstablished())
        throw SEKFailure("cannot describe the peer " + m_peerText + ": TLS is not established");
    return m_stream->describePeer();
}

void SEKSocket::requireWaitable() const {
    if (m_state == State::Fresh) throw SEKFailure("cannot wait for a socket that is not connected");
}

bool SEKSocket::hasInput(short& events) noexcept {
    events = POLLIN;
    if (!needsInputCheck()) return false;
    try {
        const Step step = m_stream->peek();
        if (step == Step::WantWrite) events = POLLOUT;
        return step == Step::Done || step == Step::EndOfStream;
    } catch (const std::exception&) {
        // The stream keeps the reason, and the receive that follows reports it.
        return true;
    }
}

void SEKSocket::requireState(State state, const char* what) const {
    if (m_state == state) return;
    static constexpr std::array<const char*, 3> names{"not connected", "listening", "connected"};
    throw SEKFailure(std::string("cannot ") + what + ": the socket is " +
                     names[static_cast<std::size_t>(m_state)]);
}

void SEKSocket::requireTransfer() const {
    requireState(State::Connected, "transfer data");
    if (m_isSecure && (!m_stream.has_value() || !m_stream->isEstablished()))
        throw SEKFailure("cannot transfer data with " + m_peerText + ": TLS is not established");
}
