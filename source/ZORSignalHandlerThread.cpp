#include "ZORSignalHandlerThread.h"

#include <csignal>
#include <new>

#include "TVLOs.h"
#include "ZORBootstrapService.h"
#include "ZORLogger.h"

namespace {

ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("ZORSignalHandlerThread");

constexpr std::size_t kStackSizeBytes = 4096000;

bool isTermination(int signal) {
    return signal == SIGHUP || signal == SIGINT || signal == SIGQUIT || signal == SIGTERM;
}

}  // namespace

ZORSignalHandlerThread::ZORSignalHandlerThread(ZORBootstrapService* service)
    : TVLThread(nullptr, kStackSizeBytes), m_service(service) {}

ZORSignalHandlerThread::~ZORSignalHandlerThread() {
    // The service may end without a signal; the thread must not outlive it.
    m_dismissed = true;
    if (isAlive()) interrupt(SIGTERM);
    TVLThread::join();
}

sigset_t ZORSignalHandlerThread::terminationSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGQUIT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGHUP);
    return signals;
}

// A daemon without a PID file can still be told to stop; one without this thread could not.
void ZORSignalHandlerThread::writePidFile() {
    try {
        m_service->WritePIDFile();
    } catch (const std::bad_alloc&) {
        logger->log(ZOR_WARN, "no memory to write the PID file.");
    }
}

void ZORSignalHandlerThread::run() {
    logger->log(ZOR_DEBUG, "Signal Handling Thread started.");
    writePidFile();
    const sigset_t signals = terminationSignals();
    while (!m_dismissed) {
        const int signal = TVLOs::current().waitForSignal(signals);
        if (m_dismissed) break;
        logger->log(ZOR_DEBUG, "Signal %d caught.", signal);
        if (!isTermination(signal)) continue;
        logger->log(ZOR_INFO, "Signalled to shutdown.");
        m_service->stopChildProcess();
        break;
    }
    logger->log(ZOR_DEBUG, "Signal Handling Thread terminating.");
}
