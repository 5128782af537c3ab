#include "SEKSocketOptions.h"

#include <gtest/gtest.h>
#include <sys/time.h>

#include "SEKDescriptor.h"
#include "SEKErrors.h"

namespace {

SEKDescriptor newSocket() {
    return SEKDescriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

int valueOf(int descriptor, int option) {
    int value = -1;
    socklen_t length = sizeof value;
    SEKSocketOptions().get(descriptor, option, &value, length);
    return value;
}

void set(SEKSocketOptions& options, int descriptor, int option, int value) {
    options.set(descriptor, option, &value, sizeof value);
}

TEST(SEKSocketOptionsTest, ANewDescriptorGetsWhatWasSetLast) {
    const SEKDescriptor first = newSocket();
    SEKSocketOptions options;
    set(options, first.get(), SO_OOBINLINE, 1);
    set(options, first.get(), SO_KEEPALIVE, 1);
    set(options, first.get(), SO_KEEPALIVE, 0);
    const SEKDescriptor second = newSocket();
    options.applyTo(second.get());
    EXPECT_EQ(valueOf(second.get(), SO_OOBINLINE), 1);
    EXPECT_EQ(valueOf(second.get(), SO_KEEPALIVE), 0);
}

TEST(SEKSocketOptionsTest, AnOptionThatIsSetManyTimesIsGivenOnce) {
    const SEKDescriptor first = newSocket();
    SEKSocketOptions options;
    for (int i = 0; i < 1'000; ++i)
        set(options, first.get(), SO_KEEPALIVE, i % 2);
    EXPECT_EQ(options.count(), 1U);
}

TEST(SEKSocketOptionsTest, ARefusedOptionIsNotRemembered) {
    const SEKDescriptor first = newSocket();
    SEKSocketOptions options;
    EXPECT_THROW(set(options, first.get(), 9999, 1), SEKFailure);
    EXPECT_EQ(options.count(), 0U);
}

TEST(SEKSocketOptionsTest, TheTimeLimitsNeverReachTheSystem) {
    const SEKDescriptor descriptor = newSocket();
    SEKSocketOptions options;
    EXPECT_EQ(options.sendLimitMs(), 60'000);
    EXPECT_EQ(options.receiveLimitMs(), -1);
    const timeval limit{1, 500'001};
    options.set(descriptor.get(), SO_SNDTIMEO, &limit, sizeof limit);
    options.set(descriptor.get(), SO_RCVTIMEO, &limit, sizeof limit);
    EXPECT_EQ(options.sendLimitMs(), 1'501);
    EXPECT_EQ(options.receiveLimitMs(), 1'501);
    timeval systems{9, 9};
    socklen_t length = sizeof systems;
    ASSERT_EQ(getsockopt(descriptor.get(), SOL_SOCKET, SO_RCVTIMEO, &systems, &length), 0);
    EXPECT_EQ(systems.tv_sec, 0);
    EXPECT_EQ(options.count(), 0U);
}

TEST(SEKSocketOptionsTest, ALimitOfZeroIsNone) {
    SEKSocketOptions options;
    const timeval none{};
    options.set(-1, SO_SNDTIMEO, &none, sizeof none);
    EXPECT_EQ(options.sendLimitMs(), -1);
    timeval told{9, 9};
    socklen_t length = sizeof told;
    options.get(-1, SO_SNDTIMEO, &told, length);
    EXPECT_EQ(told.tv_sec, 0);
    EXPECT_EQ(told.tv_usec, 0);
}

}  // namespace
