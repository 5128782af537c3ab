// The command "log", and what it follows.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "CTLLogFollower.h"
#include "ExternalProgram.h"
#include "JsonCheck.h"
#include "ServiceUnderTest.h"
#include "TerminalProgram.h"
#include "TestKit.h"

namespace fs = std::filesystem;

namespace {

std::string lineOf(const std::string& text, const std::string& level = "INFO ") {
    return "Sat Nov 21 12:00:00 2026  " + level + " t[1a] Probe " + text + "\n";
}

// ---- Following ----

class LogFollowerTest : public testing::Test {
  protected:
    LogFollowerTest() { folder.write("logs/the.log", lineOf("before")); }

    void append(const std::string& text, const std::string& file = "logs/the.log") const {
        std::ofstream(folder.path(file), std::ios::app) << text;
    }
    // What is handed out by one look and the next, at which nothing more has come.
    static std::string texts(CTLLogFollower& follower) {
        std::string all;
        for (int look = 0; look < 2; ++look) {
            for (const CTLLogLine& line : follower.read())
                all += line.text + ",";
        }
        return all;
    }
    // As log rotation does it: copy, then empty.
    void rotate(const std::string& between = "") const {
        fs::copy_file(log(), log(".1"), fs::copy_options::overwrite_existing);
        append(between, "logs/the.log.1");
        fs::resize_file(log(), 0);
    }
    std::string log(const std::string& ending = "") const { return folder.path("logs/the.log" + ending); }

    InstallFolder folder;
};

TEST_F(LogFollowerTest, OnlyWhatIsNewIsHandedOut) {
    CTLLogFollower follower(log());
    EXPECT_EQ(texts(follower), "");
    append(lineOf("one") + lineOf("two"));
    EXPECT_EQ(texts(follower), "one,two,");
    EXPECT_EQ(texts(follower), "");
}

TEST_F(LogFollowerTest, ALineIsHandedOutWhenItIsWholeAndItsFurtherLinesWithIt) {
    CTLLogFollower follower(log());
    const std::string line = lineOf("whole");
    append(line.substr(0, 40));
    EXPECT_EQ(texts(follower), "");
    append(line.substr(40) + "and more\n");
    EXPECT_EQ(texts(follower), "whole\nand more,");
}

TEST_F(LogFollowerTest, AFileThatWasCopiedAndEmptiedLosesNoLine) {
    CTLLogFollower follower(log());
    append(lineOf("one"));
    EXPECT_EQ(texts(follower), "one,");
    append(lineOf("two"));
    rotate();
    append(lineOf("three"));
    EXPECT_EQ(texts(follower), "two,three,");
}

TEST_F(LogFollowerTest, AFileThatHasGrownAgainSinceItWasEmptiedIsNotTakenForTheOldOne) {
    CTLLogFollower follower(log());
    rotate();
    append(lineOf("longer than what was there before") + lineOf("two"));
    EXPECT_EQ(texts(follower), "longer than what was there before,two,");
}

TEST_F(LogFollowerTest, ACopyOfAnotherTimeIsNotRead) {
    folder.write("logs/the.log.1", std::string(1000, 'x') + "\n" + lineOf("old"));
    CTLLogFollower follower(log());
    fs::resize_file(log(), 0);
    append(lineOf("new"));
    EXPECT_EQ(texts(follower), "new,");
}

TEST_F(LogFollowerTest, AFileThatWasRenamedIsReadToItsEndAndThenTheNewOne) {
    CTLLogFollower follower(log());
    append(lineOf("one"));
    fs::rename(log(), log(".1"));
    folder.write("logs/the.log", lineOf("two"));
    EXPECT_EQ(texts(follower), "one,two,");
}

TEST_F(LogFollowerTest, AFileThatIsNotThereYetIsWaitedFor) {
    fs::remove(log());
    CTLLogFollower follower(log());
    EXPECT_EQ(texts(follower), "");
    append(lineOf("one"));
    EXPECT_EQ(texts(follower), "one,");
}

TEST_F(LogFollowerTest, APipeInTheLogsPlaceIsNotWaitedFor) {
    fs::remove(log());
    ASSERT_EQ(mkfifo(log().c_str(), 0600), 0);
    CTLLogFollower follower(log());
    EXPECT_EQ(texts(follower), "");
}

TEST_F(LogFollowerTest, OfALineWithoutAnEndOnlyTheBeginningIsKept) {
    CTLLogFollower follower(log());
    const std::string line = lineOf("long");
    append(line.substr(0, line.size() - 1) + std::string(3 * CTLLogFollower::kMostOfALine, 'x') + "\n");
    const std::string all = texts(follower);
    EXPECT_GT(all.size(), CTLLogFollower::kMostOfALine - 100);
    EXPECT_LT(all.size(), CTLLogFollower::kMostOfALine + 100);
}

// ---- The program ----

class LogCommandTest : public SystemTest {
  protected:
    LogCommandTest() {
        service.write("bin/zorlogconfig.xml",
                      "<log><run><logging level='INFO'><logFiles><file name='../logs/the.log' append='true'/>"
                      "</logFiles></logging></run></log>");
    }

    std::vector<std::string> command(const std::vector<std::string>& options) const {
        std::vector<std::string> all{VBS_BIN "/velbootstrapctl", "--instance", service.path(), "log"};
        all.insert(all.end(), options.begin(), options.end());
        return all;
    }
    std::string shown(const std::vector<std::string>& options, int exitCode = 0) const {
        ExternalProgram program(command(options));
        EXPECT_EQ(program.waitForEnd(), exitCode) << program.words();
        return program.words();
    }
    void log(const std::string& text) const { service.write("logs/the.log", text); }
    void append(const std::string& text) const {
        std::ofstream(service.path("logs/the.log"), std::ios::app) << text;
    }
};

TEST_F(LogCommandTest, TimesAreLocal) {
    log(lineOf("one"));
    ExternalProgram program(
        {"env", "TZ=Asia/Tokyo", VBS_BIN "/velbootstrapctl", "--instance", service.path(), "log"});
    EXPECT_EQ(program.waitForEnd(), 0);
    EXPECT_EQ(program.words(), "2026-11-21 21:00:00 INFO  Probe one\n");
}

TEST_F(LogCommandTest, LinesAreChosenByLevelChildTimeAndNumber) {
    const std::string died =
        "Sat Nov 21 12:00:01 2026  ERROR t[1a] PingChildProcess ping loop: process \"alpha\" is not active, "
        "so "
        "restarting it.\n";
    log(lineOf("one") + lineOf("two", "WARN ") + lineOf("three", "DEBUG") + died);
    EXPECT_EQ(shown({"--level", "warn"}).find("one"), std::string::npos);
    EXPECT_NE(shown({"--level", "warn"}).find("two"), std::string::npos);
    EXPECT_EQ(shown({"--child", "alpha", "-n5"}).find("Probe"), std::string::npos);
    EXPECT_NE(shown({"--child", "alpha"}).find("[alpha] PingChildProcess ping loop"), std::string::npos);
    EXPECT_EQ(shown({"-n", "1", "--level", "INFO"}).find("Probe"), std::string::npos);
    EXPECT_EQ(shown({"--child", "nobody"}, 1), "");
    EXPECT_EQ(shown({"--since", "2026-11-22"}, 1), "");
}

TEST_F(LogCommandTest, WhatIsNoTimeOrLevelIsAnErrorOfTheCommandLine) {
    EXPECT_EQ(shown({"--since", "soon"}, 64),
              "velbootstrapctl: --since: \"soon\" is no time; --help has examples\n");
    EXPECT_NE(shown({"--level", "loud"}, 64).find("--level"), std::string::npos);
}

TEST_F(LogCommandTest, ALogCannotSteerATerminalNorForgeALine) {
    log(lineOf("a\x1b[2Jb\x9b"
               "c") +
        "2026-11-21 12:00:00 FATAL forged\n");
    const std::string text = shown({});
    EXPECT_EQ(text.find('\x1b'), std::string::npos);
    EXPECT_NE(text.find("a?[2Jb?c\n    2026-11-21 12:00:00 FATAL forged\n"), std::string::npos) << text;
}

TEST_F(LogCommandTest, JsonIsAnObjectALineWhateverTheLogHolds) {
    log(lineOf("a\x1b\xff\"<\n") + lineOf("two"));
    const std::string json = shown({"--json"});
    EXPECT_EQ(jsonComplaints("velbootstrapctl-log", json, true), "");
    std::istringstream lines(json);
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    const nlohmann::json first = nlohmann::json::parse(line);
    EXPECT_EQ(first["time"], "2026-11-21T12:00:00Z");
    EXPECT_EQ(first["child"], nullptr);
    EXPECT_EQ(first["text"], "a\x1b\xef\xbf\xbd\"<\n");
}

TEST_F(LogCommandTest, FollowingShowsTheLastLinesAndThenWhatComesUntilCtrlC) {
    log(lineOf("before"));
    TerminalProgram program(command({"-f"}));
    program.waitFor("before");
    append(lineOf("after", "ERROR"));
    program.waitFor("after");
    EXPECT_NE(program.shown().find("\x1b[31mERROR"), std::string::npos) << program.shown();
    program.type("\x03");
    EXPECT_EQ(program.waitForEnd(), 130);
}

TEST_F(LogCommandTest, FollowingEndsWhenItsReaderHasGone) {
    log(lineOf("before"));
    std::string words;
    for (const std::string& word : command({"-f"}))
        words += word + " ";
    // Nothing more is written, so that no write can tell.
    ExternalProgram shell({"bash", "-c", words + "| head -n 1; echo \"${PIPESTATUS[0]}\""});
    EXPECT_EQ(shell.waitForEnd(), 0);
    EXPECT_NE(shell.words().find("before\n0\n"), std::string::npos) << shell.words();
}

TEST_F(LogCommandTest, WithoutALogThereIsNothingToShow) {
    EXPECT_EQ(shown({}, 1), "");
}

}  // namespace
