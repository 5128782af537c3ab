#include "TVLFile.h"

#include <fcntl.h>
#include <sys/stat.h>
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

    InstallFolder folder;
};

TEST_F(TVLFileTest, OpensAsAsked) {
    folder.write("temp/a", "old");
    {
        const TVLFilePtr file = TVLFile::open("../temp/a", "at");
        ASSERT_TRUE(file);
        std::fputs(" new", file.get());
    }
    EXPECT_EQ(folder.read("temp/a"), "old new");
    { ASSERT_TRUE(TVLFile::open("../temp/a", "wt")); }
    EXPECT_EQ(folder.read("temp/a"), "");
}

TEST_F(TVLFileTest, AMissingFileIsNullWithTheReason) {
    errno = 0;
    EXPECT_FALSE(TVLFile::open("../temp/none", "r"));
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(TVLFileTest, NoChildInheritsTheDescriptor) {
    for (const char* const mode : {"wt", "at", "r", "rb"}) {
        const TVLFilePtr file = TVLFile::open("../temp/a", mode);
        ASSERT_TRUE(file) << mode;
        EXPECT_TRUE(isClosedOnExec(file)) << mode;
    }
}

TEST_F(TVLFileTest, NeverTakesTheNumberOfAClosedStandardStream) {
    const WithoutDescriptor noInput(STDIN_FILENO);
    const TVLFilePtr file = TVLFile::open("../temp/a", "wt");
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
