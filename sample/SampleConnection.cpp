#include "SampleConnection.h"

namespace {

constexpr int kTurnMs = 100;        // how late the end or a silent client may be noticed
constexpr int kSendLimitMs = 2000;  // for a client to take an answer

}  // namespace

SampleConnection::SampleConnection(SampleSocket socket, const Rules& rules, const Handler& handler,
                                   SampleLog& log)
    : m_rules(rules),
      m_handler(handler),
      m_log(log),
      m_socket(std::move(socket)),
      m_peer(m_socket->peerName()),
      m_thread([this] { run(); }) {}

SampleConnection::~SampleConnection() {
    tellEnd();
    m_thread.join();
}

void SampleConnection::run() {
    std::string trouble;
    m_log.line(m_peer + ": connected");
    try {
        m_socket->limitSending(kSendLimitMs);
        if (!m_rules.isTls || shakeHands()) converse();
    } catch (const std::exception& error) {
        trouble = std::string(", ") + error.what();
    }
    m_socket.reset();
    m_log.line(m_peer + ": closed" + trouble);
    m_isOver = true;
}

// False when told to end.
bool SampleConnection::shakeHands() {
    while (goesOn()) {
        if (m_socket->establish()) return true;
    }
    return false;
}

void SampleConnection::converse() {
    while (goesOn()) {
        if (!m_socket->hasInput(kTurnMs)) continue;
        const std::string block = m_socket->receive();
        if (block.empty()) return;
        m_lastTraffic = Clock::now();
        m_received += block;
        if (!answer()) return;
    }
}

// False when the connection is to end.
bool SampleConnection::answer() {
    while (!m_received.empty()) {
        const Reply reply = m_handler(m_peer, m_received);
        if (reply.consumed == 0) return true;
        m_received.erase(0, reply.consumed);
        m_socket->send(reply.text);
        if (reply.hangUp) return false;
    }
    return true;
}

bool SampleConnection::goesOn() const {
    const auto limit = std::chrono::seconds(m_rules.idleLimitSec);
    if (m_rules.idleLimitSec > 0 && Clock::now() - m_lastTraffic > limit)
        throw SampleSocketError("silent for too long");
    return !m_isToEnd;
}
