#include "CTLListener.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

namespace fs = std::filesystem;

namespace {

// As the tables have it.
constexpr const char* kListening = "0A";

// Wildcards and loopback addresses, each group of four bytes in the machine's own order; this is how little-endian
// machines show them, the only ones that the service is built for.
bool reachesLoopback(const std::string& address) {
    const bool isV4 = address.size() == 8;
    if (isV4) return address == "00000000" || address.ends_with("7F");
    constexpr const char* kMapped = "0000000000000000FFFF0000";
    if (address.starts_with(kMapped)) return reachesLoopback(address.substr(24));
    return address == "00000000000000000000000001000000" || address == std::string(32, '0');
}

// The inode of a listening socket, empty when there is none.
std::string socketIn(const char* table, std::uint16_t port) {
    std::ifstream lines(table);
    std::string line;
    std::getline(lines, line);  // its head
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        std::string number;
        std::string local;
        std::string skipped;
        std::string state;
        std::string inode;
        words >> number >> local >> skipped >> state;
        for (int i = 0; i < 6; ++i)
            words >> inode;
        const std::size_t colon = local.find(':');
        if (state != kListening || colon == std::string::npos) continue;
        const bool isPort = std::stoul(local.substr(colon + 1), nullptr, 16) == port;
        if (isPort && reachesLoopback(local.substr(0, colon))) return inode;
    }
    return {};
}

bool holds(const fs::path& process, const std::string& socket) {
    std::error_code error;
    for (fs::directory_iterator entry(process / "fd", error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code ignored;
        if (fs::read_symlink(entry->path(), ignored) == socket) return true;
    }
    return false;
}

std::string nameOf(const fs::path& process) {
    std::ifstream file(process / "comm");
    std::string name;
    std::getline(file, name);
    return name;
}

std::string holderOf(const std::string& inode) {
    const std::string socket = "socket:[" + inode + "]";
    std::error_code error;
    for (fs::directory_iterator entry("/proc", error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        const bool isProcess =
            std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
        if (isProcess && holds(entry->path(), socket))
            return "process " + name + " (" + nameOf(entry->path()) + ")";
    }
    return "a process of another user";
}

}  // namespace

std::optional<std::string> CTLListener::on(std::uint16_t port) {
    for (const char* const table : {"/proc/self/net/tcp", "/proc/self/net/tcp6"}) {
        const std::string inode = socketIn(table, port);
        if (!inode.empty()) return holderOf(inode);
    }
    return std::nullopt;
}

bool CTLListener::isHere(const std::string& host) {
    return host == "localhost" || host == "localhost." || host.ends_with(".localhost") ||
           host.starts_with("127.") || host == "::1";
}
