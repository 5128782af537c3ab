// One fuzz target: a function that must survive any bytes.
//
// Purpose: the entry point that the coverage-guided engine and the replay driver both call, and what the
// targets
//   share.
// Threads: called from one thread, again and again.
// Errors: a broken promise ends the process, so that the engine keeps the bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace FuzzTarget {

// Ends the process when a promise is broken.
void require(bool holds, const char* promise);

// Every line is composed, and written to nowhere.
void logEverythingToNowhere();

std::string textOf(const std::uint8_t* data, std::size_t size);

}  // namespace FuzzTarget
