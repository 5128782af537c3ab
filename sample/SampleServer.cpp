#include "SampleServer.h"

#include <strings.h>

#include <cstring>
#include <utility>

namespace {

// Further clients wait in the system's queue until one of these has gone.
constexpr std::size_t kMaxConnections = 200;
// For a client that has gone again before it was accepted.
constexpr int kAcceptLimitMs = 100;

// The library takes a scheme in either case.
bool hasScheme(const std::string& uri, const char* start) {
    return strncasecmp(uri.c_str(), start, std::strlen(start)) == 0;
}

bool isTls(const std::string& uri) {
    return hasScheme(uri, "https:") || hasScheme(uri, "tls:");
}

}  // namespace

SampleServer::SampleServer(const Settings& settings, SampleConnection::Handler handler, SampleLog& log)
    : m_settings(settings),
      m_rules{isTls(settings.uri), settings.idleLimitSec},
      m_handler(std::move(handler)),
      m_log(log),
      m_library(settings.service) {}

bool SampleServer::listen() {
    m_listeners.clear();
    std::string reasons;
    for (const char* const family : {"IPv4", "IPv6"}) {
        if (!listenWith(family, reasons)) {
            m_listeners.clear();
            return false;
        }
    }
    if (m_listeners.empty()) throw SampleSocketError("cannot listen on " + m_settings.uri + reasons);
    for (const SampleSocket& listener : m_listeners)
        m_log.line("listening on " + listener.localName() + (m_rules.isTls ? " (TLS)" : " (plain)"));
    return true;
}

// False when the port is in use. A family without an address of the host is passed over: "localhost" may have
// an IPv6 address in the name service even where the system runs without IPv6.
bool SampleServer::listenWith(const std::string& family, std::string& reasons) {
    try {
        SampleSocket socket(m_settings.service, family);
        socket.listenOn(m_settings.uri, kAcceptLimitMs);
        m_listeners.push_back(std::move(socket));
    } catch (const SampleSocketError& error) {
        if (error.isAddressInUse()) return false;
        reasons += std::string(": ") + error.what();
    }
    return true;
}

void SampleServer::turn(int timeoutMs) {
    removeFinished();
    std::vector<SampleSocket*> awaited;
    if (!std::exchange(m_pauses, false) && m_connections.size() < kMaxConnections) {
        for (SampleSocket& listener : m_listeners)
            awaited.push_back(&listener);
    }
    for (SampleSocket* const listener : SampleSocket::withInput(awaited, timeoutMs))
        acceptFrom(*listener);
}

void SampleServer::acceptFrom(SampleSocket& listener) {
    try {
        m_connections.push_back(
            std::make_unique<SampleConnection>(listener.accept(), m_rules, m_handler, m_log));
    } catch (const std::exception& error) {
        // Out of descriptors or threads, most likely. It is waited for, since the client stays in the queue.
        m_log.line(std::string("no client taken in: ") + error.what());
        m_pauses = true;
    }
}

void SampleServer::removeFinished() {
    std::erase_if(m_connections, [](const auto& connection) { return connection->isOver(); });
}

void SampleServer::endConnections() {
    for (const auto& connection : m_connections)
        connection->tellEnd();
    m_connections.clear();
}
