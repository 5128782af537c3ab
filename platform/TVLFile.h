// Files.
//
// Purpose: stdio streams whose descriptor never reaches a child process nor takes a standard stream's number.
// Ownership: TVLFilePtr closes its stream.
// Threads: free functions without state.
// Units: modification times in seconds since the epoch.
// Errors: null or no value, with errno set.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>

struct TVLFileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using TVLFilePtr = std::unique_ptr<std::FILE, TVLFileCloser>;

namespace TVLFile {

// As fopen, with a descriptor above 2 that is close-on-exec from birth.
TVLFilePtr open(const char* path, const char* mode);

std::optional<std::int64_t> modificationTimeSec(const char* path);

}  // namespace TVLFile
