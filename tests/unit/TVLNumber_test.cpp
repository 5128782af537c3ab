#include "TVLNumber.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kMax = std::numeric_limits<std::int32_t>::max();

TEST(TVLNumberTest, ReadsDecimalTextUpToTheFirstOtherCharacter) {
    EXPECT_EQ(TVLNumber::parse("42"), 42);
    EXPECT_EQ(TVLNumber::parse("  -42x"), -42);
    EXPECT_EQ(TVLNumber::parse("+7"), 7);
    EXPECT_EQ(TVLNumber::parse("12 34"), 12);
    EXPECT_EQ(TVLNumber::parse("010"), 10);
    EXPECT_EQ(TVLNumber::parse("0x10"), 0);
}

TEST(TVLNumberTest, TextWithoutDigitsIsZero) {
    for (const char* const text : {"", "abc", "-", "  ", "x5"})
        EXPECT_EQ(TVLNumber::parse(text), 0) << text;
}

TEST(TVLNumberTest, ValuesBeyondThirtyTwoBitsAreTheNearestOnes) {
    EXPECT_EQ(TVLNumber::parse("2147483647"), kMax);
    EXPECT_EQ(TVLNumber::parse("2147483648"), kMax);
    EXPECT_EQ(TVLNumber::parse("-2147483648"), kMin);
    EXPECT_EQ(TVLNumber::parse("-2147483649"), kMin);
    EXPECT_EQ(TVLNumber::parse("99999999999999999999999999"), kMax);
    EXPECT_EQ(TVLNumber::parse("-99999999999999999999999999"), kMin);
}

TEST(TVLNumberTest, SecondsBecomeMillisecondsWithoutOverflow) {
    EXPECT_EQ(TVLNumber::secondsToMs(0), 0);
    EXPECT_EQ(TVLNumber::secondsToMs(30), 30000);
    EXPECT_EQ(TVLNumber::secondsToMs(-1), -1000);
    EXPECT_EQ(TVLNumber::secondsToMs(2147483), 2147483000);
    EXPECT_EQ(TVLNumber::secondsToMs(2147484), kMax);
    EXPECT_EQ(TVLNumber::secondsToMs(kMax), kMax);
    EXPECT_EQ(TVLNumber::secondsToMs(kMin), kMin);
}

}  // namespace
