#include "TVLFmDir.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <system_error>

#include "TVLDescriptor.h"
#include "TVLPlace.h"

namespace fs = std::filesystem;

bool TVLFmDir::exists(const char* path) {
    std::error_code error;
    return fs::is_directory(path, error);
}

bool TVLFmDir::createWithParents(const char* path) {
    try {
        TVLPlace::makeFolders(path);
    } catch (const TVLFileError&) {
        // What is there in the end tells.
    }
    return exists(path);
}

std::string TVLFmDir::fullPath(const std::string& path) {
    std::error_code error;
    const fs::path working = fs::current_path(error);
    if (error && !fs::path(path).is_absolute()) return {};
    fs::path full = (working / path).lexically_normal();
    if (!full.has_filename() && full != full.root_path()) full = full.parent_path();
    return full.string();
}

std::string TVLFmDir::resolveByChangingInto(const char* path) {
    std::array<char, 4096> resolved{};
    if (getcwd(resolved.data(), resolved.size()) == nullptr) return {};
    // By its descriptor: its name may lead elsewhere by the time of the way back.
    const TVLDescriptor remembered(::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!remembered.isOpen()) return {};
    const bool known = chdir(path) == 0 && getcwd(resolved.data(), resolved.size()) != nullptr;
    const bool back = fchdir(remembered.get()) == 0;
    return known && back ? resolved.data() : "";
}

std::string TVLFmDir::resolveEffectivePath(const std::string& fileName) {
    return fileName;
}
