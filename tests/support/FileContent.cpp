#include "FileContent.h"

#include <fstream>
#include <sstream>

std::string contentOf(const std::filesystem::path& file) {
    const std::ifstream stream(file, std::ios::binary);
    std::ostringstream content;
    content << stream.rdbuf();
    return content.str();
}
