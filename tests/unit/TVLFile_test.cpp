#include "TVLFile.h"

#include <fcntl.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "TestKit.h"

namespace {

// Closes a standard descriptor and puts it back as it was.
class WithoutDescriptor {
  public:
    explicit WithoutDescriptor(int descriptor)
        : m_descriptor(descriptor), m_kept(fcntl(descriptor, F_DUPFD_CLOEXEC, 100)) {
        ::close(descriptor);
    }
    ~WithoutDescriptor() {
        dup2(m_kept, m_descriptor);
        ::close(m_kept);
    }
    WithoutDescriptor(const WithoutDescriptor&) = delete;
    WithoutDescriptor& operator=(const WithoutDescriptor&) = delete;

  private:
    int m_descriptor;
    int m_kept;
};

class TVLFileTest : public testing::Test {
  protected:
    static bool isClosedOnExec(const TVLFilePtr& file) {
        return (fcntl(fileno(file.get()), F_GETFD) & FD_CLOEXEC) != 0;
    }
    std::string path(const std::string& name) const { return folder.path("temp/" + name); }
    mode_t rightsOf(const std::string& name) const {
        struct stat status {};
        EXPECT_EQ(stat(path(name).c_str(), &status), 0) << name;
        return status.st_mode & ALLPERMS;
    }
    std::string refusal(const std::string& file) const {
        std::string why;
        EXPECT_FALSE(TVLFile::openForReading(file.c_str(), 10, &why));
        return why;
    }

    InstallFolder folder;
};

// The umask for the time of a test.
class Umask {
  public:
    explicit Umask(mode_t mask) : m_before(umask(mask)) {}
    ~Umask() { umask(m_before); }
    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;

  private:
    mode_t m_before;
};

// ---- Reading ----

TEST_F(TVLFileTest, AMissingFileIsNullWithTheReason) {
    std::string why;
    errno = 0;
    EXPECT_FALSE(TVLFile::openForReading("../temp/none", 10, &why));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(why, "No such file or directory");
    EXPECT_FALSE(TVLFile::openForReading("", 10));
    EXPECT_FALSE(TVLFile::openForReading("../temp/none/a", 10));
}

TEST_F(TVLFileTest, OnlyARegularFileIsRead) {
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    ASSERT_EQ(mknod(path("socket").c_str(), S_IFSOCK | 0600, 0), 0);
    EXPECT_EQ(refusal("../temp/pipe"), "is not a regular file");
    EXPECT_EQ(refusal("/dev/zero"), "is not a regular file");
    EXPECT_EQ(refusal("../temp"), "Is a directory");
    EXPECT_EQ(refusal("../temp/"), "Is a directory");
    EXPECT_NE(refusal("../temp/socket"), "");
}

TEST_F(TVLFileTest, ALargeFileIsRefused) {
    folder.write("temp/a", "0123456789");
    EXPECT_EQ(TVLFile::read("../temp/a", 10), "0123456789");
    folder.write("temp/a", "0123456789+");
    EXPECT_EQ(refusal("../temp/a"), "is larger than 10 bytes");
    EXPECT_EQ(TVLFile::read("../temp/a", 10), std::nullopt);
}

TEST_F(TVLFileTest, AFileThatHidesItsSizeIsReadUpToTheLimit) {
    EXPECT_EQ(TVLFile::read("/proc/self/status", 100), std::nullopt);
    EXPECT_EQ(errno, EFBIG);
    EXPECT_NE(TVLFile::read("/proc/self/status", 100000).value_or("").find("Name:"), std::string::npos);
}

TEST_F(TVLFileTest, ALoopOfLinksEnds) {
    std::filesystem::create_symlink("b", path("a"));
    std::filesystem::create_symlink("a", path("b"));
    EXPECT_EQ(refusal("../temp/a"), "Too many levels of symbolic links");
}

TEST_F(TVLFileTest, ADocumentMayAlsoComeThroughAPipe) {
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    EXPECT_TRUE(TVLFile::openDocument("../temp/pipe"));
    EXPECT_FALSE(TVLFile::openDocument("/dev/zero"));
    EXPECT_FALSE(TVLFile::openDocument("../temp"));
}

// ---- Writing ----

TEST_F(TVLFileTest, ALogIsTruncatedOrAppendedTo) {
    folder.write("temp/a", "old");
    {
        const TVLFilePtr file = TVLFile::openLog("../temp/a", true);
        ASSERT_TRUE(file);
        std::fputs(" new", file.get());
    }
    EXPECT_EQ(folder.read("temp/a"), "old new");
    { ASSERT_TRUE(TVLFile::openLog("../temp/a", false)); }
    EXPECT_EQ(folder.read("temp/a"), "");
}

TEST_F(TVLFileTest, ALogIsNoMoreThanReadableByItsGroup) {
    const Umask open(0);
    ASSERT_TRUE(TVLFile::openLog("../temp/a", true));
    EXPECT_EQ(rightsOf("a"), 0640U);
    const Umask closed(0077);
    ASSERT_TRUE(TVLFile::openLog("../temp/b", false));
    EXPECT_EQ(rightsOf("b"), 0600U);
    ASSERT_EQ(chmod(path("b").c_str(), 0664), 0);
    ASSERT_TRUE(TVLFile::openLog("../temp/b", false));
    EXPECT_EQ(rightsOf("b"), 0664U) << "what is there keeps its rights";
}

TEST_F(TVLFileTest, ALogMayBeADeviceOrAPipeWithAReader) {
    EXPECT_TRUE(TVLFile::openLog("/dev/null", false));
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    EXPECT_FALSE(TVLFile::openLog("../temp/pipe", true));
    EXPECT_EQ(errno, ENXIO);
    const int reader = open(path("pipe").c_str(), O_RDONLY | O_NONBLOCK);
    const TVLFilePtr log = TVLFile::openLog("../temp/pipe", true);
    ASSERT_TRUE(log);
    EXPECT_NE(fcntl(fileno(log.get()), F_GETFL) & O_NONBLOCK, 0) << "a full pipe is not waited for";
    close(reader);
}

// The leader of a session that has none gets the terminal that it opens, if it does not take care.
TEST_F(TVLFileTest, ATerminalDoesNotBecomeTheControllingOne) {
    int master = -1;
    int slave = -1;
    char name[64] = {};
    ASSERT_EQ(openpty(&master, &slave, name, nullptr, nullptr), 0);
    const pid_t leader = fork();
    if (leader == 0) {
        const bool opened = setsid() > 0 && TVLFile::openLog(name, true) != nullptr;
        const bool refused = TVLFile::openDocument(name) == nullptr;
        ::_exit(opened && refused && open("/dev/tty", O_RDWR) < 0 && errno == ENXIO ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(leader, &status, 0), leader);
    EXPECT_EQ(status, 0);
    close(slave);
    close(master);
}

TEST_F(TVLFileTest, ALogIsNoFolderAndNoSocket) {
    ASSERT_EQ(mknod(path("socket").c_str(), S_IFSOCK | 0600, 0), 0);
    for (const char* const file : {"", "..", "../temp", "../temp/", "../temp/none/", "../temp/socket"})
        EXPECT_FALSE(TVLFile::openLog(file, true)) << file;
}

TEST_F(TVLFileTest, AFileForAllToReadIsThatWhateverTheUmask) {
    const Umask closed(0077);
    { ASSERT_TRUE(TVLFile::openForAllToRead("../temp/a")); }
    EXPECT_EQ(rightsOf("a"), 0644U);
    folder.write("temp/a", "old");
    ASSERT_EQ(chmod(path("a").c_str(), 0606), 0);
    { ASSERT_TRUE(TVLFile::openForAllToRead("../temp/a")); }
    EXPECT_EQ(rightsOf("a"), 0644U);
    EXPECT_EQ(folder.read("temp/a"), "");
}

TEST_F(TVLFileTest, AFileForAllToReadIsRegular) {
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    for (const char* const file : {"../temp/pipe", "/dev/null", "../temp"})
        EXPECT_FALSE(TVLFile::openForAllToRead(file)) << file;
}

TEST_F(TVLFileTest, RemovingALinkLeavesWhatItLeadsTo) {
    folder.write("temp/a", "x");
    std::filesystem::create_symlink("a", path("b"));
    EXPECT_TRUE(TVLFile::remove("../temp/b"));
    EXPECT_FALSE(TVLFile::remove("../temp/b"));
    EXPECT_EQ(folder.read("temp/a"), "x");
}

// ---- Descriptors ----

TEST_F(TVLFileTest, NoChildInheritsTheDescriptor) {
    for (const TVLFilePtr& file :
         {TVLFile::openLog("../temp/a", true), TVLFile::openForAllToRead("../temp/a"),
          TVLFile::openForReading("../temp/a", 10), TVLFile::openDocument("../temp/a")}) {
        ASSERT_TRUE(file);
        EXPECT_TRUE(isClosedOnExec(file));
    }
}

TEST_F(TVLFileTest, NeverTakesTheNumberOfAClosedStandardStream) {
    const WithoutDescriptor noInput(STDIN_FILENO);
    const TVLFilePtr file = TVLFile::openLog("../temp/a", false);
    ASSERT_TRUE(file);
    EXPECT_GT(fileno(file.get()), STDERR_FILENO);
    EXPECT_TRUE(isClosedOnExec(file));
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "the number stays free";
    std::fputs("content", file.get());
    std::fflush(file.get());
    EXPECT_EQ(folder.read("temp/a"), "content");
}

TEST_F(TVLFileTest, TellsTheModificationTime) {
    folder.write("temp/a", "x");
    const timespec times[2] = {{1000, 0}, {1234567, 999999999}};
    ASSERT_EQ(utimensat(AT_FDCWD, "../temp/a", times, 0), 0);
    EXPECT_EQ(TVLFile::modificationTimeSec("../temp/a"), 1234567);
}

TEST_F(TVLFileTest, AMissingFileHasNoModificationTime) {
    EXPECT_EQ(TVLFile::modificationTimeSec("../temp/none"), std::nullopt);
}

}  // namespace
