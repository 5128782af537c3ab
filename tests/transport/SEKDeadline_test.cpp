#include "SEKDeadline.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
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
