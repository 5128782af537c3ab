// What messages mean, from the tables of the guide.

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "CTLGuide.h"
#include "CTLLogLine.h"
#include "CTLMessages.h"
#include "CTLTextPattern.h"
#include "ExternalProgram.h"
#include "Repository.h"
#include "ServiceUnderTest.h"

namespace {

// ---- Patterns ----

TEST(TextPatternTest, ValuesAreTakenFromTheirPlaces) {
    std::vector<std::string> values;
    const CTLTextPattern pattern = CTLTextPattern::ofFormat("process \"%s\" took %ld of %d %% ");
    ASSERT_TRUE(pattern.matches("process \"a \"b\" took -1 of 7 %%", &values));
    EXPECT_EQ(values, (std::vector<std::string>{"a \"b", "-1", "7"}));
    EXPECT_FALSE(pattern.matches("process \"a\" took 1 of 7 %% more"));
    EXPECT_FALSE(pattern.matches("process \"a"));
}

TEST(TextPatternTest, AValueMayBeEmptyAndStandAnywhere) {
    std::vector<std::string> values;
    ASSERT_TRUE(CTLTextPattern::ofPrinted("… lines, …").matches("3 lines, ", &values));
    EXPECT_TRUE(CTLTextPattern::ofPrinted("…").matches(""));
    EXPECT_FALSE(CTLTextPattern::ofPrinted("a…a").matches("a"));
    EXPECT_TRUE(CTLTextPattern::ofPrinted("a…a").matches("aa"));
}

// ---- The tables ----

class MessagesOfTheGuideTest : public testing::Test {
  protected:
    static std::string withValues(std::string text, const std::string& value) {
        return repository::replaced(std::move(text), "…", value);
    }
    static bool holds(const std::vector<const CTLMessage*>& found, const CTLMessage& message) {
        return std::find(found.begin(), found.end(), &message) != found.end();
    }
    std::string meaning(const std::string& text) const {
        const auto found = messages.find(text);
        return found.empty() ? "" : found.front()->meaning;
    }

    const CTLMessages messages;
};

TEST_F(MessagesOfTheGuideTest, TheGuideIsTheOneOfThisTree) {
    EXPECT_EQ(CTLGuide::operation, repository::read(repository::root() / "docs/operation.md"));
    EXPECT_EQ(CTLGuide::debug_messages, repository::read(repository::root() / "docs/debug-messages.md"));
    EXPECT_EQ(CTLGuide::transport, repository::read(repository::root() / "docs/transport.md"));
}

TEST_F(MessagesOfTheGuideTest, EachMessageIsFoundWithValuesInItsPlaces) {
    for (const CTLMessage& each : messages.all()) {
        EXPECT_FALSE(each.loggers.empty()) << each.text;
        const std::string line = "Sat Nov 21 12:00:00 2026  " + (each.level + " ").substr(0, 5) + " t[1a] " +
                                 each.loggers.front() + " " + withValues(each.text, "/some thing/4711");
        EXPECT_TRUE(holds(messages.find(line), each)) << line;
    }
    EXPECT_GT(messages.all().size(), 200U);
}

// A row is shown alone.
TEST_F(MessagesOfTheGuideTest, NoMeaningRefersToAnotherRow) {
    for (const CTLMessage& each : messages.all()) {
        EXPECT_EQ(each.meaning.find("likewise"), std::string::npos) << each.text;
        EXPECT_FALSE(each.meaning.starts_with("the same")) << each.text;
    }
    for (const CTLReason& each : messages.reasons()) {
        EXPECT_FALSE(each.texts.empty()) << each.meaning;
        EXPECT_EQ((each.meaning + each.remedy).find("as the next"), std::string::npos) << each.meaning;
    }
    EXPECT_GT(messages.reasons().size(), 40U);
}

TEST_F(MessagesOfTheGuideTest, TheMessageThatSaysMostIsTheOne) {
    const auto found = messages.find("ping of process alpha failed, fatal error happened.");
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found.front()->text, "ping of process … failed, fatal error happened.");
}

TEST_F(MessagesOfTheGuideTest, TheLoggerOfAPastedLineTellsTwoApart) {
    const auto found =
        messages.find("2026-11-21 12:00:00 DEBUG [a] ZORChildProcess Process \"a\" is still active.");
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found.front()->loggers.front(), "ZORChildProcess");
    EXPECT_EQ(messages.find("Process \"a\" is still active.").size(), 2U);
}

TEST_F(MessagesOfTheGuideTest, APartThatOnlyOneMessageHasIsEnough) {
    EXPECT_EQ(meaning("is not active, so"),
              meaning("ping loop: process \"x\" is not active, so restarting it."));
    EXPECT_EQ(meaning("process"), "");
    EXPECT_EQ(meaning(""), "");
}

TEST_F(MessagesOfTheGuideTest, ReasonsOfAFailedConnectionAreFoundInIt) {
    const auto reasons =
        messages.reasonsIn("failed to connect, SEK error: cannot resolve nowhere (IPv4): no answer in time ");
    ASSERT_FALSE(reasons.empty());
    EXPECT_EQ(reasons.front()->meaning, "the name server was silent for 10 s");
    EXPECT_TRUE(messages.reasonsIn("Done.").empty());
}

TEST_F(MessagesOfTheGuideTest, TheMostAlikeComeFirst) {
    const auto nearest = messages.nearest("process \"web\" was not active and was restarted", 3);
    ASSERT_EQ(nearest.size(), 3U);
    EXPECT_NE(nearest.front()->text.find("not active"), std::string::npos) << nearest.front()->text;
    EXPECT_TRUE(messages.nearest("xyzzy", 3).empty());
}

// ---- A real service ----

class ExplainTest : public SystemTest {};

TEST_F(ExplainTest, EachLineThatAServiceLogsIsExplained) {
    const ReservedPort port;
    BootstrapXml document;
    ChildXml alpha;
    alpha.pinged(port);
    document.children = {alpha, ChildXml{"beta"}};
    service.bootstrap(document);
    service.answer("READY");
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitForLog("DEBUG", "PingChildProcess", "process alpha pinged successfully."));
    stopDaemon(daemon);
    const CTLMessages messages;
    std::istringstream log(service.read("logs/run.log"));
    const std::vector<CTLLogLine> lines = CTLLogLine::read(log);
    for (const CTLLogLine& line : lines) {
        // The variables that "envp is..." announces.
        if (line.text.starts_with("JAVA_HOME=") || line.text.starts_with("PATH=")) continue;
        // Whoever pastes a line pastes its level and its class along.
        const auto found =
            messages.find("2026-11-21 12:00:00 " + line.level + " " + line.logger + " " + line.text);
        EXPECT_FALSE(found.empty()) << line.level << " " << line.logger << " " << line.text;
    }
    EXPECT_GT(lines.size(), 100U);
}

TEST_F(ExplainTest, TheProgramSaysWhatTheGuideSays) {
    ExternalProgram program(
        {VBS_BIN "/velbootstrapctl", "explain", "no response,", "SEK_Poll", "timed", "out."});
    EXPECT_EQ(program.waitForEnd(), 0);
    EXPECT_EQ(program.words(),
              "no response, SEK_Poll timed out.\n"
              "    ERROR of ZORSocketCommand\n"
              "    no answer in sockIOTimeoutSec: the child is busy or hangs\n");
}

TEST_F(ExplainTest, WhatIsNoMessageIsAnErrorWithThoseThatAreMostAlike) {
    ExternalProgram program({VBS_BIN "/velbootstrapctl", "explain", "daemon has stopped\x1b[2J working"});
    EXPECT_EQ(program.waitForEnd(), 1);
    EXPECT_NE(
        program.words().find("has no message \"daemon has stopped?[2J working\"; these are most like it:\n"),
        std::string::npos)
        << program.words();
    EXPECT_NE(program.words().find("Daemon has stopped.\n"), std::string::npos);
}

}  // namespace
