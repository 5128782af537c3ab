// Counts what the program and its libraries allocate.
//
// Purpose: linking MallocCounter.cpp replaces malloc, calloc and realloc; operator new arrives here, too. OpenSSL's own
//   allocations are told apart: they differ from one of its versions to the next.
// Threads: any; the numbers are those of all threads together.
// Errors: as the functions that are replaced. Not for a sanitizer's build, which replaces them itself.
#pragma once

#include <cstddef>

namespace MallocCounter {

std::size_t calls();  // since the program began, without OpenSSL's
std::size_t callsByOpenSsl();

}  // namespace MallocCounter
