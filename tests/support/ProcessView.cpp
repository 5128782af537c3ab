#include "ProcessView.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <sstream>

#include "FileContent.h"

namespace fs = std::filesystem;

namespace {

// Columns of /proc/<pid>/stat.
constexpr std::size_t kParent = 4;
constexpr std::size_t kGroup = 5;
constexpr std::size_t kSession = 6;

fs::path folderOf(pid_t pid) {
    return fs::path("/proc") / std::to_string(pid);
}

}  // namespace

std::string ProcessView::content(const std::string& entry) const {
    return contentOf(folderOf(m_pid) / entry);
}

std::string ProcessView::commandLine() const {
    std::string command = content("cmdline");
    std::replace(command.begin(), command.end(), '\0', ' ');
    return command;
}

std::string ProcessView::target(const std::string& link) const {
    std::error_code error;
    return fs::read_symlink(folderOf(m_pid) / link, error).string();
}

std::size_t ProcessView::entriesOf(const std::string& folder) const {
    std::error_code error;
    const fs::directory_iterator entries(folderOf(m_pid) / folder, error);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

std::string ProcessView::field(const std::string& text, const std::string& key) {
    const std::size_t at = ("\n" + text).find("\n" + key + ":");
    if (at == std::string::npos) return "";
    const std::size_t from = text.find_first_not_of("\t ", at + key.size() + 1);
    return text.substr(from, text.find('\n', from) - from);
}

std::string ProcessView::status(const std::string& key) const {
    return field(content("status"), key);
}

std::string ProcessView::stat(std::size_t column) const {
    const std::string line = content("stat");
    // The second column, the program's name in brackets, may hold blanks and brackets.
    const std::size_t nameEnd = line.rfind(')');
    if (nameEnd == std::string::npos) return "";
    std::istringstream rest(line.substr(nameEnd + 1));
    std::string value;
    for (std::size_t at = 3; at <= column; ++at)
        rest >> value;
    return value;
}

pid_t ProcessView::parent() const {
    return std::atoi(stat(kParent).c_str());
}

pid_t ProcessView::group() const {
    return std::atoi(stat(kGroup).c_str());
}

pid_t ProcessView::session() const {
    return std::atoi(stat(kSession).c_str());
}

std::vector<int> ProcessView::descriptorNumbers() const {
    std::vector<int> numbers;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folderOf(m_pid) / "fd", error))
        numbers.push_back(std::atoi(entry.path().filename().c_str()));
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

std::string ProcessView::descriptors() const {
    std::string lines;
    for (const int number : descriptorNumbers())
        lines += std::to_string(number) + " " + target("fd/" + std::to_string(number)) + "\n";
    return lines;
}

std::string ProcessView::inheritableDescriptors() const {
    std::string lines;
    for (const int number : descriptorNumbers()) {
        const std::string flags = field(content("fdinfo/" + std::to_string(number)), "flags");
        const bool stays = (std::strtoul(flags.c_str(), nullptr, 8) & O_CLOEXEC) != 0;
        if (number > STDERR_FILENO && !stays)
            lines += std::to_string(number) + " " + target("fd/" + std::to_string(number)) + "\n";
    }
    return lines;
}

std::vector<std::string> ProcessView::environment() const {
    std::istringstream entries(content("environ"));
    std::vector<std::string> variables;
    for (std::string entry; std::getline(entries, entry, '\0');)
        variables.push_back(entry);
    return variables;
}
