#include "ZORHelpers.h"

#include "TestKit.h"

namespace {

class ZORHelpersTest : public ServiceTest {
  protected:
    static std::string textOf(const std::string& xml, const char* before = "") {
        const XmlText document(xml);
        I18NString text(before);
        ZORHelpers::getElemText(document.root(), text);
        return text.str();
    }
};

TEST_F(ZORHelpersTest, TakesTheElementsText) {
    EXPECT_EQ(textOf("<a> some text </a>"), " some text ");
}

TEST_F(ZORHelpersTest, TheLastTextChildWins) {
    EXPECT_EQ(textOf("<a>first<!-- c -->second<b>inner</b>third</a>"), "third");
}

TEST_F(ZORHelpersTest, WithoutATextChildTheTextStaysAsItWas) {
    EXPECT_EQ(textOf("<a><b>inner</b><!-- c --></a>", "before"), "before");
    EXPECT_EQ(textOf("<a/>", "before"), "before");
}

TEST_F(ZORHelpersTest, ACDataSectionIsNoText) {
    EXPECT_EQ(textOf("<a><![CDATA[data]]></a>", "before"), "before");
}

TEST_F(ZORHelpersTest, BackslashesBecomeSlashes) {
    std::string path = R"(a\b\c)";
    ZORHelpers::fixPathDelimiters(path);
    EXPECT_EQ(path, "a/b/c");
}

TEST_F(ZORHelpersTest, TrailingSlashesGo) {
    for (const auto& [before, after] : {std::pair{"/opt/x//", "/opt/x"},
                                        {"/", ""},
                                        {"///", ""},
                                        {"x\\", "x\\"},
                                        {"x/\\", "x/\\"},
                                        {"", ""},
                                        {"/opt", "/opt"}}) {
        std::string path = before;
        ZORHelpers::stripTrailingSlash(path);
        EXPECT_EQ(path, after) << before;
    }
}

TEST_F(ZORHelpersTest, TheLastDirectoryGoes) {
    for (const auto& [before, after] : {std::pair{"a/b/c", "a/b"},
                                        {"a/b/", "a/b"},
                                        {"/x", ""},
                                        {"bin", "bin"},
                                        {"a\\b\\c", "a\\b"},
                                        {"a/b\\c", "a/b"}}) {
        std::string path = before;
        ZORHelpers::stripLastDir(path);
        EXPECT_EQ(path, after) << before;
    }
}

}  // namespace
