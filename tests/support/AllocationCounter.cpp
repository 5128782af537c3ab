#include "AllocationCounter.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> allocations{0};
std::atomic<std::size_t> alive{0};
std::atomic<std::size_t> peak{0};

void note(std::size_t bytes) {
    ++allocations;
    const std::size_t now = alive += bytes;
    std::size_t before = peak;
    while (now > before && !peak.compare_exchange_weak(before, now))
        continue;
}

}  // namespace

std::size_t AllocationCounter::made() {
    return allocations;
}

std::size_t AllocationCounter::aliveBytes() {
    return alive;
}

std::size_t AllocationCounter::peakBytes() {
    return peak;
}

void AllocationCounter::beginPeak() {
    peak = alive.load();
}

void* operator new(std::size_t size) {
    void* const memory = std::malloc(size);
    if (memory == nullptr) throw std::bad_alloc();
    note(malloc_usable_size(memory));
    return memory;
}

void operator delete(void* memory) noexcept {
    alive -= malloc_usable_size(memory);
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    operator delete(memory);
}
