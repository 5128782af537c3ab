// Files.
//
// Purpose: the one doorway to the files that this system opens. Descriptors never reach a child process nor take a
//   standard stream's number, and no opening waits for anybody. With root's rights links are followed and files are
//   created as TVLPlace has it.
// Ownership: TVLFilePtr closes its stream.
// Threads: free functions without state.
// Units: sizes in bytes, modification times in seconds since the epoch.
// Errors: null, false or no value, with errno set and, where the caller asks, the reason in words. A file of a kind or
//   size that is not accepted is such an error.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

struct TVLFileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using TVLFilePtr = std::unique_ptr<std::FILE, TVLFileCloser>;

namespace TVLFile {

// The most that a file of a kind may hold.
constexpr std::int64_t kMostOfARecord = std::int64_t{4} * 1024;   // one line, or nothing that matters
constexpr std::int64_t kMostOfAList = std::int64_t{1024} * 1024;  // lines
constexpr std::int64_t kMostOfADocument = std::int64_t{64} * 1024 * 1024;  // XML

// A regular file of at most that size, for reading. It may grow afterwards.
TVLFilePtr openForReading(const char* path, std::int64_t mostBytes, std::string* why = nullptr);
// Likewise a document, which may also come through a pipe: reading it must then wait and count, as TVLFileStream does.
TVLFilePtr openDocument(const char* path, std::string* why = nullptr);
// The content of a regular file of at most that size.
std::optional<std::string> read(const char* path, std::int64_t mostBytes);

// A regular file, truncated and readable by everybody whatever the umask.
TVLFilePtr openForAllToRead(const char* path);
// A regular file, created with the rights 0640 at most, and truncated when nothing is to be appended; a character
// device; or a pipe that has a reader. Writing to one of the latter two does not wait: it fails with EAGAIN.
TVLFilePtr openLog(const char* path, bool append);
// Removes the name; of a link, the link.
bool remove(const char* path);

std::optional<std::int64_t> modificationTimeSec(const char* path);
// The user that an open file belongs to.
std::optional<std::uint32_t> ownerOf(std::FILE* file);

// "is larger than … bytes"
std::string tooLarge(std::int64_t mostBytes);

}  // namespace TVLFile
