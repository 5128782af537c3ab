// Makes allocations of the code under test fail.
//
// Purpose: linking AllocationSeam.cpp replaces the program's operator new. The allocation asked for throws
//   std::bad_alloc, once, or every one from there on does, and what the code under test has not given back is counted.
//   Where another library of the program takes its memory through functions of its own, they can ask here, too.
// Threads: any. The numbers are those of all threads that are not exempt; told what to do by one, while no other thread
//   allocates what counts.
// Errors: none.
#pragma once

#include <cstddef>

namespace AllocationSeam {

enum class Source { New, OpenSsl };

// From now on allocations are counted, and the `number`-th (from 1) fails, or all from that one on.
void failNth(int number, Source source = Source::New);
void failFrom(int number, Source source = Source::New);
// Ends that; whether an allocation has failed.
bool stop();
// Allocations of that source since the last of the calls above that began to count.
int counted();

// Blocks that were allocated while counting and still exist.
long outstanding(Source source = Source::New);

// While one exists, allocations of this thread neither count nor fail: they are a test's own.
class Exempt {
  public:
    Exempt();
    ~Exempt();
    Exempt(const Exempt&) = delete;
    Exempt& operator=(const Exempt&) = delete;
};

// While one exists, they do again, within whatever is exempt.
class Counted {
  public:
    Counted();
    ~Counted();
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

  private:
    int m_before;
};

// For functions that give memory: null when the allocation is to fail or there is none; what it gave goes back here.
void* allocate(std::size_t size, Source source) noexcept;
void release(void* memory) noexcept;
// Of the block behind the pointer.
std::size_t sizeOf(const void* memory) noexcept;

}  // namespace AllocationSeam
