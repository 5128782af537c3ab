#include "SEKDocument.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

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

using Children = std::multimap<std::string, std::string>;

Children childrenOf(const std::string& text) {
    return SEKDocument::parse(text).children();
}

TEST(SEKDocumentTest, ReadsRootNamespaceAndChildren) {
    const SEKDocument document = SEKDocument::parse(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root a='1' xmlns=\"urn:x\">\n <c> text "
        "</c>\n<d/></root>\n");
    EXPECT_EQ(document.rootName(), "root");
    EXPECT_EQ(document.rootNamespace(), "urn:x");
    EXPECT_EQ(document.children(), (Children{{"c", "text"}, {"d", ""}}));
}

TEST(SEKDocumentTest, TheDeclarationMayBeAbsent) {
    EXPECT_EQ(childrenOf("<r><a>1</a></r>"), (Children{{"a", "1"}}));
}

TEST(SEKDocumentTest, AnEmptyRootIsADocument) {
    EXPECT_TRUE(childrenOf("<r/>").empty());
    EXPECT_TRUE(childrenOf("<r></r>").empty());
}

TEST(SEKDocumentTest, EverySpellingOfTheSameContentIsTheSame) {
    const Children same{{"a", "A<1"}};
    for (const char* const text :
         {"<r><a>A&lt;1</a></r>", "<r><a>&#65;&#x3C;1</a></r>", "<r><a><![CDATA[A<1]]></a></r>",
          "<r><a>A<![CDATA[<]]>1</a></r>", "<r><!-- c --><a>A<!-- c -->&lt;1</a></r><!-- c -->",
          "<?p i?><r><a><?p i?>A&lt;1</a></r>", "\xef\xbb\xbf<r><a>A&lt;1</a></r>",
          "<p:r xmlns:p='urn:x'><p:a>A&lt;1</p:a></p:r>",
          "<p:r xmlns:p='urn:x'><q:a xmlns:q='urn:x'>A&lt;1</q:a></p:r>",
          "<?xml version='1.0' encoding='ISO-8859-1'?><r><a>A&lt;1</a></r>",
          "<r>\n<a\n>\nA&lt;1\n</a\n>\n</r>", "<!DOCTYPE r [<!ENTITY e 'A&#38;lt;1'>]><r><a>&e;</a></r>",
          "<!DOCTYPE r><r><a>A&lt;1</a></r>"})
        EXPECT_EQ(childrenOf(text), same) << text;
}

TEST(SEKDocumentTest, WhatItDoesNotKnowIsPassedOver) {
    EXPECT_EQ(childrenOf("<r>words<a>1<b>2</b>3</a>words</r>"), (Children{{"a", "13"}}));
    EXPECT_EQ(childrenOf("<r xmlns:o='urn:o'><o:a>other</o:a><a>1</a></r>"), (Children{{"a", "1"}}));
    EXPECT_EQ(childrenOf("<r><a>1</a><a>2</a></r>").count("a"), 2U);
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
                                 "<r><a>&unknown;</a></r>",
                                 "<r><a>&amp</a></r>",
                                 "<r><a>&#0;</a></r>",
                                 "<r><a>]]></a></r>",
                                 "<r x='1' x='2'></r>",
                                 "<r x=1></r>",
                                 "<r x></r>",
                                 "<r x='1></r>",
                                 "<r x='<'></r>",
                                 "<r x='1'y='2'></r>",
                                 "<1></1>",
                                 "<p:r></p:r>",
                                 "<r><!-- a -- b --></r>",
                                 "<?xml version='1.0' encoding='UTF-16'?><r></r>",
                                 "<?xml version='1.0'><r></r>",
                                 "<r><a>\x01</a></r>",
                                 "<r><a>\xff\xfe</a></r>",
                                 "<r><a>\xc0\xaf</a></r>",
                                 "<r><a>\xed\xa0\x80</a></r>",
                                 "<!DOCTYPE r [<!ENTITY e '&e;'>]><r>&e;</r>",
                                 " <?xml version='1.0'?><r></r>"};
    for (const char* text : texts)
        EXPECT_EQ(refusalOf(text).rfind("document not well-formed, line 1, column ", 0), 0U)
            << text << refusalOf(text);
}

TEST(SEKDocumentTest, EveryCutIsRefused) {
    const std::string whole =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?><root a=\"b\"><child>&amp;x</child></root>";
    ASSERT_EQ(refusalOf(whole), "accepted");
    for (std::size_t length = 0; length < whole.size(); ++length)
        EXPECT_NE(refusalOf(whole.substr(0, length)), "accepted") << length;
}

TEST(SEKDocumentTest, NamesThePlaceOfTheFault) {
    EXPECT_EQ(refusalOf("<r>\n<a>x</b></r>"), "document not well-formed, line 2, column 7: mismatched tag");
}

TEST(SEKDocumentTest, NothingOutsideTheDocumentIsReadOrTakenForEmpty) {
    EXPECT_NE(refusalOf("<!DOCTYPE r SYSTEM 'r.dtd'><r><a>&e;</a></r>")
                  .find("a document type outside the document"),
              std::string::npos);
    EXPECT_NE(refusalOf("<!DOCTYPE r [<!ENTITY e SYSTEM '/etc/passwd'>]><r><a>&e;</a></r>")
                  .find("an entity outside the document"),
              std::string::npos);
    EXPECT_NE(refusalOf("<!DOCTYPE r [<!ENTITY % p 'x'> %p;]><r><a>&e;</a></r>").find("a parameter entity"),
              std::string::npos);
    EXPECT_NE(refusalOf("<!DOCTYPE r [%p;]><r><a>&e;</a></r>"), "accepted");
}

TEST(SEKDocumentTest, SizeDepthAndEntitiesHaveBounds) {
    const std::string big(SEKDocument::sizeLimitBytes, 'x');
    EXPECT_EQ(refusalOf("<r>" + big + "</r>"), "the document is too large");
    std::string deep;
    for (int i = 0; i <= SEKDocument::depthLimit; ++i)
        deep += "<a>";
    EXPECT_NE(refusalOf(deep).find("elements nested too deeply"), std::string::npos);
    std::string many = "<!DOCTYPE r [<!ENTITY e0 'x'>";
    for (int i = 1; i <= SEKDocument::entityLimit; ++i)
        many += "<!ENTITY e" + std::to_string(i) + " '&e" + std::to_string(i - 1) + ";'>";
    EXPECT_NE(refusalOf(many + "]><r/>").find("too many entities"), std::string::npos);
}

// Ten entities of ten references each would be ten thousand million characters.
TEST(SEKDocumentTest, EntitiesThatMultiplyAreRefusedAtOnce) {
    std::string text = "<!DOCTYPE r [<!ENTITY e0 'xxxxxxxxxx'>";
    for (int i = 1; i < 10; ++i) {
        text += "<!ENTITY e" + std::to_string(i) + " '";
        for (int j = 0; j < 10; ++j)
            text += "&e" + std::to_string(i - 1) + ";";
        text += "'>";
    }
    EXPECT_NE(refusalOf(text + "]><r><a>&e9;</a></r>").find("too much text"), std::string::npos);
    EXPECT_NE(refusalOf(text + "]><r a='&e9;'/>"), "accepted");
}

}  // namespace
