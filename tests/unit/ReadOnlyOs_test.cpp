// Virtual time before a disk that is only read.

#include "ReadOnlyOs.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "TVLDescriptor.h"
#include "TVLFile.h"
#include "TVLFmDir.h"
#include "TestKit.h"

namespace {

class ReadOnlyOsTest : public testing::Test {
  protected:
    ReadOnlyOsTest() { folder.write("logs/old.log", "before\n"); }

    static std::string contentOf(const std::string& path) {
        return TVLFile::read(path.c_str(), TVLFile::kMostOfAList).value_or("(none)");
    }
    void log(const std::string& path, const std::string& text) {
        const TVLFilePtr file = TVLFile::openLog(path.c_str(), true);
        ASSERT_TRUE(file);
        EXPECT_TRUE(os.writeStream(file.get(), text));
    }

    InstallFolder folder;
    ReadOnlyOs os;
};

}  // namespace

TEST_F(ReadOnlyOsTest, WhatIsThereIsRead) {
    EXPECT_EQ(contentOf("../logs/old.log"), "before\n");
}

TEST_F(ReadOnlyOsTest, AFileThatIsMadeIsReadBackAndIsNotOnTheDisk) {
    log("../logs/new.log", "a line\n");
    EXPECT_EQ(contentOf("../logs/new.log"), "a line\n");
    EXPECT_EQ(contentOf(folder.path("logs/new.log")), "a line\n") << "whatever way leads there";
    EXPECT_FALSE(folder.exists("logs/new.log"));
}

TEST_F(ReadOnlyOsTest, AFileThatIsWrittenStaysAsItIsOnTheDisk) {
    log("../logs/old.log", "after\n");
    EXPECT_EQ(folder.read("logs/old.log"), "before\n");
    const TVLFilePtr emptied = TVLFile::openForAllToRead("../logs/old.log");
    EXPECT_TRUE(emptied);
    EXPECT_EQ(folder.read("logs/old.log"), "before\n");
    EXPECT_EQ(contentOf("../logs/old.log"), "");
}

TEST_F(ReadOnlyOsTest, AFileThatIsRemovedIsGoneHereOnly) {
    EXPECT_TRUE(TVLFile::remove("../logs/old.log"));
    EXPECT_EQ(contentOf("../logs/old.log"), "(none)");
    EXPECT_FALSE(TVLFile::remove("../logs/old.log"));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_TRUE(folder.exists("logs/old.log"));
    log("../logs/old.log", "again\n");
    EXPECT_EQ(contentOf("../logs/old.log"), "again\n");
}

TEST_F(ReadOnlyOsTest, AFolderThatIsMadeIsThereHereOnly) {
    EXPECT_TRUE(TVLFmDir::createWithParents("../new"));
    EXPECT_TRUE(TVLFmDir::exists("../new"));
    EXPECT_TRUE(TVLFmDir::createWithParents("../one/two"));
    EXPECT_TRUE(TVLFmDir::exists("../one/two"));
    EXPECT_FALSE(folder.exists("new"));
    EXPECT_FALSE(folder.exists("one"));
}

TEST_F(ReadOnlyOsTest, WhatIsMissingIsMissing) {
    EXPECT_EQ(os.openat(AT_FDCWD, "../logs/none.log", O_WRONLY, 0), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(os.openat(AT_FDCWD, "../nowhere/none.log", O_WRONLY | O_CREAT, 0600), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(os.openat(AT_FDCWD, "../logs/old.log", O_WRONLY | O_CREAT | O_EXCL, 0600), -1);
    EXPECT_EQ(errno, EEXIST);
}

TEST_F(ReadOnlyOsTest, WhatHasBeenOpenedForReadingCannotBeChanged) {
    const TVLDescriptor file(os.openat(AT_FDCWD, "../logs/old.log", O_RDONLY | O_CLOEXEC, 0));
    ASSERT_TRUE(file.isOpen());
    EXPECT_EQ(os.ftruncate(file.get(), 0), -1);
    EXPECT_EQ(errno, EROFS);
    EXPECT_EQ(os.fchmod(file.get(), 0600), -1);
    EXPECT_EQ(errno, EROFS);
    EXPECT_EQ(folder.read("logs/old.log"), "before\n");
}

TEST_F(ReadOnlyOsTest, OfAFileThatGrowsTheBeginningIsKept) {
    const std::string line(1000, 'x');
    const TVLFilePtr file = TVLFile::openLog("../logs/new.log", true);
    ASSERT_TRUE(file);
    for (int count = 0; count < 100; ++count)
        EXPECT_TRUE(os.writeStream(file.get(), line));
    EXPECT_EQ(contentOf("../logs/new.log").size(), 4000U);
}

TEST_F(ReadOnlyOsTest, TheListenerHearsATextForSeveralStreamsOnce) {
    std::vector<std::string> heard;
    os.listen([&](std::string_view text) { heard.emplace_back(text); });
    const TVLFilePtr first = TVLFile::openLog("../logs/first.log", true);
    const TVLFilePtr second = TVLFile::openLog("../logs/second.log", true);
    for (const char* const text : {"one\n", "one\n", "two\n"}) {
        os.writeStream(first.get(), text);
        os.writeStream(second.get(), text);
        os.writeStream(stdout, text);
    }
    EXPECT_EQ(heard, (std::vector<std::string>{"one\n", "one\n", "two\n"}));
}

TEST_F(ReadOnlyOsTest, NothingGoesOutToADescriptor) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    EXPECT_EQ(os.write(ends[1], "text", 4), 4);
    EXPECT_EQ(os.writeNoWait(ends[1], "text", 4), 4);
    char byte = 0;
    EXPECT_EQ(read(ends[0], &byte, 1), -1);
    close(ends[0]);
    close(ends[1]);
}
