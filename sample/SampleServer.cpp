#include "SampleServer.h"

#include <netdb.h>
#include <netinet/in.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>

namespace {

using Clock = std::chrono::steady_clock;

// Further clients wait in the system's queue until one of these has gone.
constexpr std::size_t kMaxConnections = 200;
constexpr std::size_t kBlockBytes = 4096;

struct AddressListFree {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using AddressList = std::unique_ptr<addrinfo, AddressListFree>;

AddressList resolve(const SampleUri& uri) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE;
    const bool everyAddress = uri.host.empty() || uri.host == "*";
    addrinfo* list = nullptr;
    const int error = getaddrinfo(everyAddress ? nullptr : uri.host.c_str(), std::to_string(uri.port).c_str(),
                                  &hints, &list);
    if (error != 0) throw std::runtime_error("cannot resolve " + uri.host + ": " + gai_strerror(error));
    return AddressList(list);
}

// "127.0.0.1:9300" or "[::1]:9300".
std::string nameOf(const sockaddr* address, socklen_t length) {
    std::array<char, NI_MAXHOST> host{};
    std::array<char, NI_MAXSERV> port{};
    const int error = getnameinfo(address, length, host.data(), host.size(), port.data(), port.size(),
                                  NI_NUMERICHOST | NI_NUMERICSERV);
    if (error != 0) return gai_strerror(error);
    const std::string hostText = host.data();
    const bool v6 = hostText.find(':') != std::string::npos;
    return (v6 ? "[" + hostText + "]" : hostText) + ":" + port.data();
}

struct SocketAddress {
    sockaddr_storage storage{};
    socklen_t length = sizeof(sockaddr_storage);

    sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
    std::string name() { return nameOf(get(), length); }
};

void switchOn(int descriptor, int level, int option) {
    const int on = 1;
    setsockopt(descriptor, level, option, &on, sizeof on);
}

}  // namespace

SampleServer::Descriptor::~Descriptor() {
    if (m_number >= 0) ::close(m_number);
}

// One client. step() does what can be done without waiting.
class SampleServer::Connection {
  public:
    Connection(Descriptor socket, SampleTls::Session session, std::string peer)
        : m_socket(std::move(socket)), m_session(std::move(session)), m_peer(std::move(peer)) {}
    ~Connection() {
        // A parting notice, as the protocol asks; whether it arrives no longer matters.
        if (m_session != nullptr && m_trouble.empty()) SSL_shutdown(m_session.get());
    }

    int descriptor() const { return m_socket.get(); }
    const std::string& peer() const { return m_peer; }
    const std::string& trouble() const { return m_trouble; }
    bool hasUnsentAnswer() const { return !m_out.empty(); }
    bool isIdleSince(Clock::time_point limit) const { return m_lastTraffic < limit; }

    short wantedEvents() const {
        const bool reads = !m_peerDone && !m_hangUp;
        const bool writes = m_sslWantsWrite || !m_out.empty();
        return static_cast<short>((reads ? POLLIN : 0) | (writes ? POLLOUT : 0));
    }

    // False when the connection is over.
    bool step(const Handler& handler) {
        m_lastTraffic = Clock::now();
        m_sslWantsWrite = false;
        do {
            receive();
            answer(handler);
        } while (hasDecryptedInput());
        send();
        if (!m_trouble.empty()) return false;
        return !m_out.empty() || !(m_peerDone || m_hangUp);
    }

  private:
    // What one attempt to move bytes has come to.
    enum class Moved { Bytes, Nothing, End };

    bool isTls() const { return m_session != nullptr; }

    bool hasDecryptedInput() const {
        return isTls() && !m_peerDone && !m_hangUp && SSL_pending(m_session.get()) > 0;
    }

    void receive() {
        if (m_peerDone || m_hangUp) return;
        std::array<char, kBlockBytes> block{};
        const ssize_t count = isTls()
                                  ? SSL_read(m_session.get(), block.data(), static_cast<int>(block.size()))
                                  : recv(m_socket.get(), block.data(), block.size(), 0);
        const Moved moved = judge(count);
        if (moved == Moved::Bytes) m_in.append(block.data(), static_cast<std::size_t>(count));
        if (moved == Moved::End) m_peerDone = true;
    }

    void answer(const Handler& handler) {
        while (!m_in.empty() && !m_hangUp) {
            const Reply reply = handler(m_peer, m_in);
            if (reply.consumed == 0) return;
            m_in.erase(0, reply.consumed);
            m_out += reply.text;
            m_hangUp = reply.hangUp;
        }
    }

    void send() {
        while (!m_out.empty() && m_trouble.empty()) {
            const ssize_t count =
                isTls() ? SSL_write(m_session.get(), m_out.data(), static_cast<int>(m_out.size()))
                        : ::send(m_socket.get(), m_out.data(), m_out.size(), MSG_NOSIGNAL);
            const Moved moved = judge(count);
            if (moved == Moved::End) m_trouble = "closed before the answer was sent";
            if (moved != Moved::Bytes) return;
            m_out.erase(0, static_cast<std::size_t>(count));
        }
    }

    Moved judge(ssize_t count) {
        if (count > 0) return Moved::Bytes;
        return isTls() ? judgeTls(static_cast<int>(count)) : judgePlain(count, errno);
    }

    Moved judgePlain(ssize_t count, int error) {
        if (count == 0) return Moved::End;
        if (error == EAGAIN || error == EINTR) return Moved::Nothing;
        m_trouble = std::strerror(error);
        return Moved::End;
    }

    Moved judgeTls(int count) {
        switch (SSL_get_error(m_session.get(), count)) {
            case SSL_ERROR_WANT_READ:
                return Moved::Nothing;
            case SSL_ERROR_WANT_WRITE:
                m_sslWantsWrite = true;
                return Moved::Nothing;
            case SSL_ERROR_ZERO_RETURN:
                return Moved::End;
            default:
                m_trouble = "TLS: " + SampleTls::lastError();
                return Moved::End;
        }
    }

    const Descriptor m_socket;
    const SampleTls::Session m_session;  // null: plain
    const std::string m_peer;
    std::string m_in;
    std::string m_out;
    std::string m_trouble;  // why the connection failed; empty while it has not
    bool m_sslWantsWrite = false;
    bool m_peerDone = false;  // the client sends no more; it may still read
    bool m_hangUp = false;
    Clock::time_point m_lastTraffic = Clock::now();
};

SampleServer::SampleServer(const Settings& settings, SampleLog& log)
    : m_uri(SampleUri::parse(settings.uri)),
      m_uriText(settings.uri),
      m_idleLimitSec(settings.idleLimitSec),
      m_log(log) {
    if (m_uri.tls) m_tls.emplace(settings.certificateFile, settings.keyFile);
}

SampleServer::~SampleServer() = default;

bool SampleServer::listen() {
    m_listeners.clear();
    const AddressList addresses = resolve(m_uri);
    for (const addrinfo* a = addresses.get(); a != nullptr; a = a->ai_next) {
        if (!listenOn(*a)) {
            m_listeners.clear();
            return false;
        }
    }
    if (m_listeners.empty())
        throw std::runtime_error("cannot listen on " + m_uriText + ": no usable address");
    for (const Listener& listener : m_listeners) {
        m_log.line("listening on " + listener.name + (m_tls ? " (TLS)" : " (plain)"));
    }
    return true;
}

// False when the port is in use. An address that this machine does not have is passed over: "localhost" has
// an IPv6 address in the name service even where the system runs without IPv6.
bool SampleServer::listenOn(const addrinfo& address) {
    const std::string name = nameOf(address.ai_addr, address.ai_addrlen);
    if (isListeningOn(name)) return true;  // a name service may give an address twice
    Descriptor socket(::socket(address.ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (socket.get() < 0 && errno == EAFNOSUPPORT) return true;
    // A port whose last connections are still winding down may be used again at once.
    switchOn(socket.get(), SOL_SOCKET, SO_REUSEADDR);
    if (address.ai_family == AF_INET6) switchOn(socket.get(), IPPROTO_IPV6, IPV6_V6ONLY);
    if (bind(socket.get(), address.ai_addr, address.ai_addrlen) != 0 ||
        ::listen(socket.get(), SOMAXCONN) != 0) {
        const int error = errno;
        if (error == EADDRINUSE) return false;
        if (error == EADDRNOTAVAIL) return true;
        throw std::runtime_error("cannot listen on " + name + ": " + std::strerror(error));
    }
    m_listeners.push_back({std::move(socket), name});
    return true;
}

bool SampleServer::isListeningOn(const std::string& name) const {
    return std::any_of(m_listeners.begin(), m_listeners.end(),
                       [&](const Listener& listener) { return listener.name == name; });
}

void SampleServer::turn(int timeoutMs, const sigset_t& whileWaiting, const Handler& handler) {
    std::vector<pollfd> polled = pollSet();
    timespec timeout{};
    timeout.tv_sec = timeoutMs / 1000;
    timeout.tv_nsec = timeoutMs % 1000 * 1'000'000L;
    if (ppoll(polled.data(), polled.size(), &timeout, &whileWaiting) < 0) return;  // a signal came
    serveConnections(polled, handler);
    for (std::size_t i = 0; i < m_listeners.size(); ++i) {
        if (polled[i].revents != 0) acceptFrom(m_listeners[i].socket.get());
    }
}

bool SampleServer::hasUnsentAnswers() const {
    return std::any_of(m_connections.begin(), m_connections.end(),
                       [](const auto& connection) { return connection->hasUnsentAnswer(); });
}

// The listeners first, then the connections, both in their own order.
std::vector<pollfd> SampleServer::pollSet() const {
    const bool full = m_connections.size() >= kMaxConnections;
    std::vector<pollfd> polled;
    for (const Listener& listener : m_listeners) {
        polled.push_back({listener.socket.get(), static_cast<short>(full ? 0 : POLLIN), 0});
    }
    for (const auto& connection : m_connections) {
        polled.push_back({connection->descriptor(), connection->wantedEvents(), 0});
    }
    return polled;
}

void SampleServer::acceptFrom(int listener) {
    SocketAddress address;
    Descriptor socket(accept4(listener, address.get(), &address.length, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (socket.get() < 0) return;  // the client has gone again
    const std::string peer = address.name();
    SampleTls::Session session = m_tls ? m_tls->accept(socket.get()) : nullptr;
    if (m_tls && session == nullptr) {
        m_log.line(peer + ": refused, TLS: " + SampleTls::lastError());
        return;
    }
    m_log.line(peer + ": connected");
    m_connections.push_back(std::make_unique<Connection>(std::move(socket), std::move(session), peer));
}

void SampleServer::serveConnections(const std::vector<pollfd>& polled, const Handler& handler) {
    const Clock::time_point idleLimit = Clock::now() - std::chrono::seconds(m_idleLimitSec);
    std::vector<std::unique_ptr<Connection>> remaining;
    for (std::size_t i = 0; i < m_connections.size(); ++i) {
        std::unique_ptr<Connection>& connection = m_connections[i];
        const bool hasTraffic = polled[m_listeners.size() + i].revents != 0;
        const bool isIdle = m_idleLimitSec > 0 && !hasTraffic && connection->isIdleSince(idleLimit);
        if (!isIdle && (!hasTraffic || connection->step(handler))) {
            remaining.push_back(std::move(connection));
        } else {
            const std::string reason = isIdle ? "silent for too long" : connection->trouble();
            m_log.line(connection->peer() + ": closed" + (reason.empty() ? "" : ", " + reason));
        }
    }
    m_connections = std::move(remaining);
}
