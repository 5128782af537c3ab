// What takes its time: the patience of the defaults, and many restarts.

#include <csignal>

#include "ServiceUnderTest.h"

namespace {

using PatienceTest = SystemTest;

TEST_F(PatienceTest, ASilentChildIsAskedToStopAtTheTwelfthFailedPing) {
    const ReservedPort port;
    BootstrapXml document;
    document.children[0].pinged(port).options.clear();
    document.children[0].stop = "<stop type=\"spawn\"><spawn><path>/bin/true</path></spawn></stop>";
    service.bootstrap(document);
    const pid_t daemon = runningInForeground({"$$dispatcherPingTimeout=2"});
    ASSERT_TRUE(service.waitForLog(
        "WARN", "PingChildProcess",
        "process alpha hit ping failure limit, will restart, but first make sure it is really dead.", 90));
    EXPECT_EQ(service.countLogged("DEBUG", "PingChildProcess",
                                  "ping of process alpha failed. Will begin restart sequence."),
              12U);
    EXPECT_TRUE(service.logged("DEBUG", "PingChildProcess", "Pinging process alpha. Ping counter: 1"));
    EXPECT_EQ(service.childPids().size(), 1U);
    ASSERT_TRUE(service.waitForStarts(2));
    stopDaemon(daemon);
}

TEST_F(PatienceTest, ManyRestartsCostNothing) {
    BootstrapXml document;
    document.children = {ChildXml{.options = {"exit"}}, ChildXml{.name = "beta", .options = {"exit"}},
                         ChildXml{.name = "gamma", .path = "${bin_path}/nothing"}};
    service.bootstrap(document);
    const pid_t daemon = runningInForeground();
    const auto entries = [&](const char* folder) {
        const std::filesystem::directory_iterator all("/proc/" + std::to_string(daemon) + "/" + folder);
        return std::distance(begin(all), end(all));
    };
    ASSERT_TRUE(service.waitForStarts(3, "beta"));
    const auto descriptors = entries("fd");
    const auto threads = entries("task");
    ASSERT_TRUE(service.waitForStarts(30, "beta", 60));
    EXPECT_EQ(entries("fd"), descriptors);
    EXPECT_EQ(entries("task"), threads);
    stopDaemon(daemon);
}

}  // namespace
