// Calls of the security library that fail when a test says so.
//
// Purpose: the linker leads the calls of TransportCalls.h here. Those that a test makes through inside() are counted by
//   functions; the one asked for is refused, or all from one on.
// Threads: what other threads call, and this one outside inside(), goes through and does not count.
// Errors: a refused call fails as TransportCalls.h says. A loop that goes on asking for what is refused ends the test.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "AllocationSeam.h"

namespace TransportFaults {

struct Function {
    const char* name;
    std::size_t place;
};

// Those that are called in every life, and those that are called once in a process.
const std::vector<Function>& functions();
const std::vector<Function>& firstFunctions();
// All that the linker leads here, by their symbols.
std::vector<std::string> symbols();
// Those that cannot fail.
std::vector<std::string> sureNames();

// Counted anew. `number` is that of the first call that is refused; 0: none.
void failNth(const Function& function, int number);
void failFrom(const Function& function, int number);
void reset();
int uses(const Function& function);  // refused ones included
int refusals();                      // of the one that is refused

class Inside {
  public:
    Inside();
    ~Inside();
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

  private:
    AllocationSeam::Counted m_counted;
};

template <typename Call>
auto inside(Call&& call) {
    const Inside here;
    return std::forward<Call>(call)();
}

// Whether OpenSSL takes its memory through AllocationSeam.
bool hasOpenSslMemory();

}  // namespace TransportFaults
