#include "ZORPidFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <optional>

#include "TVLFile.h"
#include "TVLNumber.h"
#include "TVLOs.h"
#include "ZORLogger.h"
#include "ZORPidFileOwner.h"

namespace {

// What these classes do for the service is told under its name.
ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("ZORBootstrapService");

}  // namespace

int testPID(int pid, ZORLogger* pidLogger) {
    int result = -1;
    if (pid < 1) {
        errno = ESRCH;  // 0 and below name process groups, among them this process's own
    } else {
        result = TVLOs::current().kill(pid, 0);
    }
    if (result == 0) return 1;
    // Deliberate: a process of another user counts as not running; see
    // TestPidTest.AProcessThatCannotBeSignalledCountsAsNotRunning.
    pidLogger->log(ZOR_DEBUG, "testPID() - sigsend failed, errno=%d", errno);
    return 0;
}

void ZORPidFile::write() const {
    const int pid = TVLOs::current().getpid();
    const TVLFilePtr file = TVLFile::openForAllToRead(m_path.c_str());
    const bool written = file && TVLOs::current().writeStream(file.get(), std::to_string(pid) + "\n");
    if (!written) {
        // A part of the number would be another process's.
        if (file) (void)TVLOs::current().ftruncate(fileno(file.get()), 0);
        logger->log(
            ZOR_WARN,
            "Process ID could not be written to file.  The velbootstrapservice -stop command will not "
            "work. Use 'kill -9' instead.");
        return;
    }
    logger->log(ZOR_INFO, "Velmora Bootstrap Service running as process %d.", pid);
    warnOfAnotherOwner(file.get());
}

// What root writes in another user's folder is that user's, and that user's word about a process of root's counts
// for nothing.
void ZORPidFile::warnOfAnotherOwner(std::FILE* file) const {
    const std::uint32_t owner = TVLFile::ownerOf(file).value_or(0);
    if (TVLOs::current().geteuid() != 0 || owner == 0) return;
    logger->log(
        ZOR_WARN,
        "PID file \"%s\" belongs to the user with id %s, so commands will not find this process. Run the "
        "service and its commands as that user.",
        m_path.c_str(), std::to_string(owner).c_str());
}

void ZORPidFile::remove() const {
    if (TVLFile::remove(m_path.c_str()) || errno == ENOENT) return;
    const std::string error = std::to_string(errno);
    logger->log(ZOR_WARN, "PID file \"%s\" could not be removed, errno=%s", m_path.c_str(), error.c_str());
}

bool ZORPidFile::read(int& pid) const {
    struct stat status {};
    if (TVLOs::current().fstatat(AT_FDCWD, m_path.c_str(), &status, 0) != 0) {
        const std::string error = std::to_string(errno);
        logger->log(ZOR_DEBUG, "getPID() - stat() failed on file: %s errno=%s", m_path.c_str(),
                    error.c_str());
        return false;
    }
    TVLFilePtr file = TVLFile::openForReading(m_path.c_str(), TVLFile::kMostOfARecord);
    if (!file) {
        logger->log(ZOR_DEBUG, "getPID() - couldn't open \"%s\".", m_path.c_str());
        return false;
    }
    std::array<char, 64> line{};
    if (TVLOs::current().fgets(line.data(), static_cast<int>(line.size()), file.get()) == nullptr)
        return false;
    const std::optional<uid_t> owner = ZORPidFileOwner::of(file.get(), m_path);
    file.reset();
    pid = TVLNumber::parse(line.data());
    logger->log(ZOR_DEBUG, "isRunningUnix() - testing pid %d to see if process is alive.", pid);
    if (mayName(pid, owner) && testPID(pid, logger) != 0) return true;
    // Deliberate: worded so; see DaemonControlTest.AStalePidFileIsLeftInPlace.
    logger->log(ZOR_DEBUG, "process may not be not alive but pid file is hanging around.");
    pid = 0;
    return false;
}

// To whom a PID file belongs decides which processes it may name; from here on the id means the process that has it
// now. One that it may not name is as little the daemon as one that may not be signalled.
bool ZORPidFile::mayName(int pid, std::optional<uid_t> owner) const {
    if (!owner || TVLOs::current().holdProcess(pid, *owner)) return true;
    logger->log(ZOR_DEBUG, "testPID() - sigsend failed, errno=%d", errno);
    return false;
}
