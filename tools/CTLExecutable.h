// A program that is to be run.
//
// Purpose: says beforehand why the system would not run a file: it is not there, may not be executed, or is neither a
//   program nor a script whose interpreter is there.
// Ownership, threads: free functions without state.
// Units: none.
// Errors: none; empty when the system would run it. The rights are those of this process.
#pragma once

#include <string>

namespace CTLExecutable {

std::string complaint(const std::string& path);

}  // namespace CTLExecutable
