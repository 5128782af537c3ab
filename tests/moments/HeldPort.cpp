#include "HeldPort.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <sstream>
#include <stdexcept>

#include "FileContent.h"

namespace {

int newSocket() {
    const int number = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (number < 0) throw std::runtime_error("no socket");
    return number;
}

}  // namespace

HeldPort::HeldPort(bool queueIsFull) : m_listener(newSocket()) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    socklen_t length = sizeof address;
    if (bind(m_listener, any, length) != 0 || listen(m_listener, queueIsFull ? 0 : 8) != 0 ||
        getsockname(m_listener, any, &length) != 0) {
        throw std::runtime_error("no port");
    }
    m_port = ntohs(address.sin_port);
    if (!queueIsFull) return;
    // A queue of length 0 has room for this one and no other.
    m_filler = newSocket();
    if (connect(m_filler, any, length) != 0 && errno != EINPROGRESS)
        throw std::runtime_error("no connection");
}

HeldPort::~HeldPort() {
    hangUp();
    if (m_filler >= 0) close(m_filler);
    close(m_listener);
}

bool HeldPort::isBeingConnected() const {
    std::array<char, 32> wanted{};
    std::snprintf(wanted.data(), wanted.size(), "0100007F:%04X 02", static_cast<unsigned>(m_port));
    return contentOf("/proc/net/tcp").find(wanted.data()) != std::string::npos;
}

std::string HeldPort::received() {
    takeConnections();
    for (const int connection : m_connections) {
        std::array<char, 4096> buffer{};
        const ssize_t got = recv(connection, buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (got > 0) m_received.append(buffer.data(), static_cast<std::size_t>(got));
    }
    return m_received;
}

void HeldPort::takeConnections() {
    for (int taken = accept(m_listener, nullptr, nullptr); taken >= 0;
         taken = accept(m_listener, nullptr, nullptr))
        m_connections.push_back(taken);
}

void HeldPort::answer(const std::string& text) {
    for (const int connection : m_connections)
        send(connection, text.data(), text.size(), MSG_NOSIGNAL);
    m_received.clear();
}

void HeldPort::hangUp() {
    for (const int connection : m_connections)
        close(connection);
    m_connections.clear();
    m_received.clear();
}
