#include "TVLIDOM_Node.h"

#include "TestKit.h"

namespace {

class TVLIDOM_NodeTest : public ServiceTest {};

TEST_F(TVLIDOM_NodeTest, ANullHandleAnswersQuietly) {
    const TVLIDOM_Element none;
    EXPECT_TRUE(none.isNull());
    EXPECT_EQ(none.getNodeType(), 0);
    EXPECT_EQ(none.getNodeName(), "");
    EXPECT_EQ(none.getTagName(), "");
    EXPECT_EQ(none.getNodeValue(), "");
    EXPECT_EQ(none.getAttribute("a"), "");
    EXPECT_EQ(none.getTextContent(), "");
    EXPECT_TRUE(none.getFirstChild().isNull());
    EXPECT_TRUE(none.getNextSibling().isNull());
    EXPECT_TRUE(none.getParentNode().isNull());
    EXPECT_EQ(none.getElementsByTagName("a").getLength(), 0U);
    EXPECT_EQ(none.getChildNodes().getLength(), 0U);
}

TEST_F(TVLIDOM_NodeTest, ChildrenComeInDocumentOrderWithTheirTypes) {
    const XmlText document("<a>text<b/><![CDATA[data]]><!-- c --></a>");
    const TVLIDOM_NodeList children = document.root().getChildNodes();
    ASSERT_EQ(children.getLength(), 4U);
    EXPECT_EQ(children.item(0).getNodeType(), TVLIDOM_Node::TEXT_NODE);
    EXPECT_EQ(children.item(0).getNodeValue(), "text");
    EXPECT_EQ(children.item(1).getNodeType(), TVLIDOM_Node::ELEMENT_NODE);
    EXPECT_EQ(children.item(1).getNodeName(), "b");
    EXPECT_EQ(children.item(2).getNodeType(), TVLIDOM_Node::CDATA_SECTION_NODE);
    EXPECT_EQ(children.item(2).getNodeValue(), "data");
    EXPECT_EQ(children.item(3).getNodeType(), 8);
    EXPECT_TRUE(children.item(4).isNull());
}

TEST_F(TVLIDOM_NodeTest, NodesThatAreNoElementsHaveTheNamesOfTheirKinds) {
    const XmlText document("<a>text<![CDATA[data]]><!-- c --><?do this?><b/></a>");
    const TVLIDOM_NodeList children = document.root().getChildNodes();
    ASSERT_EQ(children.getLength(), 5U);
    EXPECT_EQ(children.item(0).getNodeName(), "#text");
    EXPECT_EQ(children.item(1).getNodeName(), "#cdata-section");
    EXPECT_EQ(children.item(2).getNodeName(), "#comment");
    EXPECT_EQ(children.item(3).getNodeName(), "do");
    EXPECT_EQ(children.item(3).getNodeValue(), "this");
    EXPECT_EQ(children.item(4).getNodeValue(), "");
    EXPECT_EQ(document.root().getParentNode().getNodeName(), "#document");
    EXPECT_EQ(document.root().getParentNode().getNodeValue(), "");
}

TEST_F(TVLIDOM_NodeTest, NodesKnowTheirNeighbours) {
    const XmlText document("<a><b/><c/></a>");
    const TVLIDOM_Node b = document.root().getFirstChild();
    EXPECT_EQ(b.getNextSibling().getNodeName(), "c");
    EXPECT_TRUE(b.getNextSibling().getNextSibling().isNull());
    EXPECT_TRUE(b.getParentNode() == document.root());
    EXPECT_FALSE(b == b.getNextSibling());
}

TEST_F(TVLIDOM_NodeTest, OnlyAnElementBecomesAnElementHandle) {
    const XmlText document("<a>text<b/></a>");
    const TVLIDOM_Node text = document.root().getFirstChild();
    EXPECT_TRUE(TVLIDOM_Element(text).isNull());
    EXPECT_FALSE(TVLIDOM_Element(text.getNextSibling()).isNull());
}

TEST_F(TVLIDOM_NodeTest, AnAbsentAttributeIsEmpty) {
    const XmlText document("<a b='1' empty=''/>");
    EXPECT_EQ(document.root().getAttribute("b"), "1");
    EXPECT_EQ(document.root().getAttribute("B"), "");
    EXPECT_EQ(document.root().getAttribute("empty"), "");
    EXPECT_EQ(document.root().getAttribute("none"), "");
    EXPECT_EQ(document.root().getAttribute("\xff"), "") << "no name in any document";
}

TEST_F(TVLIDOM_NodeTest, AttributeValuesAreUtf8) {
    const XmlText document("<a n\xc3\xa4me='\xe2\x82\xac&#x1F600;'/>");
    EXPECT_EQ(document.root().getAttribute("n\xc3\xa4me"), "\xe2\x82\xac\xf0\x9f\x98\x80");
}

TEST_F(TVLIDOM_NodeTest, TextContentIsAllTextAndCdataAsItStands) {
    const XmlText document("<a> one<b>two<c>three</c></b><!-- no --><![CDATA[<four>]]>\n</a>");
    EXPECT_EQ(document.root().getTextContent(), " onetwothree<four>\n");
}

TEST_F(TVLIDOM_NodeTest, TextContentEndsWithTheElement) {
    const XmlText document("<a><b>in</b>out</a>");
    EXPECT_EQ(TVLIDOM_Element(document.root().getFirstChild()).getTextContent(), "in");
}

TEST_F(TVLIDOM_NodeTest, ElementsByNameComeInDocumentOrderWithoutTheStart) {
    const XmlText document("<p n='0'><p n='1'><p n='2'/></p><q><p n='3'/></q><p n='4'/></p>");
    const TVLIDOM_NodeList found = document.root().getElementsByTagName("p");
    ASSERT_EQ(found.getLength(), 4U);
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(TVLIDOM_Element(found.item(i)).getAttribute("n").str(), std::to_string(i + 1));
    }
}

TEST_F(TVLIDOM_NodeTest, ElementsByNameDoNotLeaveTheStart) {
    const XmlText document("<a><b><p/></b><p/></a>");
    const TVLIDOM_Element b(document.root().getFirstChild());
    EXPECT_EQ(b.getElementsByTagName("p").getLength(), 1U);
    EXPECT_EQ(document.root().getElementsByTagName("P").getLength(), 0U);
}

}  // namespace
