#include "ZORFileInputStream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <type_traits>
#include <vector>

#include "FailingOs.h"
#include "TVLOs.h"
#include "TestKit.h"

namespace {

namespace fs = std::filesystem;

class ZORFileInputStreamTest : public testing::Test {
  protected:
    // How many descriptors of this process refer to the file.
    std::ptrdiff_t openDescriptors(const std::string& relative) const {
        const auto refersToIt = [&](const fs::directory_entry& entry) {
            std::error_code error;
            return fs::read_symlink(entry.path(), error) == folder.path(relative);
        };
        return std::count_if(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator(), refersToIt);
    }

    InstallFolder folder;
};

TEST_F(ZORFileInputStreamTest, ReadsAFileInBlocks) {
    folder.write("temp/a", std::string("ab\0de\r\nf", 8));
    ZORFileInputStream stream("../temp/a");
    EXPECT_NE(stream.isOpen(), 0);
    char bytes[8] = {};
    EXPECT_EQ(stream.read(bytes, 5), 5);
    EXPECT_EQ(std::string(bytes, 5), std::string("ab\0de", 5));
    EXPECT_EQ(stream.read(bytes, 8), 3);
    EXPECT_EQ(std::string(bytes, 3), "\r\nf");
    EXPECT_EQ(stream.read(bytes, 8), -1);
}

TEST_F(ZORFileInputStreamTest, ReadsIntoTheStorageOfABuffer) {
    folder.write("temp/a", "0123456789");
    ZORFileInputStream stream("../temp/a");
    TVLByteBuffer buffer(16, 16);
    buffer << "before";
    EXPECT_EQ(stream.read(buffer, 10), 10);
    EXPECT_EQ(buffer.length(), 6U) << "the recorded length is the caller's to set";
    buffer.setLength(10);
    EXPECT_STREQ(buffer.str(), "0123456789");
    EXPECT_EQ(stream.read(buffer, 10), -1);
}

TEST_F(ZORFileInputStreamTest, ReadsSingleBytesAsNonNegativeValues) {
    folder.write("temp/a", std::string("\xff\0z", 3));
    ZORFileInputStream stream("../temp/a");
    EXPECT_EQ(stream.read(), 255);
    EXPECT_EQ(stream.read(), 0);
    EXPECT_EQ(stream.read(), 'z');
    EXPECT_EQ(stream.read(), -1);
}

TEST_F(ZORFileInputStreamTest, AnEmptyFileEndsAtOnce) {
    folder.write("temp/a", "");
    ZORFileInputStream stream("../temp/a");
    TVLByteBuffer buffer(4, 4);
    char bytes[4] = {};
    EXPECT_NE(stream.isOpen(), 0);
    EXPECT_EQ(stream.read(bytes, 4), -1);
    EXPECT_EQ(stream.read(buffer, 4), -1);
    EXPECT_EQ(stream.read(), -1);
}

TEST_F(ZORFileInputStreamTest, AMissingFileLeavesTheStreamClosed) {
    ZORFileInputStream stream;
    TVLByteBuffer buffer(4, 4);
    char bytes[4] = {};
    EXPECT_EQ(stream.open("../temp/none"), 0);
    EXPECT_EQ(stream.isOpen(), 0);
    EXPECT_EQ(stream.read(bytes, 4), -1);
    EXPECT_EQ(stream.read(buffer, 4), -1);
    EXPECT_EQ(stream.read(), -1);
}

// Every look at the clock takes a while.
class QuickClock : public FailingOs {
  public:
    explicit QuickClock(std::int64_t stepMs) : m_stepMs(stepMs) {}
    std::int64_t nowMs() override { return m_nowMs += m_stepMs; }

  private:
    std::int64_t m_stepMs;
    std::int64_t m_nowMs = 0;
};

// A pipe by its two ends; the reading one has a name.
class Pipe {
  public:
    Pipe() { EXPECT_EQ(pipe2(m_ends, O_CLOEXEC | O_NONBLOCK), 0); }
    ~Pipe() {
        close(m_ends[0]);
        endWriting();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    std::string name() const { return "/dev/fd/" + std::to_string(m_ends[0]); }
    void write(const std::string& text) const {
        EXPECT_EQ(::write(m_ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    void endWriting() {
        if (m_ends[1] >= 0) close(m_ends[1]);
        m_ends[1] = -1;
    }

  private:
    int m_ends[2]{};
};

TEST_F(ZORFileInputStreamTest, APipeIsReadToItsEnd) {
    Pipe pipe;
    ZORFileInputStream stream(pipe.name().c_str());
    ASSERT_NE(stream.isOpen(), 0);
    pipe.write("abc");
    char bytes[8] = {};
    EXPECT_EQ(stream.read(bytes, 8), 3);
    pipe.endWriting();
    EXPECT_EQ(stream.read(bytes, 8), -1);
    EXPECT_EQ(stream.error(), "");
}

TEST_F(ZORFileInputStreamTest, APipeThatNobodyWritesToIsGivenUp) {
    ASSERT_EQ(mkfifo(folder.path("temp/pipe").c_str(), 0600), 0);
    const QuickClock clock(9999);
    ZORFileInputStream stream("../temp/pipe");
    ASSERT_NE(stream.isOpen(), 0);
    EXPECT_EQ(stream.read(), -1);
    EXPECT_EQ(stream.error(), "does not come to its end in time");
}

TEST_F(ZORFileInputStreamTest, APipeHasOneTimeLimitForTheWhole) {
    const Pipe pipe;
    const QuickClock clock(3000);
    ZORFileInputStream stream(pipe.name().c_str());
    for (int i = 0; i < 3; ++i) {
        pipe.write("x");
        EXPECT_EQ(stream.read(), 'x');
    }
    pipe.write("x");
    EXPECT_EQ(stream.read(), -1);
    EXPECT_EQ(stream.error(), "does not come to its end in time");
}

TEST_F(ZORFileInputStreamTest, ADocumentHasALimitThatGrowthDoesNotPass) {
    folder.write("temp/a", "");
    ASSERT_EQ(truncate("../temp/a", TVLFile::kMostOfADocument), 0);
    ZORFileInputStream stream("../temp/a");
    ASSERT_NE(stream.isOpen(), 0);
    ASSERT_EQ(truncate("../temp/a", TVLFile::kMostOfADocument + 1), 0);
    std::vector<char> block(1 << 20);
    int blocks = 0;
    while (stream.read(block.data(), 1 << 20) > 0)
        ++blocks;
    EXPECT_EQ(blocks, 64);
    EXPECT_EQ(stream.error(), "is larger than 67108864 bytes");
    EXPECT_EQ(stream.open("../temp/a"), 0) << "and is not opened any more";
}

TEST_F(ZORFileInputStreamTest, AFailureIsForgottenWithTheNextFile) {
    ASSERT_EQ(mkfifo(folder.path("temp/pipe").c_str(), 0600), 0);
    folder.write("temp/a", "x");
    const QuickClock clock(9999);
    ZORFileInputStream stream("../temp/pipe");
    EXPECT_EQ(stream.read(), -1);
    ASSERT_NE(stream.open("../temp/a"), 0);
    EXPECT_EQ(stream.error(), "");
    EXPECT_EQ(stream.read(), 'x');
}

TEST_F(ZORFileInputStreamTest, ADirectoryIsRefused) {
    ZORFileInputStream stream("../temp");
    EXPECT_EQ(stream.isOpen(), 0);
    char bytes[4] = {};
    EXPECT_EQ(stream.read(bytes, 4), -1);
    EXPECT_EQ(stream.read(), -1);
}

TEST_F(ZORFileInputStreamTest, ANullBufferReadsNothing) {
    folder.write("temp/a", "x");
    ZORFileInputStream stream("../temp/a");
    EXPECT_EQ(stream.read(static_cast<char*>(nullptr), 4), -1);
    EXPECT_EQ(stream.read(), 'x');
}

TEST_F(ZORFileInputStreamTest, ACountBelowOneReadsNothing) {
    folder.write("temp/a", "x");
    ZORFileInputStream stream("../temp/a");
    char bytes[4] = {};
    EXPECT_EQ(stream.read(bytes, 0), -1);
    EXPECT_EQ(stream.read(bytes, -1), -1);
    EXPECT_EQ(stream.read(), 'x');
}

TEST_F(ZORFileInputStreamTest, ANullPathOnlyCloses) {
    folder.write("temp/a", "x");
    ZORFileInputStream stream("../temp/a");
    EXPECT_EQ(stream.open(nullptr), 0);
    EXPECT_EQ(stream.isOpen(), 0);
    EXPECT_EQ(openDescriptors("temp/a"), 0);
    ZORFileInputStream second(nullptr);
    EXPECT_EQ(second.isOpen(), 0);
}

TEST_F(ZORFileInputStreamTest, OpeningASecondFileClosesTheFirst) {
    folder.write("temp/a", "first");
    folder.write("temp/b", "second");
    ZORFileInputStream stream("../temp/a");
    EXPECT_EQ(openDescriptors("temp/a"), 1);
    EXPECT_NE(stream.open("../temp/b"), 0);
    EXPECT_EQ(openDescriptors("temp/a"), 0);
    EXPECT_EQ(openDescriptors("temp/b"), 1);
    EXPECT_EQ(stream.read(), 's');
}

// Counts how often the stream was told to close, and whether the file was still closed afterwards.
class CountingStream : public ZORFileInputStream {
  public:
    void close() override {
        ++closed;
        ZORFileInputStream::close();
    }
    int closed = 0;
};

TEST_F(ZORFileInputStreamTest, OpeningClosesThroughTheVirtualClose) {
    folder.write("temp/a", "first");
    CountingStream stream;
    stream.open("../temp/a");
    stream.open("../temp/none");
    EXPECT_EQ(stream.closed, 2);
    EXPECT_EQ(stream.isOpen(), 0);
    EXPECT_EQ(openDescriptors("temp/a"), 0);
}

TEST_F(ZORFileInputStreamTest, ClosingTwiceDoesNothing) {
    folder.write("temp/a", "x");
    ZORFileInputStream stream("../temp/a");
    stream.close();
    stream.close();
    EXPECT_EQ(stream.isOpen(), 0);
    EXPECT_EQ(stream.read(), -1);
}

TEST_F(ZORFileInputStreamTest, TheDestructorClosesTheFile) {
    folder.write("temp/a", "x");
    {
        const ZORFileInputStream stream("../temp/a");
        EXPECT_EQ(openDescriptors("temp/a"), 1);
    }
    EXPECT_EQ(openDescriptors("temp/a"), 0);
}

TEST_F(ZORFileInputStreamTest, UnreadingIsRefused) {
    folder.write("temp/a", "x");
    ZORFileInputStream stream("../temp/a");
    EXPECT_FALSE(stream.canUnread());
    try {
        stream.unread("x", 1);
        FAIL() << "nothing was thrown";
    } catch (const char* text) {
        EXPECT_STREQ(text, "not implemented");
    }
}

TEST_F(ZORFileInputStreamTest, TimeoutsAreTheInterfacesOwn) {
    ZORFileInputStream stream;
    EXPECT_FALSE(stream.canTimeout());
    EXPECT_FALSE(stream.canCancel());
    EXPECT_EQ(stream.getTimeout(), -1);
}

TEST_F(ZORFileInputStreamTest, ReadFullyReadsTheWholeFile) {
    const std::string content(100000, 'c');
    folder.write("temp/a", content);
    ZORFileInputStream stream("../temp/a");
    TVLByteBuffer buffer(200000, 256);
    EXPECT_EQ(stream.readFully(buffer, 200000), 100000);
    buffer.setLength(100000);
    EXPECT_EQ(buffer.str(), content);
}

TEST_F(ZORFileInputStreamTest, StreamsAreNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<ZORFileInputStream>);
    EXPECT_FALSE(std::is_copy_assignable_v<ZORFileInputStream>);
}

}  // namespace
