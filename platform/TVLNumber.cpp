#include "TVLNumber.h"

#include <algorithm>
#include <cinttypes>
#include <limits>

namespace TVLNumber {

std::int32_t clamp(std::int64_t value) {
    constexpr std::int64_t kMin = std::numeric_limits<std::int32_t>::min();
    constexpr std::int64_t kMax = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(std::clamp(value, kMin, kMax));
}

std::int32_t parse(const char* text) {
    return clamp(std::strtoimax(text, nullptr, 10));
}

std::int32_t secondsToMs(std::int32_t seconds) {
    return clamp(std::int64_t{seconds} * 1000);
}

}  // namespace TVLNumber
