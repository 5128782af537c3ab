#include "ZORFileInputStream.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <type_traits>

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

TEST_F(ZORFileInputStreamTest, ADirectoryOpensAndCannotBeRead) {
    ZORFileInputStream stream("../temp");
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
