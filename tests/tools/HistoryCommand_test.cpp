// The command "history": sums, JSON, and the page for a browser.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "CTLHistoryPage.h"
#include "CTLRecord.h"
#include "ExternalProgram.h"
#include "JsonCheck.h"
#include "SchemaCheck.h"
#include "ServiceUnderTest.h"

namespace fs = std::filesystem;

namespace {

using Kind = CTLEvent::Kind;

constexpr std::time_t kNoon = 1795262400;

CTLEvent event(std::time_t time, Kind kind, const std::string& child = {}, const std::string& text = {}) {
    return {time, child, kind, text, std::nullopt};
}

std::size_t countOf(const std::string& text, const std::string& word) {
    std::size_t count = 0;
    for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1))
        ++count;
    return count;
}

// ---- Sums ----

TEST(RecordTest, EventsAreSummedUpPerChildInTheOrderOfTheDocument) {
    std::vector<CTLEvent> events{
        event(kNoon, Kind::PingFailed, "beta"),        event(kNoon + 1, Kind::Died, "alpha"),
        event(kNoon + 1, Kind::Restarted, "alpha"),    event(kNoon + 2, Kind::Killed),
        event(kNoon + 3, Kind::PingAnswered, "alpha"), event(kNoon + 4, Kind::PingAnswered, "alpha")};
    events[4].seconds = 1;
    events[5].seconds = 4;
    const CTLRecord record = CTLRecord::of(events, {"alpha", "quiet"}, kNoon, kNoon + 9);
    ASSERT_EQ(record.children.size(), 4U);
    EXPECT_EQ(record.children[0].restarts, 1);
    EXPECT_EQ(record.children[0].deaths, 1);
    EXPECT_EQ(record.children[0].meanSec, 2.5);
    EXPECT_EQ(record.children[0].longestSec, 4);
    EXPECT_EQ(record.children[0].lastRestart, kNoon + 1);
    EXPECT_EQ(record.children[1].name, "quiet");
    EXPECT_EQ(record.children[2].failedPings, 1);
    EXPECT_EQ(record.children[3].name, "");
    EXPECT_EQ(record.children[3].killed, 1);
}

TEST(RecordTest, RunsWithoutABeginningOrAnEndAreRunsAsFarAsTheLogTells) {
    const CTLRecord record = CTLRecord::of(
        {event(10, Kind::ServiceStopped), event(20, Kind::ServiceStarted), event(30, Kind::ServiceStarted)},
        {}, 5, 40);
    ASSERT_EQ(record.runs.size(), 3U);
    EXPECT_EQ(record.runs[0].from, 5);
    EXPECT_EQ(record.runs[0].until, 10);
    EXPECT_FALSE(record.runs[0].isOpen);
    EXPECT_EQ(record.runs[1].until, 30);
    EXPECT_EQ(record.runs[2].until, 40);
    EXPECT_TRUE(record.runs[2].isOpen);
}

// ---- The page ----

TEST(HistoryPageTest, WhateverALogHoldsIsTextAndNoMarkup) {
    const std::string hostile = "<script>alert(1)</script>\"'&\x1b\xff<img src=x onerror=alert(1)>";
    const CTLRecord record = CTLRecord::of({event(kNoon, Kind::PingFailed, hostile, hostile),
                                            event(kNoon + 1, Kind::Restarted, hostile, hostile)},
                                           {hostile}, kNoon, kNoon + 60);
    const std::string page = CTLHistoryPage::of(record, hostile, true);
    EXPECT_EQ(page.find("<script"), std::string::npos);
    EXPECT_EQ(page.find("<img"), std::string::npos);
    EXPECT_NE(page.find("&lt;script&gt;alert(1)"), std::string::npos);
    EXPECT_EQ(wellFormedComplaints(page), "");
    // Nothing is loaded, and the browser is told so.
    EXPECT_NE(page.find("default-src 'none'"), std::string::npos);
    for (const char* const loading : {"http:", "https:", "href=", "url(", "@import", "<link"})
        EXPECT_EQ(page.find(loading), std::string::npos) << loading;
}

TEST(HistoryPageTest, TheDrawingsDoNotGrowWithTheLog) {
    std::vector<CTLEvent> events;
    for (int i = 0; i < 100000; ++i)
        events.push_back(event(kNoon + i, i % 9 == 0 ? Kind::Restarted : Kind::PingFailed, "alpha", "why"));
    const std::string page =
        CTLHistoryPage::of(CTLRecord::of(events, {}, kNoon, kNoon + 100000), "many", true);
    EXPECT_LT(countOf(page, "<rect"), 1200U);
    EXPECT_LT(page.size(), 500000U);
}

TEST(HistoryPageTest, ATimeWithoutALengthAndAnEmptyHistoryCanBeDrawn) {
    const std::string page = CTLHistoryPage::of(CTLRecord::of({}, {"alpha"}, kNoon, kNoon), "empty", false);
    EXPECT_EQ(wellFormedComplaints(page), "");
    EXPECT_NE(page.find("the log is longer than what was read of it"), std::string::npos);
    EXPECT_NE(page.find("good pings at level DEBUG only"), std::string::npos);
}

// ---- The program ----

class HistoryCommandTest : public SystemTest {
  protected:
    HistoryCommandTest() {
        const ReservedPort port;
        BootstrapXml document;
        document.children = {ChildXml{}.pinged(port)};
        service.bootstrap(document);
        service.write("bin/zorlogconfig.xml",
                      "<log><run><logging level='INFO'><logFiles><file name='../logs/the.log' append='true'/>"
                      "</logFiles></logging></run></log>");
        service.write(
            "logs/the.log",
            "Sat Nov 21 12:00:00 2026  INFO  t[1] ZORBootstrapService Velmora Bootstrap Service running as "
            "process 77.\n"
            "Sat Nov 21 12:00:05 2026  ERROR t[2] ZORSocketCommand no response,  SEK_Poll timed out.\n"
            "Sat Nov 21 12:00:09 2026  ERROR t[2] PingChildProcess ping loop: process \"alpha\" is not "
            "active, "
            "so restarting it.\n"
            "Sat Nov 21 12:01:00 2026  INFO  t[3] ZORBootstrapService Done.\n");
    }

    std::string given(const std::vector<std::string>& options, int exitCode = 0) const {
        std::vector<std::string> command{"env",        "TZ=UTC",       VBS_BIN "/velbootstrapctl",
                                         "--instance", service.path(), "history"};
        command.insert(command.end(), options.begin(), options.end());
        ExternalProgram program(command);
        EXPECT_EQ(program.waitForEnd(), exitCode) << program.words();
        return program.words();
    }
};

TEST_F(HistoryCommandTest, TheTableHasALineForEachChild) {
    const std::string table = given({});
    EXPECT_NE(table.find("1 run of the service\n"), std::string::npos) << table;
    EXPECT_NE(
        table.find("\nalpha  1         1     0       1             -                    2026-11-21 12:00:09  "
                   "2026-11-21 12:00:05\n"),
        std::string::npos)
        << table;
    EXPECT_NE(table.find("good pings are logged at level DEBUG only"), std::string::npos);
    EXPECT_NE(given({"--events"}).find("12:00:05 alpha ping failed: no response,"), std::string::npos);
}

TEST_F(HistoryCommandTest, JsonIsAsItsSchemaHasIt) {
    const std::string text = given({"--json"});
    EXPECT_EQ(jsonComplaints("velbootstrapctl-history", text), "");
    const nlohmann::json json = nlohmann::json::parse(text);
    EXPECT_EQ(json["children"][0]["failedPings"], 1);
    EXPECT_EQ(json["runs"][0]["until"], "2026-11-21T12:01:00Z");
    EXPECT_EQ(json["events"].size(), 5U);
    const nlohmann::json other = nlohmann::json::parse(given({"--json", "--child", "other"}));
    EXPECT_EQ(other["children"].size(), 1U);
    EXPECT_EQ(other["runs"], json["runs"]);
}

TEST_F(HistoryCommandTest, ThePageIsWrittenWholeOrNotAtAll) {
    const std::string file = service.path("temp/page.html");
    service.write("temp/page.html", "before");
    EXPECT_EQ(given({"--html", file}), "Written to " + file + "\n");
    EXPECT_EQ(wellFormedComplaints(service.read("temp/page.html")), "");
    struct stat status {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0640U);
    EXPECT_NE(given({"--html", service.path("nowhere/page.html")}, 70).find("No such file or directory"),
              std::string::npos);
    for (const auto& entry : fs::directory_iterator(service.path("temp")))
        EXPECT_FALSE(entry.path().filename().string().starts_with("page.html.")) << entry.path();
    EXPECT_EQ(given({"--html", "-"}).substr(0, 15), "<!DOCTYPE html>");
}

TEST_F(HistoryCommandTest, ATimeOfWhichTheLogHasNothingIsSaid) {
    EXPECT_EQ(given({"--since", "2026-11-22"}, 1), "velbootstrapctl: the log has nothing of that time\n");
    EXPECT_NE(given({"--json", "--html", "x"}, 64).find("--html"), std::string::npos);
}

}  // namespace
