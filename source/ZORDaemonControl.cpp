#include "ZORDaemonControl.h"

#include <cerrno>
#include <csignal>
#include <string>

#include "PingChildProcess.h"
#include "TVLFile.h"
#include "TVLNumber.h"
#include "TVLOs.h"
#include "TVLThread.h"
#include "ZORAction.h"
#include "ZORCmdLine.h"
#include "ZORLogger.h"
#include "ZORPidFile.h"
#include "ZORPropertyInserter.h"

namespace {

// What these classes do for the service is told under its name.
ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("ZORBootstrapService");

}  // namespace

ZORPatience ZORDaemonControl::patienceOf(const ZORCmdLine& cmdLine, const char* triesOption,
                                         const char* intervalOption) {
    ZORPatience patience{20, 6};
    cmdLine.getIntValue(triesOption, patience.tries, 0);
    cmdLine.getIntValue(intervalOption, patience.intervalSec, 0);
    return patience;
}

void ZORDaemonControl::noteWaitMarker() {
    const std::string marker = ZORPropertyInserter::expanded("${temp}/zordaemonwait");
    logger->log(ZOR_DEBUG, "m_sDaemonWaitFileName is \"%s\"", marker.c_str());
    // Deliberate: the marker stays open for the rest of the process; see
    // DaemonLifeTest.TheMarkersDescriptorStaysInTheDaemon.
    if (TVLFile::openForReading(marker.c_str(), TVLFile::kMostOfARecord).release() != nullptr)
        ZORPropertyInserter::getInstance()->add("daemonWaitIndefinitely", "true");
}

bool ZORDaemonControl::isRunning() const {
    int pid = 0;
    const bool alive = m_pidFile.read(pid);
    logger->log(ZOR_DEBUG, "isRunningUnix() - process is %s.", alive ? "alive" : "dead");
    logger->log(ZOR_INFO, "Process is %s.", alive ? "running" : "not running");
    return alive;
}

bool ZORDaemonControl::stop(ZORPatience patience) const {
    int pid = 0;
    if (!m_pidFile.read(pid)) {
        logger->log(ZOR_INFO, "stopRunningUnix() - process is dead, nothing to stop.");
        return true;
    }
    logger->log(ZOR_INFO, "daemon process is alive, so will signal it to stop.");
    logger->log(ZOR_DEBUG, "stopRunningUnix() - process is alive, so will kill it with SIGTERM [PID: %d]",
                pid);
    signalDaemon(pid);
    logger->log(ZOR_INFO, "Waiting for daemon to stop....");
    return waitTillDead(patience);
}

bool ZORDaemonControl::start(ZORAction& daemonSpawn, ZORPatience patience) const {
    int pid = 0;
    if (m_pidFile.read(pid)) {
        logger->log(ZOR_WARN, "startDaemon() - daemon is already running, will not attempt to start it.");
        return true;
    }
    if (daemonSpawn.execute() <= 0) {
        logger->log(ZOR_ERROR, "startDaemon() - failed to spawn ZOR daemon.");
        return false;
    }
    logger->log(ZOR_INFO, "startDaemon() - spawned daemon, waiting for child processes to be ready.");
    const int ready = testReadyByPinging(patience);
    if (ready != -1) return ready != 0;
    logger->log(ZOR_DEBUG, "startDaemon() - Fatal error happened, waiting for daemon to stop....");
    waitTillDead(patience);
    return false;
}

bool ZORDaemonControl::waitTillDead(ZORPatience patience) const {
    if (patience.tries == 0) return false;
    for (int i = 0; i < patience.tries; ++i) {
        logger->log(ZOR_DEBUG, "waitTillDead() - test if ZOR daemon is alive.");
        int pid = 0;
        if (!m_pidFile.read(pid)) {
            logger->log(ZOR_INFO, "Daemon has stopped.");
            return true;
        }
        logger->log(ZOR_DEBUG, "waitTillDead() - ZOR daemon (process id %d) is still alive, so wait a bit.",
                    pid);
        TVLThread::sleep(TVLNumber::secondsToMs(patience.intervalSec));
    }
    logger->log(ZOR_ERROR, "waitTillDead() - daemon is still alive, but we aren't going to wait any more.");
    return false;
}

int ZORDaemonControl::testReadyByPinging(ZORPatience patience) const {
    for (int i = 0; i < patience.tries; ++i) {
        logger->log(ZOR_DEBUG, "testReadyByPinging() - test if spawned process is alive.");
        const char* pause = "testReadyByPinging() - spawned process is not yet alive, so sleep a bit";
        int pid = 0;
        if (m_pidFile.read(pid)) {
            logger->log(
                ZOR_DEBUG,
                "testReadyByPinging() - spawned process is alive, so see if all children were pinged OK.");
            const int failed = m_supervisor.testAllProcesses();
            if (failed == 0) {
                logger->log(ZOR_INFO, "testReadyByPinging() - pinged all children successfully.");
                return 1;
            }
            if (failed == -1) return stopAfterFatalError();
            pause = "testReadyByPinging() - child processes not yet ready so sleep a bit";
        }
        logger->log(ZOR_DEBUG, pause);
        TVLThread::sleep(TVLNumber::secondsToMs(patience.intervalSec));
    }
    logger->log(ZOR_ERROR, "testReadyByPinging() - child processes not yet ready, giving up.");
    return 0;
}

int ZORDaemonControl::stopAfterFatalError() const {
    logger->log(ZOR_INFO, "testReadyByPinging() - detected fatal errors, stop all processes.");
    int pid = 0;
    if (!m_pidFile.read(pid)) {
        logger->log(ZOR_INFO, "testReadyByPinging() - process is dead, nothing to stop.");
        return -1;
    }
    logger->log(ZOR_DEBUG,
                "testReadyByPinging() - daemon process is alive, so will kill it with SIGTERM [PID: %d]",
                pid);
    signalDaemon(pid);
    return -1;
}

void ZORDaemonControl::signalDaemon(int pid) const {
    std::string text = "Tell process to stop by sending SIGTERM, pid=" + std::to_string(pid);
    if (TVLOs::current().kill(pid, SIGTERM) == 0) {
        logger->log(ZOR_DEBUG, "%s", text.c_str());
        return;
    }
    text += ", kill failed, errno=" + std::to_string(errno);
    logger->log(ZOR_ERROR, "%s", text.c_str());
    logger->log(ZOR_ERROR, "Failed to signal the daemon process: it may not stop.");
}

int ZORDaemonControl::askPCPifReady(ZORPatience patience) const {
    const bool indefinitely = ZORPropertyInserter::getInstance()->get("daemonWaitIndefinitely") != nullptr;
    for (int counted = 0; counted < patience.tries;) {
        logger->log(ZOR_DEBUG, "askPCPifReady() - ask if spawned process is alive.");
        if (m_supervisor.isReady() != 0) {
            logger->log(ZOR_DEBUG, "askPCPifReady() - PCP reports all children are OK.");
            return 1;
        }
        if (m_supervisor.hasFatalError() != 0) {
            logger->log(ZOR_ERROR, "askPCPifReady() - some child processes got fatal errors, return -1.");
            return -1;
        }
        logger->log(ZOR_DEBUG,
                    "askPCPifReady() - PCP reports some child processes not yet ready so sleep a bit");
        TVLThread::sleep(TVLNumber::secondsToMs(patience.intervalSec));
        if (indefinitely) {
            logger->log(ZOR_DEBUG, "askPCPifReady() - waiting indefinitely");
        } else {
            ++counted;
        }
    }
    logger->log(ZOR_ERROR, "askPCPifReady() - child processes not yet ready, giving up.");
    return 0;
}
