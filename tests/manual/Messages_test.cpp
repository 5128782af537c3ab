// The operation guide, and the page of what is logged at DEBUG, list every message of the service with its level, and no
// other.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <regex>
#include <set>

#include "Repository.h"
#include "SourceText.h"

namespace {

using repository::collapsed;

constexpr const char* kSomething = "…";

struct Row {
    std::vector<std::string> loggers;  // that the heading names
    std::string level;
    std::string message;
};

// What a message looks like in the guide: an ellipsis for each text or number that is put in.
std::string asPrinted(const std::string& text) {
    static const std::regex conversion("%[-0-9.]*l?[sdx]");
    return collapsed(std::regex_replace(text, conversion, kSomething));
}

bool hasWords(const std::string& printed) {
    return std::any_of(printed.begin(), printed.end(),
                       [](unsigned char c) { return c < 128 && std::isalpha(c) != 0; });
}

// Texts with a blank that are none of the log's: documents, the usage text, a name, what is left out on purpose.
bool isNoMessage(const std::string& printed) {
    static const std::set<std::string> others{"Velmora 8", "environment:", "… … t[…]"};
    return printed.find('<') != std::string::npos || others.count(printed) != 0 ||
           printed.rfind("velbootstrapservice - manage", 0) == 0;
}

bool haveOneInCommon(const std::vector<std::string>& some, const std::vector<std::string>& others) {
    return std::find_first_of(some.begin(), some.end(), others.begin(), others.end()) != some.end();
}

class MessagesTest : public testing::Test {
  protected:
    void SetUp() override {
        const std::string guide = repository::read(repository::root() / "docs/operation.md");
        const std::size_t begin = guide.find("\n## What each message means\n");
        ASSERT_NE(begin, std::string::npos);
        m_chapter = guide.substr(begin);
        m_debugPage = repository::read(repository::root() / "docs/debug-messages.md");
        readRows(m_chapter, std::regex("\\| ([A-Z]+) \\| `([^`]*)` \\|.*"));
        readRows(m_debugPage, std::regex("()\\| `([^`]*)` \\|.*"));
        for (const auto& file : repository::filesBelow("source", ".cpp"))
            m_sources.emplace(file.filename().string(), SourceText(repository::read(file)));
        ASSERT_GT(m_sources.size(), 15U);
    }

    // A row names its level, unless its page has one only.
    void readRows(const std::string& page, const std::regex& row) {
        static const std::regex name("`([A-Za-z]+)`");
        std::vector<std::string> loggers;
        for (const std::string& line : repository::split(page, "\n")) {
            std::smatch match;
            if (line.starts_with("##")) {
                loggers.clear();
                for (std::sregex_iterator it(line.begin(), line.end(), name); it != std::sregex_iterator();
                     ++it)
                    loggers.push_back((*it)[1]);
            } else if (std::regex_match(line, match, row)) {
                const std::string level = match[1].length() == 0 ? "DEBUG" : match[1].str();
                m_rows.push_back({loggers, level, collapsed(match[2])});
            }
        }
    }

    bool isListed(const SourceText& source, const std::string& level, const std::string& message) const {
        return std::any_of(m_rows.begin(), m_rows.end(), [&](const Row& row) {
            return row.level == level && row.message == message &&
                   haveOneInCommon(row.loggers, source.loggers());
        });
    }

    // All texts of the files that have one of these loggers, in order.
    std::string textsOf(const std::vector<std::string>& loggers) const {
        std::string texts;
        for (const auto& [file, source] : m_sources) {
            if (!haveOneInCommon(loggers, source.loggers())) continue;
            for (const SourceText::Literal& literal : source.literals())
                texts += " " + asPrinted(literal.text);
        }
        return collapsed(texts);
    }

    std::string m_chapter;
    std::string m_debugPage;
    std::vector<Row> m_rows;
    std::map<std::string, SourceText> m_sources;  // by file name
};

TEST_F(MessagesTest, EachMessageIsListedWithItsLevel) {
    std::size_t messages = 0;
    for (const auto& [file, source] : m_sources) {
        for (const SourceText::Literal& literal : source.literals()) {
            const std::string message = asPrinted(literal.text);
            if (literal.level.empty() || !hasWords(message)) continue;
            ++messages;
            EXPECT_TRUE(isListed(source, literal.level, message))
                << file << ": the guide does not list: " << literal.level << " " << message;
        }
    }
    EXPECT_GT(messages, 150U);
}

// Also those that are put together, or handed to a function that logs them.
TEST_F(MessagesTest, EachTextIsMentioned) {
    const std::string chapter = collapsed(m_chapter + m_debugPage);
    for (const auto& [file, source] : m_sources) {
        for (const SourceText::Literal& literal : source.literals()) {
            const std::string message = asPrinted(literal.text);
            if (message.find(' ') == std::string::npos || !hasWords(message) || isNoMessage(message))
                continue;
            EXPECT_NE(chapter.find(message), std::string::npos)
                << file << ": the guide does not mention: " << message;
        }
    }
}

TEST_F(MessagesTest, EachListedMessageExists) {
    std::map<std::vector<std::string>, std::string> texts;
    for (const Row& row : m_rows) {
        std::string& known = texts[row.loggers];
        if (known.empty()) known = textsOf(row.loggers);
        for (const std::string& part : repository::split(row.message, kSomething)) {
            EXPECT_NE(known.find(collapsed(part)), std::string::npos)
                << "no class says any longer: " << row.message;
        }
    }
    EXPECT_GT(m_rows.size(), 150U);
}

TEST_F(MessagesTest, TheGuideLeavesDebugLinesToTheirOwnPage) {
    EXPECT_EQ(m_chapter.find("| DEBUG |"), std::string::npos);
}

// Without the marks that join it to what stands before and after it.
std::string innerPart(const std::string& text) {
    constexpr const char* kMarks = " :;,.()\"'";
    const std::size_t begin = text.find_first_not_of(kMarks);
    if (begin == std::string::npos) return {};
    return collapsed(text.substr(begin, text.find_last_not_of(kMarks) + 1 - begin));
}

// In the guide, or in the security library's own chapter.
TEST_F(MessagesTest, EachReasonOfAFailedConnectionIsMentioned) {
    const std::string documents =
        collapsed(m_chapter + repository::read(repository::root() / "docs/transport.md"));
    std::size_t reasons = 0;
    for (const char* const file :
         {"SEKAddress", "SEKConfiguration", "SEKConnector", "SEKDeadline", "SEKEndpoint", "SEKErrors",
          "SEKFile", "SEKLibrary", "SEKRevocation", "SEKSettings", "SEKSocket", "SEKSocketOptions",
          "SEKTlsStream", "SEKTrust", "SEKUri", "SEKVerification"}) {
        const SourceText source(
            repository::read(repository::root() / "transport" / (std::string(file) + ".cpp")));
        for (const SourceText::Literal& literal : source.literals()) {
            const std::string reason = innerPart(literal.text);
            if (reason.find(' ') == std::string::npos) continue;
            ++reasons;
            EXPECT_NE(documents.find(reason), std::string::npos) << file << ": nobody explains: " << reason;
        }
    }
    EXPECT_GT(reasons, 40U);
}

}  // namespace
