#include "TVLProcessTable.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <string>
#include <utility>

#include "TVLOs.h"

namespace {

bool hasEnded(int process) {
    pollfd state{process, POLLIN, 0};
    return TVLOs::current().poll(&state, 1, 0) == 1 && (state.revents & POLLIN) != 0;
}

// Enough numbers are left for files and connections.
bool canBeSpared(int descriptor) {
    rlimit files{};
    if (TVLOs::current().descriptorLimit(&files) != 0) return false;
    return static_cast<rlim_t>(descriptor) + TVLProcessTable::kReserve <= files.rlim_cur;
}

enum class Child { Ours, Ended, Unknown };

// Whether the process is a child of this one that runs. A stranger that got the id of a child is none.
Child examine(int process) {
    TVLOs& os = TVLOs::current();
    if (os.examineChild(process) != 0) return errno == ECHILD ? Child::Ended : Child::Unknown;
    if (os.signalProcess(process, 0) == 0) return Child::Ours;
    return errno == ESRCH ? Child::Ended : Child::Unknown;
}

// Why no descriptor could be had: there is no process of that id, or its id is a thread's.
bool namesNoProcess(int error) {
    return error == ESRCH || error == EINVAL || error == ENOENT;
}

bool refusal(int error) {
    errno = error;
    return false;
}

}  // namespace

TVLProcessTable::~TVLProcessTable() = default;

pid_t TVLProcessTable::fork() {
    const TVLThreadGuard guard(m_mutex);
    closeEnded();
    const pid_t child = ::fork();
    if (child > 0) remember(child);
    if (child == 0) {
        m_held.clear();
        m_ended.clear();
    }
    return child;
}

// A child of whose descriptor nothing came is signalled by its id, as it is.
void TVLProcessTable::remember(pid_t child) {
    forget(child);
    TVLDescriptor process(TVLOs::current().openProcess(child));
    if (!process.isOpen()) {
        if (errno == ESRCH) rememberAsEnded(child);
        return;
    }
    const Child state = examine(process.get());
    if (state == Child::Ended) rememberAsEnded(child);
    if (state == Child::Ours && canBeSpared(process.get())) keep(child, std::move(process));
}

void TVLProcessTable::keep(pid_t pid, TVLDescriptor process) {
    try {
        m_held.emplace(pid, std::move(process));
    } catch (const std::bad_alloc&) {
        // The child runs and must be told of; its id alone will have to do.
    }
}

void TVLProcessTable::rememberAsEnded(pid_t pid) {
    try {
        m_ended.push_back(pid);
        if (m_ended.size() > kRemembered) m_ended.pop_front();
    } catch (const std::bad_alloc&) {
        // As keep().
    }
}

void TVLProcessTable::forget(pid_t pid) {
    m_held.erase(pid);
    m_ended.erase(std::remove(m_ended.begin(), m_ended.end(), pid), m_ended.end());
}

void TVLProcessTable::closeEnded() {
    for (auto at = m_held.begin(); at != m_held.end();) {
        const bool ended = hasEnded(at->second.get());
        if (ended) rememberAsEnded(at->first);
        at = ended ? m_held.erase(at) : std::next(at);
    }
}

int TVLProcessTable::kill(pid_t pid, int signal) {
    const TVLThreadGuard guard(m_mutex);
    const auto found = m_held.find(pid);
    if (found != m_held.end()) {
        const int result = TVLOs::current().signalProcess(found->second.get(), signal);
        if (result == 0 || errno != ESRCH) return result;
        m_held.erase(found);
        rememberAsEnded(pid);
    }
    if (std::find(m_ended.begin(), m_ended.end(), pid) == m_ended.end()) return ::kill(pid, signal);
    // Whoever tests whether it lives knows from now on. A signal that came too late says less: the same id may
    // be signalled once more.
    if (signal == 0) forget(pid);
    errno = ESRCH;
    return -1;
}

bool TVLProcessTable::hold(pid_t pid, uid_t user) {
    if (pid < 1) return refusal(ESRCH);
    TVLOs& os = TVLOs::current();
    const TVLThreadGuard guard(m_mutex);
    forget(pid);
    TVLDescriptor process(os.openProcess(pid));
    const bool held = process.isOpen();
    if (!held && namesNoProcess(errno)) return refusal(ESRCH);
    const std::optional<uid_t> owner = userOf(pid);
    // A process that still lives was the one with this id when its user was read.
    if ((held ? os.signalProcess(process.get(), 0) : ::kill(pid, 0)) != 0) return false;
    if (owner != user) return refusal(EPERM);
    if (held) keep(pid, std::move(process));
    return true;
}

std::optional<uid_t> TVLProcessTable::userOf(pid_t pid) {
    const std::string path = "/proc/" + std::to_string(pid) + "/status";
    TVLOs& os = TVLOs::current();
    const TVLDescriptor file(os.openat(AT_FDCWD, path.c_str(), O_RDONLY | O_CLOEXEC, 0));
    std::array<char, 1024> content{};  // the line is among the first ten, none of which is long
    if (!file.isOpen() || os.read(file.get(), content.data(), content.size() - 1) <= 0) return std::nullopt;
    constexpr const char* kKey = "\nUid:";
    const char* const line = std::strstr(content.data(), kKey);
    if (line == nullptr) return std::nullopt;
    return static_cast<uid_t>(std::strtoul(line + std::strlen(kKey), nullptr, 10));
}
