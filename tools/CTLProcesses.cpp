#include "CTLProcesses.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <system_error>

#include "TVLDescriptor.h"

namespace fs = std::filesystem;

namespace {

// A process gives itself its command line; no honest one needs more to be told by.
constexpr std::size_t kMostBytes = std::size_t{1024} * 1024;

struct FolderCloser {
    void operator()(DIR* folder) const { closedir(folder); }
};
using FolderPtr = std::unique_ptr<DIR, FolderCloser>;

bool isNumber(const char* name) {
    return *name != '\0' && std::all_of(name, name + std::char_traits<char>::length(name),
                                        [](char c) { return c >= '0' && c <= '9'; });
}

// The numbers among the entries of a folder.
std::vector<pid_t> numbersIn(const fs::path& path) {
    std::vector<pid_t> numbers;
    const FolderPtr folder(opendir(path.c_str()));
    if (!folder) return numbers;
    while (const dirent* const entry = readdir(folder.get())) {
        if (isNumber(entry->d_name)) numbers.push_back(static_cast<pid_t>(std::atol(entry->d_name)));
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

// The value of the line "btime …".
std::time_t bootTimeIn(const std::string& text) {
    const std::size_t at = text.find("\nbtime ");
    return at == std::string::npos ? 0 : static_cast<std::time_t>(std::atoll(text.c_str() + at + 7));
}

// What follows the name in a process's "stat", which may itself hold blanks and brackets.
struct Columns {
    char state = 'X';
    long parent = 0;
    long threads = 0;
    unsigned long long startedTicks = 0;
    long residentPages = 0;
};

bool readColumns(const std::string& text, Columns& into) {
    std::istringstream columns(text);
    std::string passed;
    columns >> into.state >> into.parent;
    for (int column = 5; column < 20; ++column)
        columns >> passed;
    columns >> into.threads >> passed >> into.startedTicks >> passed >> into.residentPages;
    return !columns.fail();
}

}  // namespace

CTLProcesses::CTLProcesses(const fs::path& root) : m_root(root) {
    m_bootTime = bootTimeIn(read("stat"));
}

std::string CTLProcesses::entry(pid_t pid, const char* name) const {
    return std::to_string(pid) + "/" + name;
}

std::string CTLProcesses::read(const std::string& entry) const {
    ++m_looks;
    std::string text;
    const TVLDescriptor file(open((m_root / entry).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.isOpen()) return text;
    std::array<char, 16384> block{};
    while (text.size() < kMostBytes) {
        const ssize_t got = ::read(file.get(), block.data(), block.size());
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        text.append(block.data(), static_cast<std::size_t>(got));
    }
    return text;
}

std::optional<CTLProcess> CTLProcesses::find(pid_t pid) const {
    if (pid < 1) return std::nullopt;
    const std::string text = read(entry(pid, "stat"));
    const std::size_t begin = text.find('(');
    const std::size_t end = text.rfind(')');
    if (begin == std::string::npos || end == std::string::npos || end < begin) return std::nullopt;
    Columns columns;
    if (!readColumns(text.substr(end + 1), columns)) return std::nullopt;
    if (columns.state == 'Z' || columns.state == 'X') return std::nullopt;
    struct stat status {};
    ++m_looks;
    if (stat((m_root / std::to_string(pid)).c_str(), &status) != 0) return std::nullopt;
    const auto ticks = static_cast<unsigned long long>(sysconf(_SC_CLK_TCK));
    return CTLProcess{pid,
                      static_cast<pid_t>(columns.parent),
                      status.st_uid,
                      text.substr(begin + 1, end - begin - 1),
                      m_bootTime + static_cast<std::time_t>(columns.startedTicks / ticks),
                      std::int64_t{columns.residentPages} * sysconf(_SC_PAGESIZE),
                      static_cast<int>(columns.threads)};
}

void CTLProcesses::takeChildren(const fs::path& thread, std::vector<pid_t>& children) const {
    std::istringstream list(read((thread / "children").lexically_relative(m_root)));
    for (pid_t child = 0; list >> child;)
        children.push_back(child);
}

// For a kernel without lists of children: every process is asked for its parent.
void CTLProcesses::takeChildrenByParent(pid_t pid, std::vector<pid_t>& children) const {
    for (const pid_t other : all()) {
        const std::optional<CTLProcess> process = find(other);
        if (process && process->parent == pid) children.push_back(other);
    }
}

std::vector<pid_t> CTLProcesses::childrenOf(pid_t pid) const {
    const fs::path threads = m_root / entry(pid, "task");
    std::error_code error;
    std::vector<pid_t> children;
    if (fs::exists(threads / std::to_string(pid) / "children", error)) {
        ++m_looks;
        for (const pid_t thread : numbersIn(threads))
            takeChildren(threads / std::to_string(thread), children);
    } else {
        takeChildrenByParent(pid, children);
    }
    std::sort(children.begin(), children.end());
    return children;
}

std::vector<std::string> CTLProcesses::argumentsOf(pid_t pid) const {
    std::istringstream text(read(entry(pid, "cmdline")));
    std::vector<std::string> arguments;
    for (std::string argument; std::getline(text, argument, '\0');)
        arguments.push_back(argument);
    return arguments;
}

// The folder's size is the number, since Linux 6.2; before, it is 0.
std::optional<int> CTLProcesses::descriptorsOf(pid_t pid) const {
    const fs::path folder = m_root / entry(pid, "fd");
    struct stat status {};
    ++m_looks;
    if (access(folder.c_str(), R_OK) != 0 || stat(folder.c_str(), &status) != 0) return std::nullopt;
    if (status.st_size > 0 && m_root == "/proc") return static_cast<int>(status.st_size);
    ++m_looks;
    return static_cast<int>(numbersIn(folder).size());
}

CTLProcesses::Link CTLProcesses::compare(pid_t pid, const char* link, const fs::path& file) const {
    struct stat led {};
    struct stat wanted {};
    ++m_looks;
    const fs::path path = m_root / entry(pid, link);
    if (stat(path.c_str(), &led) != 0) return errno == EACCES ? Link::Unreadable : Link::Other;
    if (stat(file.c_str(), &wanted) != 0) return Link::Other;
    return led.st_dev == wanted.st_dev && led.st_ino == wanted.st_ino ? Link::Same : Link::Other;
}

std::string CTLProcesses::target(pid_t pid, const char* link) const {
    std::error_code error;
    ++m_looks;
    return fs::read_symlink(m_root / entry(pid, link), error).string();
}

std::vector<pid_t> CTLProcesses::all() const {
    ++m_looks;
    return numbersIn(m_root);
}
