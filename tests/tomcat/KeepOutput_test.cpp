// What a child prints, where the daemon's own standard streams lead nowhere: the script that becomes the child, and a
// JVM that was started by it.

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "ProcessView.h"
#include "TomcatTest.h"

namespace fs = std::filesystem;

namespace {

// The greatest size of each of its two files: the limit, and what is handed on between two looks at it.
constexpr std::uintmax_t kGreatestFileBytes = 1048576 + 64 * 4096;

// The script in an installation's bin/, without a JVM.
class KeepOutputTest : public SystemTest {
  protected:
    void SetUp() override { withJournal(service, "exit 1"); }

    // What the shell, which is to become the command, says elsewhere than on its standard streams; it runs until what
    // was printed has been kept.
    Said runs(const std::string& command, const std::string& streams = ">/dev/null 2>&1",
              const std::string& before = "true") {
        const Said said =
            say({"bash", "-c",
                 "cd \"$1\" && " + before + " && exec 9>&1 && exec \"$2\" child sh -c \"$3\" " + streams,
                 "sh", service.path("bin"), VBS_SAMPLE "/bin/keep-output", command});
        EXPECT_TRUE(service.waitFor("nobody keeps anything", [&] { return service.processes().empty(); }));
        return said;
    }
    std::string kept() const { return service.read("logs/child.out"); }

  private:
    SearchPath m_tools{service.path("tools")};
};

}  // namespace

TEST_F(KeepOutputTest, WhatLeadsNowhereIsKeptInAFile) {
    EXPECT_EQ(runs("echo said; echo complained >&2; exit 7").exitCode, 7);
    EXPECT_EQ(kept(), "said\ncomplained\n");
    EXPECT_EQ(runs("printf again").exitCode, 0);
    EXPECT_EQ(kept(), "said\ncomplained\nagain");
}

TEST_F(KeepOutputTest, TheFileIsNobodyElsesWhateverTheUmask) {
    runs("echo said", ">/dev/null 2>&1", "umask 0");
    EXPECT_EQ(fs::status(service.path("logs/child.out")).permissions(), fs::perms{0640});
    service.remove("logs/child.out");
    runs("echo said", ">/dev/null 2>&1", "umask 077");
    EXPECT_EQ(fs::status(service.path("logs/child.out")).permissions(), fs::perms{0600});
}

TEST_F(KeepOutputTest, TheFilesStaySmallAndHoldTheEnd) {
    EXPECT_EQ(runs("seq 2000000; echo the end").exitCode, 0);
    EXPECT_LE(fs::file_size(service.path("logs/child.out")), kGreatestFileBytes);
    EXPECT_LE(fs::file_size(service.path("logs/child.out.1")), kGreatestFileBytes);
    const std::string all = service.read("logs/child.out.1") + kept();
    EXPECT_NE(all.find("\n1999999\n2000000\nthe end\n"), std::string::npos);
    EXPECT_EQ(std::distance(fs::directory_iterator(service.path("logs")), fs::directory_iterator()), 2);
}

TEST_F(KeepOutputTest, TheCommandIsTheSameProcessAndHasNoChildOfOthers) {
    const Said said = runs("echo $$ >&9; cat /proc/$$/task/$$/children >&9", ">/dev/null 2>&1", "echo $$");
    EXPECT_EQ(said.exitCode, 0);
    const std::string first = said.words.substr(0, said.words.find('\n') + 1);
    // Then a line for the command that looks; an id and a blank for it.
    EXPECT_EQ(said.words.substr(0, 2 * first.size()), first + first);
    const std::string children = said.words.substr(2 * first.size());
    EXPECT_EQ(std::count(children.begin(), children.end(), ' '), 1) << children;
}

TEST_F(KeepOutputTest, WhatLeadsSomewhereIsLeftAlone) {
    EXPECT_EQ(runs("echo said; echo complained >&2", "2>&1").words, "said\ncomplained\n");
    EXPECT_EQ(runs("echo lost; echo complained >&2", "2>&1 >/dev/null").words, "complained\n");
    EXPECT_EQ(runs("echo closed >&9", ">&- 2>&-").words, "closed\n");
    EXPECT_FALSE(service.exists("logs/child.out"));
}

TEST_F(KeepOutputTest, WhereThereIsAJournalTheCommandIsHandedToIt) {
    withJournal(
        service,
        "echo \"$@\" >>../logs/calls\n[ \"$1\" = true ] || exec sh -c 'shift; shift; exec \"$@\"' sh \"$@\"");
    EXPECT_EQ(runs("echo $$ >&9", ">/dev/null 2>&1").exitCode, 0);
    EXPECT_EQ(service.read("logs/calls"), "true\n--identifier=child --level-prefix=no sh -c echo $$ >&9\n");
    EXPECT_FALSE(service.exists("logs/child.out"));
}

TEST_F(KeepOutputTest, AJournalThatDoesNotAnswerIsWaitedForAMomentOnly) {
    withJournal(service, "exec sleep 600");
    EXPECT_EQ(runs("echo said").exitCode, 0);
    EXPECT_EQ(kept(), "said\n");
}

TEST_F(KeepOutputTest, NobodyWaitsForADiskThatIsFull) {
    // In the shell's blocks of 1024 bytes.
    EXPECT_EQ(runs("seq 200000; echo done >&9", ">/dev/null 2>&1", "trap '' XFSZ && ulimit -f 16").words,
              "done\n");
    EXPECT_EQ(fs::file_size(service.path("logs/child.out")), 16384U);
}

TEST_F(KeepOutputTest, ACommandThatIsNotThereIsNamed) {
    EXPECT_EQ(say({"bash", "-c", "cd \"$1\" && \"$2\" child /nowhere/java >/dev/null 2>&1", "sh",
                   service.path("bin"), VBS_SAMPLE "/bin/keep-output"})
                  .exitCode,
              127);
    EXPECT_TRUE(
        service.waitFor("its words", [&] { return kept().find("/nowhere/java") != std::string::npos; }));
}

TEST_F(TomcatTest, WhatTheJvmPrintsIsKeptAndItIsTheDaemonsOwnChild) {
    const pid_t daemon = started();
    const pid_t tomcat = jvm();
    ASSERT_GT(tomcat, 0);
    EXPECT_EQ(ProcessView(tomcat).status("PPid"), std::to_string(daemon));
    EXPECT_EQ(ProcessView(tomcat).content("task/" + std::to_string(tomcat) + "/children"), "");
    ASSERT_EQ(kill(tomcat, SIGQUIT), 0);
    EXPECT_TRUE(service.waitFor("a thread dump", [&] {
        return service.read("logs/tomcat.out").find("Full thread dump") != std::string::npos;
    }));
    EXPECT_EQ(stop().exitCode, 0);
}

TEST_F(TomcatTest, ABadJvmOptionIsToldInItsOwnWords) {
    const RunResult result = service.run(
        ServiceUnderTest::Launch{.arguments = {"-start", "-testReadyInterval=1", "-testReadyTries=3"},
                                 .environment = {{"JDK_JAVA_OPTIONS", "-Xnonsense"}},
                                 .withoutVariables = {"JAVA_HOME"}});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(service.waitFor("its words", [&] {
        return service.read("logs/tomcat.out").find("Unrecognized option: -Xnonsense") != std::string::npos;
    }));
    EXPECT_EQ(stop().exitCode, 0);
}
