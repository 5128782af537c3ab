#include "SEKSocket.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "SEKErrors.h"
#include "SEKLibrary.h"
#include "SEK_Crypto_Interface.h"

namespace {

constexpr std::size_t reasonsToldOfAddresses = 8;      // a name server may list thousands
constexpr std::size_t farewellLimitBytes = 1U << 20U;  // more unread data than this is not waited for

std::string errnoReason() {
    return SEKErrors::systemReason(errno);
}

bool switchOn(int descriptor, int level, int option) {
    const int on = 1;
    return setsockopt(descriptor, level, option, &on, sizeof on) == 0;
}

// Rounded up, so that no wait ends early; a limit beyond the bounds of the clock is cut by SEKDeadline anyway.
std::int64_t toMs(const timeval& time) {
    const std::int64_t seconds = std::clamp<std::int64_t>(time.tv_sec, -1, 2'000'000);
    const std::int64_t micros = std::clamp<std::int64_t>(time.tv_usec, 0, 1'000'000);
    return seconds * 1000 + (micros + 999) / 1000;
}

timeval toTimeval(std::int64_t ms) {
    timeval time{};
    time.tv_sec = static_cast<decltype(time.tv_sec)>(ms / 1000);
    time.tv_usec = static_cast<decltype(time.tv_usec)>(ms % 1000 * 1000);
    return time;
}

// The error of a connection attempt that is under way; 0 when it succeeded.
int pendingError(int descriptor) {
    int error = 0;
    socklen_t length = sizeof error;
    if (getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &length) != 0) return errno;
    return error;
}

// Errors of accept that concern one connection that has already gone, not the listener.
bool isPassing(int error) {
    return error == EINTR || error == EAGAIN || error == ECONNABORTED || error == EPROTO ||
           error == ENETDOWN || error == ENETUNREACH || error == EHOSTUNREACH || error == EHOSTDOWN ||
           error == ENONET || error == ENOPROTOOPT || error == EOPNOTSUPP;
}

}  // namespace

SEKSocket::SEKSocket(const SEKSession& session) : m_session(session) {
    openDescriptor();
}

SEKSocket::SEKSocket(const SEKSession& session, SEKDescriptor descriptor, const SEKAddress& peer, bool secure)
    : m_session(session), m_descriptor(std::move(descriptor)), m_role(SEKRole::Server), m_isSecure(secure) {
    becomeConnected(peer, peer.hostText());
}

void SEKSocket::openDescriptor() {
    m_descriptor = SEKDescriptor::aboveStandard(
        [this] { return socket(m_session.family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); });
    if (!m_descriptor.isOpen())
        throw SEKFailure(std::string("cannot create a socket (") + m_session.familyName() +
                         "): " + errnoReason());
    // The session's family is the only one that may be used, also through mapped addresses.
    if (m_session.family == AF_INET6) switchOn(m_descriptor.get(), IPPROTO_IPV6, IPV6_V6ONLY);
    for (const Option& option : m_options)
        setsockopt(m_descriptor.get(), SOL_SOCKET, option.name, option.value.data(),
                   static_cast<socklen_t>(option.value.size()));
    m_wasTried = false;
}

void SEKSocket::bind(const SEKAddress& address) {
    requireState(State::Fresh, "bind");
    switchOn(m_descriptor.get(), SOL_SOCKET, SO_REUSEADDR);
    if (::bind(m_descriptor.get(), address.get(), address.length()) != 0)
        throw SEKFailure("cannot bind to " + address.text() + ": " + errnoReason());
    m_bound = localAddress();
}

void SEKSocket::bindUrl(const std::string& url) {
    const SEKUri uri = SEKUri::parse(url);
    bind(SEKAddress::resolve(uri.host(), uri.port(), m_session.family, SEKAddress::Use::Bind,
                             SEKDeadline(connectLimitMs))
             .front());
    m_isSecure = uri.isSecure();
}

void SEKSocket::listen(int backlog) {
    if (m_state == State::Connected) requireState(State::Fresh, "listen");
    if (::listen(m_descriptor.get(), backlog) != 0)
        throw SEKFailure("cannot listen on " + localAddress().text() + ": " + errnoReason());
    m_state = State::Listening;
}

std::shared_ptr<SEKSocket> SEKSocket::accept() {
    requireState(State::Listening, "accept");
    const SEKDeadline deadline(m_receiveLimitMs);
    while (SEKWait::waitFor(m_descriptor.get(), POLLIN, deadline)) {
        SEKAddress peer;
        socklen_t length = peer.length();
        SEKDescriptor accepted = SEKDescriptor::aboveStandard([&] {
            return accept4(m_descriptor.get(), peer.buffer(), &length, SOCK_CLOEXEC | SOCK_NONBLOCK);
        });
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
    const std::string reason = tryConnect(address, SEKDeadline(connectLimitMs));
    if (!reason.empty()) throw SEKFailure("cannot connect to " + address.text() + ": " + reason);
    m_isSecure = false;
    becomeConnected(address, address.hostText());
}

bool SEKSocket::connectUrl(const std::string& url, const char* sessionDocument) {
    if (m_state != State::Connected) {
        requireState(State::Fresh, "connect");
        // Callers hand over the document that they made the handle with, which is read already.
        if (sessionDocument != nullptr && m_session.text != sessionDocument)
            useSession(SEKSession::parse(sessionDocument));
        connectTo(SEKUri::parse(url));
        m_url = url;
    }
    if (m_url != url) throw SEKFailure("cannot connect to " + url + ": already connected to " + m_peerText);
    return !m_isSecure || (m_stream.has_value() && m_stream->isEstablished());
}

void SEKSocket::useSession(const SEKSession& session) {
    if (session.family != m_session.family)
        throw SEKFailure(std::string("bad sessionConfigDocument: the handle is for ") +
                         m_session.familyName());
    m_session = session;
}

void SEKSocket::connectTo(const SEKUri& uri) {
    const SEKDeadline deadline(connectLimitMs);
    if (uri.port() == 0) throw SEKFailure("cannot connect to " + uri.authority() + ": no port");
    const std::vector<SEKAddress> addresses =
        SEKAddress::resolve(uri.host(), uri.port(), m_session.family, SEKAddress::Use::Connect, deadline);
    const SEKAddress* reached = nullptr;
    std::string reasons;
    for (std::size_t i = 0; i < addresses.size() && reached == nullptr; ++i) {
        const std::string reason = tryConnect(addresses[i], deadline.share(addresses.size() - i));
        if (reason.empty())
            reached = &addresses[i];
        else if (i < reasonsToldOfAddresses)
            reasons += (reasons.empty() ? "" : "; ") + addresses[i].text() + ": " + reason;
    }
    if (addresses.size() > reasonsToldOfAddresses)
        reasons += "; and " + std::to_string(addresses.size() - reasonsToldOfAddresses) + " more";
    if (reached == nullptr)
        throw SEKFailure("cannot connect to " + uri.authority() + " (" + m_session.familyName() +
                         "): " + reasons);
    m_isSecure = uri.isSecure();
    becomeConnected(*reached, uri.host());
}

// Empty when connected, otherwise the reason.
std::string SEKSocket::tryConnect(const SEKAddress& address, const SEKDeadline& deadline) {
    prepareAttempt();
    m_wasTried = true;
    if (::connect(m_descriptor.get(), address.get(), address.length()) == 0) return "";
    if (errno != EINPROGRESS && errno != EINTR) return errnoReason();
    if (!SEKWait::waitFor(m_descriptor.get(), POLLOUT, deadline)) return "no answer in time";
    const int error = pendingError(m_descriptor.get());
    return error == 0 ? "" : SEKErrors::systemReason(error);
}

// A descriptor whose attempt failed keeps traces of it, so every attempt gets a fresh one.
void SEKSocket::prepareAttempt() {
    if (!m_wasTried) return;
    m_descriptor.reset();
    openDescriptor();
    if (m_bound.has_value()) bind(SEKAddress(*m_bound));
}

void SEKSocket::becomeConnected(const SEKAddress& address, const std::string& host) {
    // Answers are short and waited for: nothing is gained by collecting bytes. A peer whose machine has gone
    // must be noticed some day, even by a read without limit.
    switchOn(m_descriptor.get(), IPPROTO_TCP, TCP_NODELAY);
    switchOn(m_descriptor.get(), SOL_SOCKET, SO_KEEPALIVE);
    m_state = State::Connected;
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
    } catch (const SEKFailure& reason) {
        const std::string text = "TLS handshake with " + m_peerText + " failed: " + reason.what();
        disconnect();
        throw SEKFailure(text);
    }
}

void SEKSocket::startTls() {
    const SEKContextPtr context = SEKLibrary::instance().contextFor(m_session.serviceID, m_role);
    m_stream.emplace(context.get(), m_descriptor.get(), m_role);
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
            if (!waitForStep(step, SEKDeadline(m_sendLimitMs).butNotAfter(whole)))
                throw SEKFailure(hasTaken && whole.expired() ? "the peer takes the data too slowly"
                                                             : "the peer takes no data");
            hasTaken = true;
        }
    } catch (const SEKFailure& reason) {
        // A record that was cut off cannot be taken up again.
        if (m_stream.has_value()) m_stream->breakOff(reason.what());
        throw SEKFailure("cannot send to " + m_peerText + ": " + reason.what());
    }
}

// A peer that takes a byte now and then cannot hold a send for as long as it likes.
SEKDeadline SEKSocket::deadlineOfSend(std::size_t length) const {
    if (m_sendLimitMs < 0) return SEKDeadline(-1);
    return SEKDeadline(m_sendLimitMs + static_cast<std::int64_t>(length / slowestSendBytesPerMs));
}

SEKSocket::Step SEKSocket::sendOnce(const char* data, std::size_t length, std::size_t& sent) {
    if (m_stream.has_value()) return m_stream->write(data, length, sent);
    const ssize_t count = ::send(m_descriptor.get(), data, length, MSG_NOSIGNAL);
    if (count >= 0) {
        sent = static_cast<std::size_t>(count);
        return Step::Done;
    }
    if (errno == EAGAIN || errno == EINTR) return Step::WantWrite;
    throw SEKFailure(errnoReason());
}

std::size_t SEKSocket::receive(char* buffer, std::size_t capacity) {
    requireTransfer();
    const SEKDeadline deadline(m_receiveLimitMs);
    try {
        std::size_t received = 0;
        while (capacity > 0) {
            const Step step = receiveOnce(buffer, capacity, received);
            if (step == Step::Done || step == Step::EndOfStream) break;
            if (!waitForStep(step, deadline)) throw SEKFailure("no data in time");
        }
        return received;
    } catch (const SEKFailure& reason) {
        throw SEKFailure("cannot receive from " + m_peerText + ": " + reason.what());
    }
}

SEKSocket::Step SEKSocket::receiveOnce(char* buffer, std::size_t capacity, std::size_t& received) {
    if (m_stream.has_value()) return m_stream->read(buffer, capacity, received);
    const ssize_t count = recv(m_descriptor.get(), buffer, capacity, 0);
    if (count > 0) received = static_cast<std::size_t>(count);
    if (count >= 0) return count > 0 ? Step::Done : Step::EndOfStream;
    if (errno == EAGAIN || errno == EINTR) return Step::WantRead;
    throw SEKFailure(errnoReason());
}

bool SEKSocket::waitForStep(Step step, const SEKDeadline& deadline) const {
    return SEKWait::waitFor(m_descriptor.get(), step == Step::WantWrite ? POLLOUT : POLLIN, deadline);
}

void SEKSocket::close() noexcept {
    disconnect();
    m_descriptor.reset();
}

void SEKSocket::disconnect() noexcept {
    if (m_state == State::Connected) {
        if (m_stream.has_value()) m_stream->sayGoodbye();
        if (shutdown(m_descriptor.get(), SHUT_WR) == 0) drain();
    }
    m_stream.reset();
    m_state = State::Fresh;
    m_wasTried = true;
}

void SEKSocket::drain() const noexcept {
    try {
        const SEKDeadline deadline(farewellLimitMs);
        std::array<char, 4096> rest{};
        std::size_t total = 0;
        while (total < farewellLimitBytes && SEKWait::waitFor(m_descriptor.get(), POLLIN, deadline)) {
            const ssize_t count = recv(m_descriptor.get(), rest.data(), rest.size(), 0);
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

SEKAddress SEKSocket::localAddress() const {
    SEKAddress address;
    socklen_t length = address.length();
    if (getsockname(m_descriptor.get(), address.buffer(), &length) != 0)
        throw SEKFailure("cannot read the local address: " + errnoReason());
    address.setLength(length);
    return address;
}

SEKAddress SEKSocket::peerAddress() const {
    SEKAddress address;
    socklen_t length = address.length();
    if (getpeername(m_descriptor.get(), address.buffer(), &length) != 0)
        throw SEKFailure("cannot read the peer's address: " + errnoReason());
    address.setLength(length);
    return address;
}

// The time limits are kept here: the descriptor never blocks, so the system would not apply them.
std::int64_t* SEKSocket::limitOf(int option) {
    if (option == SO_SNDTIMEO) return &m_sendLimitMs;
    return option == SO_RCVTIMEO ? &m_receiveLimitMs : nullptr;
}

void SEKSocket::setOption(int option, const void* value, socklen_t length) {
    if (std::int64_t* const limitMs = limitOf(option)) {
        if (length != sizeof(timeval)) throw SEKFailure("cannot set the time limit: not a timeval");
        timeval time{};
        std::memcpy(&time, value, sizeof time);
        // Zero means no limit, as it does for the system.
        *limitMs = toMs(time) <= 0 ? -1 : toMs(time);
        return;
    }
    if (setsockopt(m_descriptor.get(), SOL_SOCKET, option, value, length) != 0)
        throw SEKFailure("cannot set socket option " + std::to_string(option) + ": " + errnoReason());
    const char* const bytes = static_cast<const char*>(value);
    m_options.push_back({option, std::vector<char>(bytes, bytes + length)});
}

void SEKSocket::getOption(int option, void* value, socklen_t& length) {
    if (const std::int64_t* const limitMs = limitOf(option)) {
        if (length < sizeof(timeval)) throw SEKFailure("cannot read the time limit: no room for a timeval");
        const timeval time = toTimeval(*limitMs < 0 ? 0 : *limitMs);
        std::memcpy(value, &time, sizeof time);
        length = sizeof time;
        return;
    }
    if (getsockopt(m_descriptor.get(), SOL_SOCKET, option, value, &length) != 0)
        throw SEKFailure("cannot read socket option " + std::to_string(option) + ": " + errnoReason());
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
