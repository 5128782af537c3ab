#include "ZORAction.h"

#include "TestAccess.h"
#include "TestKit.h"
#include "VirtualOs.h"

namespace {

// Notes when it was executed and gives the result that it was told to.
class NotingAction : public ZORAction {
  public:
    int executeImpl() override {
        executedAtMs.push_back(TVLOs::current().nowMs());
        return result;
    }
    void prepare(TVLIDOM_Element element) override { ZORAction::prepare(element); }

    std::vector<std::int64_t> executedAtMs;
    int result = 7;
};

class ZORActionTest : public ServiceTest {
  protected:
    ~ZORActionTest() noexcept override = default;  // though the destructor of an action may throw

    void prepare(const std::string& attributes) {
        const XmlText document("<spawn " + attributes + "/>");
        action.prepare(document.root());
    }

    VirtualOs os;
    NotingAction action;
};

TEST_F(ZORActionTest, StartsWithoutPauseTargetAndSignal) {
    EXPECT_EQ(TestAccess::waitTimeMs(action), -1);
    EXPECT_EQ(TestAccess::processHandle(action), 0);
    EXPECT_EQ(TestAccess::signal(action), 0);
}

TEST_F(ZORActionTest, WithoutAWaitTimeItReturnsAtOnceAndLogsNothing) {
    for (const char* const attributes : {"", "wait_time=''"}) {
        prepare(attributes);
        EXPECT_EQ(action.execute(), 7);
        EXPECT_EQ(TestAccess::waitTimeMs(action), -1);
    }
    EXPECT_EQ(os.nowMs(), 0);
    EXPECT_EQ(log.raw(), "");
}

TEST_F(ZORActionTest, TheWaitTimeIsPausedAfterEveryExecution) {
    prepare("wait_time='3'");
    EXPECT_EQ(TestAccess::waitTimeMs(action), 3000);
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{{"DEBUG", "ZORAction", "configured wait_time is 3000 ms.", {}}}));
    EXPECT_EQ(action.execute(), 7);
    EXPECT_EQ(action.execute(), 7);
    EXPECT_EQ(action.executedAtMs, (std::vector<std::int64_t>{0, 3000}));
    EXPECT_EQ(os.sleeps(), (std::vector<std::int64_t>{3000, 3000}));
    EXPECT_EQ(log.count("DEBUG", "ZORAction", "delay for 3000 ms."), 2U);
}

TEST_F(ZORActionTest, AFailedExecutionIsFollowedByTheSamePause) {
    prepare("wait_time='3'");
    action.result = -1;
    EXPECT_EQ(action.execute(), -1);
    EXPECT_EQ(os.nowMs(), 3000);
}

TEST_F(ZORActionTest, AWaitTimeWithoutANumberIsZeroAndStillLogged) {
    prepare("wait_time='soon'");
    EXPECT_EQ(TestAccess::waitTimeMs(action), 0);
    EXPECT_TRUE(log.has("DEBUG", "ZORAction", "configured wait_time is 0 ms."));
    EXPECT_EQ(action.execute(), 7);
    EXPECT_EQ(action.execute(), 7);
    EXPECT_EQ(log.count("DEBUG", "ZORAction", "delay for 0 ms."), 2U);
    EXPECT_EQ(os.nowMs(), 0);
}

TEST_F(ZORActionTest, TheWaitTimeIsReadAsFarAsItsDigitsGo) {
    prepare("wait_time=' 12s'");
    EXPECT_EQ(TestAccess::waitTimeMs(action), 12000);
}

TEST_F(ZORActionTest, AnAbsentWaitTimeLeavesTheOneBefore) {
    prepare("wait_time='2'");
    prepare("");
    EXPECT_EQ(TestAccess::waitTimeMs(action), 2000);
}

TEST_F(ZORActionTest, TheTargetIsTheHandleThatWasSet) {
    action.setProcessHandle(4711);
    EXPECT_EQ(TestAccess::processHandle(action), 4711);
}

}  // namespace
