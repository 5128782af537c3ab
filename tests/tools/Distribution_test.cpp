// The distribution of answers' times, and the time-out that follows from it; texts of all outputs.

#include "CTLDistribution.h"

#include <gtest/gtest.h>

#include "CTLText.h"

TEST(DistributionTest, WithoutAnswersThereIsNothingToSay) {
    const CTLDistribution none;
    EXPECT_EQ(none.maximum(), 0);
    EXPECT_EQ(none.timeoutSec(), 0);
}

TEST(DistributionTest, ThePlacesAreThoseOfTheSortedTimes) {
    CTLDistribution times;
    for (int ms = 100; ms >= 1; --ms)
        times.add(ms * 1000);
    EXPECT_EQ(times.minimum(), 1000);
    EXPECT_EQ(times.median(), 50000);
    EXPECT_EQ(times.percentile95(), 95000);
    EXPECT_EQ(times.maximum(), 100000);
}

TEST(DistributionTest, OfOneAnswerEverythingIsThatAnswer) {
    CTLDistribution times;
    times.add(7000);
    EXPECT_EQ(times.minimum(), 7000);
    EXPECT_EQ(times.percentile95(), 7000);
    EXPECT_EQ(times.maximum(), 7000);
}

TEST(DistributionTest, TheTimeOutLeavesRoom) {
    CTLDistribution quick;
    quick.add(1000);
    EXPECT_EQ(quick.timeoutSec(), 1);
    CTLDistribution steady;
    for (int times = 0; times < 100; ++times)
        steady.add(900000);
    EXPECT_EQ(steady.timeoutSec(), 3);  // three times 0.9 s
    steady.add(9000000);
    EXPECT_EQ(steady.timeoutSec(), 18);  // twice the slowest
}

TEST(DistributionTest, TheOldestTimesAreForgotten) {
    CTLDistribution times;
    times.add(1);
    for (std::size_t added = 0; added < CTLDistribution::kMost; ++added)
        times.add(5);
    EXPECT_EQ(times.count(), CTLDistribution::kMost);
    EXPECT_EQ(times.minimum(), 5);
}

TEST(TextTest, TimesAndSizesAreShort) {
    EXPECT_EQ(CTLText::age(59), "59 s");
    EXPECT_EQ(CTLText::age(3 * 60 + 4), "3 min 04 s");
    EXPECT_EQ(CTLText::age(5 * 3600 + 7 * 60), "5 h 07 min");
    EXPECT_EQ(CTLText::age(12 * 86400 + 3 * 3600), "12 d 03 h");
    EXPECT_EQ(CTLText::age(-5), "0 s");
    EXPECT_EQ(CTLText::size(824000), "824 kB");
    EXPECT_EQ(CTLText::size(12400000), "12.4 MB");
    EXPECT_EQ(CTLText::duration(350), "0.35 ms");
    EXPECT_EQ(CTLText::duration(12000), "12 ms");
    EXPECT_EQ(CTLText::duration(2500000), "2.5 s");
    EXPECT_EQ(CTLText::utc(0), "1970-01-01T00:00:00Z");
}

TEST(TextTest, WhatCannotBeShownIsNot) {
    EXPECT_EQ(CTLText::printable("a\x1b[2Jb\n\x7f"), "a?[2Jb??");
    EXPECT_EQ(CTLText::printable("gr\xc3\xbc\xc3\x9f \xe2\x82\xac"), "gr\xc3\xbc\xc3\x9f \xe2\x82\xac");
    EXPECT_EQ(CTLText::printable("\xc2\x9b\xff\xc3"), "????");
    EXPECT_EQ(CTLText::escaped("a\"\\\r\n\t\x01\xff"), R"(a\"\\\r\n\t\x01\xff)");
    EXPECT_EQ(CTLText::hexadecimal("\x01\xff"), "01ff");
}
