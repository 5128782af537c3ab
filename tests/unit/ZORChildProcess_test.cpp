#include "ZORChildProcess.h"

#include <cerrno>
#include <csignal>
#include <optional>
#include <stdexcept>

#include "ScriptedTransport.h"
#include "TestAccess.h"
#include "TestKit.h"
#include "VirtualOs.h"
#include "ZORBadConfigException.h"
#include "ZORSignalAction.h"
#include "ZORSockSendAction.h"
#include "ZORSpawnAction.h"

namespace {

constexpr const char* kStart = "<start><spawn><path>/bin/server</path></spawn></start>";
constexpr const char* kStop = "<stop type='signal'><signal signal='15'/></stop>";
constexpr const char* kSocketSend = "URI='https://peer.example:9300/' commandString='PING'";

class ZORChildProcessTest : public ServiceTest {
  protected:
    ~ZORChildProcessTest() noexcept override = default;  // though the destructor of a child may throw

    void prepare(const std::string& content) {
        const XmlText document("<process name='alpha'>" + content + "</process>");
        child.prepare(document.root());
    }
    void prepareStop(const std::string& stop) { prepare(kStart + stop); }
    void preparePing(const std::string& ping) { prepare(std::string(kStart) + kStop + ping); }
    // The message of the exception that the preparation ends with; none: it succeeded.
    std::optional<std::string> failureOf(const std::string& content) {
        try {
            prepare(content);
        } catch (const ZORBadConfigException& exception) {
            return exception.getMessage();
        }
        return std::nullopt;
    }
    bool hasLine(const char* level, const std::string& text) const {
        return log.has(level, "ZORChildProcess", text);
    }
    std::vector<LogLine> debugLines(const std::vector<std::string>& texts) const {
        std::vector<LogLine> lines;
        lines.reserve(texts.size());
        for (const std::string& text : texts)
            lines.push_back({"DEBUG", "ZORChildProcess", text, {}});
        return lines;
    }

    VirtualOs os;
    ZORChildProcess child;
};

// Preparing.

TEST_F(ZORChildProcessTest, IsConstructedEmpty) {
    EXPECT_EQ(TestAccess::startAction(child), nullptr);
    EXPECT_EQ(TestAccess::stopAction(child), nullptr);
    EXPECT_EQ(TestAccess::pingAction(child), nullptr);
    EXPECT_EQ(child.getProcessHandle(), -1);
    EXPECT_STREQ(child.getName(), "");
    EXPECT_EQ(child.m_pingCounter, 0);
    EXPECT_EQ(child.m_restartPending, 0);
}

TEST_F(ZORChildProcessTest, PreparesItsThreeActions) {
    prepare(std::string(kStart) + kStop + "<ping><socketSend " + kSocketSend + "/></ping>");
    EXPECT_STREQ(child.getName(), "alpha");
    ASSERT_NE(TestAccess::startAction(child), nullptr);
    EXPECT_NE(dynamic_cast<ZORSignalAction*>(&child.getStopAction()), nullptr);
    ASSERT_NE(child.getPingAction(), nullptr);
    EXPECT_TRUE(
        log.inOrder({{"DEBUG", "ZORChildProcess", "preparing process named alpha", {}},
                     {"DEBUG", "ZORSpawnAction", "preparing", {}},
                     {"DEBUG", "ZORChildProcess", R"(stop command type is "signal")", {}},
                     {"DEBUG", "ZORSignalAction", "signal is 15", {}},
                     {"DEBUG", "ZORChildProcess", R"(processing ping command of type "socketSend")", {}},
                     {"DEBUG", "ZORSockSendAction", "preparing", {}}}));
}

TEST_F(ZORChildProcessTest, ElementsAreFoundAtAnyDepth) {
    prepare(std::string("<group>") + kStart + "<inner>" + kStop + "</inner></group>");
    EXPECT_NE(TestAccess::startAction(child), nullptr);
    EXPECT_NE(TestAccess::stopAction(child), nullptr);
}

TEST_F(ZORChildProcessTest, WithoutAStartItIsABadConfiguration) {
    const std::string text = R"(required element "start" is missing.)";
    EXPECT_EQ(failureOf(kStop), text);
    EXPECT_TRUE(hasLine("FATAL", text));
    EXPECT_EQ(TestAccess::startAction(child), nullptr);
}

TEST_F(ZORChildProcessTest, WithoutASpawnInItsStartItIsABadConfiguration) {
    const std::string text = R"(required element "spawn" is missing.)";
    EXPECT_EQ(failureOf("<start/><stop type='spawn'><spawn><path>/bin/stop</path></spawn></stop>"), text);
    EXPECT_TRUE(hasLine("FATAL", text));
}

TEST_F(ZORChildProcessTest, AStopMayBeASpawn) {
    prepareStop("<stop type='spawn'><spawn><path>/bin/stop</path></spawn></stop>");
    EXPECT_NE(dynamic_cast<ZORSpawnAction*>(&child.getStopAction()), nullptr);
    EXPECT_TRUE(hasLine("DEBUG", R"(stop command type is "spawn")"));
    EXPECT_TRUE(hasLine("DEBUG", R"(processing stop command of type "spawn")"));
    os.forkIntoChild(ENOENT);
    EXPECT_THROW(child.getStopAction().execute(), VirtualOs::ProcessExit);
    EXPECT_EQ(os.executed().back().front(), "/bin/stop");
}

TEST_F(ZORChildProcessTest, AStopMayBeASocketSend) {
    prepareStop(std::string("<stop type='socketSend'><socketSend ") + kSocketSend + "/></stop>");
    EXPECT_NE(dynamic_cast<ZORSockSendAction*>(&child.getStopAction()), nullptr);
    EXPECT_TRUE(hasLine("DEBUG", R"(stop command type is "socketSend")"));
    EXPECT_TRUE(hasLine("DEBUG", R"(processing stop command of type "socketSend")"));
    EXPECT_TRUE(log.has("DEBUG", "ZORSockSendAction", "URI is https://peer.example:9300/"));
}

TEST_F(ZORChildProcessTest, ASignalStopIsLoggedAsASocketSend) {
    prepareStop(kStop);
    EXPECT_NE(dynamic_cast<ZORSignalAction*>(&child.getStopAction()), nullptr);
    EXPECT_TRUE(hasLine("DEBUG", R"(stop command type is "signal")"));
    EXPECT_TRUE(hasLine("DEBUG", R"(processing stop command of type "socketSend")"));
    EXPECT_FALSE(hasLine("DEBUG", R"(processing stop command of type "signal")"));
}

TEST_F(ZORChildProcessTest, AnyOtherTypeOfStopIsABadConfiguration) {
    for (const std::string type : {"Signal", "SPAWN", "socketsend", "kill", "", "spawn "}) {
        ZORChildProcess another;
        const XmlText document("<process name='alpha'>" + std::string(kStart) + "<stop type='" + type +
                               "'><signal signal='15'/></stop></process>");
        try {
            another.prepare(document.root());
            ADD_FAILURE() << "no exception for " << type;
        } catch (const ZORBadConfigException& exception) {
            EXPECT_STREQ(exception.getMessage(), "unexpected type for stop command");
        }
        EXPECT_TRUE(hasLine("FATAL", "unexpected type for stop command \"" + type + "\"")) << type;
        EXPECT_EQ(TestAccess::stopAction(another), nullptr) << type;
    }
}

TEST_F(ZORChildProcessTest, AMissingStopHasAnEmptyType) {
    EXPECT_EQ(failureOf(kStart), "unexpected type for stop command");
    EXPECT_TRUE(hasLine("DEBUG", R"(stop command type is "")"));
    EXPECT_TRUE(hasLine("FATAL", R"(unexpected type for stop command "")"));
}

TEST_F(ZORChildProcessTest, TheErrorOfAnActionPassesUnchanged) {
    EXPECT_EQ(failureOf("<start><spawn/></start>"), R"(ZORSpawnAction required attribute "path" is missing)");
    EXPECT_NE(TestAccess::startAction(child), nullptr) << "freed with the child";
}

TEST_F(ZORChildProcessTest, AStopWithoutTheElementOfItsTypeIsTheErrorOfTheAction) {
    EXPECT_EQ(failureOf(std::string(kStart) + "<stop type='signal'/>"),
              R"(required element "signal" is missing.)");
    EXPECT_NE(TestAccess::stopAction(child), nullptr) << "freed with the child";
}

TEST_F(ZORChildProcessTest, TheErrorOfAPingPassesUnchanged) {
    EXPECT_EQ(failureOf(std::string(kStart) + kStop + "<ping><socketSend URI='tcp://a:1'/></ping>"),
              "ping action must have commandString attribute.");
}

// Whether there is a ping.

TEST_F(ZORChildProcessTest, WithoutAPingThereIsNoPingAction) {
    preparePing("");
    EXPECT_EQ(child.getPingAction(), nullptr);
    EXPECT_TRUE(hasLine("WARN", "no ping element in config."));
    EXPECT_FALSE(hasLine("DEBUG", R"(processing ping command of type "socketSend")"));
}

TEST_F(ZORChildProcessTest, APingWithoutASocketSendIsNoPing) {
    preparePing("<ping><spawn/></ping>");
    EXPECT_EQ(child.getPingAction(), nullptr);
    EXPECT_TRUE(hasLine("WARN", "no socketSend element in config."));
}

TEST_F(ZORChildProcessTest, APingWithoutADependencyIsAlwaysUsed) {
    for (const char* const dependency : {"", "dependency=''"}) {
        ZORChildProcess another;
        log.clear();
        const XmlText document(std::string("<process>") + kStart + kStop + "<ping><socketSend " +
                               kSocketSend + " " + dependency + "/></ping></process>");
        another.prepare(document.root());
        EXPECT_NE(another.getPingAction(), nullptr);
        EXPECT_TRUE(hasLine("WARN", R"(The attribute "dependency" is missing.)"));
    }
}

class ZORChildProcessDependencyTest : public ZORChildProcessTest {
  protected:
    void prepareDependent() {
        preparePing(std::string("<ping><socketSend dependency='servletContainer' ") + kSocketSend +
                    "/></ping>");
    }
};

TEST_F(ZORChildProcessDependencyTest, AnInstalledDependencyKeepsThePing) {
    writeStartup("<components><component name='servletContainer' version='10.1'/></components>");
    prepareDependent();
    EXPECT_NE(child.getPingAction(), nullptr);
    EXPECT_FALSE(hasLine("WARN", R"(The attribute "dependency" is missing.)"));
}

TEST_F(ZORChildProcessDependencyTest, ADependencyThatIsNotInstalledDropsThePingSilently) {
    for (const char* const components : {"", "<components><component name='other' version='1'/></components>",
                                         "<components><component name='servletContainer'/></components>"}) {
        ZORChildProcess another;
        writeStartup(components);
        log.clear();
        const XmlText ping(std::string("<ping><socketSend dependency='servletContainer' ") + kSocketSend +
                           "/></ping>");
        EXPECT_FALSE(another.validatePing(ping.root())) << components;
        EXPECT_TRUE(log.linesOf("ZORChildProcess").empty()) << components;
    }
    prepareDependent();
    EXPECT_EQ(child.getPingAction(), nullptr);
}

TEST_F(ZORChildProcessDependencyTest, ADependencyThatCannotBeCheckedIsReportedAndDropsThePing) {
    folder.write("configuration/startup.xml", "<startupConfiguration>");
    prepareDependent();
    EXPECT_EQ(child.getPingAction(), nullptr);
    const LogLine line = log.linesOf("ZORChildProcess").back();
    const std::string head = R"(exception while checking for the dependent component version: ")";
    EXPECT_EQ(line.level, "ERROR");
    EXPECT_EQ(line.text.substr(0, head.size()), head);
    EXPECT_NE(line.text.find("startup.xml"), std::string::npos);
    EXPECT_EQ(line.text.back(), '"');
}

TEST_F(ZORChildProcessTest, ThePingOfAPreparedChildReachesItsPeer) {
    const ScriptedTransport transport;
    preparePing(std::string("<ping><socketSend ") + kSocketSend + "/></ping>");
    EXPECT_EQ(child.getPingAction()->execute(), 1);
    EXPECT_EQ(ScriptedTransport::sek().last("SEK_Send").text, "PING");
}

// Starting.

TEST_F(ZORChildProcessTest, AStartKeepsTheNewHandleAndGivesTheChildItsGrace) {
    preparePing("");
    child.m_pingCounter = 5;
    child.m_restartPending = 1;
    log.clear();
    child.start();
    EXPECT_EQ(child.getProcessHandle(), 1001);
    EXPECT_EQ(child.m_pingCounter, -10);
    EXPECT_EQ(child.m_restartPending, 0);
    EXPECT_EQ(log.linesOf("ZORChildProcess"),
              debugLines({R"(starting process "alpha")", "process handle is 1001"}));
    child.start();
    EXPECT_EQ(child.getProcessHandle(), 1002) << "the same actions serve every start";
}

TEST_F(ZORChildProcessTest, TheGraceIsGivenBeforeTheActionRuns) {
    prepare("<start><spawn sync='5'><path>/bin/server</path></spawn></start>" + std::string(kStop));
    child.m_restartPending = 1;
    int seenDuringStart = 0;
    os.at(4000, [&] {
        seenDuringStart = child.m_pingCounter;
        EXPECT_EQ(child.m_restartPending, 0);
    });
    child.start();
    EXPECT_EQ(seenDuringStart, -10);
    EXPECT_EQ(os.nowMs(), 5000) << "the pause of the spawn is part of the start";
}

TEST_F(ZORChildProcessTest, AFailedStartLeavesNoHandle) {
    preparePing("");
    child.start();
    os.failForks(1, EAGAIN);
    child.start();
    EXPECT_EQ(child.getProcessHandle(), -1);
    EXPECT_TRUE(hasLine("DEBUG", "process handle is -1"));
    EXPECT_EQ(child.isAlive(), 0);
}

// Alive or not.

TEST_F(ZORChildProcessTest, AProcessThatExistsIsAlive) {
    preparePing("");
    child.start();
    log.clear();
    EXPECT_EQ(child.isAlive(), 1);
    EXPECT_EQ(child.getProcessHandle(), 1001);
    EXPECT_EQ(os.aliveTests(), 1);
    EXPECT_EQ(log.lines(), debugLines({R"(Testing if process "alpha" is still active.)", "handle is 1001",
                                       R"(Process "alpha" is still active.)"}));
}

TEST_F(ZORChildProcessTest, AProcessThatHasGoneIsForgotten) {
    preparePing("");
    child.start();
    os.process(1001).alive = false;
    log.clear();
    EXPECT_EQ(child.isAlive(), 0);
    EXPECT_EQ(child.getProcessHandle(), -1);
    EXPECT_EQ(log.lines(), debugLines({R"(Testing if process "alpha" is still active.)", "handle is 1001",
                                       R"(Process "alpha" has terminated (kill(0) failed).)"}));
}

TEST_F(ZORChildProcessTest, AHandleBelowOneIsNeverTested) {
    preparePing("");
    for (const int handle : {0, -1, -1234}) {
        TestAccess::handle(child) = handle;
        log.clear();
        EXPECT_EQ(child.isAlive(), 0);
        EXPECT_EQ(log.lines(), debugLines({R"(Testing if process "alpha" is still active.)",
                                           "handle is " + std::to_string(handle),
                                           "Invalid process handle, cannot test if process is alive."}));
        EXPECT_EQ(child.getProcessHandle(), handle);
    }
    EXPECT_EQ(os.aliveTests(), 0);
}

// A system in which every process belongs to somebody else.
class ForeignOs : public VirtualOs {
  public:
    int kill(pid_t /*pid*/, int /*signal*/) override {
        errno = EPERM;
        return -1;
    }
};

TEST_F(ZORChildProcessTest, AProcessThatMayNotBeSignalledCountsAsGone) {
    preparePing("");
    child.start();
    const ForeignOs foreign;
    EXPECT_EQ(child.isAlive(), 0);
    EXPECT_EQ(child.getProcessHandle(), -1);
}

// Killing.

TEST_F(ZORChildProcessTest, AKillIsOutrightAndKeepsTheHandleUntilTheNextTest) {
    preparePing("");
    child.start();
    log.clear();
    EXPECT_EQ(child.kill(), 0);
    EXPECT_EQ(os.process(1001).signals, std::vector<int>{SIGKILL});
    EXPECT_EQ(child.getProcessHandle(), 1001);
    EXPECT_EQ(log.lines(), debugLines({R"(killing process "alpha")", "Process ID used is 1001"}));
    EXPECT_EQ(child.isAlive(), 0);
    EXPECT_EQ(child.getProcessHandle(), -1);
}

TEST_F(ZORChildProcessTest, AKillThatFailsGivesMinusOne) {
    preparePing("");
    child.start();
    os.failKills(EPERM);
    EXPECT_EQ(child.kill(), -1);
}

TEST_F(ZORChildProcessTest, AHandleBelowOneIsNeverKilled) {
    preparePing("");
    for (const int handle : {0, -1, -1234}) {
        TestAccess::handle(child) = handle;
        EXPECT_EQ(child.kill(), handle);
        EXPECT_TRUE(hasLine("DEBUG", "Process ID used is " + std::to_string(handle)));
    }
    EXPECT_TRUE(os.kills().empty());
}

// Destruction.

template <typename Action>
class FailingAction : public Action {
  public:
    FailingAction(std::vector<std::string>& destroyed, const char* name)
        : m_destroyed(destroyed), m_name(name) {}
    ~FailingAction() noexcept(false) override {
        m_destroyed.emplace_back(m_name);
        throw std::runtime_error(m_name);
    }

  private:
    std::vector<std::string>& m_destroyed;
    const char* m_name;
};

TEST_F(ZORChildProcessTest, ActionsThatFailToEndKeepNoOtherFromEnding) {
    std::vector<std::string> destroyed;
    {
        ZORChildProcess another;
        TestAccess::startAction(another) = new FailingAction<ZORSpawnAction>(destroyed, "start");
        TestAccess::stopAction(another) = new FailingAction<ZORSignalAction>(destroyed, "stop");
        TestAccess::pingAction(another) = new FailingAction<ZORSockSendAction>(destroyed, "ping");
    }
    EXPECT_EQ(destroyed, (std::vector<std::string>{"start", "ping", "stop"}));
}

}  // namespace
