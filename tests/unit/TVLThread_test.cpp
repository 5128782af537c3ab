#include "TVLThread.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>

#include "TVLOs.h"
#include "VirtualOs.h"

namespace {

constexpr std::size_t kStackSize = std::size_t{512} * 1024;

class Runnable : public TVLThreadRunnable {
  public:
    explicit Runnable(std::function<void()> body) : m_body(std::move(body)) {}
    void run() override { m_body(); }

  private:
    std::function<void()> m_body;
};

void runInAThread(const std::function<void()>& body, std::size_t stackSize = kStackSize) {
    Runnable runnable(body);
    TVLThread thread(&runnable, stackSize);
    thread.start();
    thread.join();
}

std::size_t ownStackSize() {
    pthread_attr_t attributes;
    std::size_t size = 0;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &size);
    pthread_attr_destroy(&attributes);
    return size;
}

TEST(TVLThreadTest, RunsItsRunnableOnAnotherThread) {
    pthread_t ranOn = pthread_self();
    runInAThread([&] { ranOn = pthread_self(); });
    EXPECT_EQ(pthread_equal(ranOn, pthread_self()), 0);
}

TEST(TVLThreadTest, ADerivedClassRunsItself) {
    struct Own : TVLThread {
        Own() : TVLThread(nullptr, kStackSize) {}
        ~Own() override { Own::join(); }
        void run() override { ran = true; }
        std::atomic<bool> ran{false};
    } thread;
    thread.start();
    thread.join();
    EXPECT_TRUE(thread.ran);
}

TEST(TVLThreadTest, WithoutARunnableThereIsNothingToRun) {
    TVLThread thread(nullptr, kStackSize);
    thread.start();
    thread.join();
    EXPECT_FALSE(thread.isAlive());
}

// More than the system's default, and than any other thread here asks for: the system hands out the stacks of
// ended threads again, which may be bigger than asked.
TEST(TVLThreadTest, TheStackIsAsBigAsAsked) {
    constexpr std::size_t kAsked = std::size_t{23} * 1024 * 1024;
    std::size_t got = 0;
    runInAThread([&] { got = ownStackSize(); }, kAsked);
    EXPECT_EQ(got, kAsked);
}

TEST(TVLThreadTest, AStackBelowTheSystemsLeastIsTheLeast) {
    bool ran = false;
    runInAThread([&] { ran = true; }, 1);
    EXPECT_TRUE(ran);
}

TEST(TVLThreadTest, AnExceptionEndsOnlyItsThread) {
    struct NoException {};
    bool reached = false;
    runInAThread([&] {
        reached = true;
        throw std::runtime_error("ends the thread");
    });
    EXPECT_TRUE(reached);
    runInAThread([] { throw NoException(); });
}

TEST(TVLThreadTest, IsAliveFromStartToTheEndOfRun) {
    TVLThreadSemaphore goOn(0);
    Runnable runnable([&] { goOn.wait(); });
    TVLThread thread(&runnable, kStackSize);
    EXPECT_FALSE(thread.isAlive());
    thread.start();
    EXPECT_TRUE(thread.isAlive());
    goOn.post();
    thread.join();
    EXPECT_FALSE(thread.isAlive());
}

TEST(TVLThreadTest, JoiningAThreadThatWasNotStartedReturnsAtOnce) {
    TVLThread thread(nullptr, kStackSize);
    thread.join();
    EXPECT_FALSE(thread.isAlive());
}

TEST(TVLThreadTest, TheDestructorWaitsForTheEnd) {
    TVLThreadSemaphore goOn(0);
    std::atomic<bool> ended{false};
    Runnable runnable([&] {
        goOn.wait();
        ended = true;
    });
    {
        TVLThread thread(&runnable, kStackSize);
        thread.start();
        goOn.post();
    }
    EXPECT_TRUE(ended);
}

// The stack of a thread that nobody joins stays mapped, and so does the guard below it. What is kept for the next threads,
// by the thread sanitizer for example, is there after as many.
TEST(TVLThreadTest, AJoinedThreadLeavesNothingBehind) {
    const auto mappings = [] {
        std::ifstream maps("/proc/self/maps");
        return std::count(std::istreambuf_iterator<char>(maps), std::istreambuf_iterator<char>(), '\n');
    };
    const auto fiftyThreads = [] {
        for (int i = 0; i < 50; ++i)
            runInAThread([] {});
    };
    fiftyThreads();
    const auto before = mappings();
    fiftyThreads();
    EXPECT_LT(mappings(), before + 25);
}

TEST(TVLThreadTest, CanBeStartedAgainAfterItsEnd) {
    int runs = 0;
    Runnable runnable([&] { ++runs; });
    TVLThread thread(&runnable, kStackSize);
    for (int i = 0; i < 2; ++i) {
        thread.start();
        thread.join();
    }
    EXPECT_EQ(runs, 2);
}

TEST(TVLThreadTest, AThreadThatTheSystemRefusesIsAnException) {
    const std::size_t moreThanThereIs = std::numeric_limits<std::size_t>::max() / 4096 * 4096;
    Runnable runnable([] {});
    TVLThread thread(&runnable, moreThanThereIs);
    EXPECT_THROW(thread.start(), TVLThreadResourceError);
    EXPECT_FALSE(thread.isAlive());
    thread.join();
}

TEST(TVLThreadTest, TheIdIsTheKernels) {
    EXPECT_EQ(TVLThread::currentThreadId(), static_cast<unsigned int>(getpid()))
        << "the initial thread has the process's id";
    unsigned int told = 0;
    long kernels = 0;
    runInAThread([&] {
        told = TVLThread::currentThreadId();
        kernels = syscall(SYS_gettid);
    });
    EXPECT_EQ(told, static_cast<unsigned int>(kernels));
    EXPECT_NE(told, TVLThread::currentThreadId());
}

TEST(TVLThreadTest, ASignalReachesTheThreadItIsSentTo) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    int received = 0;
    Runnable runnable([&] { received = TVLOs::current().waitForSignal(signals); });
    TVLThread thread(&runnable, kStackSize);
    thread.interrupt(SIGUSR1);  // not started: reaches nobody
    thread.start();
    thread.interrupt(SIGUSR1);
    thread.join();
    EXPECT_EQ(received, SIGUSR1);
    thread.interrupt(SIGUSR1);
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGUSR1), 0);
}

TEST(TVLThreadTest, SleepsOnTheCommonClock) {
    VirtualOs os;
    TVLThread::sleep(30000);
    EXPECT_EQ(os.nowMs(), 30000);
}

TEST(TVLThreadTest, ZeroOrLessIsNoSleep) {
    VirtualOs os;
    TVLThread::sleep(0);
    TVLThread::sleep(-1);
    TVLThread::sleep(std::numeric_limits<int>::min());
    EXPECT_TRUE(os.sleeps().empty());
}

TEST(TVLThreadTest, AMillisecondIsASleep) {
    VirtualOs os;
    TVLThread::sleep(1);
    EXPECT_EQ(os.nowMs(), 1);
}

std::atomic<int> interruptions{0};
void countInterruption(int /*signal*/) {
    ++interruptions;
}

// A timer interrupts the sleep again and again; the sleep must last its time all the same.
TEST(TVLThreadTest, ASleepSurvivesInterruption) {
    struct sigaction action {};
    action.sa_handler = countInterruption;
    struct sigaction before {};
    sigaction(SIGALRM, &action, &before);
    const itimerval every5Ms{{0, 5000}, {0, 5000}};
    const itimerval off{};
    const std::int64_t startMs = TVLOs::current().nowMs();
    setitimer(ITIMER_REAL, &every5Ms, nullptr);
    TVLThread::sleep(50);
    setitimer(ITIMER_REAL, &off, nullptr);
    sigaction(SIGALRM, &before, nullptr);
    EXPECT_GT(interruptions, 0);
    EXPECT_GE(TVLOs::current().nowMs() - startMs, 50);
}

TEST(TVLThreadTest, TheClockIsMonotonic) {
    timespec before{};
    timespec after{};
    clock_gettime(CLOCK_MONOTONIC, &before);
    const std::int64_t nowMs = TVLOs::current().nowMs();
    clock_gettime(CLOCK_MONOTONIC, &after);
    const auto inMsRoundedUp = [](const timespec& time) {
        return std::int64_t{time.tv_sec} * 1000 + (std::int64_t{time.tv_nsec} + 999999) / 1000000;
    };
    EXPECT_GE(nowMs, inMsRoundedUp(before));
    EXPECT_LE(nowMs, inMsRoundedUp(after));
}

}  // namespace
