#include "TVLOs.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace {

class TVLOsTest : public testing::Test {
  protected:
    static int statusOf(pid_t pid) {
        int status = 0;
        return waitpid(pid, &status, 0) == pid ? status : -1;
    }

    TVLOs& os = TVLOs::current();
};

TEST_F(TVLOsTest, ForksAndSignalsRealProcesses) {
    const pid_t child = os.fork();
    if (child == 0) {
        for (;;)
            pause();
    }
    ASSERT_GT(child, 0);
    EXPECT_EQ(os.kill(child, 0), 0);
    EXPECT_EQ(os.kill(child, SIGKILL), 0);
    const int status = statusOf(child);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
    EXPECT_EQ(os.kill(child, 0), -1);
    EXPECT_EQ(errno, ESRCH);
}

TEST_F(TVLOsTest, AChildExecutesAProgramWithItsArgumentsAndEnvironment) {
    const pid_t child = os.fork();
    if (child == 0) {
        char shell[] = "/bin/sh";
        char option[] = "-c";
        char script[] = "exit \"$CODE\"";
        char variable[] = "CODE=37";
        char* const arguments[] = {shell, option, script, nullptr};
        char* const environment[] = {variable, nullptr};
        os.execve("/bin/sh", arguments, environment);
        _exit(1);
    }
    const int status = statusOf(child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 37);
}

TEST_F(TVLOsTest, AFailedExecutionReturnsWithTheReason) {
    char* const nothing[] = {nullptr};
    errno = 0;
    EXPECT_EQ(os.execve("/none/at/all", nothing, nothing), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(TVLOsTest, ASessionOfItsOwnIsTheProcesss) {
    const pid_t child = os.fork();
    if (child == 0) _exit(os.setsid() == getpid() && getsid(0) == getpid() ? 0 : 1);
    EXPECT_EQ(statusOf(child), 0);
}

TEST_F(TVLOsTest, ExitProcessEndsTheProcessWithItsStatus) {
    const pid_t child = fork();
    if (child == 0) {
        ::close(STDOUT_FILENO);  // what the test runner has buffered is the parent's to print
        os.exitProcess(5);
    }
    const int status = statusOf(child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 5);
}

TEST_F(TVLOsTest, APendingSignalIsTaken) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    os.signalThread(pthread_self(), SIGUSR2);
    EXPECT_EQ(os.waitForSignal(signals), SIGUSR2);
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

TEST_F(TVLOsTest, TheRealOneComesBackWhenAReplacementGoes) {
    {
        class Other : public TVLOs {
          public:
            Other() { install(this); }
            ~Other() override { install(nullptr); }
        } other;
        EXPECT_EQ(&TVLOs::current(), &other);
    }
    EXPECT_EQ(&TVLOs::current(), &os);
}

}  // namespace
