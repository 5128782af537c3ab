#include "SEKFile.h"

#include <dirent.h>
#include <fcntl.h>

#include <array>
#include <cerrno>
#include <memory>

#include "SEKDescriptor.h"
#include "SEKErrors.h"

namespace {

struct FolderCloser {
    void operator()(DIR* folder) const { closedir(folder); }
};
using FolderPtr = std::unique_ptr<DIR, FolderCloser>;

[[noreturn]] void refuse(int error) {
    throw SEKFailure(SEKErrors::systemReason(error));
}

bool same(const timespec& left, const timespec& right) {
    return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

void requireRegular(const struct stat& status, off_t limit) {
    if (S_ISDIR(status.st_mode)) refuse(EISDIR);
    if (!S_ISREG(status.st_mode)) throw SEKFailure("not a regular file");
    if (status.st_size > limit)
        throw SEKFailure("larger than " + std::to_string(limit >> 20) + " MiB, which no such file is");
}

// A pipe without a writer and a device that is not ready would make a plain open wait.
SEKDescriptor openRegular(const std::string& path, off_t limit, struct stat& status) {
    SEKDescriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file.isOpen()) {
        // A socket in the file system cannot be opened, and the system's words for that tell nothing.
        if (errno == ENXIO) throw SEKFailure("not a regular file");
        refuse(errno);
    }
    if (fstat(file.get(), &status) != 0) refuse(errno);
    requireRegular(status, limit);
    return file;
}

}  // namespace

SEKFileStamp SEKFileStamp::of(const std::string& path) {
    SEKFileStamp stamp;
    stamp.path = path;
    stamp.isThere = stat(path.c_str(), &stamp.status) == 0;
    stamp.error = stamp.isThere ? 0 : errno;
    return stamp;
}

// Also a link that leads nowhere.
bool SEKFileStamp::isMissing() const {
    return error == ENOENT || error == ENOTDIR || error == ELOOP;
}

bool SEKFileStamp::isCurrent() const {
    const SEKFileStamp now = of(path);
    if (!now.isThere || !isThere) return now.isThere == isThere;
    // The time of the last change of state also tells a change of mode and of content that kept its date.
    return same(now.status.st_mtim, status.st_mtim) && same(now.status.st_ctim, status.st_ctim) &&
           now.status.st_ino == status.st_ino && now.status.st_dev == status.st_dev &&
           now.status.st_size == status.st_size && now.status.st_mode == status.st_mode;
}

namespace SEKFile {

std::string read(const std::string& path, off_t limit) {
    struct stat status {};
    const SEKDescriptor file = openRegular(path, limit, status);
    std::string content;
    std::array<char, 16384> block{};
    while (true) {
        const ssize_t count = ::read(file.get(), block.data(), block.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) refuse(errno);
        if (count == 0) return content;
        content.append(block.data(), static_cast<std::size_t>(count));
        // Files that the system makes up have no size of their own and may go on for ever.
        status.st_size = static_cast<off_t>(content.size());
        requireRegular(status, limit);
    }
}

struct stat check(const std::string& path) {
    struct stat status {};
    openRegular(path, materialLimit, status);
    // So do those that the system makes up; there is nothing to be had from an empty file anyway.
    if (status.st_size == 0) throw SEKFailure("the file is empty");
    return status;
}

std::vector<std::string> namesIn(const std::string& path, std::vector<SEKFileStamp>& stamps) {
    stamps.push_back(SEKFileStamp::of(path));
    const FolderPtr folder(opendir(path.c_str()));
    if (folder == nullptr) refuse(errno);
    std::vector<std::string> names;
    while (true) {
        // Only errno tells the end of the folder from a failure.
        errno = 0;
        const dirent* const entry = readdir(folder.get());
        if (entry == nullptr && errno != 0) refuse(errno);
        if (entry == nullptr) return names;
        if (names.size() == folderLimit) throw SEKFailure("too many files in the folder");
        names.emplace_back(entry->d_name);
    }
}

void checkFolder(const std::string& path, std::vector<SEKFileStamp>& stamps) {
    const std::string beginning = path + "/";
    for (const std::string& name : namesIn(path, stamps)) {
        const SEKFileStamp file = SEKFileStamp::of(std::string(beginning).append(name));
        if (!file.isThere || S_ISDIR(file.status.st_mode)) continue;
        stamps.push_back(file);
        try {
            requireRegular(file.status, materialLimit);
        } catch (const SEKFailure& reason) {
            throw SEKFailure(name + ": " + reason.what());
        }
    }
}

}  // namespace SEKFile
