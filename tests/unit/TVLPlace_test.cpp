// What root opens, creates and refuses in folders of other users. The user of these tests must be root: only root can
// give folders away.

#include "TVLPlace.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "TVLFile.h"
#include "TVLFmDir.h"
#include "TestKit.h"

namespace {

namespace fs = std::filesystem;

constexpr uid_t kUser = 12345;
constexpr gid_t kGroup = 12346;
constexpr const char* kLinkRefusal = "lies behind a symbolic link in a folder that is not root's";

class TVLPlaceTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(geteuid(), 0U) << "this test gives folders to other users, which needs root";
        folder.write("bin/precious", "precious");
        give("logs");
    }

    void give(const std::string& relative, uid_t user = kUser, gid_t group = kGroup) const {
        ASSERT_EQ(lchown(folder.path(relative).c_str(), user, group), 0);
    }
    void link(const std::string& target, const std::string& relative) const {
        fs::create_symlink(target, folder.path(relative));
    }
    struct stat statusOf(const std::string& relative) const {
        struct stat status {};
        EXPECT_EQ(lstat(folder.path(relative).c_str(), &status), 0) << relative;
        return status;
    }
    bool isUsers(const std::string& relative) const {
        return statusOf(relative).st_uid == kUser && statusOf(relative).st_gid == kGroup;
    }
    bool canBeWritten(const std::string& relative) const {
        const bool opened = TVLFile::openLog(folder.path(relative).c_str(), true) != nullptr;
        EXPECT_EQ(TVLFile::openForAllToRead(folder.path(relative).c_str()) != nullptr, opened);
        return opened;
    }
    std::string read(const std::string& relative) const {
        std::string why;
        const TVLFilePtr file = TVLFile::openForReading(folder.path(relative).c_str(), 100, &why);
        return file ? "opened" : why;
    }

    InstallFolder folder;
};

TEST_F(TVLPlaceTest, AnotherUsersLinkIsNotFollowed) {
    link("../bin/precious", "logs/a");
    link("../bin/new", "logs/b");
    EXPECT_EQ(read("logs/a"), kLinkRefusal);
    EXPECT_EQ(errno, EACCES);
    EXPECT_FALSE(canBeWritten("logs/a"));
    EXPECT_FALSE(canBeWritten("logs/b"));
    EXPECT_EQ(folder.read("bin/precious"), "precious");
    EXPECT_FALSE(folder.exists("bin/new"));
}

TEST_F(TVLPlaceTest, ALinkInTheMiddleOfTheWayIsALinkToo) {
    link("../bin", "logs/sub");
    EXPECT_EQ(read("logs/sub/precious"), kLinkRefusal);
    EXPECT_EQ(read("bin/../logs/sub/precious"), kLinkRefusal);
    link("logs/sub", "short");
    EXPECT_EQ(read("short/precious"), kLinkRefusal) << "root's link leads to the other's";
    fs::create_directory(folder.path("logs/own"));
    give("logs/own");
    EXPECT_EQ(read("logs/own/../sub/precious"), kLinkRefusal);
}

TEST_F(TVLPlaceTest, RootsLinksInRootsFoldersAreFollowed) {
    link("logs", "relative");
    link(folder.path("bin"), "absolute");
    link("absolute/../relative/", "both");
    EXPECT_EQ(read("absolute/precious"), "opened");
    EXPECT_TRUE(canBeWritten("both/a"));
    EXPECT_TRUE(isUsers("logs/a"));
    link("missing", "bin/dangling");
    EXPECT_TRUE(canBeWritten("bin/dangling"));
    EXPECT_TRUE(folder.exists("bin/missing"));
}

TEST_F(TVLPlaceTest, AFolderThatOthersMayWriteInIsNotRoots) {
    link("../bin/precious", "temp/a");
    for (const mode_t rights : {0775U, 0757U}) {
        ASSERT_EQ(chmod(folder.path("temp").c_str(), rights), 0);
        EXPECT_EQ(read("temp/a"), kLinkRefusal);
    }
    ASSERT_EQ(chmod(folder.path("temp").c_str(), 0755), 0);
    EXPECT_EQ(read("temp/a"), "opened");
}

TEST_F(TVLPlaceTest, InAStickyFolderOnlyRootsOwnLinkIsFollowed) {
    ASSERT_EQ(chmod(folder.path("temp").c_str(), 01777), 0);
    link("../bin/precious", "temp/roots");
    link("../bin/precious", "temp/others");
    give("temp/others");
    EXPECT_EQ(read("temp/roots"), "opened");
    EXPECT_EQ(read("temp/others"), kLinkRefusal);
    fs::create_hard_link(folder.path("temp/roots"), folder.path("temp/further"));
    EXPECT_EQ(read("temp/further"), kLinkRefusal) << "anybody may have given root's link a further name";
    give("temp", kUser, 0);
    EXPECT_EQ(read("temp/roots"), kLinkRefusal) << "the folder's owner may exchange everything";
}

TEST_F(TVLPlaceTest, WhatIsCreatedBelongsToTheFoldersOwner) {
    ASSERT_TRUE(canBeWritten("logs/a"));
    EXPECT_TRUE(isUsers("logs/a"));
    ASSERT_TRUE(canBeWritten("bin/a"));
    EXPECT_EQ(statusOf("bin/a").st_uid, 0U);
}

TEST_F(TVLPlaceTest, AFurtherNameOfAFileIsNotWritten) {
    fs::create_hard_link(folder.path("bin/precious"), folder.path("logs/a"));
    EXPECT_FALSE(canBeWritten("logs/a"));
    EXPECT_EQ(folder.read("bin/precious"), "precious");
    fs::remove(folder.path("logs/a"));
    EXPECT_TRUE(canBeWritten("bin/precious"));
}

TEST_F(TVLPlaceTest, InAnothersFolderOnlyItsOwnersAndRootsFilesAreWritten) {
    folder.write("logs/a", "");
    EXPECT_TRUE(canBeWritten("logs/a"));
    give("logs/a");
    EXPECT_TRUE(canBeWritten("logs/a"));
    give("logs/a", kUser + 1);
    EXPECT_FALSE(canBeWritten("logs/a"));
    ASSERT_EQ(chmod(folder.path("temp").c_str(), 01777), 0);
    folder.write("temp/a", "");
    give("temp/a");
    EXPECT_FALSE(canBeWritten("temp/a"));
}

TEST_F(TVLPlaceTest, LinksOfTheProcessFileSystemAreFollowedByTheKernel) {
    int ends[2] = {};
    ASSERT_EQ(pipe(ends), 0);
    const std::string name = "/dev/fd/" + std::to_string(ends[0]);
    EXPECT_TRUE(TVLFile::openDocument(name.c_str()));
    EXPECT_TRUE(TVLFile::openLog(("/proc/self/fd/" + std::to_string(ends[1])).c_str(), true));
    EXPECT_TRUE(TVLFile::openForReading("/proc/self/cwd/precious", 100));
    EXPECT_TRUE(TVLFile::read("/proc/mounts", 1024 * 1024));
    close(ends[0]);
    close(ends[1]);
}

// What a place keeps while it is used; a program may be started by another thread meanwhile.
TEST_F(TVLPlaceTest, NoProgramInheritsTheFolderOfAPlace) {
    const TVLPlace place(folder.path("logs/a").c_str());
    int kept = 0;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        if (fs::read_symlink(entry.path(), error) != folder.path("logs")) continue;
        ++kept;
        EXPECT_EQ(fcntl(std::atoi(entry.path().filename().c_str()), F_GETFD), FD_CLOEXEC);
    }
    EXPECT_EQ(kept, 1);
}

TEST_F(TVLPlaceTest, OnlyTheNameInTheFolderIsRemoved) {
    link("../bin", "logs/sub");
    link("../bin/precious", "logs/a");
    EXPECT_FALSE(TVLFile::remove(folder.path("logs/sub/precious").c_str()));
    EXPECT_TRUE(TVLFile::remove(folder.path("logs/a").c_str()));
    EXPECT_EQ(folder.read("bin/precious"), "precious");
}

TEST_F(TVLPlaceTest, NewFoldersBelongToTheOwnerOfTheirParent) {
    EXPECT_TRUE(TVLFmDir::createWithParents(folder.path("logs/x/y/").c_str()));
    EXPECT_TRUE(isUsers("logs/x"));
    EXPECT_TRUE(isUsers("logs/x/y"));
    EXPECT_TRUE(TVLFmDir::createWithParents(folder.path("temp/x").c_str()));
    EXPECT_EQ(statusOf("temp/x").st_uid, 0U);
}

TEST_F(TVLPlaceTest, NoFolderIsMadeBehindAnotherUsersLink) {
    link("../bin", "logs/sub");
    EXPECT_FALSE(TVLFmDir::createWithParents(folder.path("logs/sub/x").c_str()));
    EXPECT_FALSE(folder.exists("bin/x"));
}

}  // namespace
