// The links between the documents lead somewhere.

#include <gtest/gtest.h>

#include <cctype>
#include <regex>
#include <set>

#include "Repository.h"

namespace fs = std::filesystem;

namespace {

// The lines of a document without its blocks of code.
std::vector<std::string> proseOf(const fs::path& document) {
    std::vector<std::string> lines;
    bool inCode = false;
    for (const std::string& line : repository::split(repository::read(document), "\n")) {
        if (line.rfind("```", 0) == 0) inCode = !inCode;
        if (!inCode) lines.push_back(line);
    }
    return lines;
}

// What a heading is called in a link.
std::string anchorOf(const std::string& heading) {
    std::string anchor;
    for (const char c : heading) {
        if (c == ' ' || c == '-') anchor += '-';
        if (c == '_' || std::isalnum(static_cast<unsigned char>(c)) != 0) {
            anchor += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
    }
    return anchor;
}

std::set<std::string> anchorsOf(const fs::path& document) {
    static const std::regex heading("#+ (.*)");
    std::set<std::string> anchors;
    for (const std::string& line : proseOf(document)) {
        std::smatch match;
        if (std::regex_match(line, match, heading)) anchors.insert(anchorOf(match[1]));
    }
    return anchors;
}

struct Link {
    fs::path from;
    std::string target;
};

std::vector<Link> links() {
    // A text in brackets may go over the end of a line.
    static const std::regex link("\\]\\(([^)\\s]+)\\)");
    std::vector<Link> found;
    for (const fs::path& document : repository::filesBelow(".", ".md")) {
        for (const std::string& line : proseOf(document)) {
            for (std::sregex_iterator it(line.begin(), line.end(), link); it != std::sregex_iterator(); ++it)
                found.push_back({document, (*it)[1]});
        }
    }
    return found;
}

void expectToLeadSomewhere(const Link& link) {
    const std::size_t mark = link.target.find('#');
    const std::string file = link.target.substr(0, mark);
    const fs::path target = file.empty() ? link.from : link.from.parent_path() / file;
    ASSERT_TRUE(fs::exists(target)) << link.from << " links to " << link.target;
    if (mark == std::string::npos) return;
    EXPECT_EQ(anchorsOf(target).count(link.target.substr(mark + 1)), 1U)
        << link.from << " links to " << link.target << ", but no heading is called so";
}

TEST(LinksTest, EachLinkLeadsSomewhere) {
    std::size_t followed = 0;
    for (const Link& link : links()) {
        if (link.target.find("://") != std::string::npos) continue;
        expectToLeadSomewhere(link);
        ++followed;
    }
    EXPECT_GT(followed, 20U);
}

}  // namespace
