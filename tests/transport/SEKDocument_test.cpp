#include "SEKDocument.h"

#include <gtest/gtest.h>

#include "SEKErrors.h"

namespace {

std::string refusalOf(const std::string& text) {
    try {
        SEKDocument::parse(text);
    } catch (const SEKFailure& failure) {
        return failure.what();
    }
    return "accepted";
}

TEST(SEKDocumentTest, ReadsRootAttributesAndChildren) {
    const SEKDocument document = SEKDocument::parse(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root a='1' xmlns:b=\"x y\">\n <c> text "
        "</c>\n<d/></root>\n");
    EXPECT_EQ(document.rootName(), "root");
    EXPECT_EQ(document.attributes(), (std::map<std::string, std::string>{{"a", "1"}, {"xmlns:b", "x y"}}));
    EXPECT_EQ(document.children(), (std::map<std::string, std::string>{{"c", "text"}, {"d", ""}}));
}

TEST(SEKDocumentTest, TheDeclarationMayBeAbsent) {
    EXPECT_EQ(SEKDocument::parse("<r><a>1</a></r>").children().at("a"), "1");
}

TEST(SEKDocumentTest, ResolvesTheFiveKnownReferences) {
    EXPECT_EQ(SEKDocument::parse("<r><a>&lt;&gt;&amp;&quot;&apos;</a></r>").children().at("a"), "<>&\"'");
}

TEST(SEKDocumentTest, AnEmptyRootIsADocument) {
    EXPECT_TRUE(SEKDocument::parse("<r/>").children().empty());
    EXPECT_TRUE(SEKDocument::parse("<r></r>").children().empty());
}

TEST(SEKDocumentTest, WhatIsNotWellFormedIsRefused) {
    const char* const texts[] = {"",
                                 " ",
                                 "text",
                                 "<",
                                 "<r",
                                 "<r>",
                                 "<r><a>",
                                 "<r><a>x",
                                 "<r><a>x</a>",
                                 "<r></s>",
                                 "<r><a>x</b></r>",
                                 "<r></r><r></r>",
                                 "<r></r>x",
                                 "<r>text</r>",
                                 "<r><a>&unknown;</a></r>",
                                 "<r><a>&#65;</a></r>",
                                 "<r><a>&amp</a></r>",
                                 "<r><a><b></b></a></r>",
                                 "<r><a>1</a><a>2</a></r>",
                                 "<r x='1' x='2'></r>",
                                 "<r x=1></r>",
                                 "<r x></r>",
                                 "<r x='1></r>",
                                 "<r x='<'></r>",
                                 "<r x='1'y='2'></r>",
                                 "<1></1>",
                                 "<r><!-- c --></r>",
                                 "<r><a><![CDATA[x]]></a></r>",
                                 "<!DOCTYPE r><r></r>",
                                 "<?xml version='1.1'?><r></r>",
                                 "<?xml version='1.0' encoding='UTF-16'?><r></r>",
                                 "<?xml version='1.0'><r></r>",
                                 "<r><a>\x01</a></r>",
                                 " <?xml version='1.0'?><r></r>"};
    for (const char* text : texts)
        EXPECT_EQ(refusalOf(text).rfind("document not well-formed at byte ", 0), 0U)
            << text << refusalOf(text);
}

TEST(SEKDocumentTest, EveryCutIsRefused) {
    const std::string whole =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?><root a=\"b\"><child>&amp;x</child></root>";
    ASSERT_EQ(refusalOf(whole), "accepted");
    for (std::size_t length = 0; length < whole.size(); ++length)
        EXPECT_NE(refusalOf(whole.substr(0, length)), "accepted") << length;
}

TEST(SEKDocumentTest, NamesTheByteOfTheFault) {
    EXPECT_EQ(refusalOf("<r><a>x</b></r>"), "document not well-formed at byte 10: end tag of a expected");
}

}  // namespace
