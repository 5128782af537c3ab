// The log of an instance: which file it is, what log rotation has put aside, and what others may have put there.

#include "CTLLogFiles.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <filesystem>
#include <memory>
#include <string>

#include "CTLInstance.h"
#include "TestKit.h"

namespace fs = std::filesystem;

namespace {

constexpr std::time_t kNoon = 1795262400;  // Sat Nov 21 12:00:00 2026

std::string lineAt(std::time_t time, const std::string& text) {
    std::tm utc{};
    gmtime_r(&time, &utc);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%a %b %e %H:%M:%S %Y", &utc);
    return std::string(stamp) + "  INFO  t[1a] Probe " + text + "\n";
}

struct GzClosed {
    void operator()(gzFile_s* file) const { gzclose(file); }
};

void pack(const std::string& path, const std::string& text, int times = 1) {
    const std::unique_ptr<gzFile_s, GzClosed> file(gzopen(path.c_str(), "wb1"));
    for (int i = 0; i < times; ++i)
        ASSERT_GT(gzwrite(file.get(), text.data(), static_cast<unsigned>(text.size())), 0);
}

class LogFilesTest : public testing::Test {
  protected:
    LogFilesTest() {
        document(R"(<file name="${install_path}/logs/velbootstrapservice.log" append="true"/>)");
    }

    void document(const std::string& files) const {
        folder.write("bin/zorlogconfig.xml",
                     "<log><start><logging level='INFO'><logFiles><file "
                     "name='../logs/commands.log'/></logFiles></logging></start>"
                     "<run><logging level='INFO'><logFiles>" +
                         files + "</logFiles></logging></run></log>");
    }
    CTLLogFiles files() const { return CTLLogFiles(CTLInstance(folder.path())); }
    std::string texts(std::time_t since, bool* isComplete = nullptr) const {
        std::string all;
        for (const CTLLogLine& line : files().linesSince(since, isComplete))
            all += line.text + " ";
        return all;
    }
    std::string log(const std::string& ending = "") const {
        return folder.path("logs/velbootstrapservice.log" + ending);
    }

    InstallFolder folder;
};

// ---- Which file it is ----

TEST_F(LogFilesTest, ItIsTheFileOfTheDaemonsSectionAndNotOfACommands) {
    document("<file name='../logs/mine.log' append='true'/>");
    EXPECT_EQ(files().present(), folder.path("logs/mine.log"));
}

TEST_F(LogFilesTest, AskingNeitherMakesNorEmptiesAFile) {
    document("<file name='${install_path}/logs/emptied.log'/><file name='../logs/other.log'/>");
    folder.write("logs/emptied.log", "kept");
    EXPECT_EQ(files().present(), folder.path("logs/emptied.log"));
    EXPECT_EQ(folder.read("logs/emptied.log"), "kept");
    EXPECT_FALSE(folder.exists("logs/other.log"));
}

TEST_F(LogFilesTest, AskingLeavesTheWorkingFolderAlone) {
    fs::current_path(folder.path("temp"));
    EXPECT_EQ(files().present(), log());
    EXPECT_EQ(fs::current_path(), folder.path("temp"));
}

TEST_F(LogFilesTest, ADestinationThatIsNoFileIsPassedOver) {
    document("<stdout/><file name='/dev/null' append='true'/><file name='../logs/real.log' append='true'/>");
    EXPECT_EQ(files().present(), folder.path("logs/real.log"));
}

TEST_F(LogFilesTest, WithoutAUsableDocumentItIsTheUsualFile) {
    folder.write("bin/zorlogconfig.xml", "<broken");
    EXPECT_EQ(files().present(), log());
}

// ---- What rotation has put aside ----

TEST_F(LogFilesTest, RotatedFilesComeOldestFirst) {
    folder.write("logs/velbootstrapservice.log.1", "");
    pack(log(".2.gz"), "x");
    pack(log(".3.gz"), "x");
    pack(log(".5.gz"), "x");
    const std::vector<fs::path> expected{log(".3.gz"), log(".2.gz"), log(".1"), log()};
    EXPECT_EQ(files().files(), expected);
}

TEST_F(LogFilesTest, LinesOfAllFilesComeInOrder) {
    pack(log(".2.gz"), lineAt(kNoon, "one") + lineAt(kNoon + 10, "two"));
    folder.write("logs/velbootstrapservice.log.1", lineAt(kNoon + 20, "three"));
    folder.write("logs/velbootstrapservice.log", lineAt(kNoon + 30, "four"));
    bool isComplete = false;
    EXPECT_EQ(texts(0, &isComplete), "one two three four ");
    EXPECT_TRUE(isComplete);
    EXPECT_EQ(texts(kNoon + 10), "two three four ");
    EXPECT_EQ(texts(kNoon + 21), "four ");
}

TEST_F(LogFilesTest, WhatIsLargerThanTheFirstLookIsReadFromItsEnd) {
    std::string text;
    for (int i = 0; i < 20000; ++i)
        text += lineAt(kNoon + i, std::to_string(i));
    folder.write("logs/velbootstrapservice.log", text);
    const std::vector<CTLLogLine> all = files().linesSince(0);
    ASSERT_EQ(all.size(), 20000U);
    EXPECT_EQ(all.front().text, "0");
    const std::vector<CTLLogLine> some = files().linesSince(kNoon + 15000);
    ASSERT_EQ(some.size(), 5000U);
    EXPECT_EQ(some.front().text, "15000");
}

// ---- What others may have put there ----

TEST_F(LogFilesTest, APipeOrAFolderInALogsPlaceIsNotWaitedFor) {
    ASSERT_EQ(mkfifo(log().c_str(), 0600), 0);
    ASSERT_EQ(mkfifo(log(".1").c_str(), 0600), 0);
    fs::create_directory(log(".2.gz"));
    pack(log(".3.gz"), lineAt(kNoon, "found"));
    EXPECT_EQ(texts(0), "found ");
}

TEST_F(LogFilesTest, AnEndlessFileIsReadFromItsEndAsFarAsTheBound) {
    folder.write("logs/velbootstrapservice.log", "");
    fs::resize_file(log(), std::uintmax_t{1} << 36);
    folder.write("logs/last", lineAt(kNoon, "last"));
    {
        std::FILE* const file = std::fopen(log().c_str(), "ab");
        const std::string end = "\n" + lineAt(kNoon, "last");
        std::fwrite(end.data(), 1, end.size(), file);
        std::fclose(file);
    }
    bool isComplete = true;
    EXPECT_EQ(texts(0, &isComplete), "last ");
    EXPECT_FALSE(isComplete);
}

TEST_F(LogFilesTest, OfAPackedFileTheNewestIsKept) {
    const std::string block(1024 * 1024, 'x');
    pack(log(".1.gz"), lineAt(kNoon, block), 40);
    bool isComplete = true;
    const std::vector<CTLLogLine> lines = files().linesSince(0, &isComplete);
    EXPECT_EQ(lines.size(), 31U);
    EXPECT_FALSE(isComplete);
}

TEST_F(LogFilesTest, APackedFileWithoutAnEndIsLeftOut) {
    const std::string block(1024 * 1024, 'x');
    pack(log(".1.gz"), lineAt(kNoon, block), 300);
    folder.write("logs/velbootstrapservice.log", lineAt(kNoon, "present"));
    bool isComplete = true;
    EXPECT_EQ(texts(0, &isComplete), "present ");
    EXPECT_FALSE(isComplete);
}

TEST_F(LogFilesTest, WhatOnlyCallsItselfPackedIsReadAsItIs) {
    folder.write("logs/velbootstrapservice.log.1.gz", lineAt(kNoon, "plain"));
    EXPECT_EQ(texts(0), "plain ");
}

TEST_F(LogFilesTest, ALinkOfAnotherUsersIsNotFollowedByRoot) {
    folder.write("temp/secret", lineAt(kNoon, "secret"));
    fs::create_symlink(folder.path("temp/secret"), log(".1"));
    EXPECT_EQ(texts(0), "secret ");
    // Only root can give a folder away, and to nobody else does it matter.
    const bool isForeign = chown(folder.path("logs").c_str(), 65534, 65534) == 0;
    EXPECT_EQ(texts(0), isForeign ? "" : "secret ");
}

}  // namespace
