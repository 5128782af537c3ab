#include "PLXInputStream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

// Gives its text in pieces of at most three bytes.
class PieceStream : public PLXInputStream {
  public:
    explicit PieceStream(std::string text) : m_text(std::move(text)) {}

    int read(TVLByteBuffer& buffer, int count) override { return read(buffer.data(), count); }
    int read(char* buffer, int count) override {
        const std::size_t size = std::min<std::size_t>({3, static_cast<std::size_t>(count), m_text.size()});
        if (size == 0) return -1;
        std::copy_n(m_text.begin(), size, buffer);
        m_text.erase(0, size);
        return static_cast<int>(size);
    }
    int read() override { return -1; }
    void close() override {}
    bool canUnread() override { return false; }

  private:
    std::string m_text;
};

TEST(PLXInputStreamTest, ReadFullyGoesOnUntilEverythingHasCome) {
    PieceStream stream("0123456789");
    char bytes[8] = {};
    EXPECT_EQ(stream.readFully(bytes, 7), 7);
    EXPECT_STREQ(bytes, "0123456");
}

TEST(PLXInputStreamTest, ReadFullyStopsAtTheEndOfTheStream) {
    PieceStream stream("0123");
    TVLByteBuffer buffer(16, 16);
    EXPECT_EQ(stream.readFully(buffer, 16), 4);
    EXPECT_EQ(buffer.length(), 0U) << "the recorded length is the caller's to set";
    buffer.setLength(4);
    EXPECT_STREQ(buffer.str(), "0123");
    EXPECT_EQ(stream.readFully(buffer, 16), -1);
}

TEST(PLXInputStreamTest, ReadFullyNeedsABuffer) {
    PieceStream stream("0123");
    EXPECT_EQ(stream.readFully(static_cast<char*>(nullptr), 4), -1);
}

TEST(PLXInputStreamTest, UnreadingIsNotImplemented) {
    PieceStream stream("0123");
    try {
        stream.unread("x", 1);
        FAIL() << "nothing was thrown";
    } catch (const char* text) {
        EXPECT_STREQ(text, "not implemented");
    }
}

TEST(PLXInputStreamTest, TimeoutsAndCancellingAreNotSupported) {
    PieceStream stream("");
    EXPECT_FALSE(stream.canTimeout());
    EXPECT_FALSE(stream.canCancel());
    EXPECT_EQ(stream.getTimeout(), -1);
    EXPECT_THROW(stream.setTimeout(10), const char*);
}

}  // namespace
