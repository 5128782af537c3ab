#include "MallocCounter.h"

#include <openssl/crypto.h>

#include <atomic>
#include <cstdlib>

// The C library's own functions under their other names. NOLINTBEGIN(bugprone-reserved-identifier): they are its choice
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

std::atomic<std::size_t> counted{0};
std::atomic<std::size_t> countedOfOpenSsl{0};

void* mallocForOpenSsl(std::size_t size, const char* /*file*/, int /*line*/) {
    ++countedOfOpenSsl;
    return __libc_malloc(size);
}

void* reallocForOpenSsl(void* memory, std::size_t size, const char* /*file*/, int /*line*/) {
    ++countedOfOpenSsl;
    return __libc_realloc(memory, size);
}

void freeForOpenSsl(void* memory, const char* /*file*/, int /*line*/) {
    std::free(memory);
}

// OpenSSL takes them only before it has allocated anything.
const bool areTold = CRYPTO_set_mem_functions(mallocForOpenSsl, reallocForOpenSsl, freeForOpenSsl) == 1;

}  // namespace

std::size_t MallocCounter::calls() {
    return counted;
}

std::size_t MallocCounter::callsByOpenSsl() {
    return areTold ? countedOfOpenSsl.load() : 0;
}

extern "C" {

void* malloc(std::size_t size) noexcept {
    ++counted;
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) noexcept {
    ++counted;
    return __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) noexcept {
    ++counted;
    return __libc_realloc(memory, size);
}

}  // extern "C"
