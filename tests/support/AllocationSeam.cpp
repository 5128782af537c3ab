#include "AllocationSeam.h"

#include <array>
#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace {

using AllocationSeam::Source;

// Before each block. As large as the strictest alignment, so that the block keeps its own.
struct alignas(std::max_align_t) Head {
    std::size_t size;
    Source source;
    bool counted;
};

std::atomic<bool> counting{false};
Source refused = Source::New;
int first = 0;
int last = 0;
std::atomic<int> made{0};
std::atomic<bool> failed{false};
std::array<std::atomic<long>, 2> alive{};
thread_local int exempted = 0;

void begin(int from, int to, Source source) {
    refused = source;
    first = from;
    last = to;
    made = 0;
    failed = false;
    counting = true;
}

std::atomic<long>& aliveOf(Source source) {
    return alive[static_cast<std::size_t>(source)];
}

bool fails(Source source) {
    if (source != refused) return false;
    const int number = ++made;
    if (number < first || number > last) return false;
    failed = true;
    return true;
}

std::size_t rounded(std::size_t size) {
    return (size + sizeof(Head) - 1) / sizeof(Head) * sizeof(Head);
}

}  // namespace

void AllocationSeam::failNth(int number, Source source) {
    begin(number, number, source);
}

void AllocationSeam::failFrom(int number, Source source) {
    begin(number, std::numeric_limits<int>::max(), source);
}

bool AllocationSeam::stop() {
    counting = false;
    return failed;
}

int AllocationSeam::counted() {
    return made;
}

long AllocationSeam::outstanding(Source source) {
    return aliveOf(source);
}

AllocationSeam::Exempt::Exempt() {
    ++exempted;
}

AllocationSeam::Exempt::~Exempt() {
    --exempted;
}

AllocationSeam::Counted::Counted() : m_before(exempted) {
    exempted = 0;
}

AllocationSeam::Counted::~Counted() {
    exempted = m_before;
}

void* AllocationSeam::allocate(std::size_t size, Source source) noexcept {
    const bool isCounted = counting && exempted == 0;
    if (isCounted && fails(source)) return nullptr;
    // Not malloc(), which a program may watch by itself.
    auto* const head = static_cast<Head*>(std::aligned_alloc(sizeof(Head), sizeof(Head) + rounded(size)));
    if (head == nullptr) return nullptr;
    *head = {size, source, isCounted};
    if (isCounted) ++aliveOf(source);
    return head + 1;
}

void AllocationSeam::release(void* memory) noexcept {
    if (memory == nullptr) return;
    auto* const head = static_cast<Head*>(memory) - 1;
    if (head->counted) --aliveOf(head->source);
    std::free(head);
}

std::size_t AllocationSeam::sizeOf(const void* memory) noexcept {
    return (static_cast<const Head*>(memory) - 1)->size;
}

void* operator new(std::size_t size) {
    void* const memory = AllocationSeam::allocate(size, Source::New);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void operator delete(void* memory) noexcept {
    AllocationSeam::release(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    operator delete(memory);
}
