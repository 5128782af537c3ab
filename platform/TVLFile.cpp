#include "TVLFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace TVLFile {

TVLFilePtr open(const char* path, const char* mode) {
    const std::string closedOnExec = std::string(mode) + "e";
    TVLFilePtr file(std::fopen(path, closedOnExec.c_str()));
    if (!file || fileno(file.get()) > STDERR_FILENO) return file;
    // The process was started with a standard stream closed and the file got its number. Whoever writes to
    // that stream would write into the file.
    const int moved = fcntl(fileno(file.get()), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (moved < 0) return nullptr;
    TVLFilePtr elsewhere(fdopen(moved, mode));
    if (!elsewhere) ::close(moved);
    return elsewhere;
}

std::optional<std::int64_t> modificationTimeSec(const char* path) {
    struct stat status {};
    if (stat(path, &status) != 0) return std::nullopt;
    return std::int64_t{status.st_mtim.tv_sec};
}

}  // namespace TVLFile
