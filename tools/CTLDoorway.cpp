#include "CTLDoorway.h"

#include <cerrno>
#include <utility>

namespace {

thread_local std::int64_t sparedMs = 0;

int refuse() {
    errno = EROFS;
    return -1;
}

}  // namespace

int CTLDoorway::makeFolders(const char* /*path*/) {
    return refuse();
}

int CTLDoorway::mkdirat(int /*folder*/, const char* /*path*/, mode_t /*mode*/) {
    return refuse();
}

int CTLDoorway::unlinkat(int /*folder*/, const char* /*path*/, int /*flags*/) {
    return refuse();
}

pid_t CTLDoorway::fork() {
    return refuse();
}

void CTLDoorway::sleepMs(std::int64_t durationMs) {
    sparedMs += durationMs;
}

std::int64_t CTLDoorway::takeSparedMs() {
    return std::exchange(sparedMs, 0);
}
