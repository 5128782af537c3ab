#include "I18NString.h"

#include <gtest/gtest.h>

namespace {

TEST(I18NStringTest, ANullTextIsAnEmptyString) {
    const I18NString text(static_cast<const char*>(nullptr));
    EXPECT_TRUE(text.empty());
    EXPECT_STREQ(text.c_str(), "");
    EXPECT_EQ(text.length(), 0U);
}

TEST(I18NStringTest, KeepsItsBytes) {
    const I18NString text("na\xc3\xafve");
    EXPECT_STREQ(text.c_str(), "na\xc3\xafve");
    EXPECT_FALSE(text.empty());
}

TEST(I18NStringTest, LengthCountsCharacters) {
    EXPECT_EQ(I18NString("abc").length(), 3U);
    EXPECT_EQ(I18NString("na\xc3\xafve").length(), 5U);
    EXPECT_EQ(I18NString("\xe2\x82\xac").length(), 1U);
    EXPECT_EQ(I18NString("\xf0\x9f\x98\x80!").length(), 2U);
}

TEST(I18NStringTest, InOtherEncodingsOnlyBytesThatBeginACharacterCount) {
    EXPECT_EQ(I18NString("\xff"
                         "\xe9")
                  .length(),
              2U);
    EXPECT_EQ(I18NString("a\x80\x80").length(), 1U);
}

TEST(I18NStringTest, ComparesByteByByte) {
    EXPECT_TRUE(I18NString("IPv6") == "IPv6");
    EXPECT_FALSE(I18NString("IPv6") == "ipv6");
    EXPECT_FALSE(I18NString("IPv6") == "IPv6 ");
    EXPECT_TRUE(I18NString() == "");
}

}  // namespace
