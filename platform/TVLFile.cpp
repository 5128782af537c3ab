#include "TVLFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>

#include "TVLOs.h"
#include "TVLPlace.h"

namespace {

constexpr mode_t kLogRights = S_IRUSR | S_IWUSR | S_IRGRP;
constexpr mode_t kRightsForAll = kLogRights | S_IROTH;

// Null, errno and the reason in place of an error.
template <typename Action>
auto attempt(std::string* why, Action action) -> decltype(action()) {
    try {
        return action();
    } catch (const TVLFileError& error) {
        if (why != nullptr) *why = error.getMessage();
        errno = error.number();
        return {};
    }
}

[[noreturn]] void refuse(int number, const std::string& words) {
    throw TVLFileError(number, words.c_str(), __FILE__, __LINE__);
}

[[noreturn]] void refuseWithErrno() {
    throw TVLFileError(errno, __FILE__, __LINE__);
}

struct stat statusOf(const TVLDescriptor& file) {
    struct stat status {};
    if (TVLOs::current().fstat(file.get(), &status) != 0) refuseWithErrno();
    return status;
}

void requireRegular(const struct stat& status) {
    if (S_ISREG(status.st_mode)) return;
    if (S_ISDIR(status.st_mode)) throw TVLFileError(EISDIR, __FILE__, __LINE__);
    refuse(EINVAL, "is not a regular file");
}

void requireSize(const struct stat& status, std::int64_t mostBytes) {
    if (status.st_size > mostBytes) refuse(EFBIG, TVLFile::tooLarge(mostBytes));
}

TVLDescriptor openRegular(const char* path, std::int64_t mostBytes) {
    TVLDescriptor file = TVLPlace(path).open(O_RDONLY);
    const struct stat status = statusOf(file);
    requireRegular(status);
    requireSize(status, mostBytes);
    return file;
}

TVLDescriptor openRegularOrPipe(const char* path, std::int64_t mostBytes) {
    TVLDescriptor file = TVLPlace(path).open(O_RDONLY);
    const struct stat status = statusOf(file);
    if (S_ISFIFO(status.st_mode)) return file;
    requireRegular(status);
    requireSize(status, mostBytes);
    return file;
}

void truncate(const TVLDescriptor& file) {
    if (TVLOs::current().ftruncate(file.get(), 0) != 0) refuseWithErrno();
}

TVLFilePtr asStream(TVLDescriptor file, const char* mode) {
    TVLFilePtr stream(TVLOs::current().fdopen(file.get(), mode));
    if (!stream) refuseWithErrno();
    file.release();
    return stream;
}

std::string contentOf(const TVLDescriptor& file, std::int64_t mostBytes) {
    std::string content;
    std::array<char, 4096> block{};
    for (;;) {
        const ssize_t got = TVLOs::current().read(file.get(), block.data(), block.size());
        if (got == 0) return content;
        if (got < 0 && errno != EINTR) refuseWithErrno();
        if (got > 0) content.append(block.data(), static_cast<std::size_t>(got));
        if (static_cast<std::int64_t>(content.size()) > mostBytes)
            refuse(EFBIG, TVLFile::tooLarge(mostBytes));
    }
}

}  // namespace

namespace TVLFile {

TVLFilePtr openForReading(const char* path, std::int64_t mostBytes, std::string* why) {
    return attempt(why, [&] { return asStream(openRegular(path, mostBytes), "r"); });
}

TVLFilePtr openDocument(const char* path, std::string* why) {
    return attempt(why, [&] { return asStream(openRegularOrPipe(path, kMostOfADocument), "r"); });
}

std::optional<std::string> read(const char* path, std::int64_t mostBytes) {
    return attempt(nullptr,
                   [&] { return std::optional(contentOf(openRegular(path, mostBytes), mostBytes)); });
}

TVLFilePtr openForAllToRead(const char* path) {
    return attempt(nullptr, [&] {
        TVLDescriptor file = TVLPlace(path).openOrCreate(O_WRONLY, kRightsForAll);
        requireRegular(statusOf(file));
        truncate(file);
        // Whoever may write in a file that is another's leaves its rights alone.
        (void)TVLOs::current().fchmod(file.get(), kRightsForAll);
        return asStream(std::move(file), "w");
    });
}

TVLFilePtr openLog(const char* path, bool append) {
    return attempt(nullptr, [&] {
        TVLDescriptor file = TVLPlace(path).openOrCreate(O_WRONLY, kLogRights);
        const struct stat status = statusOf(file);
        if (!S_ISFIFO(status.st_mode) && !S_ISCHR(status.st_mode)) {
            requireRegular(status);
            if (!append) truncate(file);
        }
        return asStream(std::move(file), append ? "a" : "w");
    });
}

bool remove(const char* path) {
    return attempt(nullptr, [&] {
        TVLPlace(path, TVLPlace::LastLink::Itself).remove();
        return true;
    });
}

std::optional<std::int64_t> modificationTimeSec(const char* path) {
    struct stat status {};
    if (TVLOs::current().fstatat(AT_FDCWD, path, &status, 0) != 0) return std::nullopt;
    return std::int64_t{status.st_mtim.tv_sec};
}

std::optional<std::uint32_t> ownerOf(std::FILE* file) {
    struct stat status {};
    if (TVLOs::current().fstat(fileno(file), &status) != 0) return std::nullopt;
    return status.st_uid;
}

std::string tooLarge(std::int64_t mostBytes) {
    return "is larger than " + std::to_string(mostBytes) + " bytes";
}

}  // namespace TVLFile
