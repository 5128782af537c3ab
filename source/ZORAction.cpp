#include "ZORAction.h"

#include <new>

#include "TVLNumber.h"
#include "TVLThread.h"
#include "ZORLogger.h"

namespace {

ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("ZORAction");

}  // namespace

ZORAction::~ZORAction() noexcept(false) = default;

int ZORAction::execute() {
    const int result = attempt();
    if (m_waitTimeMs == -1) return result;
    logger->log(ZOR_DEBUG, "delay for %d ms.", m_waitTimeMs);
    TVLThread::sleep(m_waitTimeMs);
    return result;
}

// Whoever executes goes on with the other children and with the next round.
int ZORAction::attempt() {
    try {
        return executeImpl();
    } catch (const std::bad_alloc&) {
        logger->log(ZOR_ERROR, "no memory for the action, so it has failed.");
        return -1;
    }
}

void ZORAction::prepare(TVLIDOM_Element element) {
    const I18NString waitTime = element.getAttribute("wait_time");
    if (waitTime.empty()) return;
    m_waitTimeMs = TVLNumber::secondsToMs(TVLNumber::parse(waitTime.c_str()));
    logger->log(ZOR_DEBUG, "configured wait_time is %d ms.", m_waitTimeMs);
}
