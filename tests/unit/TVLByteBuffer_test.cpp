#include "TVLByteBuffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

namespace {

TEST(TVLByteBufferTest, StartsEmptyWithItsInitialSize) {
    const TVLByteBuffer buffer(256, 256);
    EXPECT_STREQ(buffer.str(), "");
    EXPECT_EQ(buffer.length(), 0U);
    EXPECT_EQ(buffer.capacity(), 256U);
}

TEST(TVLByteBufferTest, TextsAndNumbersAreAppended) {
    TVLByteBuffer buffer(256, 256);
    buffer << "answer" << std::string(" is ") << 42 << " or " << std::numeric_limits<int>::min();
    EXPECT_STREQ(buffer.str(), "answer is 42 or -2147483648");
    EXPECT_EQ(buffer.length(), std::strlen(buffer.str()));
}

TEST(TVLByteBufferTest, PrintfAppendsWhatItFormats) {
    TVLByteBuffer buffer(4, 4);
    buffer << "a";
    buffer.printf("[%s|%d|%%]", std::string(1000, 'x').c_str(), -7);
    EXPECT_EQ(buffer.str(), "a[" + std::string(1000, 'x') + "|-7|%]");
    buffer.printf("%s", "");
    EXPECT_EQ(buffer.length(), std::strlen(buffer.str()));
}

TEST(TVLByteBufferTest, GrowsByAtLeastTheStepAndKeepsItsText) {
    TVLByteBuffer buffer(4, 16);
    buffer << "1234";
    EXPECT_EQ(buffer.capacity(), 4U);
    buffer << "5";
    EXPECT_EQ(buffer.capacity(), 20U);
    EXPECT_STREQ(buffer.str(), "12345");
}

TEST(TVLByteBufferTest, AStepOfZeroStillGrows) {
    TVLByteBuffer buffer(0, 0);
    EXPECT_STREQ(buffer.str(), "");
    for (int i = 0; i < 100; ++i)
        buffer << "x";
    EXPECT_EQ(buffer.str(), std::string(100, 'x'));
}

// Each growth copies all that is there; with fixed steps, appending n pieces would copy n * n bytes.
TEST(TVLByteBufferTest, GrowsRarelyWhenMuchIsAppended) {
    TVLByteBuffer buffer(1, 1);
    int growths = 0;
    for (int i = 0; i < 1000000; ++i) {
        const std::size_t before = buffer.capacity();
        buffer << "x";
        if (buffer.capacity() != before) ++growths;
    }
    EXPECT_LT(growths, 50);
    EXPECT_EQ(buffer.length(), 1000000U);
}

TEST(TVLByteBufferTest, ClearForgetsTheTextAndKeepsTheRoom) {
    TVLByteBuffer buffer(8, 8);
    buffer << "some longer text";
    const std::size_t room = buffer.capacity();
    buffer.clear();
    EXPECT_STREQ(buffer.str(), "");
    EXPECT_EQ(buffer.length(), 0U);
    EXPECT_EQ(buffer.capacity(), room);
}

TEST(TVLByteBufferTest, StorageCanBeFilledFromOutside) {
    TVLByteBuffer buffer(2, 2);
    buffer.ensureCapacity(10);
    ASSERT_GE(buffer.capacity(), 10U);
    std::memcpy(buffer.data(), "0123456789", 10);
    EXPECT_EQ(buffer.length(), 0U);
    buffer.setLength(10);
    EXPECT_STREQ(buffer.str(), "0123456789");
    buffer.setLength(3);
    EXPECT_STREQ(buffer.str(), "012");
}

TEST(TVLByteBufferTest, ALengthBeyondTheRoomIsCut) {
    TVLByteBuffer buffer(4, 4);
    buffer.setLength(100);
    EXPECT_EQ(buffer.length(), 4U);
    EXPECT_EQ(buffer.str()[4], '\0');
}

TEST(TVLByteBufferTest, CopiesAreIndependent) {
    TVLByteBuffer first(8, 8);
    first << "one";
    TVLByteBuffer second = first;
    second << " two";
    EXPECT_STREQ(first.str(), "one");
    EXPECT_STREQ(second.str(), "one two");
}

}  // namespace
