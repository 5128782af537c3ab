#include "CTLDoorway.h"

#include <cerrno>
#include <utility>

namespace {

thread_local std::int64_t sparedMs = 0;

}  // namespace

int CTLDoorway::makeFolders(const char* /*path*/) {
    errno = EROFS;
    return -1;
}

int CTLDoorway::mkdirat(int /*folder*/, const char* /*path*/, mode_t /*mode*/) {
    errno = EROFS;
    return -1;
}

void CTLDoorway::sleepMs(std::int64_t durationMs) {
    sparedMs += durationMs;
}

std::int64_t CTLDoorway::takeSparedMs() {
    return std::exchange(sparedMs, 0);
}
