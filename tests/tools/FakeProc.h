// A proc file system made of plain files.
//
// Purpose: processes as a test wants them, for what reads them through CTLProcesses.
// Ownership: the folder belongs to the caller.
// Threads: one.
// Units: seconds since the epoch; the machine was started at kBoot.
// Errors: none; a file that cannot be written shows in the test's outcome.
#pragma once

#include <sys/types.h>

#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

struct FakeProcess {
    pid_t pid = 0;
    pid_t parent = 1;
    std::string name = "program";
    std::vector<std::string> arguments{};
    std::time_t started = 0;
    std::string exe{};
    std::string cwd{};
    char state = 'S';
    int files = 3;
};

class FakeProc {
  public:
    static constexpr std::time_t kBoot = 1795200000;

    // `withLists` as kernels usually have it: each thread lists its children.
    explicit FakeProc(const std::filesystem::path& folder, bool withLists = true);

    void add(const FakeProcess& process);
    const std::filesystem::path& path() const { return m_folder; }

  private:
    void listAsChild(const FakeProcess& process) const;

    std::filesystem::path m_folder;
    bool m_withLists;
};
