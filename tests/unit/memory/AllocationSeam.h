// Makes one allocation of the code under test fail.
//
// Purpose: linking AllocationSeam.cpp replaces the program's operator new; the allocation asked for throws
//   std::bad_alloc, once, and what the code under test has not given back is counted.
// Threads: one.
// Errors: none.
#pragma once

namespace AllocationSeam {

// From now on allocations are counted, and the `number`-th (from 1) fails.
void failNth(int number);
// Ends that; whether an allocation has failed.
bool stop();

// Blocks that were allocated while counting and still exist.
long outstanding();

// While one exists, allocations neither count nor fail: they are a test's own.
class Exempt {
  public:
    Exempt();
    ~Exempt();
    Exempt(const Exempt&) = delete;
    Exempt& operator=(const Exempt&) = delete;
};

}  // namespace AllocationSeam
