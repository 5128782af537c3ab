#include "CTLInstance.h"

#include <cstdlib>
#include <system_error>

#include "CTLError.h"

namespace fs = std::filesystem;

namespace {

bool isInstance(const fs::path& folder) {
    std::error_code error;
    return fs::exists(folder / "bin" / "velbootstrapservice", error);
}

fs::path withoutLinks(const fs::path& folder) {
    std::error_code error;
    const fs::path path = fs::canonical(folder, error);
    return error ? folder : path;
}

CTLInstance named(const fs::path& folder, const std::string& by) {
    if (isInstance(folder)) return CTLInstance(withoutLinks(folder));
    throw CTLError(CTLError::kUsage,
                   folder.string() + " (" + by + ") is no instance: it has no bin/velbootstrapservice");
}

}  // namespace

fs::path CTLInstance::systemFolder() {
    return VBS_SYSTEM_INSTANCE;
}

CTLInstance CTLInstance::find(const std::string& given) {
    if (!given.empty()) return named(given, "--instance");
    if (const char* const variable = std::getenv("VELBOOTSTRAP_INSTANCE");
        variable != nullptr && *variable != '\0') {
        return named(variable, "VELBOOTSTRAP_INSTANCE");
    }
    std::error_code error;
    const fs::path here = fs::current_path(error);
    for (const fs::path& folder : {here, here.parent_path(), systemFolder()}) {
        if (!folder.empty() && isInstance(folder)) return CTLInstance(withoutLinks(folder));
    }
    throw CTLError(CTLError::kUsage, "no instance in " + here.string() + ", none in " +
                                         systemFolder().string() +
                                         ": name one with --instance FOLDER or VELBOOTSTRAP_INSTANCE");
}

bool CTLInstance::isSystem() const {
    return m_folder == withoutLinks(systemFolder());
}
