#include "TVLOs.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "TVLRealOs.h"

namespace {

std::atomic<TVLOs*>& installed() {
    // Never destroyed: threads may still be waiting in it while the process ends.
    static std::atomic<TVLOs*> os{new TVLRealOs};
    return os;
}

TVLOs* realOne() {
    static TVLOs* const os = installed().load();
    return os;
}

}  // namespace

TVLOsFiles::~TVLOsFiles() = default;

TVLOsProcesses::~TVLOsProcesses() = default;

TVLOsLoader::~TVLOsLoader() = default;

TVLOs& TVLOs::current() {
    return *installed().load(std::memory_order_acquire);
}

TVLOs* TVLOs::install(TVLOs* os) {
    TVLOs* const real = realOne();
    return installed().exchange(os == nullptr ? real : os);
}

void TVLOs::occupyStandardStreams() {
    // The system gives the lowest free number, so the first one above them says that none is left.
    int placeholder = STDIN_FILENO;
    while (placeholder >= 0 && placeholder <= STDERR_FILENO)
        placeholder = current().openat(AT_FDCWD, "/", O_PATH | O_CLOEXEC, 0);
    if (placeholder > STDERR_FILENO) close(placeholder);
}

bool TVLOs::redirectStandardStreams() {
    TVLOs& os = current();
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        close(descriptor);
    // Becomes the first of them.
    const int null = os.openat(AT_FDCWD, "/dev/null", O_RDWR, 0);
    if (null >= 0 && os.dup(null) >= 0 && os.dup(null) >= 0) return true;
    const int error = errno;
    occupyStandardStreams();
    errno = error;
    return false;
}
