// Counts what the program allocates with new: linking CountingNew.cpp replaces the allocation functions.
#pragma once

#include <cstddef>

// Since the program began, by all threads.
std::size_t countedAllocations();
