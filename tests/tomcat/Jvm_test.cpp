// How a JVM takes to being born with the termination signals blocked; the operation guide relies on it.

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <map>

#include "ProcessView.h"
#include "TomcatTest.h"

namespace fs = std::filesystem;

namespace {

// The signals that each thread of a process blocks, by the thread's name; the initial thread goes by "initial".
std::map<std::string, std::string> blockedSignals(pid_t pid) {
    std::map<std::string, std::string> blocked;
    for (const auto& thread : fs::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        const std::string id = thread.path().filename().string();
        const std::string status = ProcessView(pid).content("task/" + id + "/status");
        const std::string name = id == std::to_string(pid) ? "initial" : ProcessView::field(status, "Name");
        blocked[name] = ProcessView::field(status, "SigBlk");
    }
    return blocked;
}

std::string maskOf(std::initializer_list<int> signals) {
    unsigned mask = 0;
    for (const int signal : signals)
        mask |= 1U << static_cast<unsigned>(signal - 1);
    char digits[17];
    std::snprintf(digits, sizeof digits, "%016x", mask);
    return digits;
}

}  // namespace

TEST_F(TomcatTest, TheJvmHearsTheSignalsThatItIsBornDeafTo) {
    // Reaches the JVM through the environment that the service was started with.
    const std::string log = "logs/jvm.log";
    const RunResult result = service.run(ServiceUnderTest::Launch{
        .arguments = {"-start", "-testReadyInterval=1", "-testReadyTries=60"},
        .environment = {{"JDK_JAVA_OPTIONS",
                         "-XX:+UnlockDiagnosticVMOptions -XX:+LogVMOutput -XX:LogFile=" + service.path(log)}},
        .withoutVariables = {"JAVA_HOME"}});
    ASSERT_EQ(result.exitCode, 0) << testing::PrintToString(result);
    const pid_t tomcat = jvm();

    const std::map<std::string, std::string> blocked = blockedSignals(tomcat);
    EXPECT_EQ(blocked.at("initial"), maskOf({SIGHUP, SIGINT, SIGQUIT, SIGTERM}));
    EXPECT_EQ(blocked.at("VM Thread"), maskOf({}));
    EXPECT_EQ(blocked.at("Signal Dispatch"), maskOf({SIGQUIT}));

    ASSERT_EQ(kill(tomcat, SIGQUIT), 0);
    EXPECT_TRUE(service.waitFor(
        "a thread dump", [&] { return service.read(log).find("Full thread dump") != std::string::npos; }));
    EXPECT_TRUE(isPingedWell());
    EXPECT_EQ(jvm(), tomcat);

    ASSERT_EQ(kill(tomcat, SIGTERM), 0);
    jvmAfter(tomcat);
    EXPECT_EQ(applicationTold("closed in order"), 1U);
    EXPECT_TRUE(isPingedWell());
    EXPECT_EQ(stop().exitCode, 0);
}
