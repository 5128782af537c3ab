#include "MarkdownBlocks.h"

#include <fstream>

std::vector<std::string> markdownBlocks(const std::string& page, const std::string& language) {
    std::ifstream lines(page);
    std::vector<std::string> blocks;
    bool inside = false;
    for (std::string line; std::getline(lines, line);) {
        if (inside && line == "```") {
            inside = false;
        } else if (inside) {
            blocks.back() += line + "\n";
        } else if (line == "```" + language) {
            blocks.emplace_back();
            inside = true;
        }
    }
    return blocks;
}
