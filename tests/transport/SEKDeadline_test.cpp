#include "SEKDeadline.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <limits>

#include "SEKDescriptor.h"

namespace {

TEST(SEKDeadlineTest, NegativeLimitsAreNone) {
    EXPECT_EQ(SEKDeadline(-1).remainingMs(), -1);
    EXPECT_FALSE(SEKDeadline(-1).expired());
    EXPECT_EQ(SEKDeadline(-1).share(3).remainingMs(), -1);
}

TEST(SEKDeadlineTest, ZeroHasPassedAtOnce) {
    EXPECT_EQ(SEKDeadline(0).remainingMs(), 0);
    EXPECT_TRUE(SEKDeadline(0).expired());
}

TEST(SEKDeadlineTest, HugeLimitsDoNotOverflow) {
    EXPECT_GT(SEKDeadline(std::numeric_limits<std::int64_t>::max()).remainingMs(), 1'000'000'000);
}

TEST(SEKDeadlineTest, AttemptsShareTheTimeThatIsLeft) {
    const int share = SEKDeadline(9'000).share(3).remainingMs();
    EXPECT_LE(share, 3'000);
    EXPECT_GT(share, 2'000);
    EXPECT_GT(SEKDeadline(9'000).share(1).remainingMs(), 8'000);
}

TEST(SEKDeadlineTest, TheEarlierOfTwoHolds) {
    const SEKDeadline soon(1'000);
    const SEKDeadline later(100'000);
    const SEKDeadline never(-1);
    EXPECT_LE(soon.butNotAfter(later).remainingMs(), 1'000);
    EXPECT_LE(later.butNotAfter(soon).remainingMs(), 1'000);
    EXPECT_LE(never.butNotAfter(soon).remainingMs(), 1'000);
    EXPECT_NE(never.butNotAfter(soon).remainingMs(), -1);
    EXPECT_LE(soon.butNotAfter(never).remainingMs(), 1'000);
    EXPECT_EQ(never.butNotAfter(never).remainingMs(), -1);
}

// Whatever fraction of a millisecond the clock stands at.
TEST(SEKWaitTest, NoWaitEndsEarly) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    const SEKDescriptor reader(ends[0]);
    const SEKDescriptor writer(ends[1]);
    for (int i = 0; i < 50; ++i) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_FALSE(SEKWait::waitFor(reader.get(), POLLIN, SEKDeadline(2)));
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2));
    }
}

// A peer that never pauses must not be able to keep a loop of waits going.
TEST(SEKWaitTest, TheEndOfTimeCountsMoreThanReadiness) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    const SEKDescriptor reader(ends[0]);
    const SEKDescriptor writer(ends[1]);
    ASSERT_EQ(write(writer.get(), "x", 1), 1);
    EXPECT_FALSE(SEKWait::waitFor(reader.get(), POLLIN, SEKDeadline(0)));
}

TEST(SEKWaitTest, TellsReadinessFromTheEndOfTime) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    const SEKDescriptor reader(ends[0]);
    const SEKDescriptor writer(ends[1]);
    EXPECT_FALSE(SEKWait::waitFor(reader.get(), POLLIN, SEKDeadline(0)));
    EXPECT_FALSE(SEKWait::waitFor(reader.get(), POLLIN, SEKDeadline(5)));
    ASSERT_EQ(write(writer.get(), "x", 1), 1);
    EXPECT_TRUE(SEKWait::waitFor(reader.get(), POLLIN, SEKDeadline(-1)));
}

}  // namespace
