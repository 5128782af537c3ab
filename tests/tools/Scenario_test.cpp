// The text that says what is to happen.

#include "CTLScenario.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "CTLError.h"

namespace {

using Kind = CTLScenarioStep::Kind;

CTLScenario scenarioOf(const std::string& text) {
    std::istringstream lines(text);
    return CTLScenario::read(lines, "day.txt");
}

CTLScenarioStep stepOf(const std::string& line) {
    const CTLScenario scenario = scenarioOf(line);
    EXPECT_EQ(scenario.steps().size(), 1U) << line;
    return scenario.steps().empty() ? CTLScenarioStep{} : scenario.steps().front();
}

std::string complaintsOf(const std::string& text) {
    try {
        scenarioOf(text);
    } catch (const CTLError& error) {
        EXPECT_EQ(error.exitCode(), CTLScenario::kBadScenario);
        return error.what();
    }
    return {};
}

constexpr std::int64_t kHourMs = 3600000;

}  // namespace

TEST(ScenarioTest, EachKindOfTroubleIsUnderstood) {
    const std::pair<const char*, Kind> kinds[] = {{"at 02:00 alpha dies", Kind::Dies},
                                                  {"at 02:00 alpha silent", Kind::Silent},
                                                  {"at 02:00 alpha refuses", Kind::Refuses},
                                                  {"at 02:00 alpha freezes", Kind::Freezes},
                                                  {"at 02:00 alpha answers", Kind::Answers},
                                                  {"at 02:00 alpha slow by 3 s", Kind::Slow},
                                                  {"at 02:00 alpha listens after 3 s", Kind::ListensAfter},
                                                  {"at 02:00 alpha stops in 3 s", Kind::StopsIn},
                                                  {"at 02:00 alpha ignores stops", Kind::StopsIn}};
    for (const auto& [line, kind] : kinds) {
        const CTLScenarioStep step = stepOf(line);
        EXPECT_EQ(step.kind, kind) << line;
        EXPECT_EQ(step.child, "alpha") << line;
        EXPECT_EQ(step.atMs, 2 * kHourMs) << line;
        EXPECT_EQ(step.ms.has_value(), std::string(line).ends_with("3 s")) << line;
        EXPECT_EQ(step.ms.value_or(3000), 3000) << line;
        EXPECT_FALSE(step.untilMs) << line;
    }
}

TEST(ScenarioTest, TroubleLastsForATimeOrUntilOne) {
    EXPECT_EQ(stepOf("at 02:00 alpha silent for 90 s").untilMs, 2 * kHourMs + 90000);
    EXPECT_EQ(stepOf("at 02:00 alpha silent for 90s").untilMs, 2 * kHourMs + 90000);
    EXPECT_EQ(stepOf("at 02:00 alpha slow by 1 s for 2 min").untilMs, 2 * kHourMs + 120000);
    EXPECT_EQ(stepOf("at 02:00 alpha freezes for 3 h").untilMs, 5 * kHourMs);
    EXPECT_EQ(stepOf("at 02:00 alpha refuses for 1 d").untilMs, 26 * kHourMs);
    EXPECT_EQ(stepOf("at 02:00 alpha refuses until 02:00:01").untilMs, 2 * kHourMs + 1000);
    EXPECT_EQ(stepOf("at 23:59:59 alpha answers until 24:00").untilMs, 24 * kHourMs);
}

TEST(ScenarioTest, NamesAndAnswersMayStandInQuotes) {
    const CTLScenarioStep step =
        stepOf("\tat 0:05  \"the \\\"first\\\"\"   answers \"NOT\\n\\\\ YET\" for 1 s # so\r");
    EXPECT_EQ(step.child, "the \"first\"");
    EXPECT_EQ(step.text, "NOT\n\\ YET");
    EXPECT_EQ(step.atMs, 300000);
    EXPECT_EQ(stepOf("at 00:00 \"service\" dies").child, "service");
}

TEST(ScenarioTest, StepsAreInTheOrderOfTheirTimes) {
    const CTLScenario scenario =
        scenarioOf("# later first\n\nat 03:00 beta dies\nat 02:00 alpha dies\nat 03:00 alpha dies\n");
    std::string order;
    for (const CTLScenarioStep& step : scenario.steps())
        order += std::to_string(step.line) + " ";
    EXPECT_EQ(order, "4 3 5 ");
    EXPECT_EQ(scenario.endMs(), 3 * kHourMs);
}

TEST(ScenarioTest, TheServiceStartsAtMidnightUnlessToldOtherwise) {
    EXPECT_EQ(scenarioOf("").startMs(), 0);
    EXPECT_FALSE(scenarioOf("").stopMs());
    const CTLScenario scenario = scenarioOf("at 08:00 service starts\nat 09:00 service stops");
    EXPECT_EQ(scenario.startMs(), 8 * kHourMs);
    EXPECT_EQ(scenario.stopMs(), 9 * kHourMs);
    EXPECT_TRUE(scenario.steps().empty());
}

TEST(ScenarioTest, EachBadLineIsNamedWithItsReason) {
    const std::pair<const char*, const char*> lines[] = {
        {"on 02:00 alpha dies", "\"on\" stands where \"at\" is expected"},
        {"at", "ends where a time is expected"},
        {"at 2 alpha dies", "\"2\" is no time: HH:MM or HH:MM:SS, 366 days at most"},
        {"at 02:60 alpha dies", "\"02:60\" is no time: HH:MM or HH:MM:SS, 366 days at most"},
        {"at 02:0 alpha dies", "\"02:0\" is no time: HH:MM or HH:MM:SS, 366 days at most"},
        {"at 02:00:00:00 alpha dies", "\"02:00:00:00\" is no time: HH:MM or HH:MM:SS, 366 days at most"},
        {"at -1:00 alpha dies", "\"-1:00\" is no time: HH:MM or HH:MM:SS, 366 days at most"},
        {"at 8784:01 alpha dies", "\"8784:01\" is no time: HH:MM or HH:MM:SS, 366 days at most"},
        {"at 02:00", "ends where a child or \"service\" is expected"},
        {"at 02:00 alpha", "ends where what happens to it is expected"},
        {"at 02:00 alpha flies",
         "\"flies\" does not happen to a child: dies, silent, refuses, freezes, answers, slow, listens, "
         "stops, ignores"},
        {"at 02:00 alpha dies twice", "\"twice\" is one word too many"},
        {"at 02:00 alpha dies for 3 s", "\"for\" is one word too many"},
        {"at 02:00 alpha silent for 3", "ends where s, min, h or d is expected"},
        {"at 02:00 alpha silent for 3 x", "\"3 x\" is no duration: a number and s, min, h or d"},
        {"at 02:00 alpha silent for -3 s", "\" -3\" is no duration: a number and s, min, h or d"},
        {"at 02:00 alpha silent for 99999999999999999999 s",
         "\"99999999999999999999 s\" is no duration: a number and s, min, h or d"},
        {"at 02:00 alpha silent for 367 d", "\"367 d\" is no duration: a number and s, min, h or d"},
        {"at 02:00 alpha silent until 02:00", "ends before it begins"},
        {"at 02:00 alpha silent for 0 s", "ends before it begins"},
        {"at 02:00 alpha slow", "ends where \"by\" is expected"},
        {"at 02:00 alpha answers READY", "\"READY\" is one word too many"},
        {"at 02:00 alpha answers \"READY", "the quote is not closed"},
        {"at 02:00 alpha answers \"\\x\"", "unknown escape in the quotes"},
        {"at 02:00 service sleeps", "\"sleeps\" stands where \"stops\" is expected"}};
    for (const auto& [line, reason] : lines)
        EXPECT_EQ(complaintsOf(std::string("\n") + line), std::string("day.txt:2: ") + reason) << line;
}

TEST(ScenarioTest, AllBadLinesAreTold) {
    EXPECT_EQ(
        complaintsOf("x\nat 01:00 alpha dies\ny"),
        "day.txt:1: \"x\" stands where \"at\" is expected\nday.txt:3: \"y\" stands where \"at\" is expected");
}

TEST(ScenarioTest, WhatLiesOutsideOfTheServicesLifeIsAMistake) {
    EXPECT_EQ(complaintsOf("at 08:00 service starts\nat 07:00 alpha dies"),
              "day.txt:2: comes before the service starts");
    EXPECT_EQ(complaintsOf("at 08:00 service stops\nat 09:00 alpha dies"),
              "day.txt:2: comes after the service stops");
    EXPECT_EQ(complaintsOf("at 08:00 service stops\nat 09:00 service stops"),
              "day.txt:2: the service stops twice");
    EXPECT_EQ(complaintsOf("at 08:00 service starts\nat 08:00 service starts"),
              "day.txt:2: the service starts twice");
    EXPECT_EQ(complaintsOf("at 08:00 service starts\nat 07:00 service stops"),
              "day.txt: the service stops before it starts");
}

TEST(ScenarioTest, ATextWithoutAnEndIsNotReadToItsEnd) {
    EXPECT_EQ(complaintsOf(std::string(10001, '\n')), "day.txt: is too long");
    EXPECT_EQ(complaintsOf("#" + std::string(std::size_t{2} << 20, 'x')), "day.txt: is too long");
}
