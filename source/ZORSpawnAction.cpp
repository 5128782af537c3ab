#include "ZORSpawnAction.h"

#include <cerrno>
#include <new>

#include "TVLByteBuffer.h"
#include "TVLNumber.h"
#include "TVLOs.h"
#include "TVLThread.h"
#include "ZORBadConfigException.h"
#include "ZOREnvironment.h"
#include "ZORHelpers.h"
#include "ZORLogger.h"
#include "ZORPropertyInserter.h"

namespace {

ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("ZORSpawnAction");

// Deliberate: receives the buffer by value, so that the environment, which may hold secrets, never reaches
// the log; see ZORSpawnActionTest.TheLogNeverShowsTheEnvironment.
void logEnvironment(TVLByteBuffer buffer) {
    buffer << "environment: \n";
    char** const environment = ZOREnvironment::get();
    for (char** entry = environment; entry != nullptr && *entry != nullptr; ++entry)
        buffer << *entry << "\n";
}

}  // namespace

ZORSpawnAction::~ZORSpawnAction() = default;

int ZORSpawnAction::executeImpl() {
    return spawn();
}

void ZORSpawnAction::prepare(TVLIDOM_Element element) {
    logger->log(ZOR_DEBUG, "preparing");
    ZORAction::prepare(element);
    const I18NString sync = element.getAttribute("sync");
    if (!sync.empty()) m_sync = TVLNumber::parse(sync.c_str());
    logger->log(ZOR_DEBUG, "sync is %d", m_sync);
    m_args.reset();
    preparePath(element);
    m_args.prepare(element);
    m_args.terminateList();
}

void ZORSpawnAction::preparePath(const TVLIDOM_Element& element) {
    const TVLIDOM_Element path(element.getElementsByTagName("path").item(0));
    I18NString text;
    ZORHelpers::getElemText(path, text);
    if (text.empty()) {
        logger->log(ZOR_FATAL, "required attribute \"path\" is missing");
        throw ZORBadConfigException("ZORSpawnAction required attribute \"path\" is missing");
    }
    m_path = text.str();
    ZORPropertyInserter::getInstance()->insertProperties(m_path);
    const bool quoted = path.getAttribute("quoteAsParam") == "true";
    m_args.add(quoted ? ("\"" + m_path + "\"").c_str() : m_path.c_str());
}

int ZORSpawnAction::spawn() {
    logSpawnParams(ZOR_DEBUG);
    m_pid = -1;
    m_pid = TVLOs::current().fork();
    if (m_pid == 0) becomeProgram();
    const int error = errno;
    if (m_pid > 0 && m_sync > 0) TVLThread::sleep(TVLNumber::secondsToMs(m_sync));
    if (m_pid == -1) {
        logger->log(ZOR_ERROR, "spawn failed, errno: %d", error);
        logSpawnParams(ZOR_ERROR);
    } else {
        logger->log(ZOR_DEBUG, "Started process, pid = %d\n", m_pid);
    }
    return m_pid;
}

// In the forked child: no other thread exists here, and nothing of the service's is touched but the log.
void ZORSpawnAction::becomeProgram() {
    static char* noEnvironment[] = {nullptr};
    char** const environment = ZOREnvironment::get();
    try {
        TVLOs::current().execve(m_path.c_str(), m_args.data(),
                                environment == nullptr ? noEnvironment : environment);
        logger->log(ZOR_FATAL, "execve failed, errno=%d", errno);
    } catch (...) {
        // Whatever it was: above is the copy of a supervisor that must not go on as a second one.
    }
    TVLOs::current().exitProcess(0);
}

void ZORSpawnAction::logSpawnParams(int level) {
    if (!logger->writes(level)) return;
    try {
        TVLByteBuffer buffer(256, 256);
        describe(buffer);
        logEnvironment(buffer);
        logger->log(level, "%s", buffer.str());
    } catch (const std::bad_alloc&) {
        // Dropped like every line that there is no memory for; the program is started all the same.
    }
}

void ZORSpawnAction::describe(TVLByteBuffer& buffer) const {
    buffer << "Spawning child process:\n";
    buffer << "Path: " << m_path << "\n";
    buffer << "Parameters: \n";
    for (const char* const argument : m_args) {
        if (argument != nullptr) buffer << "\t" << argument << "\n";
    }
}
