// What the log's lines are taken apart into.

#include "CTLLogLine.h"

#include <gtest/gtest.h>

#include <sstream>

#include "TestKit.h"
#include "ZORLogger.h"

TEST(LogLineTest, ALineIsTakenApart) {
    CTLLogLine line;
    ASSERT_TRUE(
        CTLLogLine::parse("Sat Nov 21 23:13:06 2026  INFO  t[1a2b] PingChildProcess all is well. ", line));
    EXPECT_EQ(line.time, 1795302786);
    EXPECT_EQ(line.level, "INFO");
    EXPECT_EQ(line.thread, "1a2b");
    EXPECT_EQ(line.logger, "PingChildProcess");
    EXPECT_EQ(line.text, "all is well. ");
}

TEST(LogLineTest, WhatDoesNotBeginAsALineBelongsToTheTextBeforeIt) {
    std::istringstream log(
        "torn end of a line\nSat Nov 21 23:13:06 2026  WARN  t[1] A one\ntwo\nSat Nov 21 23:13:07 2026  "
        "DEBUG t[1] B three\n");
    const std::vector<CTLLogLine> lines = CTLLogLine::read(log);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].text, "one\ntwo");
    EXPECT_EQ(lines[1].logger, "B");
}

TEST(LogLineTest, WhatTheLoggerWritesIsReadAtEachLevel) {
    const LogCapture log;
    ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("Probe");
    for (const int level : {ZOR_FATAL, ZOR_ERROR, ZOR_WARN, ZOR_INFO, ZOR_DEBUG})
        logger->log(level, "text %d", level);
    std::istringstream written(log.raw());
    const std::vector<CTLLogLine> lines = CTLLogLine::read(written);
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[0].level, "FATAL");
    EXPECT_EQ(lines[4].text, "text 4");
    EXPECT_EQ(lines[4].logger, "Probe");
}
