// Conversions of configured numbers.
//
// Purpose: one reading of decimal text, the same on 32 and 64 bits.
// Ownership, threads: free functions without state.
// Units: none.
// Errors: none; text without digits is 0, values beyond 32 bits are clamped to its limits.
#pragma once

#include <cstdint>

namespace TVLNumber {

// Base-10 strtol reading: leading blanks and a sign are accepted, reading stops at the first other character.
std::int32_t parse(const char* text);

// The nearest 32-bit value.
std::int32_t clamp(std::int64_t value);

// Seconds in milliseconds, clamped: a nonsensical configured number must not overflow.
std::int32_t secondsToMs(std::int32_t seconds);

}  // namespace TVLNumber
