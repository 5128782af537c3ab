#include "ResultTable.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace {

std::string joined(const std::vector<std::string>& cells, const char* between) {
    std::string line;
    for (const std::string& cell : cells)
        line += (line.empty() ? "" : between) + cell;
    return line;
}

// The first row brings the heading along.
bool append(const std::string& path, const std::string& heading, const std::string& row) {
    const int file = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (file < 0) return false;
    const bool isLocked = flock(file, LOCK_EX) == 0;
    const std::string text = (lseek(file, 0, SEEK_END) == 0 ? heading : "") + row;
    const bool isWritten = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    return close(file) == 0 && isLocked && isWritten;
}

}  // namespace

ResultTable::ResultTable(const std::string& name, const std::vector<std::string>& columns)
    : m_name(name), m_columns(columns) {}

// A bar would end the cell.
std::string ResultTable::markdown(std::vector<std::string> cells) {
    for (std::string& cell : cells) {
        std::replace(cell.begin(), cell.end(), '\n', ' ');
        for (std::size_t at = 0; (at = cell.find('|', at)) != std::string::npos; at += 2)
            cell.insert(at, "\\");
    }
    return "| " + joined(cells, " | ") + " |";
}

void ResultTable::add(const std::vector<std::string>& cells) const {
    std::printf("%s: %s\n", m_name.c_str(), joined(cells, " | ").c_str());
    const char* const folder = std::getenv("VBS_TABLES_DIR");
    if (folder == nullptr) return;
    const std::string rule = markdown(std::vector<std::string>(m_columns.size(), "---")) + "\n";
    const std::string path = std::string(folder) + "/" + m_name + ".md";
    if (!append(path, markdown(m_columns) + "\n" + rule, markdown(cells) + "\n"))
        throw std::runtime_error("cannot write " + path);
}
