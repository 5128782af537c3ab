// Where a file lies: its folder and its name in it.
//
// Purpose: the way to a file when the one who goes it may do everything and others may write on the way. With root's
//   rights (effective user 0) a path is walked name by name:
//   - A folder is root's when root owns it and nobody else may write in it; write permission of the group, whichever
//     it is, or of everybody makes it foreign.
//   - A symbolic link is followed when it lies in a folder of root's, or is root's own (under one name only) in a
//     folder of root's that is sticky, as /tmp is. Any other link, anywhere on the way, ends the walk.
//   - Links of the process file system, such as /dev/fd/63 leads to, are followed by the kernel when their folder is
//     root's.
//   - What is written in a foreign folder has one name only and belongs to the folder's owner or to root; what is
//     created there is given to the folder's owner and group.
//   Without root's rights a path is taken as the system takes it.
// Ownership: holds the folder open, so that nothing on the way can be exchanged afterwards.
// Threads: used by one thread at a time.
// Units: none.
// Errors: TVLFileError with the errno and the words for it.
#pragma once

#include <sys/stat.h>

#include <string>

#include "TVLDescriptor.h"
#include "TVLThrowable.h"

class TVLFileError : public TVLThrowable {
  public:
    TVLFileError(int number, const char* words, const char* file, int line);
    // In the system's words.
    TVLFileError(int number, const char* file, int line);

    int number() const noexcept { return m_number; }  // an errno

  private:
    int m_number;
};

class TVLPlace {
  public:
    enum class LastLink { Followed, Itself };

    explicit TVLPlace(const char* path, LastLink lastLink = LastLink::Followed);

    // Makes the folder and its missing parents.
    static void makeFolders(const char* path);

    // Descriptors are above 2, close-on-exec from birth, never wait and become no controlling terminal.
    TVLDescriptor open(int flags) const;
    // What is there already, or else a new file with these rights less the umask.
    TVLDescriptor openOrCreate(int flags, mode_t mode) const;
    void remove() const;

  private:
    bool isWalked() const { return m_folder.isOpen(); }
    int folder() const;
    bool isForeign() const;
    int tryOpen(int flags, mode_t mode = 0) const;
    TVLDescriptor openWalked(int flags, mode_t mode) const;
    void giveAway(int created) const;
    void refuseOthersFile(int descriptor) const;

    TVLDescriptor m_folder;         // none: the path as the system takes it
    struct stat m_folderStatus {};  // of a walk
    std::string m_name;
    bool m_byKernel = false;  // the name is a link that the kernel follows
};
