#include "TestPeer.h"

#include <netinet/in.h>
#include <openssl/err.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {

union LoopbackAddress {
    sockaddr any;
    sockaddr_in v4;
    sockaddr_in6 v6;
};

LoopbackAddress loopback(int family, std::uint16_t port) {
    LoopbackAddress address{};
    if (family == AF_INET6) {
        address.v6.sin6_family = AF_INET6;
        address.v6.sin6_addr = in6addr_loopback;
        address.v6.sin6_port = htons(port);
    } else {
        address.v4.sin_family = AF_INET;
        address.v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.v4.sin_port = htons(port);
    }
    return address;
}

socklen_t lengthFor(int family) {
    return family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
}

// A script that waits for bytes that never come must not hang the test.
void limitReads(int descriptor) {
    const timeval limit{20, 0};
    setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
}

void blockSigpipe() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void require(bool condition, const char* what) {
    if (!condition) throw std::runtime_error(std::string("test peer: ") + what);
}

PeerContext newContext(const SSL_METHOD* method) {
    PeerContext context(SSL_CTX_new(method), SSL_CTX_free);
    require(context != nullptr, "context");
    return context;
}

}  // namespace

int bindToLoopback(int family) {
    const int descriptor = socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const LoopbackAddress address = loopback(family, 0);
    const int yes = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    require(bind(descriptor, &address.any, lengthFor(family)) == 0, "bind");
    return descriptor;
}

int listenOnLoopback(int family, int backlog) {
    const int listener = bindToLoopback(family);
    require(listen(listener, backlog) == 0, "listen");
    return listener;
}

std::uint16_t portOf(int descriptor) {
    LoopbackAddress address{};
    socklen_t length = sizeof address;
    require(getsockname(descriptor, &address.any, &length) == 0, "name");
    return ntohs(address.any.sa_family == AF_INET6 ? address.v6.sin6_port : address.v4.sin_port);
}

int connectPlain(std::uint16_t port, int family) {
    const int descriptor = socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const LoopbackAddress address = loopback(family, port);
    if (connect(descriptor, &address.any, lengthFor(family)) == 0) {
        limitReads(descriptor);
        return descriptor;
    }
    close(descriptor);
    return -1;
}

PeerContext serverContext(const TestPki::Issued& identity) {
    PeerContext context = newContext(TLS_server_method());
    require(SSL_CTX_use_certificate_chain_file(context.get(), identity.certificate.c_str()) == 1,
            "certificate");
    require(SSL_CTX_use_PrivateKey_file(context.get(), identity.key.c_str(), SSL_FILETYPE_PEM) == 1, "key");
    return context;
}

PeerContext clientContext(const std::filesystem::path& authority) {
    PeerContext context = newContext(TLS_client_method());
    require(SSL_CTX_load_verify_locations(context.get(), authority.c_str(), nullptr) == 1, "authority");
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
    return context;
}

PeerConnection::~PeerConnection() {
    m_ssl.reset();
    if (m_descriptor >= 0) close(m_descriptor);
}

bool PeerConnection::acceptTls(const PeerContext& context) {
    return handshake(context, true, nullptr);
}

bool PeerConnection::connectTls(const PeerContext& context, const char* serverName) {
    return handshake(context, false, serverName);
}

bool PeerConnection::handshake(const PeerContext& context, bool asServer, const char* serverName) {
    m_ssl.reset(SSL_new(context.get()), SSL_free);
    SSL_set_fd(m_ssl.get(), m_descriptor);
    if (serverName != nullptr) SSL_set1_host(m_ssl.get(), serverName);
    ERR_clear_error();
    const int result = asServer ? SSL_accept(m_ssl.get()) : SSL_connect(m_ssl.get());
    if (result == 1) return true;
    const char* words = ERR_reason_error_string(ERR_peek_error());
    m_tlsError = words != nullptr ? words : "no reason";
    ERR_clear_error();
    return false;
}

std::string PeerConnection::read() {
    std::vector<char> buffer(65536);
    ERR_clear_error();
    const ssize_t count = m_ssl != nullptr
                              ? SSL_read(m_ssl.get(), buffer.data(), static_cast<int>(buffer.size()))
                              : recv(m_descriptor, buffer.data(), buffer.size(), 0);
    return count > 0 ? std::string(buffer.data(), static_cast<std::size_t>(count)) : std::string();
}

bool PeerConnection::write(const std::string& data) {
    ERR_clear_error();
    const ssize_t count = m_ssl != nullptr
                              ? SSL_write(m_ssl.get(), data.data(), static_cast<int>(data.size()))
                              : send(m_descriptor, data.data(), data.size(), MSG_NOSIGNAL);
    return count == static_cast<ssize_t>(data.size());
}

void PeerConnection::waitForEnd() {
    while (!read().empty())
        continue;
}

void PeerConnection::drain() {
    char bytes[256];
    shutdown(m_descriptor, SHUT_WR);
    while (recv(m_descriptor, bytes, sizeof bytes, 0) > 0)
        continue;
}

void PeerConnection::closePolitely() {
    if (m_ssl != nullptr) SSL_shutdown(m_ssl.get());
    shutdown(m_descriptor, SHUT_WR);
    waitForEnd();
    closeAbruptly();
}

void PeerConnection::closeAbruptly() {
    m_ssl.reset();
    close(std::exchange(m_descriptor, -1));
}

void PeerConnection::reset() {
    const linger now{1, 0};
    setsockopt(m_descriptor, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    closeAbruptly();
}

TestPeer::TestPeer(Script script, int connections, int family, int receiveBuffer)
    : m_listener(listenOnLoopback(family, 128)), m_port(portOf(m_listener)) {
    // Connections have it from the listener.
    if (receiveBuffer > 0)
        setsockopt(m_listener, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    m_thread = std::thread([this, script = std::move(script), connections] { serve(script, connections); });
}

void TestPeer::serve(const Script& script, int connections) const {
    blockSigpipe();
    for (int i = 0; i < connections; ++i) {
        const int descriptor = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (descriptor < 0) return;
        limitReads(descriptor);
        PeerConnection connection(descriptor);
        script(connection);
    }
}

void TestPeer::join() {
    if (m_thread.joinable()) m_thread.join();
}

TestPeer::~TestPeer() {
    shutdown(m_listener, SHUT_RDWR);  // wakes an accept that nobody came for
    join();
    close(m_listener);
}

std::string TestPeer::url(const std::string& scheme, const std::string& host) const {
    return scheme + "://" + host + ":" + std::to_string(m_port) + "/path";
}
