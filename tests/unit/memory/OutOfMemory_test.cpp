// One allocation fails, each in its turn: the service goes on, can be stopped, and loses nothing.
#include <cerrno>
#include <csignal>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "AllocationSeam.h"
#include "AmpleOs.h"
#include "TVLConfigurationFactory.h"
#include "TestWorld.h"
#include "ZORSignalHandlerThread.h"
#include "ZORSocketCommand.h"
#include "ZORSpawnAction.h"

namespace {

using AllocationSeam::Exempt;

// A service with a child, whose log takes every line; made anew for each allocation where that is needed.
class World : public WorldTest {
  public:
    World() {
        sek.onEntry = [] { m_inLibrary.emplace(); };
        sek.onExit = [] { m_inLibrary.reset(); };
    }
    ~World() override { sek.onEntry = sek.onExit = nullptr; }
    void TestBody() override {}

    using WorldTest::answers;
    using WorldTest::begin;
    using WorldTest::child;
    using WorldTest::fallsSilent;
    using WorldTest::finished;
    using WorldTest::log;
    using WorldTest::os;
    using WorldTest::pingPeer;
    using WorldTest::processOf;
    using WorldTest::sek;
    using WorldTest::service;
    using WorldTest::setProperty;
    using WorldTest::stopPeer;
    using WorldTest::supervisor;
    using WorldTest::writeStartup;

    // Another service with a child in the same folder: folders are what takes the time.
    void beginAnew(const ChildXml& configured) {
        std::destroy_at(&service);
        std::construct_at(&service);
        begin({configured});
    }
    bool isAlive() {
        const int handle = child("alpha").getProcessHandle();
        return handle > 0 && os.process(handle).alive;
    }

    AmpleOs ample{os};

  private:
    // The security library has its own ways with memory; this one's belongs to the test.
    static inline std::optional<Exempt> m_inLibrary;
};

constexpr int kEnough = 2000;  // allocations that no cycle comes near

// Every second cycle one allocation fails: the first, the second, and so on until a cycle has none left to fail.
// The cycles between are as ever. How many failed.
int failInEveryCycle(World& world, const std::function<void()>& provoke, const std::function<void()>& check) {
    int failures = 0;
    long before = 0;
    world.os.onTimedWait = [&](int wait) {
        const bool failed = AllocationSeam::stop();
        if (wait % 2 == 1) {
            if (wait == 1) return false;
            EXPECT_EQ(AllocationSeam::outstanding(), before) << "after failure " << failures;
            if (failed && ++failures < kEnough) return false;
            world.supervisor.stop(&world.finished);
            return true;
        }
        if (wait > 2) check();
        provoke();
        before = AllocationSeam::outstanding();
        AllocationSeam::failNth(wait / 2);
        return false;
    };
    world.supervisor.run();
    AllocationSeam::stop();
    world.os.onTimedWait = nullptr;
    EXPECT_EQ(world.finished.timedWait(0), 1) << "the stop request was obeyed";
    EXPECT_LT(failures, kEnough);
    return failures;
}

// What a child answers its ping.
class PingTest : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(Answers, PingTest,
                         testing::Values("READY", "LATER", "BROKEN", "something else", ""));

TEST_P(PingTest, TheLoopGoesOnAndPingsAgain) {
    World world;
    world.begin({ChildXml{}});
    if (std::string(GetParam()).empty()) {
        world.fallsSilent("alpha");
    } else {
        world.answers("alpha", GetParam());
    }
    int pings = 0;
    const int failures = failInEveryCycle(
        world,
        [&] {
            pings = world.pingPeer("alpha").connects;
            world.child("alpha").m_pingCounter = -10;  // no silence lasts until the restart
        },
        [&] { EXPECT_GT(world.pingPeer("alpha").connects, pings) << "the cycle between pings"; });
    EXPECT_GT(failures, 5);
    EXPECT_EQ(world.sek.openHandles(), 0);
    EXPECT_EQ(world.sek.unfreedDetails(), 0);
}

TEST(OutOfMemoryTest, AChildThatHasDiedIsStartedAgain) {
    World world;
    world.begin({ChildXml{}});
    const int failures = failInEveryCycle(
        world, [&] { world.processOf("alpha").alive = false; }, [&] { EXPECT_TRUE(world.isAlive()); });
    EXPECT_GT(failures, 5);
}

TEST(OutOfMemoryTest, AStartNeedsNoMemoryForItsLogLines) {
    World world;
    world.begin({ChildXml{}});
    ZORSpawnAction action;
    const XmlText document("<spawn><path>/bin/a-program-with-a-rather-long-name</path></spawn>");
    action.prepare(document.root());
    int number = 1;
    for (bool failed = true; failed; ++number) {
        AllocationSeam::failNth(number);
        const int pid = action.execute();
        failed = AllocationSeam::stop();
        EXPECT_GT(pid, 0);
        EXPECT_EQ(action.getProcessHandle(), pid);
    }
    EXPECT_GT(number, 3);
}

// How a child is told to stop.
class StopTest : public testing::TestWithParam<const char*> {
  protected:
    // Whether an allocation was left to fail.
    bool stopsWithFailure(int number) {
        world.beginAnew(ChildXml{.stopType = GetParam()});
        // Whichever way the child is asked, it obeys; a signal ends it anyway.
        world.stopPeer("alpha").onCommand = [this](const std::string&) { endChild(); };
        world.ample.onFork = [this] { endChild(); };
        const long before = AllocationSeam::outstanding();
        world.os.at(world.os.nowMs() + 10000, [&] {
            world.supervisor.stop(&world.finished);
            AllocationSeam::failNth(number);
        });
        world.supervisor.run();
        const bool failed = AllocationSeam::stop();
        world.ample.onFork = nullptr;
        EXPECT_EQ(world.finished.timedWait(0), 1) << "allocation " << number;
        EXPECT_FALSE(world.isAlive()) << "allocation " << number;
        EXPECT_EQ(AllocationSeam::outstanding(), before) << "allocation " << number;
        return failed;
    }
    void endChild() { world.processOf("alpha").alive = false; }

    World world;
};

INSTANTIATE_TEST_SUITE_P(Kinds, StopTest, testing::Values("socketSend", "signal", "spawn"),
                         [](const auto& parameter) { return std::string(parameter.param); });

TEST_P(StopTest, TheChildIsStoppedAndTheRequestAnswered) {
    int number = 1;
    while (number < kEnough && stopsWithFailure(number))
        ++number;
    EXPECT_GT(number, 5);
    EXPECT_LT(number, kEnough);
}

TEST(OutOfMemoryTest, TheSupervisorNeedsNoMemoryToBegin) {
    World world;
    int number = 1;
    for (bool failed = true; failed; ++number) {
        world.beginAnew(ChildXml{});
        int waits = 0;
        world.os.onTimedWait = [&](int /*wait*/) {
            if (++waits == 1) return false;
            failed = AllocationSeam::stop();
            world.supervisor.stop(&world.finished);
            return true;
        };
        AllocationSeam::failNth(number);
        world.supervisor.run();
        ASSERT_EQ(world.finished.timedWait(0), 1) << "allocation " << number;
    }
    EXPECT_GT(number, 5);
}

// A termination signal that arrives while memory is short.
TEST(OutOfMemoryTest, ASignalStopsTheService) {
    World world;
    int number = 1;
    for (bool failed = true; failed; ++number) {
        world.beginAnew(ChildXml{});
        TestAccess::mainThreadWait(world.service) = &world.finished;
        TestAccess::pidFile(world.service).setPath("../logs/a-name-longer-than-a-short-string.pid");
        world.os.raiseSignal(SIGTERM);
        {
            ZORSignalHandlerThread thread(&world.service);
            AllocationSeam::failNth(number);
            thread.run();
            failed = AllocationSeam::stop();
        }
        world.supervisor.run();
        ASSERT_EQ(world.finished.timedWait(0), 1) << "allocation " << number;
        TestAccess::mainThreadWait(world.service) = nullptr;
    }
    EXPECT_GT(number, 3);
}

TEST(OutOfMemoryTest, AStepThatRunsOutOfMemoryIsLeftOut) {
    World world;
    world.begin({ChildXml{}, ChildXml{"beta"}});
    bool throws = false;
    world.ample.onSignalTest = [&] {
        if (std::exchange(throws, false)) throw std::bad_alloc();
    };
    int pings = 0;
    world.os.onTimedWait = [&](int wait) {
        if (wait == 2) {
            EXPECT_EQ(world.supervisor.isReady(), 1);
            throws = true;
            pings = world.pingPeer("beta").connects;
        }
        if (wait < 3) return false;
        EXPECT_EQ(world.supervisor.isReady(), 0) << "alpha was not looked at";
        EXPECT_EQ(world.pingPeer("beta").connects, pings + 1) << "the others were";
        throws = true;
        world.supervisor.stop(&world.finished);
        return true;
    };
    world.supervisor.run();
    EXPECT_EQ(world.finished.timedWait(0), 1);
    EXPECT_TRUE(world.log.has("ERROR", "PingChildProcess",
                              "no memory for a step of the supervision, so it is left out."));
}

// ---- Actions ----

class GreedyAction : public ZORAction {
  public:
    int executeImpl() override { throw std::bad_alloc(); }
    void prepare(TVLIDOM_Element element) override { ZORAction::prepare(element); }
};

TEST(OutOfMemoryTest, AnActionFailsAndPausesAsEver) {
    World world;
    GreedyAction action;
    const XmlText document("<signal wait_time='3'/>");
    action.prepare(document.root());
    EXPECT_EQ(action.execute(), -1);
    EXPECT_EQ(world.os.nowMs(), 3000);
    EXPECT_TRUE(world.log.has("ERROR", "ZORAction", "no memory for the action, so it has failed."));
}

// Above the forked child's own code is the copy of a supervisor.
TEST(OutOfMemoryTest, AForkedChildNeverGoesOnAsTheService) {
    World world;
    ZORSpawnAction action;
    const XmlText document("<spawn><path>/bin/server</path></spawn>");
    action.prepare(document.root());
    world.ample.onExecve = [] { throw std::bad_alloc(); };
    world.os.forkIntoChild(ENOENT);
    EXPECT_THROW(action.execute(), VirtualOs::ProcessExit);
}

// ---- The network's configuration ----

TEST(OutOfMemoryTest, TheConfiguredFamilyIsAskedForAgainUntilItIsKnown) {
    World world;
    int failures = 0;
    for (bool failed = true; failed;) {
        world.writeStartup("<networkConfiguration>IPv6</networkConfiguration>");
        TVLConfigurationFactory::getInstance()->getElement("networkConfiguration");
        ZORSocketCommand command("tcp://a-single-label-name:80", "PING", 60);
        const char* document = nullptr;
        AllocationSeam::failNth(failures + 1);
        try {
            document = command.getSessionConfigDoc();
        } catch (const std::bad_alloc&) {
        }
        failed = AllocationSeam::stop();
        if (failed) ++failures;
        if (document == nullptr) document = command.getSessionConfigDoc();
        EXPECT_NE(std::string(document).find("IPv6"), std::string::npos);
        AllocationSeam::failNth(1);
        EXPECT_EQ(command.getSessionConfigDoc(), document) << "by then it is remembered";
        AllocationSeam::stop();
    }
    EXPECT_GT(failures, 0) << "the name that is asked for is longer than a short string";
}

}  // namespace
