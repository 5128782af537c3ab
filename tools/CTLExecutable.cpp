#include "CTLExecutable.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "TVLDescriptor.h"

namespace {

// What the kernel looks at.
std::string beginningOf(const std::string& path) {
    const TVLDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    std::array<char, 256> bytes{};
    const ssize_t got = file.isOpen() ? read(file.get(), bytes.data(), bytes.size()) : 0;
    return {bytes.data(), got > 0 ? static_cast<std::size_t>(got) : 0};
}

std::string interpreterIn(const std::string& beginning) {
    const std::string line = beginning.substr(2, beginning.find('\n') - 2);
    const std::size_t from = line.find_first_not_of(" \t");
    if (from == std::string::npos) return {};
    return line.substr(from, line.find_first_of(" \t", from) - from);
}

std::string complaintOfFile(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return std::strerror(errno);
    if (!S_ISREG(status.st_mode)) return "it is no file";
    if (faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) != 0)
        return errno == EACCES ? "it may not be executed" : std::strerror(errno);
    return {};
}

}  // namespace

std::string CTLExecutable::complaint(const std::string& path) {
    const std::string complaint = complaintOfFile(path);
    if (!complaint.empty()) return path + ": " + complaint;
    const std::string beginning = beginningOf(path);
    // Whoever may execute a program need not be able to read it.
    if (beginning.empty() || beginning.starts_with("\177ELF")) return {};
    if (!beginning.starts_with("#!"))
        return path + ": it is neither a program nor a script that begins with #!";
    const std::string interpreter = interpreterIn(beginning);
    const std::string why = complaintOfFile(interpreter);
    return why.empty() ? why : path + ": its interpreter " + interpreter + ": " + why;
}
