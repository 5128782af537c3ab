#include "WorkCounter.h"

#include <cstddef>
#include <utility>

namespace {

bool counting = false;
std::uint64_t steps = 0;
std::function<void()> betweenSteps;
bool looking = false;  // what is called to look may itself consist of such blocks

void count(std::size_t bytes) {
    if (counting) steps += bytes;
}

}  // namespace

void WorkCounter::start() {
    steps = 0;
    counting = true;
}

std::uint64_t WorkCounter::stop() {
    counting = false;
    return steps;
}

void WorkCounter::lookBetweenSteps(std::function<void()> look) {
    betweenSteps = std::move(look);
}

// The names are the compiler's and the linker's: --wrap sends every call of memcpy to __wrap_memcpy and names
// the library's own __real_memcpy.
// NOLINTBEGIN(bugprone-reserved-identifier): see above
extern "C" {

void __sanitizer_cov_trace_pc() {
    count(1);
    if (looking || !betweenSteps) return;
    looking = true;
    betweenSteps();
    looking = false;
}

void* __real_memcpy(void* to, const void* from, std::size_t size);
void* __real_memmove(void* to, const void* from, std::size_t size);
void* __real_memset(void* to, int byte, std::size_t size);
int __real_memcmp(const void* left, const void* right, std::size_t size);
const void* __real_memchr(const void* in, int byte, std::size_t size);

void* __wrap_memcpy(void* to, const void* from, std::size_t size) {
    count(size);
    return __real_memcpy(to, from, size);
}

void* __wrap_memmove(void* to, const void* from, std::size_t size) {
    count(size);
    return __real_memmove(to, from, size);
}

void* __wrap_memset(void* to, int byte, std::size_t size) {
    count(size);
    return __real_memset(to, byte, size);
}

int __wrap_memcmp(const void* left, const void* right, std::size_t size) {
    count(size);
    return __real_memcmp(left, right, size);
}

// A search is as long as what it passes over.
const void* __wrap_memchr(const void* in, int byte, std::size_t size) {
    const void* const found = __real_memchr(in, byte, size);
    const auto* const begin = static_cast<const char*>(in);
    count(found == nullptr ? size : static_cast<std::size_t>(static_cast<const char*>(found) - begin) + 1);
    return found;
}
}
// NOLINTEND(bugprone-reserved-identifier)
