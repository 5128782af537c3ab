#include "TVLIDOM_Helper.h"

#include "TestKit.h"

namespace {

class TVLIDOM_HelperTest : public ServiceTest {
  protected:
    static std::string found(const TVLIDOM_Node& start, const char* name) {
        return TVLIDOM_Helper::findFirstElementWithName(start, name).getAttribute("n").str();
    }
};

TEST_F(TVLIDOM_HelperTest, TheStartElementIsIncluded) {
    const XmlText document("<a n='outer'><a n='inner'/></a>");
    EXPECT_EQ(found(document.root(), "a"), "outer");
}

TEST_F(TVLIDOM_HelperTest, SearchesDepthFirstInDocumentOrder) {
    const XmlText document("<r><b><x n='deep'/></b><x n='shallow'/></r>");
    EXPECT_EQ(found(document.root(), "x"), "deep");
}

TEST_F(TVLIDOM_HelperTest, DoesNotLeaveTheStartElement) {
    const XmlText document("<r><b/><x n='beside'/></r>");
    EXPECT_EQ(found(document.root().getFirstChild(), "x"), "");
}

TEST_F(TVLIDOM_HelperTest, NamesAreComparedAsWritten) {
    const XmlText document("<r><v:x n='1'/><X n='2'/></r>");
    EXPECT_EQ(found(document.root(), "x"), "");
    EXPECT_EQ(found(document.root(), "v:x"), "1");
}

TEST_F(TVLIDOM_HelperTest, NothingIsFoundBelowNothing) {
    EXPECT_TRUE(TVLIDOM_Helper::findFirstElementWithName(TVLIDOM_Node(), "x").isNull());
}

TEST_F(TVLIDOM_HelperTest, FindsByAttributeValue) {
    const XmlText document("<r><x k='a' n='1'/><y k='b' n='2'/><x k='b' n='3'/><x k='b' n='4'/></r>");
    const auto byKey = [&](const char* key) {
        return TVLIDOM_Helper::findFirstElementWithAttribute(document.root(), "x", "k", key)
            .getAttribute("n")
            .str();
    };
    EXPECT_EQ(byKey("b"), "3");
    EXPECT_EQ(byKey("a"), "1");
    EXPECT_EQ(byKey("c"), "");
}

TEST_F(TVLIDOM_HelperTest, OnlyElementsHaveElementNames) {
    const XmlText document("<a>text</a>");
    EXPECT_TRUE(TVLIDOM_Helper::isElementNamed(document.root(), "a"));
    EXPECT_FALSE(TVLIDOM_Helper::isElementNamed(document.root(), "b"));
    EXPECT_FALSE(TVLIDOM_Helper::isElementNamed(document.root().getFirstChild(), "#text"));
    EXPECT_FALSE(TVLIDOM_Helper::isElementNamed(TVLIDOM_Node(), ""));
}

TEST_F(TVLIDOM_HelperTest, WalksEveryNodeOfATreeOnce) {
    const XmlText document("<a><b>1</b><c><d/></c>2</a>");
    std::string names;
    for (TVLIDOM_Walk walk(document.root()); !walk.node().isNull(); walk.advance())
        names += walk.node().getNodeName().str() + " ";
    EXPECT_EQ(names, "a b #text c d #text ");
}

}  // namespace
