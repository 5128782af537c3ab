// The drawings show what their texts say.

#include <gtest/gtest.h>

#include <regex>

#include "Repository.h"
#include "SchemaCheck.h"

namespace fs = std::filesystem;

namespace {

std::string quoted(std::string text) {
    for (const auto& [plain, reference] : {std::pair{"&", "&amp;"},
                                           {"-", "&#45;"},
                                           {">", "&gt;"},
                                           {"<", "&lt;"},
                                           {"\\\"", "&quot;"},
                                           {"'", "&#39;"}}) {
        text = repository::replaced(text, plain, reference);
    }
    return text;
}

std::vector<std::string> pictures() {
    std::vector<std::string> names;
    for (const fs::path& text : repository::filesBelow("docs/pictures", ".dot"))
        names.push_back(text.stem().string());
    return names;
}

class PicturesTest : public testing::TestWithParam<std::string> {
  protected:
    void SetUp() override {
        m_text = repository::read(repository::root() / "docs/pictures" / (GetParam() + ".dot"));
        m_drawing = repository::read(repository::root() / "docs/pictures" / (GetParam() + ".svg"));
    }
    // The matches of the expression's first group in the text.
    std::vector<std::string> all(const std::string& expression) const {
        const std::regex pattern(expression);
        std::vector<std::string> found;
        for (std::sregex_iterator it(m_text.begin(), m_text.end(), pattern); it != std::sregex_iterator();
             ++it)
            found.push_back((*it)[1]);
        return found;
    }

    std::string m_text;
    std::string m_drawing;
};

TEST_P(PicturesTest, TheDrawingIsWellFormed) {
    EXPECT_EQ(wellFormedComplaints(m_drawing), "");
}

TEST_P(PicturesTest, EachNodeAndLineIsDrawn) {
    const std::vector<std::string> nodes = all("\n    \"([^\"]+)\" \\[pos=");
    const std::vector<std::string> lines = all("\n    (\"[^\"]+\" -> \"[^\"]+\")");
    EXPECT_GT(nodes.size(), 10U);
    EXPECT_GT(lines.size(), 5U);
    for (const std::string& node : nodes) {
        EXPECT_NE(m_drawing.find("<title>" + quoted(node) + "</title>"), std::string::npos) << node;
    }
    for (const std::string& line : lines) {
        const std::string title = repository::replaced(repository::replaced(line, " -> ", "->"), "\"", "");
        EXPECT_NE(m_drawing.find("<title>" + quoted(title) + "</title>"), std::string::npos) << line;
    }
}

TEST_P(PicturesTest, EachLabelIsDrawn) {
    const std::vector<std::string> labels = all("label=\"((?:[^\"\\\\]|\\\\.)*)\"");
    EXPECT_GT(labels.size(), 10U);
    for (const std::string& label : labels) {
        if (label == "\\N") continue;
        for (const std::string& line : repository::split(label, "\\n")) {
            if (line.empty()) continue;
            EXPECT_NE(m_drawing.find(">" + quoted(line) + "</text>"), std::string::npos) << label;
        }
    }
}

// So that the lines are seen on a dark page, too.
TEST_P(PicturesTest, TheDrawingHasAWhiteGround) {
    EXPECT_NE(m_drawing.find("<polygon fill=\"white\""), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(All, PicturesTest, testing::ValuesIn(pictures()),
                         [](const auto& picture) { return picture.param; });

}  // namespace
