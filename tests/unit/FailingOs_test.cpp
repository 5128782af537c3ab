#include "FailingOs.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <set>
#include <string>

#include "VirtualOs.h"

namespace {

bool refused(int result, int error) {
    return result == -1 && errno == error;
}

TEST(FailingOsTest, RefusesOneCallOfAKind) {
    FailingOs os;
    os.failNth(OsKind::Duplicate, 2, EMFILE);
    for (const bool isRefused : {false, true, false}) {
        const int copy = TVLOs::current().dup(STDIN_FILENO);
        EXPECT_EQ(refused(copy, EMFILE), isRefused);
        if (copy >= 0) close(copy);
    }
    EXPECT_EQ(os.uses(OsKind::Duplicate), 3);
    EXPECT_EQ(os.refusals(OsKind::Duplicate), 1);
}

TEST(FailingOsTest, RefusesAllFromOneOnUntilItIsReset) {
    FailingOs os;
    os.failFrom(OsKind::TestProcess, 2, EPERM);
    EXPECT_EQ(os.kill(getpid(), 0), 0);
    EXPECT_TRUE(refused(os.kill(getpid(), 0), EPERM));
    EXPECT_TRUE(refused(os.kill(getpid(), 0), EPERM));
    os.reset();
    EXPECT_EQ(os.uses(OsKind::TestProcess), 0);
    EXPECT_EQ(os.kill(getpid(), 0), 0);
}

TEST(FailingOsTest, LeavesOtherKindsAlone) {
    FailingOs os;
    os.failFrom(OsKind::Open, 1, EMFILE);
    EXPECT_TRUE(refused(os.openat(AT_FDCWD, "/", O_PATH, 0), EMFILE));
    EXPECT_EQ(os.getpid(), getpid());
    EXPECT_EQ(os.kill(getpid(), 0), 0);
    EXPECT_EQ(os.uses(OsKind::Signal), 0) << "a test whether it lives is none";
}

TEST(FailingOsTest, StandsBeforeAVirtualSystemAsWell) {
    VirtualOs below;
    {
        FailingOs os;
        os.failNth(OsKind::Fork, 1, EAGAIN);
        EXPECT_TRUE(refused(TVLOs::current().fork(), EAGAIN));
        const pid_t child = TVLOs::current().fork();
        EXPECT_EQ(child, below.lastPid());
        TVLOs::current().sleepMs(500);
    }
    EXPECT_EQ(&TVLOs::current(), &below);
    EXPECT_EQ(below.nowMs(), 500);
}

TEST(FailingOsTest, EachKindHasANameOfItsOwn) {
    std::set<std::string> names;
    for (const OsKind kind : kOsKinds)
        names.insert(testing::PrintToString(kind));
    EXPECT_EQ(names.size(), kOsKinds.size());
    EXPECT_EQ(names.count("StartThread"), 1U);
}

}  // namespace
