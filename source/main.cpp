// The process entry: sets up what every other class relies on, carries out one command mode, and returns the
// service's exit code.

#include <pthread.h>

#include <csignal>
#include <cstdio>
#include <exception>

#include "TVLIDOM_Document.h"
#include "TVLOs.h"
#include "TVLThread.h"
#include "ZORBootstrapService.h"
#include "ZORCmdLine.h"
#include "ZORCryptoHelper.h"
#include "ZORLogger.h"
#include "ZORSignalHandlerThread.h"

namespace {

// Termination signals are blocked before any thread exists, so that only the signal thread ever sees them.
// Ended children leave no zombies. A peer that goes away and a file that has reached its greatest size are errors to
// be told, not signals.
void prepareSignals() {
    const sigset_t termination = ZORSignalHandlerThread::terminationSignals();
    pthread_sigmask(SIG_BLOCK, &termination, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGCHLD, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

// Only the want of memory is thrown out of the command-line step. What was begun has been ended on the way here.
bool hasCarriedOut(ZORBootstrapService& service, ZORCmdLine& cmdLine, char** envp) {
    try {
        service.ParseStandardArgs(cmdLine, envp);
        return true;
    } catch (const std::exception& error) {
        ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("ZORBootstrapService");
        logger->log(ZOR_FATAL, "The command has failed: %s", error.what());
        std::fputs("The command has failed: ", stderr);
        std::fputs(error.what(), stderr);
        std::fputs("\n", stderr);
        return false;
    }
}

}  // namespace

int main(int argc, char** argv, char** envp) {
    TVLOs::occupyStandardStreams();
    prepareSignals();
    const TVLThreadInit threads;
    TVLIDOM_DOMImplementation::initialize();
    ZORLoggerFactory::getInstance()->simplePrepare(ZOR_FATAL, "../logs/zordefault.log");
    ZORBootstrapService service;
    ZORCmdLine cmdLine(argc, argv);
    if (cmdLine.find("-console", 0) >= 0) ZORConsole::getInstance()->prepare();
    const bool isCarriedOut = hasCarriedOut(service, cmdLine, envp);
    ZORCryptoHelper::TerminateCrypto();
    TVLIDOM_DOMImplementation::terminate();
    return isCarriedOut ? service.getExitCode() : 1;
}
