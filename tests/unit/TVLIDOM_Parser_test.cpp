#include "TVLIDOM_Parser.h"

#include <regex>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLNetAccessor.hpp>
#include <xercesc/util/XMLURL.hpp>

#include "TestKit.h"
#include "TextStream.h"

namespace {

class TVLIDOM_ParserTest : public testing::Test {
  protected:
    TVLIDOM_ParserTest() { TVLIDOM_DOMImplementation::initialize(); }
    ~TVLIDOM_ParserTest() override { TVLIDOM_DOMImplementation::terminate(); }

    int parse(const std::string& text) {
        TextStream stream(text);
        return m_parser.parse(stream, m_document);
    }
    // The error of a document that must not be accepted.
    std::string errorOf(const std::string& text) {
        EXPECT_EQ(parse(text), 0) << text.substr(0, 200);
        EXPECT_TRUE(m_document.getDocumentElement().isNull());
        return m_parser.getErrorString().str();
    }
    TVLIDOM_Element root() const { return m_document.getDocumentElement(); }

    TVLIDOM_Parser m_parser;
    TVLIDOM_Document m_document;
};

TEST_F(TVLIDOM_ParserTest, AWellFormedDocumentIsParsed) {
    EXPECT_EQ(parse("<?xml version='1.0'?><root a='1'>text</root>"), 1);
    EXPECT_EQ(root().getTagName(), "root");
    EXPECT_EQ(root().getAttribute("a"), "1");
    EXPECT_EQ(root().getTextContent(), "text");
}

TEST_F(TVLIDOM_ParserTest, NamesStayAsWritten) {
    EXPECT_EQ(parse("<vrx:value xsi:type='xsd:string' xmlns:vrx='urn:x'/>"), 1);
    EXPECT_EQ(root().getTagName(), "vrx:value");
    EXPECT_EQ(root().getAttribute("xsi:type"), "xsd:string");
}

TEST_F(TVLIDOM_ParserTest, ADocumentThatBreaksItsOwnRulesIsAccepted) {
    EXPECT_EQ(parse("<!DOCTYPE a [<!ELEMENT a EMPTY>]><a><b/></a>"), 1);
}

TEST_F(TVLIDOM_ParserTest, ADocumentMayComeByteByByte) {
    class Drop : public TextStream {
      public:
        using TextStream::read;
        using TextStream::TextStream;
        int read(char* buffer, int /*count*/) override { return TextStream::read(buffer, 1); }
    } stream("<a b='c'>text</a>\n");
    EXPECT_EQ(m_parser.parse(stream, m_document), 1);
    EXPECT_EQ(root().getAttribute("b"), "c");
}

TEST_F(TVLIDOM_ParserTest, OtherEncodingsBecomeUtf8) {
    EXPECT_EQ(parse("<?xml version='1.0' encoding='ISO-8859-1'?><a>\xe9</a>"), 1);
    EXPECT_EQ(root().getTextContent(), "\xc3\xa9");
    EXPECT_EQ(parse(std::string("\xff\xfe<\0a\0>\0\xac\x20<\0/\0a\0>\0", 18)), 1);
    EXPECT_EQ(root().getTextContent(), "\xe2\x82\xac");
    EXPECT_EQ(parse("\xef\xbb\xbf<a>\xf0\x9f\x98\x80</a>"), 1);
    EXPECT_EQ(root().getTextContent(), "\xf0\x9f\x98\x80");
}

TEST_F(TVLIDOM_ParserTest, AFewEntitiesAreExpanded) {
    EXPECT_EQ(parse("<!DOCTYPE a [<!ENTITY p 'dispatcher'>]><a b='&p;'>the &p;</a>"), 1);
    EXPECT_EQ(root().getAttribute("b"), "dispatcher");
    EXPECT_EQ(root().getTextContent(), "the dispatcher");
}

TEST_F(TVLIDOM_ParserTest, AnErrorIsToldWithLineAndColumn) {
    EXPECT_EQ(errorOf("<a>\n  <b></a>"), "line 2, column 8: expected end of tag 'b'");
}

TEST_F(TVLIDOM_ParserTest, EveryErrorIsOneLineWithItsPlace) {
    const std::regex oneLine("line [0-9]+, column [0-9]+: [^\n\r]+");
    for (const std::string& text :
         {std::string(), std::string(" \n "), std::string("<a>\n <b>"), std::string("<a b='"),
          std::string("<a>\n\xff\xfe\x80</a>"), std::string("<?xml version='1.0' encoding='KLINGON'?><a/>"),
          std::string("<a>\0</a>", 8), std::string("<a b='1' b='2'/>"), std::string("<a>&none;</a>"),
          std::string("<!DOCTYPE a [<!ENTITY x '&y;'><!ENTITY y '&x;'>]><a>&x;</a>"), std::string("<a/><b/>"),
          std::string("<a>&#xD800;</a>"), std::string("<a>\xe2\x82"), std::string("\x01\x02garbage"),
          std::string("<a><b\n\n></c\n></a>"), std::string("<a>]]></a>"), std::string("<!DOCTYPE")}) {
        const std::string error = errorOf(text);
        EXPECT_TRUE(std::regex_match(error, oneLine)) << text << " gives " << error;
    }
}

// The library reports these in another way than the rest.
TEST_F(TVLIDOM_ParserTest, WhatOnlyTheDocumentRefusesIsAnErrorWithItsPlaceToo) {
    EXPECT_EQ(errorOf("<?xml version='1.;0'?><a/>"),
              "line 1, column 23: implementation does not support the requested type of object or operation");
    EXPECT_EQ(errorOf("\n<!DOCTYPE a:b:c><a/>").rfind("line 2, column ", 0), 0U);
}

TEST_F(TVLIDOM_ParserTest, AnErrorInTheUndecodableFirstLineHasNoPlace) {
    EXPECT_EQ(errorOf("<?xml version" + std::string(40, '\xff') + "='1.0'?><a/>"),
              "line 0, column 0: unable to decode first line in entity '{null}'");
}

TEST_F(TVLIDOM_ParserTest, AnEmptyDocumentIsAnError) {
    EXPECT_EQ(errorOf(""), "line 1, column 1: invalid document structure");
}

TEST_F(TVLIDOM_ParserTest, ATruncatedDocumentIsAnErrorWhereverItEnds) {
    const std::string whole = "<?xml version='1.0'?><a b='1'><c>text</c><![CDATA[x]]><!-- y --></a>";
    ASSERT_EQ(parse(whole), 1);
    m_document.adopt(nullptr);
    for (std::size_t size = 0; size < whole.size(); ++size)
        errorOf(whole.substr(0, size));
}

TEST_F(TVLIDOM_ParserTest, BytesOfAnotherEncodingAreAnError) {
    EXPECT_NE(errorOf("<?xml version='1.0' encoding='UTF-8'?>\n<a>\xe9t\xe9</a>").find("invalid byte"),
              std::string::npos);
}

TEST_F(TVLIDOM_ParserTest, AFailureLeavesTheDocumentAsItWas) {
    ASSERT_EQ(parse("<kept/>"), 1);
    EXPECT_EQ(parse("<a>"), 0);
    EXPECT_EQ(root().getTagName(), "kept");
}

TEST_F(TVLIDOM_ParserTest, ASuccessReplacesTheDocument) {
    ASSERT_EQ(parse("<first/>"), 1);
    ASSERT_EQ(parse("<second/>"), 1);
    EXPECT_EQ(root().getTagName(), "second");
}

TEST_F(TVLIDOM_ParserTest, AnExternalEntityIsAnErrorAndIsNotLoaded) {
    const InstallFolder folder;
    folder.write("temp/secret", "secret");
    const std::string uri = "file://" + folder.path("temp/secret");
    EXPECT_EQ(errorOf("<!DOCTYPE a [<!ENTITY e SYSTEM '" + uri + "'>]>\n<a>\n  &e;</a>"),
              "line 3, column 6: external entities are not loaded: \"" + uri + "\"");
    EXPECT_EQ(errorOf("<!DOCTYPE a [<!ENTITY e PUBLIC 'p' 'http://127.0.0.1:9/x'>]>\n<a>&e;</a>"),
              "line 2, column 7: external entities are not loaded: \"http://127.0.0.1:9/x\"");
    EXPECT_NE(errorOf("<!DOCTYPE a [<!ENTITY e SYSTEM '" + uri + "'>]>\n<a b='&e;'/>"), "");
}

TEST_F(TVLIDOM_ParserTest, AnExternalEntityThatIsNotUsedDoesNoHarm) {
    EXPECT_EQ(parse("<!DOCTYPE a [<!ENTITY e SYSTEM 'file:///etc/passwd'>]><a>x</a>"), 1);
}

// The document type would make the element's text an error if it were read.
TEST_F(TVLIDOM_ParserTest, AnExternalDtdIsNotLoaded) {
    const InstallFolder folder;
    folder.write("temp/a.dtd", "<!ENTITY e 'from the DTD'> this is no DTD");
    EXPECT_EQ(parse("<!DOCTYPE a SYSTEM 'file://" + folder.path("temp/a.dtd") + "'>\n<a>x</a>"), 1);
    EXPECT_EQ(root().getTextContent(), "x");
    EXPECT_EQ(parse("<!DOCTYPE a SYSTEM 'http://127.0.0.1:9/a.dtd'>\n<a>y</a>"), 1);
    EXPECT_EQ(root().getTextContent(), "y");
}

TEST_F(TVLIDOM_ParserTest, ASchemaIsNotLoaded) {
    EXPECT_EQ(parse("<a xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' "
                    "xsi:noNamespaceSchemaLocation='file:///none.xsd'/>"),
              1);
}

// Whatever might ask one day: the library's own way into the network is closed.
TEST_F(TVLIDOM_ParserTest, TheLibraryHasNoAccessToTheNetwork) {
    using xercesc::XMLPlatformUtils;
    ASSERT_NE(XMLPlatformUtils::fgNetAccessor, nullptr);
    const xercesc::XMLURL url("http://localhost/a.dtd");
    EXPECT_THROW(XMLPlatformUtils::fgNetAccessor->makeNew(url), xercesc::NetAccessorException);
}

TEST_F(TVLIDOM_ParserTest, AHundredThousandNestedElementsAreParsedSearchedAndReleased) {
    constexpr int kDepth = 100000;
    std::string text;
    for (int i = 0; i < kDepth; ++i)
        text += "<a>";
    text += "x";
    for (int i = 0; i < kDepth; ++i)
        text += "</a>";
    EXPECT_EQ(parse(text), 1);
    EXPECT_EQ(root().getTextContent(), "x");
    EXPECT_EQ(root().getElementsByTagName("a").getLength(), static_cast<std::size_t>(kDepth - 1));
    m_document.adopt(nullptr);
}

TEST_F(TVLIDOM_ParserTest, HugeValuesAreParsed) {
    const std::string huge(4000000, 'x');
    EXPECT_EQ(parse("<a b='" + huge + "'>" + huge + "</a>"), 1);
    EXPECT_EQ(root().getAttribute("b").str().size(), huge.size());
    EXPECT_EQ(root().getTextContent().str().size(), huge.size());
}

}  // namespace
