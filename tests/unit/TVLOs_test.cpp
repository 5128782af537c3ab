#include "TVLOs.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>

#include "TVLThread.h"

#include "FailingOs.h"

namespace {

class TVLOsTest : public testing::Test {
  protected:
    static int statusOf(pid_t pid) {
        int status = 0;
        return waitpid(pid, &status, 0) == pid ? status : -1;
    }

    static bool isOccupied(int descriptor) {
        char byte = 0;
        return fcntl(descriptor, F_GETFD) == FD_CLOEXEC && write(descriptor, "x", 1) == -1 &&
               errno == EBADF && read(descriptor, &byte, 1) == -1 && errno == EBADF;
    }

    TVLOs& os = TVLOs::current();
};

TEST_F(TVLOsTest, FoldersAreMadeWithAllThatTheyLieIn) {
    std::string root = testing::TempDir() + "vbs_folders_XXXXXX";
    ASSERT_NE(mkdtemp(root.data()), nullptr);
    const std::string folder = root + "/one/two";
    EXPECT_EQ(os.makeFolders(folder.c_str()), 0);
    EXPECT_TRUE(std::filesystem::is_directory(folder));
    EXPECT_EQ(os.makeFolders(folder.c_str()), 0) << "they are there";
    EXPECT_EQ(os.makeFolders("/proc/self/status/three"), -1);
    EXPECT_EQ(errno, ENOTDIR);
    std::filesystem::remove_all(root);
}

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

TEST_F(TVLOsTest, AWaitWithoutLimitIsNeverOver) {
    std::mutex mutex;
    std::condition_variable condition;
    std::unique_lock<std::mutex> lock(mutex);
    class Waking : public TVLThread {
      public:
        Waking(std::mutex& m, std::condition_variable& c)
            : TVLThread(nullptr, 0), m_mutex(m), m_condition(c) {
            start();
        }
        ~Waking() override { Waking::join(); }
        void run() override {
            const std::lock_guard<std::mutex> guard(m_mutex);
            TVLOs::current().wakeAll(m_condition);
        }

      private:
        std::mutex& m_mutex;
        std::condition_variable& m_condition;
    } const waking(mutex, condition);
    EXPECT_TRUE(os.waitUntil(condition, lock, TVLOs::kForever));
    lock.unlock();
}

// Many times: what would end up to a millisecond early does so every other time.
TEST_F(TVLOsTest, NoPauseIsShorterThanTold) {
    using namespace std::chrono;
    for (int i = 0; i < 300; ++i) {
        const milliseconds told(i % 5 + 1);
        const auto before = steady_clock::now();
        os.sleepMs(told.count());
        ASSERT_GE(nanoseconds(steady_clock::now() - before).count(), nanoseconds(told).count());
    }
}

TEST_F(TVLOsTest, AClosedStandardStreamsNumberIsTaken) {
    const pid_t child = fork();
    if (child == 0) {
        ::close(STDIN_FILENO);
        ::close(STDOUT_FILENO);
        TVLOs::occupyStandardStreams();
        const int next = dup(STDERR_FILENO);
        _exit(isOccupied(STDIN_FILENO) && isOccupied(STDOUT_FILENO) && next > STDERR_FILENO ? 0 : 1);
    }
    EXPECT_EQ(statusOf(child), 0);
}

TEST_F(TVLOsTest, OpenStandardStreamsStayAsTheyAre) {
    const pid_t child = fork();
    if (child == 0) {
        const int before = dup(STDERR_FILENO);
        ::close(before);
        TVLOs::occupyStandardStreams();
        const bool kept = fcntl(STDOUT_FILENO, F_GETFD) == 0 && fcntl(STDERR_FILENO, F_GETFD) == 0;
        _exit(kept && dup(STDERR_FILENO) == before ? 0 : 1);
    }
    EXPECT_EQ(statusOf(child), 0);
}

TEST_F(TVLOsTest, TheRealOneComesBackWhenAReplacementGoes) {
    {
        const FailingOs other;
        EXPECT_EQ(&TVLOs::current(), &other);
    }
    EXPECT_EQ(&TVLOs::current(), &os);
}

}  // namespace
