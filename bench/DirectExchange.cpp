#include "DirectExchange.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <utility>

namespace {

constexpr int kConnectLimitMs = 10'000;
constexpr int kAnswerLimitMs = 5'000;
constexpr int kFarewellLimitMs = 100;

void require(bool condition, const char* what) {
    if (!condition) throw std::runtime_error(std::string("direct exchange: ") + what);
}

void waitFor(int descriptor, short events, int limitMs) {
    pollfd entry{descriptor, events, 0};
    require(poll(&entry, 1, limitMs) == 1, "nothing in time");
}

struct AddressListFreer {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using AddressList = std::unique_ptr<addrinfo, AddressListFreer>;

AddressList resolve(const std::string& host, const std::string& port) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV;
    addrinfo* list = nullptr;
    require(getaddrinfo(host.c_str(), port.c_str(), &hints, &list) == 0, "resolve");
    return AddressList(list);
}

void switchOn(int descriptor, int level, int option) {
    const int on = 1;
    setsockopt(descriptor, level, option, &on, sizeof on);
}

// The plain transport, and what TLS goes over.
class Connection {
  public:
    Connection(const std::string& host, const std::string& port) {
        const AddressList addresses = resolve(host, port);
        m_descriptor = socket(addresses->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        require(m_descriptor >= 0, "socket");
        connectTo(*addresses);
        switchOn(m_descriptor, IPPROTO_TCP, TCP_NODELAY);
        switchOn(m_descriptor, SOL_SOCKET, SO_KEEPALIVE);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() { ::close(m_descriptor); }

    int descriptor() const { return m_descriptor; }

    void send(const std::string& data) const {
        require(
            ::send(m_descriptor, data.data(), data.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(data.size()),
            "send");
    }

    std::string receive() const {
        waitFor(m_descriptor, POLLIN, kAnswerLimitMs);
        std::array<char, 4096> block{};
        const ssize_t count = recv(m_descriptor, block.data(), block.size(), 0);
        require(count >= 0, "receive");
        return {block.data(), static_cast<std::size_t>(count)};
    }

    void sayGoodbye() const {
        shutdown(m_descriptor, SHUT_WR);
        std::array<char, 4096> rest{};
        do
            waitFor(m_descriptor, POLLIN, kFarewellLimitMs);
        while (recv(m_descriptor, rest.data(), rest.size(), 0) > 0);
    }

  private:
    void connectTo(const addrinfo& address) const {
        if (connect(m_descriptor, address.ai_addr, address.ai_addrlen) == 0) return;
        require(errno == EINPROGRESS, "connect");
        waitFor(m_descriptor, POLLOUT, kConnectLimitMs);
        int error = 0;
        socklen_t length = sizeof error;
        getsockopt(m_descriptor, SOL_SOCKET, SO_ERROR, &error, &length);
        require(error == 0, "connect");
    }

    int m_descriptor = -1;
};

struct SslFreer {
    void operator()(SSL* ssl) const { SSL_free(ssl); }
};

class Tls {
  public:
    Tls(const Connection& connection, SSL_CTX* context, const std::string& host)
        : m_descriptor(connection.descriptor()), m_ssl(SSL_new(context)) {
        require(m_ssl != nullptr && SSL_set_fd(m_ssl.get(), m_descriptor) == 1, "TLS");
        expect(host);
        SSL_set_connect_state(m_ssl.get());
        repeat([this] { return SSL_do_handshake(m_ssl.get()); });
    }

    void send(const std::string& data) const {
        std::size_t sent = 0;
        repeat([&] { return SSL_write_ex(m_ssl.get(), data.data(), data.size(), &sent); });
    }

    std::string receive() const {
        std::array<char, 4096> block{};
        std::size_t count = 0;
        repeat([&] { return SSL_read_ex(m_ssl.get(), block.data(), block.size(), &count); });
        return {block.data(), count};
    }

    void sayGoodbye() const { SSL_shutdown(m_ssl.get()); }

  private:
    void expect(const std::string& host) const {
        if (X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(m_ssl.get()), host.c_str()) == 1) return;
        require(SSL_set1_host(m_ssl.get(), host.c_str()) == 1, "host");
        std::string name = host;
        SSL_ctrl(m_ssl.get(), SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name, name.data());
    }

    template <typename Step>
    void repeat(const Step& step) const {
        for (int result = step(); result <= 0; result = step()) {
            const int error = SSL_get_error(m_ssl.get(), result);
            require(error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE, "TLS");
            waitFor(m_descriptor, error == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT, kAnswerLimitMs);
        }
    }

    int m_descriptor;
    std::unique_ptr<SSL, SslFreer> m_ssl;
};

template <typename Transport>
std::string talk(const Transport& transport, const std::string& command) {
    transport.send(command);
    return transport.receive();
}

}  // namespace

DirectExchange::DirectExchange(std::string host, std::uint16_t port, SSL_CTX* context)
    : m_host(std::move(host)), m_port(std::to_string(port)), m_context(context) {}

std::string DirectExchange::run(const std::string& command) const {
    const Connection connection(m_host, m_port);
    std::string answer;
    if (m_context == nullptr) {
        answer = talk(connection, command);
    } else {
        const Tls tls(connection, m_context, m_host);
        answer = talk(tls, command);
        tls.sayGoodbye();
    }
    connection.sayGoodbye();
    return answer;
}
