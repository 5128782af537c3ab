// Virtual time before a disk that is only read.
//
// Purpose: whoever runs in it reads the files that are there and changes none: what it creates, empties, writes, removes
//   or makes a folder of is kept in memory, and what has been kept is what it reads afterwards. Of a file that grows
//   only the beginning is kept. What is written to a stream can be listened to; nothing goes out to the standard
//   streams.
// Ownership: as VirtualOs. Files in memory go with the last descriptor that leads to them; what is noted of them, with
//   this object.
// Threads: as VirtualOs. A listener is called by the thread that writes, which may hold locks of its own.
// Units: bytes.
// Errors: as the system calls of the same names; EROFS for what could change something and is not known here.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "VirtualOs.h"

class ReadOnlyOs : public VirtualOs {
  public:
    // Called with what is written to a stream, once for each text, however many streams it goes to in a row.
    void listen(std::function<void(std::string_view)> listener) { m_listener = std::move(listener); }
    // Makes a file that holds the text, or takes the place of one that is there.
    void place(const std::string& path, std::string_view content);

    int openat(int folder, const char* path, int flags, mode_t mode) override;
    ssize_t write(int descriptor, const void* data, std::size_t size) override;
    ssize_t writeNoWait(int descriptor, const void* data, std::size_t size) override;
    ssize_t sendNoWait(int socket, const void* data, std::size_t size) override;
    bool writeStream(std::FILE* stream, std::string_view text) override;
    int fstat(int descriptor, struct stat* status) override;
    int fstatat(int folder, const char* path, struct stat* status, int flags) override;
    int ftruncate(int descriptor, off_t size) override;
    int fchmod(int descriptor, mode_t mode) override;
    int fchownat(int folder, const char* path, uid_t user, gid_t group, int flags) override;
    int unlinkat(int folder, const char* path, int flags) override;
    int mkdirat(int folder, const char* path, mode_t mode) override;
    int makeFolders(const char* path) override;

  private:
    // A name in a folder, whatever way leads there. Folders in memory have numbers of their own on device 0.
    struct Place {
        dev_t device = 0;
        ino_t folder = 0;
        std::string name;
        auto operator<=>(const Place&) const =
            default;  // NOLINT(modernize-use-nullptr): made by the compiler
    };
    struct Kept {
        enum class Kind { File, Folder, Removed } kind = Kind::File;
        std::string content{};  // of a file, its beginning
        uid_t user = 0;
        gid_t group = 0;
        ino_t number = 0;
    };
    using Inode = std::pair<dev_t, ino_t>;

    Kept made(Kept::Kind kind, std::string_view content = {});
    bool find(int folder, const char* path, Place& place);
    const Kept* keptAt(int folder, const char* path);
    bool isInMemory(int folder, const char* path);
    bool isThere(int folder, const char* path);
    int openForWriting(int folder, const char* path, int flags);
    int openKept(const Kept& kept, const Place& place);
    Kept* fileOf(int descriptor);
    void fill(const Kept& kept, struct stat* status) const;
    bool append(std::FILE* stream, std::string_view text);
    int makeFolder(int folder, const char* path);

    std::recursive_mutex m_files;  // guards what follows
    std::map<Place, Kept> m_kept;
    ino_t m_numbers = 0;
    std::map<Inode, Place> m_opened;  // by their files in memory
    std::function<void(std::string_view)> m_listener;
    std::string m_lastText;
    std::FILE* m_lastStream = nullptr;
};
