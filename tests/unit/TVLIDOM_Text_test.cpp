#include "TVLIDOM_Text.h"

#include <gtest/gtest.h>

namespace {

using TVLIDOM_Text::XmlString;

std::string fromXml(const XmlString& text) {
    return TVLIDOM_Text::fromXml(text.c_str()).str();
}

TEST(TVLIDOM_TextTest, NothingIsAnEmptyText) {
    EXPECT_EQ(TVLIDOM_Text::fromXml(nullptr).str(), "");
    EXPECT_EQ(fromXml(u""), "");
    EXPECT_TRUE(TVLIDOM_Text::toXml("").empty());
}

TEST(TVLIDOM_TextTest, CharactersOfEachLengthGoThereAndBack) {
    const XmlString xml = u"az \u007F\u0080\u07FF\u0800\uFFFD\U00010000\U0001F600\U0010FFFF.";
    const std::string utf8 =
        "az \x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBD\xF0\x90\x80\x80\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF.";
    EXPECT_EQ(fromXml(xml), utf8);
    EXPECT_EQ(TVLIDOM_Text::toXml(utf8), xml);
}

TEST(TVLIDOM_TextTest, ACharacterBeyondTheBasicPlaneIsASurrogatePair) {
    const XmlString xml = TVLIDOM_Text::toXml("\xF0\x9F\x98\x80");
    ASSERT_EQ(xml.size(), 2U);
    EXPECT_EQ(xml[0], 0xD83D);
    EXPECT_EQ(xml[1], 0xDE00);
}

TEST(TVLIDOM_TextTest, HalfASurrogatePairMakesTheTextEmpty) {
    const XmlString high(1, 0xD83D);
    const XmlString low(1, 0xDE00);
    for (const XmlString& broken : {high, low, u"a" + high, low + u"a", low + high})
        EXPECT_EQ(fromXml(broken), "");
    EXPECT_EQ(fromXml(high + low), "\xF0\x9F\x98\x80");
}

TEST(TVLIDOM_TextTest, BytesThatAreNoUtf8MakeTheTextEmpty) {
    for (const char* const broken : {
             "\x80",              // continues nothing
             "a\xC3",             // breaks off
             "\xC3(",             // is not continued
             "\xC0\xAF",          // longer than needed
             "\xE0\x80\xAF",      // longer than needed
             "\xED\xA0\xBD",      // half a surrogate pair
             "\xF4\x90\x80\x80",  // beyond the last character
             "\xFE\xFF",          // never occur
             "good, then \xFF",
         }) {
        EXPECT_TRUE(TVLIDOM_Text::toXml(broken).empty()) << broken;
    }
}

// The first guess at the length of the result is right for ASCII only; both directions.
TEST(TVLIDOM_TextTest, LongTextsKeepEveryCharacter) {
    const std::size_t count = 1000000;
    XmlString xml;
    std::string utf8;
    for (std::size_t i = 0; i < count; ++i) {
        xml += u"\u20AC";
        utf8 += "\xE2\x82\xAC";
    }
    EXPECT_EQ(fromXml(xml), utf8);
    EXPECT_EQ(TVLIDOM_Text::toXml(utf8), xml);
    EXPECT_EQ(fromXml(XmlString(count, u'x')), std::string(count, 'x'));
    EXPECT_EQ(TVLIDOM_Text::toXml(std::string(count, 'x')), XmlString(count, u'x'));
}

TEST(TVLIDOM_TextTest, ANulByteIsACharacterOfUtf8AndTheEndOfAnXmlText) {
    EXPECT_EQ(TVLIDOM_Text::toXml(std::string("a\0b", 3)).size(), 3U);
    EXPECT_EQ(TVLIDOM_Text::fromXml(u"a\0b").str(), "a");
}

}  // namespace
