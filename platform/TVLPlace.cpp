#include "TVLPlace.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <deque>
#include <memory>
#include <string_view>
#include <vector>

#include "TVLOs.h"

namespace {

// As many as the kernel follows.
constexpr int kMostLinks = 40;
// Somebody may make and remove a file meanwhile; whoever does so all the time is not waited for.
constexpr int kCreateTries = 10;
constexpr int kLook = O_PATH | O_NOFOLLOW | O_CLOEXEC;

TVLDescriptor checked(int descriptor) {
    if (descriptor < 0) throw TVLFileError(errno, __FILE__, __LINE__);
    return TVLDescriptor(descriptor);
}

// The process was started with a standard stream closed and the file got its number. Whoever writes to that
// stream would write into the file.
TVLDescriptor aboveStandardStreams(TVLDescriptor descriptor) {
    if (descriptor.get() > STDERR_FILENO) return descriptor;
    return checked(TVLOs::current().duplicateFrom(STDERR_FILENO + 1, descriptor.get()));
}

struct stat statusOf(int descriptor) {
    struct stat status {};
    if (TVLOs::current().fstat(descriptor, &status) != 0) throw TVLFileError(errno, __FILE__, __LINE__);
    return status;
}

// A group counts as others: access lists show in its bits.
bool isRoots(const struct stat& folder) {
    return folder.st_uid == 0 && (folder.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

bool mayFollow(const struct stat& folder, const struct stat& link) {
    if (isRoots(folder)) return true;
    const bool removedByRootOnly = folder.st_uid == 0 && (folder.st_mode & S_ISVTX) != 0;
    return removedByRootOnly && link.st_uid == 0 && link.st_nlink == 1;
}

bool isOfProcesses(int folder) {
    struct statfs status {};
    return TVLOs::current().fstatfs(folder, &status) == 0 && status.f_type == PROC_SUPER_MAGIC;
}

std::string textOf(int link) {
    std::array<char, PATH_MAX> text{};
    const ssize_t length = TVLOs::current().readlinkat(link, "", text.data(), text.size());
    if (length < 1) throw TVLFileError(errno, __FILE__, __LINE__);
    return {text.data(), static_cast<std::size_t>(length)};
}

void giveToOwnerOf(const struct stat& folder, int descriptor) {
    const struct stat status = statusOf(descriptor);
    if (status.st_uid == folder.st_uid && status.st_gid == folder.st_gid) return;
    if (TVLOs::current().fchownat(descriptor, "", folder.st_uid, folder.st_gid, AT_EMPTY_PATH) != 0)
        throw TVLFileError(errno, __FILE__, __LINE__);
}

struct FolderCloser {
    void operator()(DIR* stream) const { closedir(stream); }
};

TVLDescriptor openFolder(int folder, const char* name, int flags) {
    return checked(TVLOs::current().openat(folder, name, flags | O_DIRECTORY, 0));
}

bool isEmptyFolder(int folder) {
    TVLOs& os = TVLOs::current();
    TVLDescriptor readable = openFolder(folder, ".", O_RDONLY | O_CLOEXEC);
    const std::unique_ptr<DIR, FolderCloser> entries(os.fdopendir(readable.get()));
    if (!entries) return false;
    readable.release();
    int names = 0;
    errno = 0;
    while (names < 3 && os.readdir(entries.get()) != nullptr)
        ++names;
    return names == 2 && errno == 0;  // itself and its parent
}

// A way, name by name, as far as its last folder.
class Walk {
  public:
    enum class Missing { Ends, IsMade };

    Walk(const char* path, TVLPlace::LastLink lastLink, Missing missing)
        : m_lastLink(lastLink), m_missing(missing) {
        enter(openFolder(AT_FDCWD, ".", kLook));
        goOnWith(path);
    }

    // Goes there; the name that is left, "." when it is the folder itself.
    std::string end() {
        while (!m_names.empty()) {
            std::string name = std::move(m_names.front());
            m_names.pop_front();
            TVLDescriptor there = look(name);
            if (!there.isOpen()) return name;
            const struct stat status = statusOf(there.get());
            if (S_ISDIR(status.st_mode)) {
                enter(std::move(there));
            } else if (S_ISLNK(status.st_mode) && !endsWithLink()) {
                if (!follow(name, there.get(), status)) return name;
            } else if (m_names.empty()) {
                return name;
            } else {
                throw TVLFileError(ENOTDIR, __FILE__, __LINE__);
            }
        }
        return ".";
    }

    TVLDescriptor takeFolder() { return std::move(m_folder); }
    const struct stat& folderStatus() const { return m_folderStatus; }
    bool endsByKernel() const { return m_endsByKernel; }

  private:
    bool endsWithLink() const { return m_names.empty() && m_lastLink == TVLPlace::LastLink::Itself; }

    void enter(TVLDescriptor folder) {
        m_folder = std::move(folder);
        m_folderStatus = statusOf(m_folder.get());
    }

    // What comes next, before what is left.
    void goOnWith(std::string_view path) {
        if (path.empty()) throw TVLFileError(ENOENT, __FILE__, __LINE__);
        if (path.front() == '/') enter(openFolder(AT_FDCWD, "/", kLook));
        std::vector<std::string> names;
        for (std::size_t at = 0; at < path.size();) {
            const std::size_t slash = std::min(path.find('/', at), path.size());
            if (slash > at) names.emplace_back(path.substr(at, slash - at));
            at = slash + 1;
        }
        // What ends in a slash is a folder.
        if (path.back() == '/') names.emplace_back(".");
        m_names.insert(m_names.begin(), names.begin(), names.end());
    }

    // None when nothing of the last name is there.
    TVLDescriptor look(const std::string& name) {
        const int there = TVLOs::current().openat(m_folder.get(), name.c_str(), kLook, 0);
        if (there >= 0 || errno != ENOENT) return checked(there);
        if (m_missing == Missing::IsMade) return make(name);
        if (!m_names.empty()) throw TVLFileError(ENOENT, __FILE__, __LINE__);
        return TVLDescriptor();
    }

    TVLDescriptor make(const std::string& name) {
        const bool made = TVLOs::current().mkdirat(m_folder.get(), name.c_str(), ACCESSPERMS) == 0;
        if (!made && errno != EEXIST) throw TVLFileError(errno, __FILE__, __LINE__);
        TVLDescriptor folder = openFolder(m_folder.get(), name.c_str(), kLook);
        if (!made || isRoots(m_folderStatus)) return folder;
        // Its owner may have put another in its place, one with something in it.
        if (!isEmptyFolder(folder.get())) throw TVLFileError(EEXIST, __FILE__, __LINE__);
        giveToOwnerOf(m_folderStatus, folder.get());
        return folder;
    }

    // False when the way ends here and the kernel follows the link.
    bool follow(const std::string& name, int link, const struct stat& status) {
        if (++m_links > kMostLinks) throw TVLFileError(ELOOP, __FILE__, __LINE__);
        if (!mayFollow(m_folderStatus, status)) {
            throw TVLFileError(EACCES, "lies behind a symbolic link in a folder that is not root's", __FILE__,
                               __LINE__);
        }
        if (!isOfProcesses(m_folder.get())) {
            goOnWith(textOf(link));
        } else if (m_names.empty()) {
            m_endsByKernel = true;
        } else {
            enter(openFolder(m_folder.get(), name.c_str(), O_PATH | O_CLOEXEC));
        }
        return !m_endsByKernel;
    }

    TVLPlace::LastLink m_lastLink;
    Missing m_missing;
    std::deque<std::string> m_names;  // still to go
    TVLDescriptor m_folder;
    struct stat m_folderStatus {};
    int m_links = 0;
    bool m_endsByKernel = false;
};

bool hasRootsRights() {
    return TVLOs::current().geteuid() == 0;
}

}  // namespace

TVLFileError::TVLFileError(int number, const char* words, const char* file, int line)
    : TVLThrowable(words, file, line), m_number(number) {}

TVLFileError::TVLFileError(int number, const char* file, int line)
    : TVLFileError(number, std::strerror(number), file, line) {}

TVLPlace::TVLPlace(const char* path, LastLink lastLink) : m_name(path) {
    if (!hasRootsRights()) return;
    Walk walk(path, lastLink, Walk::Missing::Ends);
    m_name = walk.end();
    m_byKernel = walk.endsByKernel();
    m_folderStatus = walk.folderStatus();
    m_folder = walk.takeFolder();
}

void TVLPlace::makeFolders(const char* path) {
    if (!hasRootsRights()) {
        if (TVLOs::current().makeFolders(path) != 0) throw TVLFileError(errno, __FILE__, __LINE__);
        return;
    }
    Walk walk(path, LastLink::Followed, Walk::Missing::IsMade);
    if (walk.end() != ".") throw TVLFileError(ENOTDIR, __FILE__, __LINE__);
}

TVLDescriptor TVLPlace::open(int flags) const {
    return aboveStandardStreams(checked(tryOpen(flags)));
}

TVLDescriptor TVLPlace::openOrCreate(int flags, mode_t mode) const {
    return aboveStandardStreams(isWalked() ? openWalked(flags, mode)
                                           : checked(tryOpen(flags | O_CREAT, mode)));
}

void TVLPlace::remove() const {
    if (TVLOs::current().unlinkat(folder(), m_name.c_str(), 0) != 0)
        throw TVLFileError(errno, __FILE__, __LINE__);
}

int TVLPlace::folder() const {
    return isWalked() ? m_folder.get() : AT_FDCWD;
}

bool TVLPlace::isForeign() const {
    return !m_byKernel && !isRoots(m_folderStatus);
}

int TVLPlace::tryOpen(int flags, mode_t mode) const {
    const int always = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    const int link = isWalked() && !m_byKernel ? O_NOFOLLOW : 0;
    return TVLOs::current().openat(folder(), m_name.c_str(), flags | always | link, mode);
}

// What is there and what is created are told apart: only the latter is given away.
TVLDescriptor TVLPlace::openWalked(int flags, mode_t mode) const {
    for (int attempt = 0; attempt < kCreateTries; ++attempt) {
        TVLDescriptor there(tryOpen(flags));
        if (there.isOpen()) {
            if (isForeign()) refuseOthersFile(there.get());
            return there;
        }
        if (errno != ENOENT) break;
        TVLDescriptor created(tryOpen(flags | O_CREAT | O_EXCL, mode));
        if (created.isOpen()) {
            if (isForeign()) giveAway(created.get());
            return created;
        }
        if (errno != EEXIST) break;
    }
    throw TVLFileError(errno, __FILE__, __LINE__);
}

void TVLPlace::giveAway(int created) const {
    try {
        giveToOwnerOf(m_folderStatus, created);
    } catch (const TVLFileError&) {
        remove();
        throw;
    }
}

// A further name of a file is a link, too.
void TVLPlace::refuseOthersFile(int descriptor) const {
    const struct stat status = statusOf(descriptor);
    if (status.st_nlink != 1) {
        throw TVLFileError(EACCES, "has more than one name, in a folder that is not root's", __FILE__,
                           __LINE__);
    }
    if (status.st_uid != m_folderStatus.st_uid && status.st_uid != 0) {
        throw TVLFileError(EACCES, "is neither root's nor its folder's owner's", __FILE__, __LINE__);
    }
}
