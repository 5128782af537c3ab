#include "ZORSockSendAction.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include "TVLNumber.h"
#include "ZORBadConfigException.h"
#include "ZORLogger.h"
#include "ZORPropertyInserter.h"

namespace {

ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("ZORSockSendAction");

constexpr int kDefaultTimeoutSec = 60;

std::string requiredAttribute(const TVLIDOM_Element& element, const char* name, const char* message,
                              const char* exceptionText) {
    std::string value = element.getAttribute(name).str();
    if (value.empty()) {
        logger->log(ZOR_ERROR, message);
        throw ZORBadConfigException(exceptionText);
    }
    ZORPropertyInserter::getInstance()->insertProperties(value);
    return value;
}

struct MarkerTexts {
    const char* attribute;
    const char* tooLong;
    const char* read;
};

// Deliberate: "longer that"; see ZORSockSendActionTest.AMarkerLongerThanTheAnswerIsSwitchedOff.
constexpr MarkerTexts kOK{"responseOK", "configured OK response is longer that the response length.",
                          "responseOK is \"%s\""};
constexpr MarkerTexts kFatal{"responseFatal", "configured FATAL response is longer that the response length.",
                             "responseFatal is \"%s\""};
constexpr MarkerTexts kRetry{"responseRetry", "configured RETRY response is longer that the response length.",
                             "responseRetry is \"%s\""};

// A marker that could never fit into the answer is switched off.
void readMarker(const TVLIDOM_Element& element, const MarkerTexts& texts, int responseSize,
                std::string& marker) {
    const I18NString value = element.getAttribute(texts.attribute);
    if (value.empty()) return;
    const bool fits = value.length() <= static_cast<std::size_t>(responseSize);
    if (!fits) logger->log(ZOR_ERROR, texts.tooLong);
    marker = fits ? value.str() : std::string();
    logger->log(ZOR_DEBUG, texts.read, marker.c_str());
}

struct Freed {
    void operator()(char* memory) const { std::free(memory); }
};
using Zeroed = std::unique_ptr<char, Freed>;

// An exchange ends with the socket closed, whichever way it ends.
struct ClosedAfterwards {
    ZORSocketCommand& command;
    ~ClosedAfterwards() { command.close(); }
};

bool holds(const char* answer, const std::string& marker) {
    return !marker.empty() && std::strstr(answer, marker.c_str()) != nullptr;
}

}  // namespace

ZORSockSendAction::ZORSockSendAction() = default;

ZORSockSendAction::~ZORSockSendAction() = default;

void ZORSockSendAction::prepare(TVLIDOM_Element element) {
    logger->log(ZOR_DEBUG, "preparing");
    ZORAction::prepare(element);
    const std::string uri =
        requiredAttribute(element, "URI", "missing URI attribute", "ping action must have URI");
    logger->log(ZOR_DEBUG, "URI is %s", uri.c_str());
    const std::string command = requiredAttribute(element, "commandString", "missing commandString attribute",
                                                  "ping action must have commandString attribute.");
    logger->log(ZOR_DEBUG, "command string is \"%s\"", command.c_str());
    int timeoutSec = kDefaultTimeoutSec;
    const I18NString timeout = element.getAttribute("sockIOTimeoutSec");
    if (!timeout.empty()) {
        timeoutSec = TVLNumber::parse(timeout.c_str());
        logger->log(ZOR_DEBUG, "socket I/O timeout is %d", timeoutSec);
    }
    m_command = std::make_unique<ZORSocketCommand>(uri.c_str(), command.c_str(), timeoutSec);
    const I18NString size = element.getAttribute("responseSize");
    if (!size.empty()) {
        m_responseSize = TVLNumber::parse(size.c_str());
        logger->log(ZOR_DEBUG, "responseSize is \"%d\"", m_responseSize);
    }
    prepareMarkers(element);
}

void ZORSockSendAction::prepareMarkers(const TVLIDOM_Element& element) {
    if (m_responseSize <= 0) return;
    readMarker(element, kOK, m_responseSize, m_responseOK);
    readMarker(element, kFatal, m_responseSize, m_responseFatal);
    readMarker(element, kRetry, m_responseSize, m_responseRetry);
}

int ZORSockSendAction::executeImpl() {
    const TVLThreadGuard guard(m_mutex);
    logger->log(ZOR_DEBUG, "socket send action execute, sending...");
    const ClosedAfterwards closed{*m_command};
    return exchange();
}

int ZORSockSendAction::exchange() {
    const int sent = m_command->sendCommand();
    if (sent == -1) {
        logger->log(ZOR_DEBUG, "socket send action failed");
        return ZOR_NOT_SENT;
    }
    if (m_responseSize <= 0) {
        logger->log(ZOR_DEBUG, "successful send, no response to read.");
        return sent;
    }
    return readResponse();
}

int ZORSockSendAction::readResponse() {
    // Zeroed by the system page by page: a size that is configured far too large costs nothing until it is used.
    const Zeroed answer(static_cast<char*>(std::calloc(static_cast<std::size_t>(m_responseSize) + 1, 1)));
    if (!answer) {
        logger->log(ZOR_ERROR, "no memory for a response of %d bytes.", m_responseSize);
        return ZOR_NOT_SENT;
    }
    logger->log(ZOR_DEBUG, "successful send, now read response...");
    const int received = m_command->getResponse(m_responseSize, answer.get());
    if (received < 0) {
        // Deliberate: spelt so; see ZORSockSendActionTest.AnAnswerThatCannotBeReadGivesMinusOne.
        logger->log(ZOR_DEBUG, "error occured while reading response.");
    } else {
        tidy(answer.get(), m_responseSize);
        logger->log(ZOR_DEBUG, "got response \"%s\"", answer.get());
    }
    return classify(answer.get(), received);
}

int ZORSockSendAction::classify(const char* answer, int received) const {
    if (m_responseOK.empty() || received < static_cast<int>(m_responseOK.size())) return received;
    if (holds(answer, m_responseOK)) {
        logger->log(ZOR_DEBUG, "successfully detected success string in response.");
        return received;
    }
    if (holds(answer, m_responseFatal)) {
        logger->log(ZOR_DEBUG, "detected fatal error string in response.");
        return ZOR_FATAL_ANSWER;
    }
    if (holds(answer, m_responseRetry)) {
        // Deliberate: whatever the child is; see ZORSockSendActionTest.AnswersAreClassifiedByTheirMarkers.
        logger->log(ZOR_DEBUG, "Tomcat is not ready, retry...");
        return ZOR_RETRY_ANSWER;
    }
    logger->log(ZOR_WARN, "did not detect success string in response.");
    return ZOR_NO_SUCCESS;
}
