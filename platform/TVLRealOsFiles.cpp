// The members of TVLRealOs that lead to files.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "TVLRealOs.h"

// ---- Opening ----

int TVLRealOs::openat(int folder, const char* path, int flags, mode_t mode) {
    return ::openat(folder, path, flags, mode);
}

int TVLRealOs::dup(int descriptor) {
    return ::dup(descriptor);
}

int TVLRealOs::duplicateFrom(int lowest, int descriptor) {
    return fcntl(descriptor, F_DUPFD_CLOEXEC, lowest);
}

std::FILE* TVLRealOs::fdopen(int descriptor, const char* mode) {
    return ::fdopen(descriptor, mode);
}

DIR* TVLRealOs::fdopendir(int descriptor) {
    return ::fdopendir(descriptor);
}

// ---- Reading ----

ssize_t TVLRealOs::read(int descriptor, void* buffer, std::size_t size) {
    return ::read(descriptor, buffer, size);
}

char* TVLRealOs::fgets(char* line, int size, std::FILE* stream) {
    return std::fgets(line, size, stream);
}

dirent* TVLRealOs::readdir(DIR* folder) {
    return ::readdir(folder);
}

ssize_t TVLRealOs::readlinkat(int folder, const char* path, char* text, std::size_t size) {
    return ::readlinkat(folder, path, text, size);
}

// ---- Writing ----

ssize_t TVLRealOs::write(int descriptor, const void* data, std::size_t size) {
    return ::write(descriptor, data, size);
}

ssize_t TVLRealOs::writeNoWait(int descriptor, const void* data, std::size_t size) {
    const iovec piece{const_cast<void*>(data), size};
    return pwritev2(descriptor, &piece, 1, -1, RWF_NOWAIT);
}

ssize_t TVLRealOs::sendNoWait(int socket, const void* data, std::size_t size) {
    return send(socket, data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
}

bool TVLRealOs::writeStream(std::FILE* stream, std::string_view text) {
    const bool taken = std::fwrite(text.data(), 1, text.size(), stream) == text.size();
    return std::fflush(stream) == 0 && taken;
}

int TVLRealOs::poll(pollfd* entries, nfds_t count, int timeoutMs) {
    return ::poll(entries, count, timeoutMs);
}

// ---- Examining ----

int TVLRealOs::fstat(int descriptor, struct stat* status) {
    return ::fstat(descriptor, status);
}

int TVLRealOs::fstatat(int folder, const char* path, struct stat* status, int flags) {
    return ::fstatat(folder, path, status, flags);
}

int TVLRealOs::fstatfs(int descriptor, struct statfs* status) {
    return ::fstatfs(descriptor, status);
}

int TVLRealOs::statusFlags(int descriptor) {
    return fcntl(descriptor, F_GETFL);
}

bool TVLRealOs::isTerminal(int descriptor) {
    unsigned int number = 0;
    return isatty(descriptor) == 1 && ioctl(descriptor, TIOCGPTN, &number) != 0;
}

// ---- Changing ----

int TVLRealOs::ftruncate(int descriptor, off_t size) {
    return ::ftruncate(descriptor, size);
}

int TVLRealOs::fchmod(int descriptor, mode_t mode) {
    return ::fchmod(descriptor, mode);
}

int TVLRealOs::fchownat(int folder, const char* path, uid_t user, gid_t group, int flags) {
    return ::fchownat(folder, path, user, group, flags);
}

int TVLRealOs::unlinkat(int folder, const char* path, int flags) {
    return ::unlinkat(folder, path, flags);
}

int TVLRealOs::mkdirat(int folder, const char* path, mode_t mode) {
    return ::mkdirat(folder, path, mode);
}

int TVLRealOs::makeFolders(const char* path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (!error) return 0;
    errno = error.value();
    return -1;
}

// ---- The working directory ----

int TVLRealOs::chdir(const char* path) {
    return ::chdir(path);
}

int TVLRealOs::fchdir(int folder) {
    return ::fchdir(folder);
}

char* TVLRealOs::getcwd(char* path, std::size_t size) {
    return ::getcwd(path, size);
}
