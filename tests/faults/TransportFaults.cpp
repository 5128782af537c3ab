#include "TransportFaults.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <expat.h>
#include <fcntl.h>
#include <netdb.h>
#include <openssl/conf.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>
#include <openssl/store.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>

#include "TransportCalls.h"

using TransportFaults::Function;

namespace {

#define SYSTEM(symbol64, symbol32, result, name, parameters, arguments, refused) name,
#define TLS(name, result, parameters, arguments, refused) name,
namespace Place {
enum Name : std::size_t {
    SYSTEM_CALLS(SYSTEM) TLS_CALLS(TLS) TLS_CONTROL_CALLS(TLS) FIRST_TLS_CALLS(TLS) count
};
}
#undef SYSTEM
#undef TLS

constexpr int kMostRefusals = 100000;  // no life comes near unless it spins

thread_local bool isInside = false;
std::array<int, Place::count> used{};
std::size_t refusedPlace = Place::count;
int first = 0;
int last = 0;
int refused = 0;

void plan(std::size_t place, int from, int to) {
    used.fill(0);
    refusedPlace = place;
    first = from;
    last = to;
    refused = 0;
}

bool refuses(std::size_t place) {
    if (!isInside) return false;
    const int number = ++used[place];
    if (place != refusedPlace || number < first || number > last) return false;
    if (++refused < kMostRefusals) return true;
    std::fputs("a loop goes on asking for what is refused\n", stderr);
    std::abort();
}

int refuse(int error) {
    errno = error;
    return -1;
}

bool refusesTls(std::size_t place) {
    if (!refuses(place)) return false;
    ERR_raise(ERR_LIB_SSL, ERR_R_INTERNAL_ERROR);
    return true;
}

unsigned long hashless(int* isGood) {
    *isGood = 0;
    return 0;
}

bool onlySetsAField(int command) {
    return command == SSL_CTRL_MODE || command == SSL_CTRL_CLEAR_MODE ||
           command == SSL_CTRL_SET_SESS_CACHE_MODE;
}

}  // namespace

#if __SIZEOF_POINTER__ == 4
#define FAULTS_SYMBOL(symbol64, symbol32) #symbol32
#else
#define FAULTS_SYMBOL(symbol64, symbol32) #symbol64
#endif

// NOLINTBEGIN(bugprone-macro-parentheses): types and lists of parameters take none
#define FAULTS_WRAP(symbol, result, name, parameters, arguments, isRefused, failure) \
    extern "C" {                                                                     \
    result real_##name parameters asm("__real_" symbol);                             \
    result wrapped_##name parameters asm("__wrap_" symbol);                          \
    }                                                                                \
    result wrapped_##name parameters {                                               \
        if (isRefused) return failure;                                               \
        return real_##name arguments;                                                \
    }
// NOLINTEND(bugprone-macro-parentheses)

#define SYSTEM(symbol64, symbol32, result, name, parameters, arguments, failure)        \
    FAULTS_WRAP(FAULTS_SYMBOL(symbol64, symbol32), result, name, parameters, arguments, \
                refuses(Place::name), failure)
SYSTEM_CALLS(SYSTEM)
#undef SYSTEM

#define TLS(name, result, parameters, arguments, failure) \
    FAULTS_WRAP(#name, result, name, parameters, arguments, refusesTls(Place::name), failure)
TLS_CALLS(TLS)
FIRST_TLS_CALLS(TLS)
#undef TLS

#define TLS(name, result, parameters, arguments, failure)   \
    FAULTS_WRAP(#name, result, name, parameters, arguments, \
                !onlySetsAField(command) && refusesTls(Place::name), failure)
TLS_CONTROL_CALLS(TLS)
#undef TLS

// ---- OpenSSL's own memory ----

namespace {

using AllocationSeam::Source;

void* allocateForOpenSsl(std::size_t size, const char* /*file*/, int /*line*/) {
    return size == 0 ? nullptr : AllocationSeam::allocate(size, Source::OpenSsl);
}

void freeForOpenSsl(void* memory, const char* /*file*/, int /*line*/) {
    AllocationSeam::release(memory);
}

void* reallocateForOpenSsl(void* memory, std::size_t size, const char* file, int line) {
    void* const moved = allocateForOpenSsl(size, file, line);
    if (size != 0 && moved == nullptr) return nullptr;
    if (memory != nullptr && moved != nullptr)
        std::memcpy(moved, memory, std::min(size, AllocationSeam::sizeOf(memory)));
    freeForOpenSsl(memory, file, line);
    return moved;
}

// OpenSSL takes them only before it has allocated anything.
const bool areTold = CRYPTO_set_mem_functions(allocateForOpenSsl, reallocateForOpenSsl, freeForOpenSsl) == 1;

}  // namespace

// ---- What tests see ----

namespace TransportFaults {

const std::vector<Function>& functions() {
#define SYSTEM(symbol64, symbol32, result, name, parameters, arguments, failure) {#name, Place::name},
#define TLS(name, result, parameters, arguments, failure) {#name, Place::name},
    static const std::vector<Function> all{SYSTEM_CALLS(SYSTEM) TLS_CALLS(TLS) TLS_CONTROL_CALLS(TLS)};
#undef SYSTEM
    return all;
}

const std::vector<Function>& firstFunctions() {
    static const std::vector<Function> all{FIRST_TLS_CALLS(TLS)};
#undef TLS
    return all;
}

std::vector<std::string> symbols() {
#define SYSTEM(symbol64, symbol32, result, name, parameters, arguments, failure) \
    FAULTS_SYMBOL(symbol64, symbol32),
#define TLS(name, result, parameters, arguments, failure) #name,
    return {SYSTEM_CALLS(SYSTEM) TLS_CALLS(TLS) TLS_CONTROL_CALLS(TLS) FIRST_TLS_CALLS(TLS)};
#undef SYSTEM
#undef TLS
}

std::vector<std::string> sureNames() {
#define SURE(name) #name,
    return {SURE_CALLS(SURE)};
#undef SURE
}

void failNth(const Function& function, int number) {
    plan(function.place, number, number);
}

void failFrom(const Function& function, int number) {
    plan(function.place, number, std::numeric_limits<int>::max());
}

void reset() {
    plan(Place::count, 0, 0);
}

int uses(const Function& function) {
    return used[function.place];
}

int refusals() {
    return refused;
}

Inside::Inside() {
    isInside = true;
}

Inside::~Inside() {
    isInside = false;
}

bool hasOpenSslMemory() {
    return areTold;
}

}  // namespace TransportFaults
