// What commands do with files of another kind, or in folders of another user, than they should be. Where a folder is
// another user's the commands are root's, so the user of these tests must be root.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <chrono>

#include "ServiceUnderTest.h"

namespace {

namespace fs = std::filesystem;

constexpr uid_t kUser = 12345;
constexpr gid_t kGroup = 12346;
constexpr const char* kPidFile = "logs/velbootstrap_service.pid";
// All that a service's user could put something else in the place of.
constexpr const char* kServicesFiles[] = {
    kPidFile,         "temp/zor.prefs", "temp/zordaemonwait", "logs/zordefault.log",
    "logs/start.log", "logs/stop.log",  "logs/isrunning.log", "logs/run.log"};
// A device is /dev/zero, and what is endless is a link to it.
enum class Kind { Pipe, Socket, Device, Endless, Huge, Folder };
constexpr const char* kNoFolder = "this test gives folders to other users, which needs root";

class PrivilegesTest : public SystemTest {
  protected:
    // The folders that a service's user may write in are that user's.
    void giveFolders() {
        for (const char* const relative : {"logs", "temp"})
            ASSERT_EQ(chown(service.path(relative).c_str(), kUser, kGroup), 0);
        service.write("precious", "precious");
        fs::permissions(service.path("precious"), fs::perms{0644});
    }
    void linkToPrecious(const std::string& relative) const {
        service.remove(relative);
        fs::create_symlink("../precious", service.path(relative));
    }
    struct stat statusOf(const std::string& relative) const {
        struct stat status {};
        EXPECT_EQ(lstat(service.path(relative).c_str(), &status), 0) << relative;
        return status;
    }
    // Ends, and soon: a command takes no notice of signals.
    RunResult endsInTime(const ServiceUnderTest::Launch& launch, int seconds = 15) {
        return service.finish(service.begin(launch), seconds);
    }
    void plant(Kind kind, const std::string& relative) const {
        const std::string file = service.path(relative);
        fs::remove_all(file);
        switch (kind) {
            case Kind::Pipe:
                return make(file, S_IFIFO, 0);
            case Kind::Socket:
                return make(file, S_IFSOCK, 0);
            case Kind::Device:
                return make(file, S_IFCHR, makedev(1, 5));
            case Kind::Endless:
                return fs::create_symlink("/dev/zero", file);
            case Kind::Folder:
                return void(fs::create_directory(file));
            case Kind::Huge:
                service.write(relative, "1");
        }
        fs::resize_file(file, 1ULL << 40);
    }
    static void make(const std::string& file, mode_t kind, dev_t device) {
        ASSERT_EQ(mknod(file.c_str(), kind | 0666, device), 0) << file;
    }
    void pipeAs(const std::string& relative) const {
        service.remove(relative);
        ASSERT_EQ(mkfifo(service.path(relative).c_str(), 0666), 0);
    }
};

// ---- Kinds of files ----

TEST_F(PrivilegesTest, APipeInAnyFilesPlaceHoldsNoCommand) {
    for (const char* const file : {kPidFile, "temp/zor.prefs", "temp/zordaemonwait", "logs/zordefault.log",
                                   "logs/isrunning.log", "configuration/zorEnvironmentVars.ini"}) {
        pipeAs(file);
        EXPECT_EQ(endsInTime({.arguments = {"-isrunning"}}).exitCode, 1) << file;
        service.remove(file);
    }
}

TEST_F(PrivilegesTest, APipeAsStartupConfigurationIsToldSo) {
    pipeAs("configuration/startup.xml");
    EXPECT_NE(endsInTime({.arguments = {"-isrunning"}}).err.find("startup.xml\": is not a regular file"),
              std::string::npos);
}

TEST_F(PrivilegesTest, PreferencesWithoutEndAreNotRead) {
    fs::create_symlink("/dev/zero", service.path("temp/zor.prefs"));
    EXPECT_EQ(endsInTime({.arguments = {"-isrunning"}}).exitCode, 1);
    EXPECT_TRUE(service.logged("DEBUG", "ZORBootstrapService",
                               "ZOR Java properties file \"../temp/zor.prefs\" is NOT found.", "isrunning"));
}

TEST_F(PrivilegesTest, APidFileThatIsAPipeCannotBeWritten) {
    pipeAs(kPidFile);
    const pid_t daemon = service.begin({.arguments = {"-d"}});
    EXPECT_TRUE(
        service.waitForLog("WARN", "ZORBootstrapService",
                           "Process ID could not be written to file.  The velbootstrapservice -stop command "
                           "will not work. Use 'kill -9' instead."));
    stopDaemon(daemon);
}

TEST_F(PrivilegesTest, ABootstrapDocumentMayComeThroughAPipe) {
    int ends[2] = {};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const std::string document = service.read("bin/bootstrap_linuxi38632.xml");
    ASSERT_EQ(write(ends[1], document.data(), document.size()), static_cast<ssize_t>(document.size()));
    close(ends[1]);
    const std::string name = "/dev/fd/" + std::to_string(ends[0]);
    EXPECT_EQ(endsInTime({.arguments = {"-isrunning", "-config=" + name}, .kept = ends[0]}).exitCode, 1);
    close(ends[0]);
    EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService", "Process is not running.", "isrunning"));
}

TEST_F(PrivilegesTest, ADocumentsPipeThatNobodyWritesToIsGivenUp) {
    pipeAs("temp/document");
    const std::string pipe = service.path("temp/document");
    EXPECT_EQ(endsInTime({.arguments = {"-isrunning", "-config=" + pipe}}, 30).exitCode, 1);
    EXPECT_TRUE(service.logged("FATAL", "ZORBootstrapService",
                               "Error parsing bootstrap.xml file = \"" + pipe +
                                   "\", error string = \"does not come to its end in time\"",
                               "isrunning"));
}

TEST_F(PrivilegesTest, NothingInTheFilesPlacesHoldsUpOrEndsACommandOfRoots) {
    ASSERT_EQ(geteuid(), 0U) << kNoFolder;
    giveFolders();
    for (const Kind kind :
         {Kind::Pipe, Kind::Socket, Kind::Device, Kind::Endless, Kind::Huge, Kind::Folder}) {
        SCOPED_TRACE(static_cast<int>(kind));
        for (const char* const file : kServicesFiles)
            plant(kind, file);
        for (const char* const command : {"-isrunning", "-stop", "-start"})
            EXPECT_EQ(
                endsInTime({.arguments = {command, "-testReadyTries=1", "-testReadyInterval=1"}}, 30).signal,
                0)
                << command;
        service.cleanUp();
        EXPECT_EQ(service.read("precious"), "precious");
    }
}

// ---- Rights ----

TEST_F(PrivilegesTest, ThePidFileIsForAllToReadAndLogsAreNot) {
    const mode_t before = umask(0);
    const pid_t daemon = runningInForeground();
    umask(before);
    EXPECT_EQ(statusOf(kPidFile).st_mode & ALLPERMS, 0644U);
    EXPECT_EQ(statusOf("logs/run.log").st_mode & ALLPERMS, 0640U);
    EXPECT_EQ(statusOf("logs/zordefault.log").st_mode & ALLPERMS, 0640U);
    stopDaemon(daemon);
}

// ---- Root in another user's folders ----

TEST_F(PrivilegesTest, RootWritesThroughNoLinkOfAnotherUser) {
    ASSERT_EQ(geteuid(), 0U) << kNoFolder;
    giveFolders();
    for (const char* const file : {"logs/zordefault.log", "logs/run.log", kPidFile})
        linkToPrecious(file);
    const pid_t daemon = service.begin({.arguments = {"-d"}});
    ASSERT_TRUE(service.waitForStarts(1));
    stopDaemon(daemon);
    EXPECT_EQ(service.read("precious"), "precious");
}

TEST_F(PrivilegesTest, RootWritesToNoFurtherNameOfAFile) {
    ASSERT_EQ(geteuid(), 0U) << kNoFolder;
    giveFolders();
    for (const char* const file : {"logs/zordefault.log", "logs/isrunning.log"})
        fs::create_hard_link(service.path("precious"), service.path(file));
    service.run({"-isrunning"});
    EXPECT_EQ(service.read("precious"), "precious");
}

TEST_F(PrivilegesTest, RootMakesNoTemporaryFolderBehindAnotherUsersLink) {
    ASSERT_EQ(geteuid(), 0U) << kNoFolder;
    giveFolders();
    fs::create_symlink("..", service.path("temp/up"));
    service.startup("<ZOR/><temp>../temp/up/made</temp>");
    service.run({"-isrunning"});
    EXPECT_FALSE(service.exists("made"));
    service.startup("<ZOR/><temp>../temp/made</temp>");
    service.run({"-isrunning"});
    EXPECT_EQ(statusOf("temp/made").st_uid, kUser);
}

TEST_F(PrivilegesTest, WhatRootCreatesInAnotherUsersFolderIsThatUsers) {
    ASSERT_EQ(geteuid(), 0U) << kNoFolder;
    giveFolders();
    const pid_t daemon = service.begin({.arguments = {"-d"}});
    EXPECT_TRUE(service.waitForLog(
        "WARN", "ZORBootstrapService",
        "PID file \"" + service.path(kPidFile) +
            "\" belongs to the user with id 12345, so commands will not find this process. "
            "Run the service and its commands as that user."));
    for (const char* const file : {kPidFile, "logs/run.log", "logs/zordefault.log"}) {
        EXPECT_EQ(statusOf(file).st_uid, kUser) << file;
        EXPECT_EQ(statusOf(file).st_gid, kGroup) << file;
    }
    stopDaemon(daemon);
}

TEST_F(PrivilegesTest, LinksThatRootMadeLeadOn) {
    ASSERT_EQ(geteuid(), 0U) << kNoFolder;
    fs::rename(service.path("logs"), service.path("elsewhere"));
    fs::create_symlink(service.path("elsewhere"), service.path("logs"));
    ASSERT_EQ(chown(service.path("elsewhere").c_str(), kUser, kGroup), 0);
    EXPECT_EQ(service.run({"-isrunning"}).exitCode, 1);
    EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService", "Process is not running.", "isrunning"));
    EXPECT_EQ(statusOf("elsewhere/isrunning.log").st_uid, kUser);
}

TEST_F(PrivilegesTest, AnOrdinaryUsersLinksLeadOn) {
    fs::create_symlink(service.path("temp/moved.log"), service.path("logs/isrunning.log"));
    service.asOrdinaryUser();
    EXPECT_EQ(service.run({"-isrunning"}).exitCode, 1);
    EXPECT_NE(service.read("temp/moved.log").find("Process is not running."), std::string::npos);
}

}  // namespace
