#include "ZORSpawnAction.h"

#include <cerrno>

#include "TestKit.h"
#include "VirtualOs.h"
#include "ZORBadConfigException.h"
#include "ZORBootstrapService.h"

namespace {

using Texts = std::vector<std::string>;

class ZORSpawnActionTest : public ServiceTest {
  protected:
    ~ZORSpawnActionTest() noexcept override { ZORBootstrapService::m_envp = m_environmentBefore; }

    void prepare(const std::string& content, const std::string& attributes = {}) {
        const XmlText document("<spawn " + attributes + ">" + content + "</spawn>");
        action.prepare(document.root());
    }
    // Spawns with the test in the place of the forked child: path, arguments and environment of the program.
    Texts executed() {
        os.forkIntoChild(ENOENT);
        EXPECT_THROW(action.spawn(), VirtualOs::ProcessExit);
        return os.executed().back();
    }

    VirtualOs os;
    ZORSpawnAction action;

  private:
    char** m_environmentBefore = ZORBootstrapService::m_envp;
};

constexpr const char* kServer =
    "<path>/bin/server</path><param>one</param><param>two</param><param>three</param>";
constexpr const char* kServerLogged =
    "Spawning child process:\nPath: /bin/server\nParameters: \n\t/bin/server\n\tone\n\ttwo\n\tthree\n";

TEST_F(ZORSpawnActionTest, StartsTheProgramWithItsArguments) {
    prepare(kServer);
    EXPECT_EQ(executed(), (Texts{"/bin/server", "/bin/server", "one", "two", "three"}));
}

TEST_F(ZORSpawnActionTest, ReturnsAndKeepsTheNewProcessId) {
    prepare(kServer);
    EXPECT_EQ(action.getProcessHandle(), -1);
    EXPECT_EQ(action.execute(), 1001);
    EXPECT_EQ(action.getProcessHandle(), 1001);
    EXPECT_EQ(action.spawn(), 1002);
    EXPECT_EQ(action.getProcessHandle(), 1002);
    EXPECT_TRUE(log.has("DEBUG", "ZORSpawnAction", "Started process, pid = 1001\n"));
    EXPECT_TRUE(os.executed().empty()) << "only the forked child becomes the program";
}

TEST_F(ZORSpawnActionTest, PreparationIsLogged) {
    prepare("<path>/bin/server</path><param>one</param>", "wait_time='1' sync='5'");
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{{"DEBUG", "ZORSpawnAction", "preparing", {}},
                                    {"DEBUG", "ZORAction", "configured wait_time is 1000 ms.", {}},
                                    {"DEBUG", "ZORSpawnAction", "sync is 5", {}},
                                    {"DEBUG", "ZORArgVector", R"(adding arg "one")", {}}}));
}

TEST_F(ZORSpawnActionTest, AnAbsentSyncIsLoggedAsZero) {
    prepare(kServer);
    EXPECT_TRUE(log.has("DEBUG", "ZORSpawnAction", "sync is 0"));
    action.execute();
    EXPECT_TRUE(os.sleeps().empty());
}

TEST_F(ZORSpawnActionTest, ThePathIsTheFirstAtAnyDepthAndExpanded) {
    setProperty("home", "/opt/server");
    prepare("<program><path>${home}/bin</path></program><path>/other</path>");
    EXPECT_EQ(executed(), (Texts{"/opt/server/bin", "/opt/server/bin"}));
}

TEST_F(ZORSpawnActionTest, WithoutAPathItIsABadConfiguration) {
    for (const char* const content : {"", "<path/>", "<path></path>", "<param>one</param>"}) {
        log.clear();
        try {
            prepare(content);
            ADD_FAILURE() << "no exception for " << content;
        } catch (const ZORBadConfigException& exception) {
            EXPECT_STREQ(exception.getMessage(), R"(ZORSpawnAction required attribute "path" is missing)");
        }
        EXPECT_EQ(log.count("FATAL", "ZORSpawnAction", R"(required attribute "path" is missing)"), 1U);
    }
}

TEST_F(ZORSpawnActionTest, QuotingAffectsTheFirstArgumentOnly) {
    setProperty("home", "/opt/a b");
    prepare("<path quoteAsParam='true'>${home}/server</path><param>one</param>");
    EXPECT_EQ(executed(), (Texts{"/opt/a b/server", "\"/opt/a b/server\"", "one"}));
}

TEST_F(ZORSpawnActionTest, OnlyTheExactWordQuotes) {
    for (const char* const word : {"TRUE", "True", "1", "yes", "", "false"}) {
        prepare(std::string("<path quoteAsParam='") + word + "'>/bin/server</path>");
        EXPECT_EQ(executed(), (Texts{"/bin/server", "/bin/server"})) << word;
    }
}

TEST_F(ZORSpawnActionTest, AConditionalParamIsLeftOut) {
    setProperty("secure", "true");
    prepare(
        "<path>/bin/server</path><param condName='${secure}' condValue='true'>-s</param>"
        "<param condName='${secure}' condValue='false'>-p</param>");
    EXPECT_EQ(executed(), (Texts{"/bin/server", "/bin/server", "-s"}));
}

TEST_F(ZORSpawnActionTest, PreparingAgainStartsFromNoArguments) {
    prepare(kServer, "sync='5'");
    prepare("<path>/bin/other</path><param>four</param>");
    EXPECT_EQ(executed(), (Texts{"/bin/other", "/bin/other", "four"}));
    EXPECT_EQ(log.count("DEBUG", "ZORSpawnAction", "sync is 5"), 2U)
        << "an absent sync leaves the one before";
}

TEST_F(ZORSpawnActionTest, TheCommandIsLoggedAsOneLine) {
    prepare(kServer);
    log.clear();
    action.execute();
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{{"DEBUG", "ZORSpawnAction", kServerLogged, {}},
                                    {"DEBUG", "ZORSpawnAction", "Started process, pid = 1001\n", {}}}));
}

TEST_F(ZORSpawnActionTest, TheCommandIsLoggedAtTheLevelAskedFor) {
    prepare(kServer);
    action.logSpawnParams(ZOR_WARN);
    EXPECT_TRUE(log.has("WARN", "ZORSpawnAction", kServerLogged));
}

TEST_F(ZORSpawnActionTest, TheLogNeverShowsTheEnvironment) {
    std::string secret = "PASSWORD=swordfish";
    char* environment[] = {secret.data(), nullptr};
    ZORBootstrapService::m_envp = environment;
    prepare(kServer);
    action.execute();
    os.failForks(1, EAGAIN);
    action.execute();
    EXPECT_TRUE(log.has("ERROR", "ZORSpawnAction", kServerLogged));
    EXPECT_EQ(log.raw().find("swordfish"), std::string::npos);
    EXPECT_EQ(log.raw().find("environment"), std::string::npos);
}

TEST_F(ZORSpawnActionTest, TheProgramGetsTheServicesEnvironment) {
    std::string first = "A=1";
    std::string second = "B=2";
    char* environment[] = {first.data(), second.data(), nullptr};
    ZORBootstrapService::m_envp = environment;
    prepare("<path>/bin/server</path>");
    EXPECT_EQ(executed(), (Texts{"/bin/server", "/bin/server", "A=1", "B=2"}));
}

TEST_F(ZORSpawnActionTest, WithoutAnEnvironmentTheProgramGetsAnEmptyOne) {
    ZORBootstrapService::m_envp = nullptr;
    prepare("<path>/bin/server</path>");
    EXPECT_EQ(executed(), (Texts{"/bin/server", "/bin/server"}));
}

TEST_F(ZORSpawnActionTest, SyncPausesAfterASuccessfulFork) {
    prepare(kServer, "sync='5' wait_time='1'");
    os.at(4999, [&] { EXPECT_FALSE(log.has("DEBUG", "ZORSpawnAction", "Started process, pid = 1001\n")); });
    EXPECT_EQ(action.execute(), 1001);
    EXPECT_EQ(os.sleeps(), (std::vector<std::int64_t>{5000, 1000}));
}

TEST_F(ZORSpawnActionTest, ANegativeSyncDoesNotPause) {
    prepare(kServer, "sync='-5'");
    EXPECT_EQ(action.execute(), 1001);
    EXPECT_EQ(os.nowMs(), 0);
}

TEST_F(ZORSpawnActionTest, AFailedForkReturnsAtOnceAndLogsTheCommandAsAnError) {
    prepare(kServer, "sync='5'");
    action.execute();
    log.clear();
    os.failForks(1, EAGAIN);
    EXPECT_EQ(action.execute(), -1);
    EXPECT_EQ(action.getProcessHandle(), -1);
    EXPECT_EQ(os.sleeps().size(), 1U) << "only the successful one pauses";
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{
                  {"DEBUG", "ZORSpawnAction", kServerLogged, {}},
                  {"ERROR", "ZORSpawnAction", "spawn failed, errno: " + std::to_string(EAGAIN), {}},
                  {"ERROR", "ZORSpawnAction", kServerLogged, {}}}));
}

TEST_F(ZORSpawnActionTest, AProgramThatCannotBeExecutedEndsTheForkedChildWithStatusZero) {
    prepare("<path>/no/such/program</path>", "sync='5'");
    os.forkIntoChild(ENOENT);
    log.clear();
    try {
        action.execute();
        ADD_FAILURE() << "the forked child went on";
    } catch (const VirtualOs::ProcessExit& exit) {
        EXPECT_EQ(exit.status, 0);
    }
    EXPECT_EQ(log.lines().back(), (LogLine{"FATAL", "ZORSpawnAction", "execve failed, errno=2", {}}));
    EXPECT_TRUE(os.sleeps().empty());
    EXPECT_TRUE(os.kills().empty());
}

}  // namespace
