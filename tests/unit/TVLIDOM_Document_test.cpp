#include "TVLIDOM_Document.h"

#include <malloc.h>

#include <memory>
#include <xercesc/util/PlatformUtils.hpp>

#include "TVLIDOM_Parser.h"
#include "TestKit.h"
#include "TextStream.h"

namespace {

void parseInto(TVLIDOM_Document& document, const std::string& text) {
    TVLIDOM_Parser parser;
    TextStream stream(text);
    ASSERT_EQ(parser.parse(stream, document), 1);
}

TEST(TVLIDOM_DocumentTest, AnEmptyDocumentHasANullRoot) {
    const TVLIDOM_Document document;
    EXPECT_TRUE(document.getDocumentElement().isNull());
}

TEST(TVLIDOM_DocumentTest, TerminatingEmptiesTheDocumentsThatStillExist) {
    TVLIDOM_DOMImplementation::initialize();
    TVLIDOM_Document document;
    parseInto(document, "<a/>");
    EXPECT_FALSE(document.getDocumentElement().isNull());
    TVLIDOM_DOMImplementation::terminate();
    EXPECT_TRUE(document.getDocumentElement().isNull());
}

TEST(TVLIDOM_DocumentTest, TheLibraryGoesWithTheModel) {
    TVLIDOM_DOMImplementation::initialize();
    EXPECT_NE(xercesc::XMLPlatformUtils::fgMemoryManager, nullptr);
    TVLIDOM_DOMImplementation::terminate();
    EXPECT_EQ(xercesc::XMLPlatformUtils::fgMemoryManager, nullptr);
}

TEST(TVLIDOM_DocumentTest, ADocumentMayEndBeforeOrAfterTheModel) {
    TVLIDOM_DOMImplementation::initialize();
    auto before = std::make_unique<TVLIDOM_Document>();
    auto after = std::make_unique<TVLIDOM_Document>();
    parseInto(*before, "<a/>");
    parseInto(*after, "<b/>");
    before.reset();
    TVLIDOM_DOMImplementation::terminate();
    after.reset();
    TVLIDOM_DOMImplementation::initialize();
    TVLIDOM_Document again;
    parseInto(again, "<c/>");
    EXPECT_EQ(again.getDocumentElement().getTagName(), "c");
    TVLIDOM_DOMImplementation::terminate();
}

TEST(TVLIDOM_DocumentTest, ADocumentThatIsReplacedOrGoesLeavesNothingBehind) {
    TVLIDOM_DOMImplementation::initialize();
    const auto twice = [] {
        TVLIDOM_Document document;
        parseInto(document, "<a/>");
        parseInto(document, "<b/>");
    };
    twice();
    const std::size_t before = mallinfo2().uordblks;
    for (int i = 0; i < 50; ++i)
        twice();
    EXPECT_LT(mallinfo2().uordblks, before + 100000);
    TVLIDOM_DOMImplementation::terminate();
}

}  // namespace
