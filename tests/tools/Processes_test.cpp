// What is read of processes, and that it costs as much for each as for any other.

#include "CTLProcesses.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

#include "FakeProc.h"
#include "TestKit.h"

namespace {

// How often something is opened or examined in finding out about so many children.
std::size_t looksAt(const std::string& folder, int children) {
    FakeProc proc(folder);
    proc.add({10, 1, "service", {"service"}, FakeProc::kBoot});
    for (int child = 0; child < children; ++child)
        proc.add(
            {100 + child, 10, "child", {"child", std::to_string(child)}, FakeProc::kBoot, {}, {}, 'S', 1});
    const CTLProcesses processes(proc.path());
    const std::size_t before = processes.looks();
    for (const pid_t pid : processes.childrenOf(10)) {
        EXPECT_TRUE(processes.find(pid));
        EXPECT_EQ(processes.argumentsOf(pid).size(), 2U);
        EXPECT_EQ(processes.descriptorsOf(pid), 1);
    }
    return processes.looks() - before;
}

}  // namespace

TEST(ProcessesTest, ThisProcessIsSeenAsItIs) {
    const CTLProcesses processes;
    const std::optional<CTLProcess> self = processes.find(getpid());
    ASSERT_TRUE(self);
    EXPECT_EQ(self->parent, getppid());
    EXPECT_EQ(self->user, geteuid());
    EXPECT_GT(self->memoryBytes, 1000000);
    EXPECT_EQ(self->threads, 1);
    EXPECT_LE(self->started, std::time(nullptr) + 1);
    EXPECT_GE(self->started, std::time(nullptr) - 120);
    EXPECT_GE(processes.descriptorsOf(getpid()).value_or(0), 3);
    EXPECT_EQ(processes.compare(getpid(), "cwd", "."), CTLProcesses::Link::Same);
    EXPECT_EQ(processes.compare(getpid(), "cwd", "/proc"), CTLProcesses::Link::Other);
}

TEST(ProcessesTest, ChildrenAreFoundWithListsAndWithout) {
    for (const bool withLists : {true, false}) {
        const InstallFolder folder;
        FakeProc proc(folder.path("proc"), withLists);
        proc.add({10, 1});
        proc.add({12, 10});
        proc.add({11, 10});
        proc.add({13, 11});
        EXPECT_EQ(CTLProcesses(proc.path()).childrenOf(10), (std::vector<pid_t>{11, 12}));
    }
}

TEST(ProcessesTest, RealChildrenAreFound) {
    const pid_t child = fork();
    if (child == 0) {
        pause();
        _exit(0);
    }
    EXPECT_EQ(CTLProcesses().childrenOf(getpid()), std::vector<pid_t>{child});
    kill(child, SIGKILL);
}

TEST(ProcessesTest, ANameMayHoldBracketsAndBlanks) {
    const InstallFolder folder;
    FakeProc proc(folder.path("proc"));
    proc.add({10, 7, "a) R 99 (b", {}, FakeProc::kBoot + 5});
    const std::optional<CTLProcess> found = CTLProcesses(proc.path()).find(10);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->name, "a) R 99 (b");
    EXPECT_EQ(found->parent, 7);
    EXPECT_EQ(found->started, FakeProc::kBoot + 5);
}

TEST(ProcessesTest, ACommandLineWithoutEndIsCut) {
    const InstallFolder folder;
    FakeProc proc(folder.path("proc"));
    proc.add({10, 1, "talker", {std::string(3 * 1024 * 1024, 'x')}, FakeProc::kBoot});
    const std::vector<std::string> arguments = CTLProcesses(proc.path()).argumentsOf(10);
    ASSERT_EQ(arguments.size(), 1U);
    EXPECT_LT(arguments[0].size(), 2U * 1024 * 1024);
}

TEST(ProcessesTest, TheWorkGrowsWithTheChildrenAndNoFaster) {
    const InstallFolder folder;
    const std::size_t one = looksAt(folder.path("one"), 1);
    const std::size_t hundred = looksAt(folder.path("hundred"), 100);
    const std::size_t many = looksAt(folder.path("many"), 500);
    EXPECT_EQ((hundred - one) % 99, 0U);
    const std::size_t each = (hundred - one) / 99;
    EXPECT_LE(each, 6U);
    EXPECT_EQ(many - hundred, 400 * each);
}
