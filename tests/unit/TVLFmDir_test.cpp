#include "TVLFmDir.h"

#include <unistd.h>

#include "TestKit.h"

namespace {

namespace fs = std::filesystem;

class TVLFmDirTest : public testing::Test {
  protected:
    // Leaves the process in a directory that no longer exists.
    void loseTheWorkingDirectory() const {
        fs::create_directory(folder.path("gone"));
        fs::current_path(folder.path("gone"));
        fs::remove(folder.path("gone"));
    }

    InstallFolder folder;
};

TEST_F(TVLFmDirTest, OnlyADirectoryExistsAsOne) {
    folder.write("temp/file", "");
    EXPECT_TRUE(TVLFmDir::exists("../temp"));
    EXPECT_FALSE(TVLFmDir::exists("../temp/file"));
    EXPECT_FALSE(TVLFmDir::exists("../none"));
    EXPECT_FALSE(TVLFmDir::exists(""));
}

TEST_F(TVLFmDirTest, CreatesMissingParents) {
    EXPECT_TRUE(TVLFmDir::createWithParents("../temp/a/b/c"));
    EXPECT_TRUE(fs::is_directory(folder.path("temp/a/b/c")));
}

TEST_F(TVLFmDirTest, ATrailingSlashCreatesTheSame) {
    EXPECT_TRUE(TVLFmDir::createWithParents("../temp/a/b/"));
    EXPECT_TRUE(fs::is_directory(folder.path("temp/a/b")));
}

TEST_F(TVLFmDirTest, CreatingWhatExistsSucceeds) {
    EXPECT_TRUE(TVLFmDir::createWithParents("../temp"));
}

TEST_F(TVLFmDirTest, NothingIsCreatedBelowAFile) {
    folder.write("temp/file", "");
    EXPECT_FALSE(TVLFmDir::createWithParents("../temp/file/a"));
    EXPECT_FALSE(TVLFmDir::createWithParents("../temp/file"));
}

TEST_F(TVLFmDirTest, AnEmptyNameCannotBeCreated) {
    EXPECT_FALSE(TVLFmDir::createWithParents(""));
}

TEST_F(TVLFmDirTest, FullPathsAreAbsoluteAndNormalised) {
    EXPECT_EQ(TVLFmDir::fullPath("."), folder.path("bin"));
    EXPECT_EQ(TVLFmDir::fullPath(".."), folder.path());
    EXPECT_EQ(TVLFmDir::fullPath("./zorlogconfig.xml"), folder.path("bin/zorlogconfig.xml"));
    EXPECT_EQ(TVLFmDir::fullPath("../logs//a/./b/../c"), folder.path("logs/a/c"));
}

TEST_F(TVLFmDirTest, AnAbsolutePathStays) {
    EXPECT_EQ(TVLFmDir::fullPath("/opt/product"), "/opt/product");
    EXPECT_EQ(TVLFmDir::fullPath("/opt/product/../other/"), "/opt/other");
    EXPECT_EQ(TVLFmDir::fullPath("/"), "/");
    EXPECT_EQ(TVLFmDir::fullPath("/../.."), "/");
}

TEST_F(TVLFmDirTest, TheFileNeedNotExist) {
    EXPECT_EQ(TVLFmDir::fullPath("none/at/all"), folder.path("bin/none/at/all"));
}

TEST_F(TVLFmDirTest, FullPathsDoNotFollowSymbolicLinks) {
    fs::create_directory_symlink(folder.path("logs"), folder.path("bin/link"));
    EXPECT_EQ(TVLFmDir::fullPath("link/a"), folder.path("bin/link/a"));
    EXPECT_EQ(TVLFmDir::fullPath("link/.."), folder.path("bin"));
}

TEST_F(TVLFmDirTest, WithoutAWorkingDirectoryRelativePathsAreEmpty) {
    loseTheWorkingDirectory();
    EXPECT_EQ(TVLFmDir::fullPath("."), "");
    EXPECT_EQ(TVLFmDir::fullPath(".."), "");
    EXPECT_EQ(TVLFmDir::fullPath("/opt"), "/opt");
}

TEST_F(TVLFmDirTest, ChangingIntoADirectoryResolvesSymbolicLinks) {
    fs::create_directory_symlink(folder.path("logs"), folder.path("bin/link"));
    EXPECT_EQ(TVLFmDir::resolveByChangingInto("link"), folder.path("logs"));
}

TEST_F(TVLFmDirTest, TheWorkingDirectoryIsRestored) {
    EXPECT_EQ(TVLFmDir::resolveByChangingInto("../temp"), folder.path("temp"));
    EXPECT_EQ(fs::current_path(), folder.path("bin"));
    EXPECT_EQ(TVLFmDir::resolveByChangingInto("../none"), "");
    EXPECT_EQ(fs::current_path(), folder.path("bin"));
}

TEST_F(TVLFmDirTest, WhatIsNoDirectoryResolvesToNothing) {
    folder.write("temp/file", "");
    EXPECT_EQ(TVLFmDir::resolveByChangingInto("../temp/file"), "");
    EXPECT_EQ(TVLFmDir::resolveByChangingInto(""), "");
}

TEST_F(TVLFmDirTest, WithoutAWorkingDirectoryNothingIsResolved) {
    loseTheWorkingDirectory();
    EXPECT_EQ(TVLFmDir::resolveByChangingInto(folder.path("temp").c_str()), "");
}

TEST_F(TVLFmDirTest, TheLoaderGetsALibrarysPlainName) {
    EXPECT_EQ(TVLFmDir::resolveEffectivePath("libexample.so"), "libexample.so");
}

}  // namespace
