#include "TVLFmDir.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "TVLDescriptor.h"
#include "TVLOs.h"
#include "TVLPlace.h"

namespace fs = std::filesystem;

namespace {

struct Free {
    void operator()(char* memory) const { std::free(memory); }
};
using WorkingDirectory = std::unique_ptr<char, Free>;  // as getcwd() allocates it

}  // namespace

bool TVLFmDir::exists(const char* path) {
    struct stat status {};
    return TVLOs::current().fstatat(AT_FDCWD, path, &status, 0) == 0 && S_ISDIR(status.st_mode);
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
    const WorkingDirectory working(TVLOs::current().getcwd(nullptr, 0));
    if (!working && !fs::path(path).is_absolute()) return {};
    fs::path full = (fs::path(working ? working.get() : "") / path).lexically_normal();
    if (!full.has_filename() && full != full.root_path()) full = full.parent_path();
    return full.string();
}

std::string TVLFmDir::resolveByChangingInto(const char* path) {
    TVLOs& os = TVLOs::current();
    std::array<char, 4096> resolved{};
    if (os.getcwd(resolved.data(), resolved.size()) == nullptr) return {};
    // By its descriptor: its name may lead elsewhere by the time of the way back.
    const TVLDescriptor remembered(os.openat(AT_FDCWD, ".", O_PATH | O_DIRECTORY | O_CLOEXEC, 0));
    if (!remembered.isOpen()) return {};
    const bool known = os.chdir(path) == 0 && os.getcwd(resolved.data(), resolved.size()) != nullptr;
    const bool back = os.fchdir(remembered.get()) == 0;
    return known && back ? resolved.data() : "";
}

std::string TVLFmDir::resolveEffectivePath(const std::string& fileName) {
    return fileName;
}
