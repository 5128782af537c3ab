// The process entry: sets up what every other class relies on, carries out one command mode, and returns the
// service's exit code.

#include <pthread.h>

#include <csignal>

#include "TVLIDOM_Document.h"
#include "TVLThread.h"
#include "ZORBootstrapService.h"
#include "ZORCmdLine.h"
#include "ZORCryptoHelper.h"
#include "ZORLogger.h"
#include "ZORSignalHandlerThread.h"

namespace {

// Termination signals are blocked before any thread exists, so that only the signal thread ever sees them.
// Ended children leave no zombies, and a peer that goes away is an error to be told, not a signal.
void prepareSignals() {
    const sigset_t termination = ZORSignalHandlerThread::terminationSignals();
    pthread_sigmask(SIG_BLOCK, &termination, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGCHLD, SIG_IGN);
}

}  // namespace

int main(int argc, char** argv, char** envp) {
    prepareSignals();
    const TVLThreadInit threads;
    TVLIDOM_DOMImplementation::initialize();
    ZORLoggerFactory::getInstance()->simplePrepare(ZOR_FATAL, "../logs/zordefault.log");
    ZORBootstrapService service;
    ZORCmdLine cmdLine(argc, argv);
    if (cmdLine.find("-console", 0) >= 0) ZORConsole::getInstance()->prepare();
    service.ParseStandardArgs(cmdLine, envp);
    ZORCryptoHelper::TerminateCrypto();
    TVLIDOM_DOMImplementation::terminate();
    return service.getExitCode();
}
