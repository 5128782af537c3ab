// What is in a file, for tests that compare or search it.
//
// Purpose: reads a whole file, also one whose size the system does not tell beforehand, as below /proc.
// Ownership, threads: a free function without state.
// Units: bytes, as they are.
// Errors: a file that cannot be read is empty.
#pragma once

#include <filesystem>
#include <string>

std::string contentOf(const std::filesystem::path& file);
