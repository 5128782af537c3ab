#include "SampleDialogue.h"

#include <unistd.h>

namespace {

bool fileExists(const std::string& path) {
    return !path.empty() && access(path.c_str(), F_OK) == 0;
}

bool beginsWith(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

}  // namespace

SampleDialogue::SampleDialogue(const SampleOptions& options, SampleLog& log)
    : m_options(options),
      m_log(log),
      m_warmAt(std::chrono::steady_clock::now() + std::chrono::seconds(options.warmUpSec)) {}

SampleConnection::Reply SampleDialogue::reply(const std::string& peer, const std::string& received) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_finished) return {.consumed = received.size(), .text = {}, .hangUp = true};
    if (beginsWith(received, m_options.pingCommand)) return answerPing(peer);
    if (beginsWith(received, m_options.shutdownCommand)) return obeyShutdown(peer);
    // The rest of a command may still be on its way.
    if (beginsWith(m_options.pingCommand, received) || beginsWith(m_options.shutdownCommand, received))
        return {};
    m_log.line(peer + ": unknown command of " + std::to_string(received.size()) + " bytes, hanging up");
    return {.consumed = received.size(), .text = {}, .hangUp = true};
}

bool SampleDialogue::finished() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_finished;
}

SampleConnection::Reply SampleDialogue::answerPing(const std::string& peer) {
    SampleConnection::Reply reply{.consumed = m_options.pingCommand.size(), .text = {}, .hangUp = false};
    if (isSilent()) {
        m_log.line(peer + ": ping, not answered");
        return reply;
    }
    reply.text = m_options.fixedAnswer.empty() ? stateMarker() : m_options.fixedAnswer;
    m_log.line(peer + ": ping, answering \"" + reply.text + "\"");
    ++m_answers;
    if (m_answers == m_options.exitAfterAnswers) {
        m_log.line("given the last answer, ending");
        m_finished = true;
    }
    return reply;
}

SampleConnection::Reply SampleDialogue::obeyShutdown(const std::string& peer) {
    m_log.line(peer + ": shutdown command, " + (m_options.stubborn ? "ignored" : "ending"));
    m_finished = m_finished || !m_options.stubborn;
    return {.consumed = m_options.shutdownCommand.size(), .text = {}, .hangUp = false};
}

std::string SampleDialogue::stateMarker() const {
    if (fileExists(m_options.fatalFile)) return m_options.fatalMarker;
    return isWarmingUp() ? m_options.retryMarker : m_options.readyMarker;
}

bool SampleDialogue::isWarmingUp() const {
    if (std::chrono::steady_clock::now() < m_warmAt) return true;
    return !m_options.readyFile.empty() && !fileExists(m_options.readyFile);
}

bool SampleDialogue::isSilent() const {
    return m_options.silent || fileExists(m_options.silentFile);
}
