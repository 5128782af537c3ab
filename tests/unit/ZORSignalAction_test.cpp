#include "ZORSignalAction.h"

#include <csignal>

#include "TestAccess.h"
#include "TestKit.h"
#include "VirtualOs.h"
#include "ZORBadConfigException.h"

namespace {

class ZORSignalActionTest : public ServiceTest {
  protected:
    ~ZORSignalActionTest() noexcept override = default;  // though the destructor of an action may throw

    void prepare(const std::string& attributes) {
        const XmlText document("<signal " + attributes + "/>");
        action.prepare(document.root());
    }

    VirtualOs os;
    ZORSignalAction action;
};

TEST_F(ZORSignalActionTest, SendsTheSignalToTheTargetAndPauses) {
    prepare("signal='15' wait_time='2'");
    VirtualOs::Process& child = os.process(1234);
    action.setProcessHandle(1234);
    EXPECT_EQ(action.execute(), 0);
    EXPECT_EQ(child.signals, std::vector<int>{SIGTERM});
    EXPECT_EQ(os.sleeps(), std::vector<std::int64_t>{2000});
    EXPECT_TRUE(log.inOrder({{"DEBUG", "ZORAction", "configured wait_time is 2000 ms.", {}},
                             {"DEBUG", "ZORSignalAction", "signal is 15", {}},
                             {"DEBUG", "ZORSignalAction", "Signalling process (handle = 1234).", {}},
                             {"DEBUG", "ZORAction", "delay for 2000 ms.", {}}}));
}

TEST_F(ZORSignalActionTest, SignalNineKillsOutright) {
    prepare("signal='9'");
    os.process(1234).ignoresTerm = true;
    action.setProcessHandle(1234);
    EXPECT_EQ(action.execute(), 0);
    EXPECT_FALSE(os.process(1234).alive);
    EXPECT_TRUE(os.sleeps().empty());
}

TEST_F(ZORSignalActionTest, TheSignalMayBeAPropertyReference) {
    setProperty("stopSignal", "2");
    prepare("signal='${stopSignal}'");
    EXPECT_EQ(TestAccess::signal(action), 2);
    EXPECT_TRUE(log.has("DEBUG", "ZORSignalAction", "signal is 2"));
}

TEST_F(ZORSignalActionTest, NamesOfSignalsAreNotUnderstood) {
    prepare("signal='SIGTERM'");
    EXPECT_EQ(TestAccess::signal(action), 0);
    os.process(1234);
    action.setProcessHandle(1234);
    EXPECT_EQ(action.execute(), 0);
    EXPECT_EQ(os.aliveTests(), 1);
    EXPECT_TRUE(os.kills().empty());
}

TEST_F(ZORSignalActionTest, AProcessThatHasGoneGivesMinusOneAndNoLine) {
    prepare("signal='15'");
    os.process(1234).alive = false;
    action.setProcessHandle(1234);
    log.clear();
    EXPECT_EQ(action.execute(), -1);
    EXPECT_EQ(
        log.lines(),
        (std::vector<LogLine>{{"DEBUG", "ZORSignalAction", "Signalling process (handle = 1234).", {}}}));
}

TEST_F(ZORSignalActionTest, WithoutATargetItSignalsTheWholeGroup) {
    prepare("signal='15'");
    EXPECT_EQ(action.execute(), 0);
    ASSERT_EQ(os.kills().size(), 1U);
    EXPECT_EQ(os.kills().front().pid, 0);
    EXPECT_EQ(os.kills().front().signal, SIGTERM);
    EXPECT_TRUE(log.has("DEBUG", "ZORSignalAction", "Signalling process (handle = 0)."));
}

TEST_F(ZORSignalActionTest, AMissingSignalIsAnAttributeInTheLogAndAnElementInTheException) {
    for (const char* const attributes : {"wait_time='1'", "signal=''"}) {
        log.clear();
        try {
            prepare(attributes);
            ADD_FAILURE() << "no exception for " << attributes;
        } catch (const ZORBadConfigException& exception) {
            EXPECT_STREQ(exception.getMessage(), R"(required element "signal" is missing.)");
        }
        EXPECT_EQ(log.count("FATAL", "ZORSignalAction", R"(required attribute "signal" is missing.)"), 1U);
    }
}

TEST_F(ZORSignalActionTest, TheWaitTimeIsReadBeforeTheSignal) {
    EXPECT_THROW(prepare("wait_time='1'"), ZORBadConfigException);
    EXPECT_TRUE(log.has("DEBUG", "ZORAction", "configured wait_time is 1000 ms."));
}

}  // namespace
