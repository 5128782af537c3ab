// Whether the process of the PID file is really the service.

#include "CTLDaemon.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utime.h>

#include <filesystem>

#include "CTLInstance.h"
#include "FakeProc.h"
#include "TestKit.h"

namespace fs = std::filesystem;

namespace {

constexpr pid_t kPid = 4711;
constexpr std::time_t kStarted = FakeProc::kBoot + 1000;
constexpr std::time_t kWritten = kStarted + 5;

class DaemonTest : public testing::Test {
  protected:
    DaemonTest() : proc(folder.path("proc")) {
        folder.write("bin/velbootstrapservice", "program");
        folder.write("bin/another", "another program");
        pidFile(std::to_string(kPid) + "\n");
    }

    void pidFile(const std::string& text, std::time_t written = kWritten) const {
        folder.write("logs/velbootstrap_service.pid", text);
        const utimbuf times{written, written};
        ASSERT_EQ(utime(pidPath().c_str(), &times), 0);
    }
    std::string pidPath() const { return folder.path("logs/velbootstrap_service.pid"); }
    FakeProcess service() const {
        return {kPid,
                1,
                "velbootstrapser",
                {"./velbootstrapservice", "runAsDaemon"},
                kStarted,
                folder.path("bin/velbootstrapservice"),
                folder.path("bin")};
    }
    CTLDaemon daemon() const { return CTLDaemon::of(CTLInstance(folder.path()), CTLProcesses(proc.path())); }

    InstallFolder folder;
    FakeProc proc;
};

}  // namespace

TEST_F(DaemonTest, ItRunsWhenProgramFolderUserAndAgeAreRight) {
    proc.add(service());
    const CTLDaemon found = daemon();
    EXPECT_EQ(found.verdict(), CTLVerdict::Running) << found.reason();
    ASSERT_TRUE(found.process());
    EXPECT_EQ(found.process()->pid, kPid);
    EXPECT_EQ(found.process()->started, kStarted);
    EXPECT_EQ(found.process()->threads, 2);
    EXPECT_EQ(found.arguments().at(1), "runAsDaemon");
    EXPECT_TRUE(found.notes().empty());
}

TEST_F(DaemonTest, WithoutAPidFileItDoesNotRun) {
    fs::remove(pidPath());
    EXPECT_EQ(daemon().verdict(), CTLVerdict::NotRunning);
}

TEST_F(DaemonTest, AServiceThatThePidFileDoesNotNameIsNoted) {
    fs::remove(pidPath());
    proc.add(service());
    FakeProcess asking = service();
    asking.pid = 4712;
    asking.arguments = {"./velbootstrapservice", "-isrunning"};
    proc.add(asking);
    const CTLDaemon found = daemon();
    EXPECT_EQ(found.verdict(), CTLVerdict::NotRunning);
    ASSERT_EQ(found.notes().size(), 1U);
    EXPECT_NE(found.notes()[0].find("process 4711"), std::string::npos) << found.notes()[0];
}

TEST_F(DaemonTest, APidFileOfAProcessThatHasEndedIsStale) {
    EXPECT_EQ(daemon().verdict(), CTLVerdict::Stale);
    EXPECT_EQ(daemon().reason(), "process 4711 has ended");
}

TEST_F(DaemonTest, AProcessThatWaitsToBeReapedHasEnded) {
    FakeProcess ended = service();
    ended.state = 'Z';
    proc.add(ended);
    EXPECT_EQ(daemon().verdict(), CTLVerdict::Stale);
}

TEST_F(DaemonTest, APidFileFromBeforeTheMachinesStartSaysSo) {
    pidFile("4711\n", FakeProc::kBoot - 100);
    EXPECT_EQ(daemon().reason(), "process 4711 has ended; the PID file is from before the machine's start");
}

TEST_F(DaemonTest, AnotherProgramHasUsedTheIdAgain) {
    FakeProcess other = service();
    other.exe = folder.path("bin/another");
    proc.add(other);
    EXPECT_EQ(daemon().verdict(), CTLVerdict::UsedAgain);
    EXPECT_NE(daemon().reason().find("bin/another\""), std::string::npos) << daemon().reason();
}

TEST_F(DaemonTest, TheServiceOfAnotherFolderHasUsedTheIdAgain) {
    FakeProcess other = service();
    other.cwd = folder.path("logs");
    proc.add(other);
    EXPECT_EQ(daemon().verdict(), CTLVerdict::UsedAgain);
}

TEST_F(DaemonTest, ACommandThatCameAfterThePidFileHasUsedTheIdAgain) {
    FakeProcess later = service();
    later.started = kWritten + 3;
    later.arguments = {"./velbootstrapservice", "-stop"};
    proc.add(later);
    EXPECT_EQ(daemon().verdict(), CTLVerdict::UsedAgain);
    EXPECT_NE(daemon().reason().find("was started after the PID file was written"), std::string::npos);
}

TEST_F(DaemonTest, AServiceWithADocumentOfItsOwnDoesNotWriteThisPidFile) {
    FakeProcess later = service();
    later.started = kWritten + 3;
    later.arguments = {"./velbootstrapservice", "-d", "-config=other.xml"};
    proc.add(later);
    EXPECT_EQ(daemon().verdict(), CTLVerdict::UsedAgain);
}

TEST_F(DaemonTest, AfterTheClockWasSetItIsStillTheService) {
    FakeProcess later = service();
    later.started = kWritten + 3600;
    proc.add(later);
    const CTLDaemon found = daemon();
    EXPECT_EQ(found.verdict(), CTLVerdict::Running) << found.reason();
    ASSERT_EQ(found.notes().size(), 1U);
    EXPECT_NE(found.notes()[0].find("the clock has been set"), std::string::npos);
}

TEST_F(DaemonTest, AProgramThatWasReplacedWhileItRunsIsStillTheService) {
    FakeProcess old = service();
    old.exe = folder.path("bin/velbootstrapservice") + " (deleted)";
    proc.add(old);
    const CTLDaemon found = daemon();
    EXPECT_EQ(found.verdict(), CTLVerdict::Running) << found.reason();
    ASSERT_EQ(found.notes().size(), 1U);
    EXPECT_NE(found.notes()[0].find("replaced"), std::string::npos);
}

// What others may put in the PID file's place.

TEST_F(DaemonTest, APidFileWithoutANumberNamesNobody) {
    for (const char* const text : {"", "\n", "none\n", "0\n", "-1\n", "-4711\n"}) {
        pidFile(text);
        EXPECT_EQ(daemon().verdict(), CTLVerdict::Stale) << text;
    }
}

TEST_F(DaemonTest, APipeAFolderAndAnEndlessFileAreNoPidFile) {
    fs::remove(pidPath());
    ASSERT_EQ(mkfifo(pidPath().c_str(), 0600), 0);
    EXPECT_EQ(daemon().verdict(), CTLVerdict::Stale);
    fs::remove(pidPath());
    fs::create_directory(pidPath());
    EXPECT_EQ(daemon().verdict(), CTLVerdict::Stale);
    fs::remove(pidPath());
    fs::create_symlink("/dev/zero", pidPath());
    EXPECT_EQ(daemon().verdict(), CTLVerdict::Stale);
}

TEST_F(DaemonTest, AHugePidFileIsNone) {
    proc.add(service());
    pidFile("4711\n" + std::string(100000, 'x'));
    const CTLDaemon found = daemon();
    EXPECT_EQ(found.verdict(), CTLVerdict::Stale);
    EXPECT_NE(found.reason().find("is larger than"), std::string::npos) << found.reason();
}
