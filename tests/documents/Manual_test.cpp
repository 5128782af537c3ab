// The pages of the documentation: their XML examples are documents that the schemas accept, whole or in part.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "ExternalProgram.h"
#include "MarkdownBlocks.h"
#include "SchemaCheck.h"

namespace fs = std::filesystem;

namespace {

// What is around a part of a document.
struct Surroundings {
    const char* schema;
    std::string before;
    std::string after;
};

constexpr const char* kStart = "<start><spawn><path>/bin/true</path></spawn></start>";
constexpr const char* kStop = "<stop type=\"signal\"><signal signal=\"15\"/></stop>";
constexpr const char* kDaemonSpawn = "<daemonSpawn><path>/bin/true</path></daemonSpawn>";

const std::map<std::string, Surroundings>& knownParts() {
    static const std::string process = "<process name=\"a\">";
    static const std::string end = std::string("</process>") + kDaemonSpawn + "</bootstrap>";
    static const std::string whole = "<bootstrap>" + process;
    static const std::string a = process + kStart + kStop + "</process>";
    static const std::map<std::string, Surroundings> parts{
        {"bootstrap", {"bootstrap", "", ""}},
        {"logConfiguration", {"zorlogconfig", "", ""}},
        {"startupConfiguration", {"startup", "", ""}},
        {"process", {"bootstrap", "<bootstrap>", std::string(kDaemonSpawn) + "</bootstrap>"}},
        {"processManager", {"bootstrap", "<bootstrap>", a + kDaemonSpawn + "</bootstrap>"}},
        {"daemonSpawn", {"bootstrap", "<bootstrap>" + a, "</bootstrap>"}},
        {"start", {"bootstrap", whole, kStop + end}},
        {"stop", {"bootstrap", whole + kStart, end}},
        {"ping", {"bootstrap", whole + kStart + kStop, end}},
        {"spawn", {"bootstrap", whole + "<start>", "</start>" + std::string(kStop) + end}},
        {"path", {"bootstrap", whole + "<start><spawn>", "</spawn></start>" + std::string(kStop) + end}},
        {"param",
         {"bootstrap", whole + "<start><spawn><path>/bin/true</path>",
          "</spawn></start>" + std::string(kStop) + end}},
    };
    return parts;
}

// The name of the first element; comments and instructions before it are passed over.
std::string firstElement(const std::string& text) {
    std::size_t at = text.find('<');
    while (at != std::string::npos && (text[at + 1] == '!' || text[at + 1] == '?')) {
        const bool comment = text.compare(at, 4, "<!--") == 0;
        at = text.find('<', text.find(comment ? "-->" : ">", at));
    }
    if (at == std::string::npos) return {};
    return text.substr(at + 1, text.find_first_of(" \n/>", at) - at - 1);
}

// An example for another program, such as the servlet container, must at least be XML.
std::string complaintsOf(const std::string& block) {
    const auto part = knownParts().find(firstElement(block));
    if (part == knownParts().end()) return wellFormedComplaints(block);
    const auto& [schema, before, after] = part->second;
    return schemaComplaints(schema, before + block + after);
}

TEST(GuideExamplesTest, TheExamplesAreAccepted) {
    std::size_t examples = 0;
    std::vector<fs::path> pages{VBS_SOURCE_FOLDER "/README.md"};
    for (const auto& entry : fs::directory_iterator(VBS_SOURCE_FOLDER "/docs")) {
        if (entry.path().extension() == ".md") pages.push_back(entry.path());
    }
    for (const fs::path& page : pages) {
        for (const std::string& block : markdownBlocks(page.string(), "xml")) {
            EXPECT_EQ(complaintsOf(block), "") << page << "\n" << block;
            ++examples;
        }
    }
    EXPECT_GE(examples, 3U);
}

TEST(GuideExamplesTest, TheCommandsThatCheckADocumentWork) {
    const std::vector<std::string> blocks = markdownBlocks(VBS_SOURCE_FOLDER "/docs/configuration.md", "sh");
    ASSERT_EQ(blocks.size(), 1U);
    ExternalProgram shell({"sh", "-e", "-c", blocks[0]}, VBS_SOURCE_FOLDER);
    EXPECT_EQ(shell.waitForEnd(), 0) << shell.words();
    EXPECT_NE(shell.words().find("startup.xml validates"), std::string::npos) << shell.words();
}

TEST(GuideExamplesTest, AMistakeInAnExampleWouldBeFound) {
    for (const auto& [name, surroundings] : knownParts())
        EXPECT_NE(complaintsOf("<!-- a --><" + name + " mistake=\"1\"/>"), "") << name;
    EXPECT_NE(complaintsOf("<Connector>"), "");
    EXPECT_EQ(complaintsOf("<Connector port=\"1\"/>"), "");
}

}  // namespace
