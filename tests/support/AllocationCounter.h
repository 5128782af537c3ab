// Counts what the program allocates with new.
//
// Purpose: linking AllocationCounter.cpp replaces the program's operator new and delete. The numbers are the same on
//   every run, whatever else the machine does.
// Threads: any; the numbers are those of all threads together.
// Units: bytes as the allocator has handed them out, which may be a little more than was asked for.
// Errors: as operator new.
#pragma once

#include <cstddef>

namespace AllocationCounter {

std::size_t made();  // allocations since the program began
std::size_t aliveBytes();
std::size_t peakBytes();  // the most that was alive at once since beginPeak()
void beginPeak();

}  // namespace AllocationCounter
