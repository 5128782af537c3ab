// The processes of this machine, as the proc file system shows them.
//
// Purpose: what is known of a process without touching it: no signal is sent, not even to ask whether it lives. A
//   process that ends meanwhile is as one that was not there.
// Ownership: owns the path of the file system; each question reads anew.
// Threads: one.
// Units: seconds since the epoch, bytes, counts.
// Errors: what may not be read, or is not there, is an empty value.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

struct CTLProcess {
    pid_t pid = 0;
    pid_t parent = 0;
    uid_t user = 0;    // the effective one
    std::string name;  // as the kernel cuts it, 15 characters
    std::time_t started = 0;
    std::int64_t memoryBytes = 0;  // resident
    int threads = 0;
};

class CTLProcesses {
  public:
    // Which file a link of a process leads to.
    enum class Link { Same, Other, Unreadable };

    explicit CTLProcesses(const std::filesystem::path& root = "/proc");

    // None for an id that no live process has; one that waits to be reaped has ended.
    std::optional<CTLProcess> find(pid_t pid) const;
    // The ids of the processes that have this one as their parent, in ascending order.
    std::vector<pid_t> childrenOf(pid_t pid) const;
    std::vector<std::string> argumentsOf(pid_t pid) const;
    std::optional<int> descriptorsOf(pid_t pid) const;
    // Whether "exe" or "cwd" of the process is that file or folder.
    Link compare(pid_t pid, const char* link, const std::filesystem::path& file) const;
    // What such a link says; empty when it may not be read.
    std::string target(pid_t pid, const char* link) const;
    // All ids, in ascending order.
    std::vector<pid_t> all() const;
    // When the machine was started.
    std::time_t bootTime() const { return m_bootTime; }
    // How often a file or folder was opened or examined: the work that was done.
    std::size_t looks() const { return m_looks; }

  private:
    std::string read(const std::string& entry) const;
    std::string entry(pid_t pid, const char* name) const;
    void takeChildren(const std::filesystem::path& thread, std::vector<pid_t>& children) const;
    void takeChildrenByParent(pid_t pid, std::vector<pid_t>& children) const;

    std::filesystem::path m_root;
    std::time_t m_bootTime = 0;
    mutable std::size_t m_looks = 0;
};
