// Declarations: what a document may declare, and what of it is refused.

#include <malloc.h>

#include "TVLIDOM_Parser.h"
#include "TestKit.h"
#include "TextStream.h"

namespace {

class PlainXmlParserTest : public testing::Test {
  protected:
    PlainXmlParserTest() { TVLIDOM_DOMImplementation::initialize(); }
    ~PlainXmlParserTest() override { TVLIDOM_DOMImplementation::terminate(); }

    std::string errorOf(const std::string& text) {
        TVLIDOM_Document document;
        TextStream stream(text);
        TVLIDOM_Parser parser;
        EXPECT_EQ(parser.parse(stream, document), 0) << text.substr(0, 200);
        EXPECT_TRUE(document.getDocumentElement().isNull());
        return parser.getErrorString().str();
    }
    // The text of the root of a document that must be accepted.
    std::string textOf(const std::string& text) {
        TextStream stream(text);
        TVLIDOM_Parser parser;
        EXPECT_EQ(parser.parse(stream, m_document), 1) << parser.getErrorString().c_str();
        return m_document.getDocumentElement().getTextContent().str();
    }
    std::string attributeOf(const std::string& text, const char* name) {
        textOf(text);
        return m_document.getDocumentElement().getAttribute(name).str();
    }

    static std::string repeated(const std::string& piece, int count) {
        std::string text;
        for (int i = 0; i < count; ++i)
            text += piece;
        return text;
    }
    // Entities of which each stands for ten of the one before; the last would be a thousand million of the first.
    static std::string multiplying(const std::string& kind, const std::string& reference,
                                   const std::string& first) {
        std::string text = "<!ENTITY " + kind + "e0 '" + first + "'>";
        for (int i = 1; i < 10; ++i) {
            text += "<!ENTITY " + kind + "e" + std::to_string(i) + " '" +
                    repeated(reference + "e" + std::to_string(i - 1) + ";", 10) + "'>";
        }
        return text;
    }

    TVLIDOM_Document m_document;
};

// ---- What an external, unread DTD might declare ----

TEST_F(PlainXmlParserTest, AnEntityThatOnlyAnUnreadDtdCouldDefineIsAnErrorThatNamesIt) {
    EXPECT_EQ(errorOf("<!DOCTYPE x SYSTEM 'x.dtd'>\n<x>--dir=&foo;/x</x>"),
              "line 2, column 15: entity 'foo' not found");
    EXPECT_EQ(errorOf("<!DOCTYPE x PUBLIC 'p' 'http://127.0.0.1:9/x.dtd' []>\n<x>&foo;</x>"),
              "line 2, column 9: entity 'foo' not found");
    EXPECT_EQ(errorOf("<?xml version='1.0' standalone='no'?><!DOCTYPE x SYSTEM 'x.dtd'>\n<x>&foo;</x>"),
              "line 2, column 9: entity 'foo' not found");
}

TEST_F(PlainXmlParserTest, SuchAnEntityInAnAttributeIsAnErrorThatNamesIt) {
    EXPECT_EQ(errorOf("<!DOCTYPE x SYSTEM 'x.dtd'>\n<x b='&foo;'/>"),
              "line 2, column 12: entity 'foo' not found");
}

TEST_F(PlainXmlParserTest, SuchAnEntityInsideAnotherIsAnErrorThatNamesIt) {
    EXPECT_EQ(errorOf("<!DOCTYPE x SYSTEM 'x.dtd' [<!ENTITY a '[&foo;]'><!ENTITY b '&a;'>]>\n<x>&b;</x>"),
              "line 2, column 7: entity 'foo' not found");
    EXPECT_EQ(errorOf("<!DOCTYPE x SYSTEM 'x.dtd' [<!ENTITY a '[&foo;]'>]>\n<x b='&a;'/>"),
              "line 2, column 10: entity 'foo' not found");
}

TEST_F(PlainXmlParserTest, SuchAnEntityInADefaultValueIsAnErrorThatNamesIt) {
    EXPECT_EQ(errorOf("<!DOCTYPE x SYSTEM 'x.dtd' [\n<!ATTLIST x b CDATA '&foo;'>]><x/>"),
              "line 2, column 27: entity 'foo' not found");
}

TEST_F(PlainXmlParserTest, AnUndeclaredParameterEntityIsAnErrorThatNamesIt) {
    for (const std::string& dtd : {std::string(), std::string("SYSTEM 'x.dtd' ")}) {
        EXPECT_EQ(
            errorOf("<!DOCTYPE x " + dtd + "[\n%foo;\n<!ENTITY e 'text'>]><x>&e;</x>"),
            "line 2, column 6: references to parameter entities are not supported: entity 'foo' not found");
    }
}

TEST_F(PlainXmlParserTest, AnUnreadDtdWithoutReferencesDoesNoHarm) {
    EXPECT_EQ(textOf("<!DOCTYPE x SYSTEM 'x.dtd'><x>&lt;&#65;&gt;</x>"), "<A>");
    EXPECT_EQ(textOf("<!DOCTYPE x SYSTEM 'x.dtd' [<!ENTITY e 'declared'>]><x>&e;</x>"), "declared");
}

// ---- Declarations that multiply nothing ----

TEST_F(PlainXmlParserTest, DeclarationsThatMultiplyNothingAreAccepted) {
    const std::string subset =
        "<!ELEMENT a (#PCDATA|b)*>\n<!ELEMENT b EMPTY>\n<!NOTATION n SYSTEM 'n'>\n"
        "<!ATTLIST a b CDATA #IMPLIED kind (one|two) #REQUIRED>\n<!ATTLIST b i ID #IMPLIED>\n"
        "<!ENTITY % p 'nobody refers to it'>\n<!ENTITY % q SYSTEM 'file:///etc/passwd'>\n"
        "<!ENTITY picture SYSTEM 'p.gif' NDATA n>\n<!-- a comment --><?a target?>\n";
    EXPECT_EQ(textOf("<!DOCTYPE a [" + subset + "]><a b=' x '>text</a>"), "text");
    EXPECT_EQ(m_document.getDocumentElement().getAttribute("b"), " x ");
    EXPECT_EQ(m_document.getDocumentElement().getAttribute("kind"), "");
}

TEST_F(PlainXmlParserTest, EntitiesKeepTheirMeaningAmongOtherDeclarations) {
    EXPECT_EQ(textOf("<!DOCTYPE a [<!ENTITY % e 'other'><!ENTITY e 'first'><!ENTITY e 'second'>"
                     "<!ATTLIST a b CDATA #IMPLIED><!ENTITY f '<b>&e;</b>'>]><a b='&e;'>&f; &e;</a>"),
              "first first");
    EXPECT_EQ(m_document.getDocumentElement().getAttribute("b"), "first");
}

TEST_F(PlainXmlParserTest, AnExternalGeneralEntityStaysExternalAfterTheSubset) {
    EXPECT_EQ(errorOf("<!DOCTYPE a [<!ENTITY e SYSTEM 'x'>]>\n<a>&e;</a>"),
              "line 2, column 7: external entities are not loaded: \"x\"");
    EXPECT_EQ(errorOf("<!DOCTYPE a [<!ENTITY e SYSTEM 'x'>]>\n<a b='&e;'/>"),
              "line 2, column 10: external entity cannot be referred to from attribute value");
}

// ---- Parameter entities ----

TEST_F(PlainXmlParserTest, AReferenceToAParameterEntityIsAnError) {
    EXPECT_EQ(errorOf("<!DOCTYPE a [<!ENTITY % p ''>\n  %p;]><a/>"),
              "line 2, column 6: references to parameter entities are not supported: \"%p;\"");
    EXPECT_EQ(errorOf("<!DOCTYPE a [<!ENTITY % e SYSTEM 'file:///etc/passwd'>\n%e;]><a/>"),
              "line 2, column 4: references to parameter entities are not supported: \"%e;\"");
    EXPECT_NE(
        errorOf("<!DOCTYPE a [<!ENTITY % p 'x'><!ENTITY e '%p;'>]><a/>").find("parameter entity references"),
        std::string::npos);
}

// Each would be gone through a thousand million times, and the empty ones without an event.
TEST_F(PlainXmlParserTest, ParameterEntitiesThatMultiplyAreNotExpanded) {
    for (const char* const first : {"", "<!-- x -->", " "}) {
        EXPECT_NE(errorOf("<!DOCTYPE a [" + multiplying("% ", "&#37;", first) + "%e9;]><a/>")
                      .find("references to parameter entities are not supported: \"%e9;\""),
                  std::string::npos);
    }
}

// ---- Default values ----

TEST_F(PlainXmlParserTest, ADefaultAttributeValueIsAnError) {
    EXPECT_EQ(errorOf("<!DOCTYPE a [\n<!ATTLIST a b CDATA 'x'>]><a/>"),
              "line 2, column 24: default attribute values are not supported");
    EXPECT_EQ(errorOf("<!DOCTYPE a [\n<!ATTLIST a b CDATA #FIXED 'x'>]><a/>"),
              "line 2, column 31: default attribute values are not supported");
    EXPECT_EQ(errorOf("<!DOCTYPE a [\n<!ATTLIST a b CDATA #IMPLIED c (x|y) 'y'>]><a/>"),
              "line 2, column 41: default attribute values are not supported");
    EXPECT_EQ(errorOf("<!DOCTYPE a [<!ATTLIST a b CDATA #IMPLIED>\n<!ATTLIST a b CDATA 'x'>]><a/>"),
              "line 2, column 24: default attribute values are not supported");
}

// The library knows no bound on expansions there.
TEST_F(PlainXmlParserTest, EntitiesInADefaultValueAreNotExpanded) {
    for (const char* const first : {"", "ha"}) {
        EXPECT_NE(errorOf("<!DOCTYPE a [" + multiplying("", "&", first) +
                          "<!ATTLIST a b CDATA #FIXED '&e9;'>]><a/>")
                      .find("default attribute values are not supported"),
                  std::string::npos);
    }
}

// ---- General entities ----

TEST_F(PlainXmlParserTest, EntitiesThatMultiplyAreAnError) {
    const std::string words =
        "parser has encountered more than '100' entity expansions in the document; this is the limit imposed "
        "by "
        "the application";
    for (const char* const first : {"", "ha"}) {
        const std::string subset = "<!DOCTYPE a [" + multiplying("", "&", first) + "]>\n";
        EXPECT_EQ(errorOf(subset + "<a>&e9;</a>"), "line 2, column 8: " + words);
        EXPECT_EQ(errorOf(subset + "<a b='&e9;'/>"), "line 2, column 11: " + words);
    }
}

TEST_F(PlainXmlParserTest, AHundredExpansionsAreEnough) {
    const std::string subset = "<!DOCTYPE a [<!ENTITY e 'x'>]>";
    EXPECT_EQ(textOf(subset + "<a b='" + repeated("&e;", 40) + "'>" + repeated("&e;", 60) + "</a>"),
              std::string(60, 'x'));
    EXPECT_NE(errorOf(subset + "<a b='" + repeated("&e;", 40) + "'>" + repeated("&e;", 61) + "</a>")
                  .find("more than '100' entity expansions"),
              std::string::npos);
}

// All that a document can make of its entities: about three million characters.
TEST_F(PlainXmlParserTest, AHundredExpansionsOfALongEntityAreParsed) {
    const std::string subset = "<!DOCTYPE a [<!ENTITY e '" + std::string(32000, 'x') + "'>]>";
    EXPECT_EQ(textOf(subset + "<a>" + repeated("&e;", 100) + "</a>").size(), 3200000U);
    EXPECT_EQ(attributeOf(subset + "<a b='" + repeated("&e;", 100) + "'/>", "b").size(), 3200000U);
}

// ---- Many declarations ----

// The library looks at every declared attribute of an element each time the element occurs.
TEST_F(PlainXmlParserTest, TooManyDeclaredAttributesOfAnElementAreAnError) {
    const auto declared = [](int count) {
        std::string text = "<!DOCTYPE a [\n";
        for (int i = 0; i < count; ++i)
            text += "<!ATTLIST a b" + std::to_string(i) + " CDATA #IMPLIED>\n";
        return text + "]><a>x</a>";
    };
    EXPECT_EQ(textOf(declared(100)), "x");
    EXPECT_EQ(errorOf(declared(101)),
              "line 102, column 32: element \"a\" has more than 100 declared attributes");
}

TEST_F(PlainXmlParserTest, ManyDeclarationsAreReadOver) {
    std::string text = "<!DOCTYPE a [";
    for (int i = 0; i < 180; ++i) {
        const std::string name = "x" + std::to_string(i);
        text += "<!ELEMENT " + name + " (a,(b|c)*)><!ATTLIST " + name + " id ID #IMPLIED v CDATA #REQUIRED>";
        text += "<!NOTATION " + name + " PUBLIC 'p'><!ENTITY % " + name + " 'p'><!ENTITY " + name + " '&" +
                name + ";'>";
    }
    EXPECT_EQ(textOf(text + "]><a>x</a>"), "x");
}

TEST_F(PlainXmlParserTest, ADeepContentModelIsReadOverOrRefused) {
    const auto declared = [](int depth) {
        return "<!DOCTYPE a [\n<!ELEMENT a " + repeated("(a,", depth) + "b" + repeated(")", depth) +
               ">]><a>x</a>";
    };
    EXPECT_EQ(textOf(declared(900)), "x");
    EXPECT_NE(errorOf(declared(100000)).find("line 2, column "), std::string::npos);
}

// The library forgets what it was building when an error ends it; a quarter of a megabyte each time.
TEST_F(PlainXmlParserTest, ARefusedDocumentLeavesNothingBehind) {
    const std::string text =
        "<!DOCTYPE a [\n<!ELEMENT a " + repeated("(a,", 100000) + "b" + repeated(")", 100000) + ">]><a>x</a>";
    errorOf(text);
    const std::size_t before = mallinfo2().uordblks;
    for (int i = 0; i < 10; ++i)
        errorOf(text);
    EXPECT_LT(mallinfo2().uordblks, before + 100000);
}

// Such a content model of a few million names would take the library minutes.
TEST_F(PlainXmlParserTest, ALongDocumentTypeDeclarationIsAnError) {
    const auto content = [](const std::string& first, int count, const std::string& last) {
        std::string text = "<!DOCTYPE a [\n<!ELEMENT a (" + first;
        for (int i = 0; i < count; ++i)
            text.append("|b").append(std::to_string(i));
        return text + last + ">]><a>x</a>";
    };
    EXPECT_EQ(textOf(content("b", 5000, ")")), "x");
    for (const char* const first : {"b", "#PCDATA"}) {
        const std::string error = errorOf(content(first, 3000000, ")*"));
        EXPECT_NE(error.find("line 2, column "), std::string::npos) << error;
        EXPECT_NE(error.find("the document type declaration has more than 32768 bytes"), std::string::npos)
            << error;
    }
}

// Wherever it begins within a block of what is read: nothing of it is counted twice.
TEST_F(PlainXmlParserTest, ADocumentTypeDeclarationMayBeAsLongAsTheLimit) {
    constexpr int kBlock = 8192;
    const std::string begin = "<?xml version='1.0'?>";
    const std::string type = "<!DOCTYPE a [";
    const int blanks = kBlock - static_cast<int>(begin.size() + type.size());
    for (const int length : {32000, 32767, 32768}) {
        for (const int rest : {0, 1, 100}) {
            const std::string before = begin + repeated(" ", blanks - rest) + type;
            EXPECT_EQ(textOf(before + repeated(" ", length) + "]><a>x</a>"), "x") << length << ' ' << rest;
        }
    }
}

TEST_F(PlainXmlParserTest, ADocumentTypeDeclarationOfManyPartsIsAsLongAsAllOfThem) {
    for (const char* const part :
         {"<!ENTITY e 'x'>", "<!ELEMENT a ANY>", "<!ATTLIST a>", "<!-- x -->", "<?a x?>", "          "}) {
        const std::string error = errorOf("<!DOCTYPE a [" + repeated(part, 100000) + "]><a/>");
        EXPECT_NE(error.find("the document type declaration has more than 32768 bytes"), std::string::npos)
            << error;
    }
}

// ---- Many names ----

// Each new name would cost the library as much as there are names already.
class PlainXmlParserNamesTest : public PlainXmlParserTest {
  protected:
    static std::string numbered(const std::string& before, int count, const std::string& after) {
        std::string text;
        for (int i = 0; i < count; ++i)
            text.append(before).append(std::to_string(i)).append(after);
        return text;
    }
    int errorlessPieces(const char* piece) {
        TextStream stream("<a>" + repeated(piece, 50000) + "</a>");
        return TVLIDOM_Parser().parse(stream, m_document);
    }
    // Different names that the library's tables cannot tell apart.
    static std::string lookingAlike(unsigned number) {
        std::string name;
        for (unsigned bit = 0; bit < 18; ++bit)
            name += (number >> bit & 1U) != 0 ? "Az" : "BT";
        return name;
    }
    void expectTooMany(const std::string& text, const std::string& place) {
        EXPECT_EQ(errorOf(text), place + ": more than 1000 different names of elements and attributes");
    }
};

TEST_F(PlainXmlParserNamesTest, AThousandNamesAreEnough) {
    EXPECT_EQ(textOf("<a>" + numbered("<b", 999, "/>") + repeated("<b0/>", 5000) + "x</a>"), "x");
    EXPECT_EQ(textOf("<a " + numbered("b", 999, "='' ") + ">x</a>"), "x");
}

TEST_F(PlainXmlParserNamesTest, TooManyNamesOfElementsAreAnError) {
    expectTooMany("<a>\n" + numbered("<b", 1000, "/>\n") + "</a>", "line 1001, column 8");
    expectTooMany("<a>\n" + numbered("<b", 3000000, "/>\n") + "</a>", "line 1001, column 8");
}

TEST_F(PlainXmlParserNamesTest, TooManyNamesOfAttributesAreAnError) {
    expectTooMany("<a>\n" + numbered("<x b", 999, "=''/>\n") + "</a>", "line 1000, column 13");
    expectTooMany("<a\n" + numbered("b", 1000, "=''\n") + "/>", "line 1002, column 3");
    EXPECT_NE(errorOf("<a " + numbered("b", 200000, "='' ") + "/>")
                  .find("more than 1000 different names of elements and attributes"),
              std::string::npos);
}

// The library would compare each with all before it, for minutes, before it told of the first.
TEST_F(PlainXmlParserNamesTest, AttributesThatLookAlikeToTheLibraryAreRefusedBeforeTheTagEnds) {
    std::string text = "<a\n";
    for (unsigned i = 0; i < 1U << 18U; ++i)
        text += lookingAlike(i) + "=''\n";
    const std::string error = errorOf(text + "/>");
    EXPECT_NE(error.find(": more than 1000 different names of elements and attributes"), std::string::npos)
        << error;
    int line = 0;
    ASSERT_EQ(std::sscanf(error.c_str(), "line %d", &line), 1);
    EXPECT_LT(line, 10000) << "of 262144";
}

TEST_F(PlainXmlParserNamesTest, AThousandAttributesOfEverySizeAreEnoughForEveryTag) {
    std::string text = "<!DOCTYPE a [<!ENTITY e 'xy'>]><a>";
    for (const unsigned size : {0U, 9U, 900U}) {
        text += "<b ";
        for (unsigned i = 0; i < 998; ++i)
            text += "n" + std::to_string(i) + "='" + std::string(size + i % 7, 'x') +
                    (i % 31 == 0 ? "&e;" : "") + "' ";
        text += "/>";
    }
    EXPECT_EQ(textOf(text + "x</a>"), "x");
}

// What the library tells of on its way may take as much memory as it likes.
TEST_F(PlainXmlParserNamesTest, ALongDocumentOfFewNamesIsNoMatterOfNames) {
    for (const char* const piece :
         {"<!-- c -->", "<?p x?>", "<![CDATA[y]]>", "&#65;&lt;", "<b c='d'/>", "<b>y</b>"})
        EXPECT_EQ(errorlessPieces(piece), 1) << piece;
}

TEST_F(PlainXmlParserNamesTest, IdentifiersThatLookAlikeToTheLibraryDoNoHarm) {
    std::string text = "<!DOCTYPE a [<!ATTLIST b i ID #IMPLIED>]><a>";
    for (unsigned i = 0; i < 1U << 18U; ++i)
        text += "<b i=' " + lookingAlike(i) + " '/>";
    EXPECT_EQ(textOf(text + "x</a>"), "x");
    const TVLIDOM_Element first(m_document.getDocumentElement().getFirstChild());
    EXPECT_EQ(first.getAttribute("i"), repeated("BT", 18))
        << "still the value of an identifier, without blanks";
}

}  // namespace
