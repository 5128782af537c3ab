#include "FuzzTarget.h"

#include <cstdio>
#include <cstdlib>

#include "ZORLogger.h"

void FuzzTarget::require(bool holds, const char* promise) {
    if (holds) return;
    std::fprintf(stderr, "broken promise: %s\n", promise);
    std::abort();
}

void FuzzTarget::logEverythingToNowhere() {
    ZORLoggerFactory::getInstance()->simplePrepare(ZOR_DEBUG, "/dev/null");
}

std::string FuzzTarget::textOf(const std::uint8_t* data, std::size_t size) {
    return {data, data + size};
}
