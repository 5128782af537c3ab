// The files that settings are made of.
//
// Purpose: reads and checks files that whoever can write the folder may have replaced by something else: only
//   regular files of a sane size are taken, so that a pipe, a device or an endless file holds nothing up. A
//   stamp remembers what a file looked like when it was read.
// Ownership: value types; descriptors are closed before a call returns.
// Threads: no shared state.
// Units: bytes.
// Errors: everything but the stamps throws SEKFailure with the reason alone; the caller knows the place.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <ctime>
#include <string>
#include <vector>

// What a path led to at one moment, to see later whether that changed. An absent file has a stamp, too.
struct SEKFileStamp {
    std::string path;
    struct stat status {};
    bool isThere = false;
    int error = 0;  // why it is not there, as errno says

    static SEKFileStamp of(const std::string& path);
    bool isCurrent() const;
    // There is none, which is not the same as none that could be looked at.
    bool isMissing() const;
};

namespace SEKFile {

constexpr off_t configurationLimit = 1L << 20;  // sek.cnf, and each file that it includes
constexpr off_t materialLimit = 16L << 20;      // certificates, keys and revocation lists
constexpr std::size_t folderLimit = 10'000;     // entries of a folder of certificates

// The whole content of a regular file, opened without waiting.
std::string read(const std::string& path, off_t limit);

// Refuses what OpenSSL, which opens the path itself, could not read to its end; the file's status.
struct stat check(const std::string& path);

// What lies in the folder, in no order. Adds the folder's stamp.
std::vector<std::string> namesIn(const std::string& path, std::vector<SEKFileStamp>& stamps);

// Refuses a folder with an entry that is no regular file of a sane size; folders in it are passed over. Adds the
// stamps of the folder and of its files.
void checkFolder(const std::string& path, std::vector<SEKFileStamp>& stamps);

}  // namespace SEKFile
