#include "Repository.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace repository {

fs::path root() {
    return VBS_REPOSITORY;
}

std::string read(const fs::path& file) {
    const std::ifstream stream(file, std::ios::binary);
    if (!stream) throw std::runtime_error("cannot read " + file.string());
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

std::vector<fs::path> filesBelow(const std::string& folder, const std::string& extension) {
    std::vector<fs::path> files;
    // Without dots, so that the build folder is known by its path.
    const fs::path top = (root() / folder).lexically_normal();
    for (auto entry = fs::recursive_directory_iterator(top); entry != fs::recursive_directory_iterator();
         ++entry) {
        const std::string name = entry->path().filename().string();
        if (entry->is_directory() && (name.front() == '.' || entry->path() == root() / "build")) {
            entry.disable_recursion_pending();
        } else if (entry->is_regular_file() && entry->path().extension() == extension) {
            files.push_back(entry->path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::string collapsed(const std::string& text) {
    std::string result;
    std::istringstream words(text);
    for (std::string word; words >> word;)
        result += (result.empty() ? "" : " ") + word;
    return result;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

std::vector<std::string> split(const std::string& text, const std::string& separator) {
    std::vector<std::string> parts;
    std::size_t begin = 0;
    for (std::size_t end = text.find(separator); end != std::string::npos;
         end = text.find(separator, begin)) {
        parts.push_back(text.substr(begin, end - begin));
        begin = end + separator.size();
    }
    parts.push_back(text.substr(begin));
    return parts;
}

}  // namespace repository
