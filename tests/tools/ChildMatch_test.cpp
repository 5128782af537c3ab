// Which process is which child, told from outside.

#include "CTLChildMatch.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using Results = std::vector<CTLChildMatch::Result>;

Results match(const std::vector<CTLWantedChild>& children, const std::vector<CTLFoundProcess>& processes,
              const std::map<std::string, CTLStartInLog>& starts = {}) {
    return CTLChildMatch::match(children, processes, starts);
}

}  // namespace

TEST(ChildMatchTest, TheSameCommandLineTellsWhoseProcessItIs) {
    const Results results =
        match({{"one", {"/bin/server", "--port=1"}}, {"two", {"/bin/server", "--port=2"}}},
              {{11, 0, {"/bin/server", "--port=2"}}, {12, 0, {"/bin/server", "--port=1"}}});
    EXPECT_EQ(results[0].by, CTLMatch::CommandLine);
    EXPECT_EQ(results[0].process, 1U);
    EXPECT_EQ(results[1].process, 0U);
}

TEST(ChildMatchTest, AProgramStartedThroughAnotherIsToldByTheEndOfItsCommandLine) {
    const Results results =
        match({{"script", {"/usr/bin/env", "--default-signal", "/bin/job", "7", "3600"}},
               {"java", {"/usr/bin/env", "-i", "/jvm/java", "Main", "3600"}}},
              {{11, 0, {"/jvm/java", "Main", "3600"}}, {12, 0, {"/bin/sh", "/bin/job", "7", "3600"}}});
    EXPECT_EQ(results[0].by, CTLMatch::Arguments);
    EXPECT_EQ(results[0].process, 1U);
    EXPECT_EQ(results[1].by, CTLMatch::Arguments);
    EXPECT_EQ(results[1].process, 0U);
}

TEST(ChildMatchTest, AnEndThatSeveralChildrenHaveInCommonTellsNothing) {
    const Results results = match({{"one", {"/bin/one", "start"}}, {"two", {"/bin/two", "start"}}},
                                  {{11, 0, {"/bin/three", "start"}}, {12, 0, {"/bin/four", "start"}}});
    EXPECT_EQ(results[0].by, CTLMatch::None);
    EXPECT_EQ(results[1].by, CTLMatch::None);
}

TEST(ChildMatchTest, WhatIsLeftOverBelongsTogether) {
    const Results results = match({{"one", {"/bin/one"}}, {"renamed", {"/bin/two"}}},
                                  {{11, 0, {"two: master process"}}, {12, 0, {"/bin/one"}}});
    EXPECT_EQ(results[1].by, CTLMatch::Elimination);
    EXPECT_EQ(results[1].process, 0U);
}

TEST(ChildMatchTest, TwoThatAreLeftOverCannotBeTold) {
    const Results results =
        match({{"one", {"/bin/one"}}, {"two", {"/bin/two"}}}, {{11, 0, {"x"}}, {12, 0, {"y"}}});
    EXPECT_EQ(results[0].by, CTLMatch::None);
    EXPECT_EQ(results[1].by, CTLMatch::None);
}

TEST(ChildMatchTest, ChildrenStartedWithTheSameWordsAreAlike) {
    const Results results = match({{"one", {"/bin/w"}}, {"two", {"/bin/w"}}, {"other", {"/bin/x"}}},
                                  {{11, 0, {"/bin/w"}}, {12, 0, {"/bin/w"}}, {13, 0, {"/bin/x"}}});
    EXPECT_EQ(results[0].alike, 2U);
    EXPECT_EQ(results[1].alike, 2U);
    EXPECT_EQ(results[2].alike, 1U);
    EXPECT_NE(results[0].process, results[1].process);
}

TEST(ChildMatchTest, TheLogTellsAlikeChildrenApart) {
    const Results results =
        match({{"one", {"/bin/w"}}, {"two", {"/bin/w"}}}, {{11, 100, {"/bin/w"}}, {12, 100, {"/bin/w"}}},
              {{"one", {12, 99, 101}}, {"two", {11, 99, 101}}});
    EXPECT_EQ(results[0].by, CTLMatch::Log);
    EXPECT_EQ(results[0].process, 1U);
    EXPECT_EQ(results[1].process, 0U);
    EXPECT_EQ(results[0].alike, 1U);
}

TEST(ChildMatchTest, AnIdFromTheLogThatWasUsedAgainLaterTellsNothing) {
    const Results results =
        match({{"one", {"/bin/w"}}, {"two", {"/bin/v"}}}, {{11, 5000, {"/bin/v"}}}, {{"one", {11, 99, 101}}});
    EXPECT_EQ(results[0].by, CTLMatch::None);
    EXPECT_EQ(results[1].by, CTLMatch::CommandLine);
}

TEST(ChildMatchTest, ArgumentsAreNotMixedUpWithTheBlanksInThem) {
    const Results results = match({{"one", {"/bin/w", "a b"}}, {"two", {"/bin/w", "a", "b"}}},
                                  {{11, 0, {"/bin/w", "a", "b"}}, {12, 0, {"/bin/w", "a b"}}});
    EXPECT_EQ(results[0].process, 1U);
    EXPECT_EQ(results[1].process, 0U);
}

TEST(ChildMatchTest, TheLastStartThatTheLogTellsCounts) {
    std::istringstream log(
        "Sat Nov 21 12:00:00 2026  DEBUG t[a] ZORChildProcess starting process \"one\"\n"
        "Sat Nov 21 12:00:00 2026  DEBUG t[b] ZORChildProcess starting process \"two\"\n"
        "Sat Nov 21 12:00:01 2026  DEBUG t[a] ZORSpawnAction Started process, pid = 11\n\n"
        "Sat Nov 21 12:00:02 2026  DEBUG t[b] ZORSpawnAction Started process, pid = 12\n\n"
        "Sat Nov 21 13:00:00 2026  DEBUG t[b] ZORChildProcess starting process \"one\"\n"
        "Sat Nov 21 13:00:01 2026  DEBUG t[b] ZORSpawnAction Started process, pid = 21\n\n");
    const auto starts = CTLChildMatch::startsIn(CTLLogLine::read(log));
    ASSERT_EQ(starts.size(), 2U);
    EXPECT_EQ(starts.at("one").pid, 21);
    EXPECT_EQ(starts.at("one").until - starts.at("one").from, 1);
    EXPECT_EQ(starts.at("two").pid, 12);
}
