#include "CTLAuthority.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include "CTLDaemon.h"
#include "CTLError.h"
#include "CTLInstance.h"

namespace {

constexpr const char* kUnit = "velbootstrapservice.service";
constexpr const char* kForegroundUnit = "velbootstrapservice-foreground.service";

[[noreturn]] void fail(const std::string& what) {
    throw CTLError(CTLError::kFailed, what + ": " + std::strerror(errno));
}

// Whether the service manager says yes to "is-active" or "is-enabled" of a unit.
bool isUnit(const char* question, const char* unit) {
    const std::string command = std::string("systemctl --quiet ") + question + " " + unit + " 2>/dev/null";
    return std::system(command.c_str()) == 0;
}

}  // namespace

CTLAuthority::CTLAuthority(const CTLInstance& instance)
    : m_bin(open(instance.bin().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
    if (!m_bin.isOpen()) fail(instance.bin());
    m_program = TVLDescriptor(openat(m_bin.get(), "velbootstrapservice", O_PATH | O_CLOEXEC));
    if (!m_program.isOpen()) fail(instance.executable());
    struct stat logs {};
    if (fstatat(m_bin.get(), "../logs", &logs, 0) != 0) fail(instance.logs());
    m_user = logs.st_uid;
    m_group = logs.st_gid;
    if (geteuid() != 0 && geteuid() != m_user) {
        throw CTLError(CTLError::kWrongUser, "the service is " + CTLDaemon::nameOf(m_user) + "'s, to whom " +
                                                 instance.logs().string() +
                                                 " belongs: give the command as that user, or as root");
    }
    requireOwn(m_bin, instance.bin());
    requireOwn(m_program, instance.executable());
}

// Root runs nothing that a third user can change: it would be that user's program with another one's rights.
void CTLAuthority::requireOwn(const TVLDescriptor& file, const std::string& path) const {
    struct stat status {};
    if (fstat(file.get(), &status) != 0) fail(path);
    const bool isTheirs = status.st_uid == 0 || status.st_uid == m_user;
    const bool isOpenToOthers = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    if (geteuid() != 0 || (isTheirs && !(m_user == 0 && isOpenToOthers))) return;
    throw CTLError(CTLError::kWrongUser, path + " can be changed by others than root and " +
                                             CTLDaemon::nameOf(m_user) +
                                             ", to whom the log belongs: root does not run it; give the "
                                             "command as the user whose instance it is");
}

std::string CTLAuthority::unitOf(const CTLInstance& instance) {
    std::error_code error;
    if (!instance.isSystem() || !std::filesystem::exists("/run/systemd/system", error)) return {};
    if (isUnit("is-active", kUnit)) return kUnit;
    const bool isForeground = isUnit("is-active", kForegroundUnit) || isUnit("is-enabled", kForegroundUnit);
    return isForeground ? kForegroundUnit : kUnit;
}

void CTLAuthority::become() {
    if (geteuid() != 0 || m_user == 0) return;
    passwd entry{};
    passwd* found = nullptr;
    std::array<char, 16384> texts{};
    getpwuid_r(m_user, &entry, texts.data(), texts.size(), &found);
    const bool hasGroups =
        found != nullptr ? initgroups(entry.pw_name, entry.pw_gid) == 0 : setgroups(0, nullptr) == 0;
    const gid_t group = found != nullptr ? entry.pw_gid : m_group;
    if (!hasGroups || setgid(group) != 0 || setuid(m_user) != 0)
        fail("cannot become the user " + CTLDaemon::nameOf(m_user));
    if (found == nullptr) return;
    for (const auto& [name, value] : {std::pair{"HOME", entry.pw_dir},
                                      {"SHELL", entry.pw_shell},
                                      {"USER", entry.pw_name},
                                      {"LOGNAME", entry.pw_name}})
        setenv(name, value, 1);
}

void CTLAuthority::execute(const std::string& option, int seconds) const {
    const std::string kind = option == "-start" ? "Ready" : "Dead";
    std::vector<std::string> words{"./velbootstrapservice", option, "-test" + kind + "Interval=1",
                                   "-test" + kind + "Tries=" + std::to_string(seconds)};
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    if (fchdir(m_bin.get()) == 0) fexecve(m_program.get(), arguments.data(), environ);
}
