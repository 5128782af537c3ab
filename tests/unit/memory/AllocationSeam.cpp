#include "AllocationSeam.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

// Before each block: whether it counts. As large as the strictest alignment, so that the block keeps its own.
struct alignas(std::max_align_t) Head {
    bool counted;
};

bool counting = false;
int exempted = 0;
int untilFailure = 0;
bool failed = false;
long alive = 0;

}  // namespace

void AllocationSeam::failNth(int number) {
    untilFailure = number;
    failed = false;
    counting = true;
}

bool AllocationSeam::stop() {
    counting = false;
    return failed;
}

long AllocationSeam::outstanding() {
    return alive;
}

AllocationSeam::Exempt::Exempt() {
    ++exempted;
}

AllocationSeam::Exempt::~Exempt() {
    --exempted;
}

void* operator new(std::size_t size) {
    const bool counted = counting && exempted == 0;
    if (counted && --untilFailure == 0) {
        failed = true;
        throw std::bad_alloc();
    }
    auto* const head = static_cast<Head*>(std::malloc(sizeof(Head) + size));
    if (head == nullptr) throw std::bad_alloc();
    head->counted = counted;
    if (counted) ++alive;
    return head + 1;
}

void operator delete(void* memory) noexcept {
    if (memory == nullptr) return;
    auto* const head = static_cast<Head*>(memory) - 1;
    if (head->counted) --alive;
    std::free(head);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    operator delete(memory);
}
