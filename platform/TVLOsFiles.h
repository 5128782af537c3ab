// The part of the doorway that leads to files and to open descriptors.
//
// Purpose: the calls that open, read, write, examine and change files. Closing is none of them: it gives back what a
//   TVLDescriptor or a TVLFilePtr owns, and nothing follows from its outcome.
// Ownership: what is opened is the caller's.
// Threads: every member may be called from any thread.
// Units: times in milliseconds; sizes in bytes.
// Errors: as the system calls and library functions of the same names, the others as fstat(): -1 with errno set, or null
//   or false in its place.
#pragma once

#include <dirent.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/vfs.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

class TVLOsFiles {
  public:
    TVLOsFiles() = default;
    TVLOsFiles(const TVLOsFiles&) = delete;
    TVLOsFiles& operator=(const TVLOsFiles&) = delete;
    virtual ~TVLOsFiles();

    // Opening.
    virtual int openat(int folder, const char* path, int flags, mode_t mode) = 0;
    virtual int dup(int descriptor) = 0;
    // The lowest free number that is not below `lowest`, close-on-exec.
    virtual int duplicateFrom(int lowest, int descriptor) = 0;
    virtual std::FILE* fdopen(int descriptor, const char* mode) = 0;
    virtual DIR* fdopendir(int descriptor) = 0;

    // Reading.
    virtual ssize_t read(int descriptor, void* buffer, std::size_t size) = 0;
    virtual char* fgets(char* line, int size, std::FILE* stream) = 0;
    virtual dirent* readdir(DIR* folder) = 0;
    virtual ssize_t readlinkat(int folder, const char* path, char* text, std::size_t size) = 0;

    // Writing.
    virtual ssize_t write(int descriptor, const void* data, std::size_t size) = 0;
    // These two fail with EAGAIN in place of waiting; EOPNOTSUPP where the kernel cannot but wait.
    virtual ssize_t writeNoWait(int descriptor, const void* data, std::size_t size) = 0;
    virtual ssize_t sendNoWait(int socket, const void* data, std::size_t size) = 0;
    // The whole text, out of the stream's buffer as well.
    virtual bool writeStream(std::FILE* stream, std::string_view text) = 0;
    virtual int poll(pollfd* entries, nfds_t count, int timeoutMs) = 0;
    // Waits until the descriptor can be written, or writing would tell of an error; false when the time has passed.
    virtual bool waitWritable(int descriptor, std::int64_t timeoutMs) = 0;

    // Examining.
    virtual int fstat(int descriptor, struct stat* status) = 0;
    virtual int fstatat(int folder, const char* path, struct stat* status, int flags) = 0;
    virtual int fstatfs(int descriptor, struct statfs* status) = 0;
    virtual int statusFlags(int descriptor) = 0;  // such as O_NONBLOCK
    // A terminal, and not the other end of one.
    virtual bool isTerminal(int descriptor) = 0;

    // Changing.
    virtual int ftruncate(int descriptor, off_t size) = 0;
    virtual int fchmod(int descriptor, mode_t mode) = 0;
    virtual int fchownat(int folder, const char* path, uid_t user, gid_t group, int flags) = 0;
    virtual int unlinkat(int folder, const char* path, int flags) = 0;
    virtual int mkdirat(int folder, const char* path, mode_t mode) = 0;
    // The folder and its missing parents.
    virtual int makeFolders(const char* path) = 0;

    // The working directory.
    virtual int chdir(const char* path) = 0;
    virtual int fchdir(int folder) = 0;
    virtual char* getcwd(char* path, std::size_t size) = 0;
};
