#include "ReadOnlyOs.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "TVLDescriptor.h"

namespace {

constexpr std::size_t kMostKept = 4096;  // of a file

bool changes(int flags) {
    return (flags & O_ACCMODE) != O_RDONLY || (flags & (O_CREAT | O_TRUNC)) != 0;
}

int refuse(int error) {
    errno = error;
    return -1;
}

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

ReadOnlyOs::Kept ReadOnlyOs::made(Kept::Kind kind, std::string_view content) {
    return {kind, std::string(content), geteuid(), getegid(), ++m_numbers};
}

// False when its folder is not there; then the file is not either.
bool ReadOnlyOs::find(int folder, const char* path, Place& place) {
    const std::string text(path);
    const std::string parent = parentOf(text);
    struct stat status {};
    const Kept* const opened = parent == "." && folder != AT_FDCWD ? fileOf(folder) : nullptr;
    if (opened != nullptr) {
        fill(*opened, &status);
    } else if (fstatat(folder, parent.c_str(), &status, 0) != 0) {
        return false;
    }
    place = {status.st_dev, status.st_ino, text.substr(text.rfind('/') + 1)};
    return true;
}

const ReadOnlyOs::Kept* ReadOnlyOs::keptAt(int folder, const char* path) {
    const std::string_view text(path);
    const bool hasName = !text.empty() && text != "." && text.back() != '/';
    Place place;
    if (m_kept.empty() || !hasName || !find(folder, path, place)) return nullptr;
    const auto found = m_kept.find(place);
    return found == m_kept.end() ? nullptr : &found->second;
}

// Whether the path begins in a folder that the disk does not have.
bool ReadOnlyOs::isInMemory(int folder, const char* path) {
    return folder != AT_FDCWD && *path != '/' && *path != '\0' && fileOf(folder) != nullptr;
}

bool ReadOnlyOs::isThere(int folder, const char* path) {
    struct stat status {};
    return fstatat(folder, path, &status, AT_SYMLINK_NOFOLLOW) == 0;
}

void ReadOnlyOs::place(const std::string& path, std::string_view content) {
    const std::lock_guard guard(m_files);
    Place place;
    if (!find(AT_FDCWD, path.c_str(), place)) return;
    m_kept[place] = made(Kept::Kind::File, content);
}

// ---- Opening ----

int ReadOnlyOs::openat(int folder, const char* path, int flags, mode_t mode) {
    const std::lock_guard guard(m_files);
    if (changes(flags)) return openForWriting(folder, path, flags);
    const Kept* const kept = keptAt(folder, path);
    if (kept == nullptr && isInMemory(folder, path)) return refuse(ENOENT);
    if (kept == nullptr) return VirtualOs::openat(folder, path, flags, mode);
    if (kept->kind == Kept::Kind::Removed) return refuse(ENOENT);
    Place place;
    find(folder, path, place);
    return openKept(*kept, place);
}

int ReadOnlyOs::openForWriting(int folder, const char* path, int flags) {
    const bool there = isThere(folder, path);
    if (!there && (flags & O_CREAT) == 0) return refuse(ENOENT);
    if (there && (flags & O_EXCL) != 0) return refuse(EEXIST);
    Place place;
    if (!find(folder, path, place)) return refuse(ENOENT);
    const auto [entry, isNew] = m_kept.try_emplace(place, Kept{});
    if (isNew || entry->second.kind == Kept::Kind::Removed) entry->second = made(Kept::Kind::File);
    if (entry->second.kind == Kept::Kind::Folder) return refuse(EISDIR);
    return openKept(entry->second, place);
}

int ReadOnlyOs::openKept(const Kept& kept, const Place& place) {
    TVLDescriptor file(memfd_create("kept", MFD_CLOEXEC));
    struct stat status {};
    if (!file.isOpen() || VirtualOs::fstat(file.get(), &status) != 0) return -1;
    if (VirtualOs::write(file.get(), kept.content.data(), kept.content.size()) < 0) return -1;
    if (lseek(file.get(), 0, SEEK_SET) != 0) return -1;
    m_opened[{status.st_dev, status.st_ino}] = place;
    return file.release();
}

// Null for what is no file in memory.
ReadOnlyOs::Kept* ReadOnlyOs::fileOf(int descriptor) {
    struct stat status {};
    if (VirtualOs::fstat(descriptor, &status) != 0) return nullptr;
    const auto opened = m_opened.find({status.st_dev, status.st_ino});
    if (opened == m_opened.end()) return nullptr;
    const auto kept = m_kept.find(opened->second);
    return kept == m_kept.end() ? nullptr : &kept->second;
}

// ---- Writing ----

ssize_t ReadOnlyOs::write(int /*descriptor*/, const void* /*data*/, std::size_t size) {
    return static_cast<ssize_t>(size);
}

ssize_t ReadOnlyOs::writeNoWait(int /*descriptor*/, const void* /*data*/, std::size_t size) {
    return static_cast<ssize_t>(size);
}

ssize_t ReadOnlyOs::sendNoWait(int /*socket*/, const void* /*data*/, std::size_t size) {
    return static_cast<ssize_t>(size);
}

bool ReadOnlyOs::writeStream(std::FILE* stream, std::string_view text) {
    const std::lock_guard guard(m_files);
    append(stream, text);
    // One text for several streams is told once.
    if (stream != m_lastStream && text == m_lastText) return true;
    m_lastStream = stream;
    m_lastText = text;
    if (m_listener) m_listener(text);
    return true;
}

bool ReadOnlyOs::append(std::FILE* stream, std::string_view text) {
    Kept* const kept = fileno(stream) < 0 ? nullptr : fileOf(fileno(stream));
    if (kept == nullptr || kept->content.size() + text.size() > kMostKept) return false;
    kept->content += text;
    return true;
}

// ---- Examining ----

void ReadOnlyOs::fill(const Kept& kept, struct stat* status) const {
    status->st_mode = kept.kind == Kept::Kind::Folder ? S_IFDIR | 0755U : S_IFREG | 0644U;
    status->st_dev = 0;
    status->st_ino = kept.number;
    status->st_nlink = 1;
    status->st_uid = kept.user;
    status->st_gid = kept.group;
    status->st_size = static_cast<off_t>(kept.content.size());
}

int ReadOnlyOs::fstat(int descriptor, struct stat* status) {
    const std::lock_guard guard(m_files);
    if (const int result = VirtualOs::fstat(descriptor, status); result != 0) return result;
    // Lines for a standard stream come the way of those for files.
    if (descriptor == STDOUT_FILENO || descriptor == STDERR_FILENO) status->st_mode = S_IFREG | 0644U;
    if (const Kept* const kept = fileOf(descriptor); kept != nullptr) fill(*kept, status);
    return 0;
}

int ReadOnlyOs::fstatat(int folder, const char* path, struct stat* status, int flags) {
    const std::lock_guard guard(m_files);
    const Kept* const kept = keptAt(folder, path);
    if (kept == nullptr && isInMemory(folder, path)) return refuse(ENOENT);
    if (kept == nullptr) return VirtualOs::fstatat(folder, path, status, flags);
    if (kept->kind == Kept::Kind::Removed) return refuse(ENOENT);
    *status = {};
    fill(*kept, status);
    return 0;
}

// ---- Changing ----

int ReadOnlyOs::ftruncate(int descriptor, off_t size) {
    const std::lock_guard guard(m_files);
    Kept* const kept = fileOf(descriptor);
    if (kept == nullptr) return refuse(EROFS);
    kept->content.resize(static_cast<std::size_t>(size));
    return VirtualOs::ftruncate(descriptor, size);
}

int ReadOnlyOs::fchmod(int descriptor, mode_t /*mode*/) {
    const std::lock_guard guard(m_files);
    return fileOf(descriptor) == nullptr ? refuse(EROFS) : 0;
}

int ReadOnlyOs::fchownat(int folder, const char* path, uid_t user, gid_t group, int /*flags*/) {
    const std::lock_guard guard(m_files);
    // Only what was just made is given away: a file in memory, or a folder that another stands for.
    if (Kept* const kept = *path == '\0' ? fileOf(folder) : nullptr; kept != nullptr) {
        kept->user = user;
        kept->group = group;
    }
    return 0;
}

int ReadOnlyOs::unlinkat(int folder, const char* path, int /*flags*/) {
    const std::lock_guard guard(m_files);
    Place place;
    if (!isThere(folder, path) || !find(folder, path, place)) return refuse(ENOENT);
    m_kept[place] = made(Kept::Kind::Removed);
    return 0;
}

int ReadOnlyOs::mkdirat(int folder, const char* path, mode_t /*mode*/) {
    const std::lock_guard guard(m_files);
    return makeFolder(folder, path);
}

int ReadOnlyOs::makeFolder(int folder, const char* path) {
    if (isThere(folder, path)) return refuse(EEXIST);
    Place place;
    if (!find(folder, path, place)) return refuse(ENOENT);
    m_kept[place] = made(Kept::Kind::Folder);
    return 0;
}

int ReadOnlyOs::makeFolders(const char* path) {
    const std::lock_guard guard(m_files);
    if (isThere(AT_FDCWD, path)) return 0;
    const std::string parent = parentOf(path);
    if (parent != path && makeFolders(parent.c_str()) != 0) return -1;
    return makeFolder(AT_FDCWD, path);
}
