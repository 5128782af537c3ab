#include "PingChildProcess.h"

#include <array>
#include <cstdio>
#include <new>

#include "TVLFile.h"
#include "TVLIDOM_Helper.h"
#include "TVLNumber.h"
#include "TVLOs.h"
#include "ZORBadConfigException.h"
#include "ZORBootstrapService.h"
#include "ZORChildProcess.h"
#include "ZORLogger.h"
#include "ZORPropertyInserter.h"
#include "ZORSockSendAction.h"

namespace {

ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("PingChildProcess");

constexpr std::size_t kStackSizeBytes = 4096000;
constexpr const char* kLimitFile = "zor.failedPingLimit";
constexpr int kDefaultTimeSec = 60;

// A time from the property table; undefined, unreadable or not positive it is the default.
int secondsFromProperty(const char* reference) {
    std::string text = reference;
    ZORPropertyInserter::getInstance()->insertProperties(text);
    const int seconds = TVLNumber::parse(text.c_str());
    return seconds <= 0 ? kDefaultTimeSec : seconds;
}

// How many intervals cover the time, rounded up.
int intervalsCovering(std::int64_t interval, std::int64_t time) {
    return TVLNumber::clamp((interval + time - 1) / interval);
}

// False when the memory does not suffice for a step. It is left out then; everything around it goes on.
template <typename Step>
bool tryWithMemory(Step step) {
    try {
        step();
        return true;
    } catch (const std::bad_alloc&) {
        logger->log(ZOR_ERROR, "no memory for a step of the supervision, so it is left out.");
        return false;
    }
}

}  // namespace

PingChildProcess::PingChildProcess() : TVLThread(nullptr, kStackSizeBytes) {}

PingChildProcess::~PingChildProcess() {
    TVLThread::join();
}

void PingChildProcess::prepare(TVLIDOM_Element root) {
    const TVLIDOM_Element manager = TVLIDOM_Helper::findFirstElementWithName(root, "processManager");
    if (manager.isNull()) {
        // Deliberate: not the element's name; see PingLoopTest.WithoutAProcessManagerEverythingIsDefault.
        logger->log(ZOR_WARN, "no procManager element in config, using default poll interval, etc.");
        return;
    }
    preparePolling(manager.getAttribute("pollIntervalsec"));
    prepareShutdown(manager.getAttribute("checkForShutdownIntervalms"));
}

void PingChildProcess::preparePolling(const I18NString& interval) {
    if (!interval.empty()) {
        m_pollIntervalSec = TVLNumber::parse(interval.c_str());
        logger->log(ZOR_DEBUG, "poll interval is %d seconds", m_pollIntervalSec);
    }
    if (m_pollIntervalSec == 0) {
        constexpr const char* kMessage = "poll interval must not be 0.";
        logger->log(ZOR_FATAL, kMessage);
        throw ZORBadConfigException(kMessage);
    }
    m_failedPingLimit = intervalsCovering(m_pollIntervalSec, secondsFromProperty("${dispatcherPingTimeout}"));
    logger->log(ZOR_DEBUG, "failed ping limit is %d", m_failedPingLimit);
}

void PingChildProcess::prepareShutdown(const I18NString& checkInterval) {
    if (!checkInterval.empty()) {
        const int intervalMs = TVLNumber::parse(checkInterval.c_str());
        m_checkForShutdownIntervalMs = intervalMs <= 0 ? 500 : intervalMs;
        logger->log(ZOR_DEBUG, "check for child processes shutdown interval is %d ms",
                    m_checkForShutdownIntervalMs);
    }
    const std::int64_t waitMs = std::int64_t{secondsFromProperty("${dispatcherStopWaitTime}")} * 1000;
    m_maxShutdownChecks = intervalsCovering(m_checkForShutdownIntervalMs, waitMs);
    logger->log(ZOR_DEBUG, "max checks for child process shutdown = %d", m_maxShutdownChecks);
}

void PingChildProcess::stop(TVLThreadSemaphore* finished) {
    TVLThreadSemaphore* none = nullptr;
    if (!m_semaFinished.compare_exchange_strong(none, finished)) {
        logger->log(ZOR_ERROR, "Child process supervisor has been told to stop but is already stopping.");
        return;
    }
    logger->log(ZOR_INFO, "Child process supervisor has been told to stop");
    m_stopRequested = 1;
    if (TVLThreadSemaphore* const wakeup = m_semaWakeup.load(); wakeup != nullptr) wakeup->post();
}

void PingChildProcess::finish() {
    if (TVLThread::isAlive() && m_semaFinished == nullptr) stop(TVLThreadSemaphore::createImmortal(0));
    TVLThread::join();
}

void PingChildProcess::run() {
    try {
        supervise();
    } catch (...) {
        logger->log(ZOR_FATAL, "the supervision has ended by an exception, the children are on their own.");
        throw;
    }
}

void PingChildProcess::supervise() {
    // Deliberate: a negative interval means no supervision at all, and nobody answers a stop request; see
    // PingLoopTest.ANegativePollIntervalEndsTheSupervisionAtOnce.
    if (m_pollIntervalSec < 1) return;
    m_semaWakeup = m_wakeup;
    while (waitForNextCycle())
        runCycle();
    shutDown();
}

bool PingChildProcess::waitForNextCycle() {
    const int intervalMs = TVLNumber::secondsToMs(m_pollIntervalSec);
    logger->log(ZOR_DEBUG, "entering timedWait, interval = %d", intervalMs);
    const int posted = m_semaWakeup.load()->timedWait(intervalMs);
    logger->log(ZOR_DEBUG, "end of timedWait");
    return posted != 1 && m_stopRequested == 0;
}

void PingChildProcess::readLimitOverride() {
    const auto modified = TVLFile::modificationTimeSec(kLimitFile);
    if (!modified || *modified == m_lastLimitFileTimeSec) return;
    const TVLFilePtr file = TVLFile::openForReading(kLimitFile, TVLFile::kMostOfARecord);
    std::array<char, 64> line{};
    if (!file || TVLOs::current().fgets(line.data(), static_cast<int>(line.size()), file.get()) == nullptr)
        return;
    const int limit = TVLNumber::parse(line.data());
    logger->log(ZOR_DEBUG, "Found new zor.failedPingLimit file, overwriting failed ping limit to %d", limit);
    m_lastLimitFileTimeSec = *modified;
    m_failedPingLimit = limit;
}

void PingChildProcess::runCycle() {
    Cycle cycle;
    tryWithMemory([&] { readLimitOverride(); });
    for (ZORChildProcess* const child : m_pService->getChildren()) {
        // One that could not be looked at is not known to run.
        if (!tryWithMemory([&] { examine(*child, cycle); })) ++cycle.restarts;
    }
    // What is no longer true goes first: a reader between the stores never takes two half-good cycles for a good one.
    if (cycle.restarts != 0) m_allChildrenRunning = 0;
    if (cycle.failedPings != 0) m_allPingsAnswered = 0;
    m_allChildrenRunning = cycle.restarts == 0 ? 1 : 0;
    m_allPingsAnswered = cycle.failedPings == 0 ? 1 : 0;
    m_fatalError = cycle.fatals != 0 ? 1 : 0;
}

void PingChildProcess::examine(ZORChildProcess& child, Cycle& cycle) {
    if (child.getPingAction() == nullptr) {
        examineWithoutPing(child);
        return;
    }
    if (logger->writes(ZOR_DEBUG)) {
        logger->log(ZOR_DEBUG, "Pinging process %s. Ping counter: %s", child.getName(),
                    std::to_string(child.m_pingCounter).c_str());
    }
    if (child.m_restartPending == 0) {
        examineRunning(child, cycle);
    } else {
        examinePending(child, cycle);
    }
}

void PingChildProcess::examineWithoutPing(ZORChildProcess& child) {
    if (child.isAlive() != 0) {
        logger->log(ZOR_DEBUG, "Process %s is alive.", child.getName());
        return;
    }
    logger->log(ZOR_DEBUG, "Process %s is not alive. Resuscitating.", child.getName());
    child.start();
}

void PingChildProcess::examineRunning(ZORChildProcess& child, Cycle& cycle) {
    if (child.isAlive() == 0) {
        ++cycle.restarts;
        logger->log(ZOR_ERROR, "ping loop: process \"%s\" is not active, so restarting it.", child.getName());
        child.start();
        return;
    }
    logger->log(ZOR_DEBUG, "ping loop: process \"%s\" is still active, so we will ping it.", child.getName());
    const int result = child.getPingAction()->execute();
    if (result == ZOR_NOT_SENT) {
        countFailedPing(child, cycle);
        return;
    }
    if (result == ZOR_NO_SUCCESS || result == ZOR_FATAL_ANSWER) {
        logger->log(ZOR_DEBUG, "ping of process %s failed. Will not begin restart sequence.",
                    child.getName());
        ++cycle.failedPings;
        if (result != ZOR_FATAL_ANSWER) return;
        logger->log(ZOR_DEBUG, "PingChildProcess::run() - Detected a fatal error.");
        ++cycle.fatals;
        return;
    }
    // Deliberate: a child that answers "retry" is busy, not dead; see PingLoopTest.RetryAnswersNeverRestart.
    logger->log(ZOR_DEBUG, "process %s pinged successfully.", child.getName());
    child.m_pingCounter = 0;
}

void PingChildProcess::countFailedPing(ZORChildProcess& child, Cycle& cycle) {
    logger->log(ZOR_DEBUG, "ping of process %s failed. Will begin restart sequence.", child.getName());
    ++cycle.restarts;
    ++child.m_pingCounter;
    if (child.m_pingCounter < m_failedPingLimit) return;
    beginRestart(child);
}

void PingChildProcess::beginRestart(ZORChildProcess& child) {
    logger->log(ZOR_WARN,
                "process %s hit ping failure limit, will restart, but first make sure it is really dead.",
                child.getName());
    child.m_restartPending = 1;
    child.m_pingCounter = 0;
    if (child.isAlive() == 0) {
        logger->log(ZOR_WARN, "process %s appears to be dead, so restarting.", child.getName());
        child.start();
        return;
    }
    logger->log(ZOR_WARN, "process %s appears to still be alive, so stop it.", child.getName());
    logger->log(ZOR_DEBUG, "stopping process \"%s\"", child.getName());
    // Deliberate: the action's process handle is set at shutdown only; see
    // PingLoopTest.ARestartDoesNotAimTheStopAction.
    const int status = child.getStopAction().execute();
    logger->log(ZOR_WARN, "stopAction->execute() return status = %d", status);
}

void PingChildProcess::examinePending(ZORChildProcess& child, Cycle& cycle) {
    ++cycle.restarts;
    logger->log(ZOR_DEBUG,
                "ping loop: unresponsive process %s requires restart, test to see if it is still active.",
                child.getName());
    if (child.isAlive() == 0) {
        logger->log(ZOR_WARN, "restarting process %s.", child.getName());
        child.start();
        return;
    }
    ++child.m_pingCounter;
    const bool patienceIsOver = child.m_pingCounter > 1;
    if (patienceIsOver) {
        // Deliberate: "two polls"; see PingLoopTest.APendingChildIsLeftOneCycleThenKilledAndRestartedAtOnce.
        logger->log(ZOR_DEBUG,
                    "unresponsive process %s still hasn't stopped after two polls intervals, so kill it",
                    child.getName());
        child.kill();
    }
    logger->log(ZOR_WARN, "unresponsive process %s hasn't yet finished stopping.", child.getName());
    if (!patienceIsOver) return;
    logger->log(ZOR_WARN, "restarting process %s.", child.getName());
    child.start();
}

void PingChildProcess::shutDown() {
    logger->log(ZOR_INFO, "stopping child process(es).");
    logger->log(ZOR_DEBUG, "stopping, leaving ping loop");
    stopProcesses();
    if (waitForDeath() == 0) killProcesses();
    if (TVLThreadSemaphore* const finished = m_semaFinished.load(); finished != nullptr) {
        logger->log(ZOR_DEBUG, "raise semaphore to signal finished stopping.");
        finished->post();
    }
    // Whoever still waits for readiness gives up.
    m_fatalError = 1;
}

void PingChildProcess::stopProcesses() {
    logger->log(ZOR_DEBUG, "Stop all processes.");
    for (ZORChildProcess* const child : m_pService->getChildren()) {
        if (!tryWithMemory([&] { stopProcess(*child); })) m_stopCommandFailed = 1;
    }
}

void PingChildProcess::stopProcess(ZORChildProcess& child) {
    if (child.isAlive() == 0) {
        logger->log(ZOR_DEBUG, "process \"%s\" is not alive, so don't need to stop it.", child.getName());
        return;
    }
    child.getStopAction().setProcessHandle(child.getProcessHandle());
    logger->log(ZOR_DEBUG, "stopping process \"%s\"", child.getName());
    const int status = child.getStopAction().execute();
    logger->log(ZOR_WARN, "stopAction->execute() return status = %d", status);
    // Deliberate: the last live child's result is the one that counts; see
    // PingLoopTest.OnlyTheLastStopResultCounts.
    m_stopCommandFailed = status < 0 ? 1 : 0;
}

int PingChildProcess::waitForDeath() {
    if (m_stopCommandFailed != 0) {
        logger->log(ZOR_DEBUG,
                    "Detected that the stop command was not sent, don't bother waiting for death.");
        return 0;
    }
    logger->log(ZOR_DEBUG, "Waiting for processes to die.");
    int live = 0;
    // Deliberate: one check more than configured; see PingLoopTest.ShutdownChecksOnceMoreThanConfigured.
    for (int remaining = m_maxShutdownChecks; remaining >= 0; --remaining) {
        TVLThread::sleep(m_checkForShutdownIntervalMs);
        live = countLive();
        if (live == 0) {
            logger->log(ZOR_INFO, "no processes are alive.");
            return 1;
        }
        logger->log(ZOR_DEBUG, "%d processes are still alive.", live);
    }
    logger->log(ZOR_INFO,
                "%d processes are still alive, but we're not going to wait any longer for them to die.",
                live);
    return 0;
}

int PingChildProcess::countLive() {
    int live = 0;
    for (ZORChildProcess* const child : m_pService->getChildren()) {
        const bool alive = child->isAlive() != 0;
        if (alive) ++live;
        logger->log(ZOR_DEBUG, alive ? "Process \"%s\" is still active." : "Process \"%s\", is dead.",
                    child->getName());
    }
    return live;
}

void PingChildProcess::killProcesses() {
    logger->log(ZOR_DEBUG, "kill all processes.");
    for (ZORChildProcess* const child : m_pService->getChildren())
        child->kill();
}

int PingChildProcess::testAllProcesses() {
    int failed = 0;
    for (ZORChildProcess* const child : m_pService->getChildren()) {
        if (child->getPingAction() == nullptr) continue;
        const int result = child->getPingAction()->execute();
        if (result == ZOR_RETRY_ANSWER) return ZOR_RETRY_ANSWER;
        if (result == ZOR_FATAL_ANSWER) {
            logger->log(ZOR_DEBUG, "ping of process %s failed, fatal error happened.", child->getName());
            return -1;
        }
        if (result < 0) {
            logger->log(ZOR_DEBUG, "ping of process %s failed.", child->getName());
            ++failed;
        } else {
            logger->log(ZOR_DEBUG, "process %s pinged successfully.", child->getName());
        }
    }
    return failed;
}
