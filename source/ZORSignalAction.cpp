#include "ZORSignalAction.h"

#include "TVLNumber.h"
#include "TVLOs.h"
#include "ZORBadConfigException.h"
#include "ZORLogger.h"
#include "ZORPropertyInserter.h"

namespace {

ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("ZORSignalAction");

}  // namespace

ZORSignalAction::~ZORSignalAction() = default;

int ZORSignalAction::executeImpl() {
    logger->log(ZOR_DEBUG, "Signalling process (handle = %d).", m_processHandle);
    return TVLOs::current().kill(m_processHandle, m_signal);
}

void ZORSignalAction::prepare(TVLIDOM_Element element) {
    ZORAction::prepare(element);
    std::string signal = element.getAttribute("signal").str();
    if (signal.empty()) {
        logger->log(ZOR_FATAL, "required attribute \"signal\" is missing.");
        // Deliberate: the log says attribute, the exception element; see
        // ZORSignalActionTest.AMissingSignalIsAnAttributeInTheLogAndAnElementInTheException.
        throw ZORBadConfigException("required element \"signal\" is missing.");
    }
    ZORPropertyInserter::getInstance()->insertProperties(signal);
    m_signal = TVLNumber::parse(signal.c_str());
    logger->log(ZOR_DEBUG, "signal is %d", m_signal);
}
