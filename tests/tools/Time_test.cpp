// Times as people type them.

#include "CTLTime.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "CTLText.h"

namespace {

class TimeTest : public testing::Test {
  protected:
    TimeTest() { zone("Europe/Berlin"); }
    ~TimeTest() override { zone("UTC"); }

    static void zone(const char* name) {
        setenv("TZ", name, 1);
        tzset();
    }
    // In UTC, or "none".
    static std::string parsed(const std::string& text) {
        const auto time = CTLTime::parse(text, kNow);
        return time ? CTLText::utc(*time) : "none";
    }

    static constexpr std::time_t kNow = 1795262400;  // 2026-11-21 13:00:00 in Berlin
};

TEST_F(TimeTest, ADayAndATimeAreLocal) {
    EXPECT_EQ(parsed("2026-11-21 14:30:05"), "2026-11-21T13:30:05Z");
    EXPECT_EQ(parsed("2026-07-01T14:30"), "2026-07-01T12:30:00Z");
    EXPECT_EQ(parsed("2026-11-20"), "2026-11-19T23:00:00Z");
    EXPECT_EQ(parsed("9:05"), "2026-11-21T08:05:00Z");
}

TEST_F(TimeTest, WordsAndSpansCountFromNow) {
    EXPECT_EQ(parsed("today"), "2026-11-20T23:00:00Z");
    EXPECT_EQ(parsed("yesterday"), "2026-11-19T23:00:00Z");
    EXPECT_EQ(parsed("90s"), "2026-11-21T11:58:30Z");
    EXPECT_EQ(parsed("15m ago"), "2026-11-21T11:45:00Z");
    EXPECT_EQ(parsed("6h"), "2026-11-21T06:00:00Z");
    EXPECT_EQ(parsed("2d"), "2026-11-19T12:00:00Z");
    EXPECT_EQ(parsed("1w"), "2026-11-14T12:00:00Z");
    EXPECT_EQ(parsed("99999999w"), "1970-01-01T00:00:00Z");
}

TEST_F(TimeTest, WhatNoCalendarOrClockHasIsNoTime) {
    for (const char* const text : {"", " ", "soon", "2026-02-30", "2026-13-01", "24:00", "12:60", "1x", "-5m",
                                   "99999999999999999999d", "2026-11-21 14:30:99"}) {
        EXPECT_EQ(parsed(text), "none") << text;
    }
}

}  // namespace
