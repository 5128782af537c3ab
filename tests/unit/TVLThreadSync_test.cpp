#include "TVLThreadSync.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <list>
#include <memory>

#include "FailingOs.h"
#include "TVLOs.h"
#include "TVLThread.h"
#include "VirtualOs.h"

namespace {

class Runnable : public TVLThreadRunnable {
  public:
    explicit Runnable(std::function<void()> body) : m_body(std::move(body)) {}
    void run() override { m_body(); }

  private:
    std::function<void()> m_body;
};

TEST(TVLThreadSyncTest, AGuardHoldsItsMutexUntilTheEndOfItsScope) {
    TVLThreadMutex mutex;
    int counter = 0;
    Runnable adder([&] {
        for (int i = 0; i < 20000; ++i) {
            const TVLThreadGuard guard(mutex);
            ++counter;
        }
    });
    std::list<TVLThread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(&adder, std::size_t{256} * 1024).start();
    for (TVLThread& thread : threads)
        thread.join();
    EXPECT_EQ(counter, 80000);
}

// In a process of its own: there is one such mutex, and here it is the log's. The alarm ends a fork that waits for what
// has been freed.
TEST(TVLThreadSyncTest, AMutexThatHasGoneIsNotHeldAcrossForks) {
    const pid_t process = fork();
    if (process == 0) {
        alarm(20);
        auto mutex = std::make_unique<TVLThreadMutex>();
        mutex->holdAcrossFork();
        mutex.reset();
        const pid_t child = fork();
        if (child == 0) ::_exit(0);
        ::_exit(waitpid(child, nullptr, 0) == child ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(process, &status, 0), process);
    EXPECT_EQ(status, 0);
}

TEST(TVLThreadSyncTest, ASemaphoreLetsThroughAsManyAsItCounts) {
    TVLThreadSemaphore semaphore(2);
    EXPECT_EQ(semaphore.timedWait(0), 1);
    semaphore.wait();
    EXPECT_EQ(semaphore.timedWait(0), 0);
    semaphore.post();
    EXPECT_EQ(semaphore.timedWait(0), 1);
}

TEST(TVLThreadSyncTest, PostsBeforeAWaitAreKept) {
    TVLThreadSemaphore semaphore(0);
    semaphore.post();
    semaphore.post();
    semaphore.wait();
    semaphore.wait();
    EXPECT_EQ(semaphore.timedWait(-1), 0);
}

TEST(TVLThreadSyncTest, ALimitOfZeroOrLessTestsOnce) {
    VirtualOs os;
    TVLThreadSemaphore semaphore(0);
    EXPECT_EQ(semaphore.timedWait(0), 0);
    EXPECT_EQ(semaphore.timedWait(-5000), 0);
    EXPECT_EQ(os.nowMs(), 0);
    semaphore.post();
    EXPECT_EQ(semaphore.timedWait(-5000), 1);
}

TEST(TVLThreadSyncTest, ATimedWaitEndsAfterItsTime) {
    VirtualOs os;
    TVLThreadSemaphore semaphore(0);
    EXPECT_EQ(semaphore.timedWait(30000), 0);
    EXPECT_EQ(os.nowMs(), 30000);
}

TEST(TVLThreadSyncTest, ATimedWaitEndsWithThePost) {
    VirtualOs os;
    TVLThreadSemaphore semaphore(0);
    os.at(12000, [&] { semaphore.post(); });
    EXPECT_EQ(semaphore.timedWait(30000), 1);
    EXPECT_EQ(os.nowMs(), 12000);
}

TEST(TVLThreadSyncTest, AWaitWithoutLimitEndsWithThePost) {
    VirtualOs os;
    TVLThreadSemaphore semaphore(0);
    os.at(3600000, [&] { semaphore.post(); });
    semaphore.wait();
    EXPECT_EQ(os.nowMs(), 3600000);
}

TEST(TVLThreadSyncTest, TheRealClockEndsATimedWaitToo) {
    TVLThreadSemaphore semaphore(0);
    const std::int64_t startMs = TVLOs::current().nowMs();
    EXPECT_EQ(semaphore.timedWait(20), 0);
    EXPECT_GE(TVLOs::current().nowMs() - startMs, 20);
}

TEST(TVLThreadSyncTest, NoTimedWaitIsShorterThanTold) {
    using namespace std::chrono;
    TVLThreadSemaphore semaphore(0);
    for (int i = 0; i < 300; ++i) {
        const milliseconds told(i % 5 + 1);
        const auto before = steady_clock::now();
        ASSERT_EQ(semaphore.timedWait(static_cast<int>(told.count())), 0);
        ASSERT_GE(nanoseconds(steady_clock::now() - before).count(), nanoseconds(told).count());
    }
}

// A wake-up without a post must not count as one, nor shorten or lengthen the wait.
TEST(TVLThreadSyncTest, AWakeUpWithoutAPostDoesNotEndAWait) {
    class Restless : public FailingOs {
      public:
        std::int64_t nowMs() override { return time; }
        bool waitUntil(std::condition_variable&, std::unique_lock<std::mutex>&,
                       std::int64_t deadlineMs) override {
            time += 10;
            return time < deadlineMs;
        }
        std::int64_t time = 0;
    } os;
    TVLThreadSemaphore semaphore(0);
    EXPECT_EQ(semaphore.timedWait(100), 0);
    EXPECT_EQ(os.time, 100);
}

TEST(TVLThreadSyncTest, OnePostLetsOneOfSeveralWaitersThrough) {
    TVLThreadSemaphore semaphore(0);
    std::atomic<int> through{0};
    TVLThreadSemaphore arrived(0);
    Runnable waiter([&] {
        semaphore.wait();
        ++through;
        arrived.post();
    });
    std::list<TVLThread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back(&waiter, std::size_t{256} * 1024).start();
    for (int expected = 1; expected <= 3; ++expected) {
        semaphore.post();
        arrived.wait();
        EXPECT_EQ(through, expected);
    }
    for (TVLThread& thread : threads)
        thread.join();
}

TEST(TVLThreadSyncTest, AWaitThatTheSystemRefusesIsAnException) {
    VirtualOs os;
    os.failNextWait();
    TVLThreadSemaphore semaphore(0);
    EXPECT_THROW(semaphore.wait(), TVLThreadResourceError);
}

TEST(TVLThreadSyncTest, ATimedWaitThatTheSystemRefusesIsSlept) {
    VirtualOs time;
    FailingOs os;
    os.failFrom(OsKind::Wait, 1, EAGAIN);
    TVLThreadSemaphore semaphore(0);
    EXPECT_EQ(semaphore.timedWait(300), 0);
    EXPECT_EQ(time.nowMs(), 300);
    time.at(400, [&] { semaphore.post(); });
    EXPECT_EQ(semaphore.timedWait(300), 1);
    EXPECT_EQ(time.nowMs(), 600);
    EXPECT_EQ(os.refusals(OsKind::Wait), 2);
}

TEST(TVLThreadSyncTest, ImmortalSemaphoresAreSemaphoresOfTheirOwn) {
    TVLThreadSemaphore* const first = TVLThreadSemaphore::createImmortal(1);
    TVLThreadSemaphore* const second = TVLThreadSemaphore::createImmortal(0);
    EXPECT_EQ(first->timedWait(0), 1);
    EXPECT_EQ(second->timedWait(0), 0);
    second->post();
    EXPECT_EQ(first->timedWait(0), 0);
    EXPECT_EQ(second->timedWait(0), 1);
}

}  // namespace
