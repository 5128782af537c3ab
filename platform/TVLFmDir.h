// Directories and paths.
//
// Purpose: test and create directories, and turn names into effective and absolute paths.
// Ownership, threads: static members without state; the absolute path depends on the working directory.
// Units: none.
// Errors: false, or an empty text.
#pragma once

#include <string>

class TVLFmDir {
  public:
    static bool exists(const char* path);  // as a directory
    // Creates the directory and its missing parents, with root's rights as TVLPlace has it; true when it exists
    // afterwards.
    static bool createWithParents(const char* path);
    // Absolute against the working directory and lexically normalised, without a trailing slash. Symbolic
    // links are not resolved and the file need not exist. Empty when the working directory is unknown.
    static std::string fullPath(const std::string& path);
    // The working directory as it is after changing into `path` (symbolic links resolved), and back. Empty
    // when any step fails. Changes the process's working directory meanwhile: for the time before threads
    // exist.
    static std::string resolveByChangingInto(const char* path);
    // What the dynamic loader is given for a library's file name: the plain name, searched on its usual path.
    static std::string resolveEffectivePath(const std::string& fileName);
};
