#include "ZORPidFileOwner.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "TVLDescriptor.h"
#include "TVLOs.h"

namespace ZORPidFileOwner {

namespace {

bool isTheSame(const struct stat& left, const struct stat& right) {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

// Whoever may write in a folder can give any file in it another's name; in a sticky one only its own.
bool othersMayRenameIn(const struct stat& folder) {
    return (folder.st_mode & (S_IWGRP | S_IWOTH)) != 0 && (folder.st_mode & S_ISVTX) == 0;
}

// A file of root's whose words are root's: nobody else writes it, or has brought it here under a further name.
bool isRootsWord(const struct stat& file) {
    return file.st_nlink == 1 && (file.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// The owner of the folder that `path` leads to, if the file in it is the one that was opened: whoever may change the
// path could have done so since.
uid_t folderOwner(const struct stat& opened, const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    TVLOs& os = TVLOs::current();
    const TVLDescriptor descriptor(os.openat(AT_FDCWD, folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC, 0));
    if (!descriptor.isOpen()) return kNobody;
    struct stat owner {};
    struct stat named {};
    const bool known = os.fstat(descriptor.get(), &owner) == 0 &&
                       os.fstatat(descriptor.get(), name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
                       isTheSame(opened, named);
    return known && !othersMayRenameIn(owner) ? owner.st_uid : kNobody;
}

}  // namespace

std::optional<uid_t> of(std::FILE* file, const std::string& path) {
    if (TVLOs::current().geteuid() != 0) return std::nullopt;
    struct stat opened {};
    if (TVLOs::current().fstat(fileno(file), &opened) != 0) return kNobody;
    if (opened.st_uid == 0 && !isRootsWord(opened)) return kNobody;
    const uid_t owner = opened.st_uid != 0 ? opened.st_uid : folderOwner(opened, path);
    return owner == 0 ? std::nullopt : std::optional<uid_t>(owner);
}

}  // namespace ZORPidFileOwner
