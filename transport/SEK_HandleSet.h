// A set of handles for SEK_Select.
//
// Purpose: names the handles to watch; SEK_Select leaves those to which something happened.
// Ownership: plain data of the caller; the handles stay the caller's.
// Threads: used by one thread at a time.
// Units: `count` is the number of leading entries in use.
// Errors: SEK_Select refuses a count above the capacity.
#pragma once

#include <cstdint>

enum : std::uint32_t { SEK_HandleSetCapacity = 1024 };

struct SEK_Handle_Set {
    std::uint32_t count;
    void* handles[SEK_HandleSetCapacity];
};
