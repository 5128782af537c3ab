#include "FakeProc.h"

#include <unistd.h>

#include <fstream>

namespace fs = std::filesystem;

namespace {

void write(const fs::path& file, const std::string& text, bool append = false) {
    if (!fs::exists(file.parent_path())) fs::create_directories(file.parent_path());
    std::ofstream(file, append ? std::ios::app : std::ios::trunc) << text;
}

// The columns of "stat" up to the resident pages, of which there are 100; threads: 2.
std::string statOf(const FakeProcess& process) {
    const long long ticks = (process.started - FakeProc::kBoot) * sysconf(_SC_CLK_TCK);
    return std::to_string(process.pid) + " (" + process.name + ") " + process.state + " " +
           std::to_string(process.parent) + " 1 1 0 -1 0 0 0 0 0 0 0 0 0 20 0 2 0 " + std::to_string(ticks) +
           " 5000000 100 0 0\n";
}

}  // namespace

FakeProc::FakeProc(const fs::path& folder, bool withLists) : m_folder(folder), m_withLists(withLists) {
    write(m_folder / "stat", "cpu 1 2 3\nbtime " + std::to_string(kBoot) + "\nprocesses 5\n");
}

void FakeProc::add(const FakeProcess& process) {
    const fs::path folder = m_folder / std::to_string(process.pid);
    std::string words;
    for (const std::string& argument : process.arguments)
        words += argument + '\0';
    write(folder / "stat", statOf(process));
    write(folder / "cmdline", words);
    for (int file = 0; file < process.files; ++file)
        write(folder / "fd" / std::to_string(file), "");
    if (!process.exe.empty()) fs::create_symlink(process.exe, folder / "exe");
    if (!process.cwd.empty()) fs::create_symlink(process.cwd, folder / "cwd");
    if (m_withLists) listAsChild(process);
}

void FakeProc::listAsChild(const FakeProcess& process) const {
    const auto listOf = [&](pid_t pid) {
        const std::string id = std::to_string(pid);
        return m_folder / id / "task" / id / "children";
    };
    write(listOf(process.pid), "", true);
    write(listOf(process.parent), std::to_string(process.pid) + " ", true);
}
