#include "ZORChildProcess.h"

#include <csignal>

#include "TVLConfigurationFactory.h"
#include "TVLIDOM_Helper.h"
#include "TVLOs.h"
#include "ZORBadConfigException.h"
#include "ZORLogger.h"
#include "ZORSignalAction.h"
#include "ZORSockSendAction.h"
#include "ZORSpawnAction.h"

namespace {

ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("ZORChildProcess");

// A freshly started child may leave this many pings unanswered before they count.
constexpr int kFreshChildPingCounter = -10;

TVLIDOM_Element requiredElement(const TVLIDOM_Element& parent, const char* name, const char* message) {
    const TVLIDOM_Element element = TVLIDOM_Helper::findFirstElementWithName(parent, name);
    if (!element.isNull()) return element;
    logger->log(ZOR_FATAL, message);
    throw ZORBadConfigException(message);
}

// Deletes an owned action; one that cannot be destroyed properly must not keep the others from being.
template <typename Action>
void deleteAction(Action*& action) {
    try {
        delete action;
    } catch (...) {
    }
    action = nullptr;
}

bool isInstalled(const I18NString& component) {
    try {
        return !TVLConfigurationFactory::getInstance()->getComponentVersion(component).empty();
    } catch (const TVLConfigurationException& exception) {
        logger->log(ZOR_ERROR, "exception while checking for the dependent component version: \"%s\"",
                    exception.getMessage());
        return false;
    }
}

}  // namespace

ZORChildProcess::ZORChildProcess() = default;

ZORChildProcess::~ZORChildProcess() noexcept(false) {
    deleteAction(m_startAction);
    deleteAction(m_pingAction);
    deleteAction(m_stopAction);
}

void ZORChildProcess::prepare(TVLIDOM_Element process) {
    m_name = process.getAttribute("name").str();
    logger->log(ZOR_DEBUG, "preparing process named %s", m_name.c_str());
    const TVLIDOM_Element start = requiredElement(process, "start", "required element \"start\" is missing.");
    const TVLIDOM_Element spawn = requiredElement(start, "spawn", "required element \"spawn\" is missing.");
    m_startAction = new ZORSpawnAction;
    m_startAction->prepare(spawn);
    prepareStop(process);
    preparePing(process);
}

void ZORChildProcess::prepareStop(const TVLIDOM_Element& process) {
    const TVLIDOM_Element stop = TVLIDOM_Helper::findFirstElementWithName(process, "stop");
    const I18NString type = stop.getAttribute("type");
    logger->log(ZOR_DEBUG, "stop command type is \"%s\"", type.c_str());
    if (type == "spawn") {
        logger->log(ZOR_DEBUG, "processing stop command of type \"spawn\"");
        m_stopAction = new ZORSpawnAction;
    } else if (type == "socketSend") {
        logger->log(ZOR_DEBUG, "processing stop command of type \"socketSend\"");
        m_stopAction = new ZORSockSendAction;
    } else if (type == "signal") {
        // Deliberate: the same text as above; see ZORChildProcessTest.ASignalStopIsLoggedAsASocketSend.
        logger->log(ZOR_DEBUG, "processing stop command of type \"socketSend\"");
        m_stopAction = new ZORSignalAction;
    } else {
        logger->log(ZOR_FATAL, "unexpected type for stop command \"%s\"", type.c_str());
        throw ZORBadConfigException("unexpected type for stop command");
    }
    m_stopAction->prepare(TVLIDOM_Helper::findFirstElementWithName(stop, type));
}

void ZORChildProcess::preparePing(const TVLIDOM_Element& process) {
    const TVLIDOM_Element ping = TVLIDOM_Helper::findFirstElementWithName(process, "ping");
    if (!validatePing(ping)) return;
    logger->log(ZOR_DEBUG, "processing ping command of type \"socketSend\"");
    m_pingAction = new ZORSockSendAction;
    m_pingAction->prepare(TVLIDOM_Helper::findFirstElementWithName(ping, "socketSend"));
}

bool ZORChildProcess::validatePing(TVLIDOM_Element ping) {
    if (ping.isNull()) {
        logger->log(ZOR_WARN, "no ping element in config.");
        return false;
    }
    const TVLIDOM_Element socketSend = TVLIDOM_Helper::findFirstElementWithName(ping, "socketSend");
    if (socketSend.isNull()) {
        logger->log(ZOR_WARN, "no socketSend element in config.");
        return false;
    }
    const I18NString dependency = socketSend.getAttribute("dependency");
    if (dependency.empty()) {
        logger->log(ZOR_WARN, "The attribute \"dependency\" is missing.");
        return true;
    }
    return isInstalled(dependency);
}

void ZORChildProcess::start() {
    logger->log(ZOR_DEBUG, "starting process \"%s\"", getName());
    m_pingCounter = kFreshChildPingCounter;
    m_restartPending = 0;
    m_startAction->execute();
    m_handle = m_startAction->getProcessHandle();
    logger->log(ZOR_DEBUG, "process handle is %d", m_handle);
}

int ZORChildProcess::isAlive() {
    logger->log(ZOR_DEBUG, "Testing if process \"%s\" is still active.", getName());
    logger->log(ZOR_DEBUG, "handle is %d", m_handle);
    if (m_handle < 1) {
        logger->log(ZOR_DEBUG, "Invalid process handle, cannot test if process is alive.");
        return 0;
    }
    // SIGCHLD is ignored, so a child that has ended leaves no zombie for this to find.
    if (TVLOs::current().kill(m_handle, 0) == 0) {
        logger->log(ZOR_DEBUG, "Process \"%s\" is still active.", getName());
        return 1;
    }
    logger->log(ZOR_DEBUG, "Process \"%s\" has terminated (kill(0) failed).", getName());
    m_handle = -1;
    return 0;
}

int ZORChildProcess::kill() {
    logger->log(ZOR_DEBUG, "killing process \"%s\"", getName());
    logger->log(ZOR_DEBUG, "Process ID used is %ld", m_handle);
    if (m_handle < 1) return m_handle;
    return TVLOs::current().kill(m_handle, SIGKILL);
}
