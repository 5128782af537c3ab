#include "ZORArgVector.h"

#include "LinkSeam.h"
#include "TestKit.h"

namespace {

class ZORArgVectorTest : public ServiceTest {
  protected:
    // The arguments up to the first null.
    static std::vector<std::string> texts(const ZORArgVector& vector) {
        std::vector<std::string> result;
        for (const char* const argument : vector) {
            if (argument == nullptr) break;
            result.emplace_back(argument);
        }
        return result;
    }
    std::vector<std::string> prepared(const std::string& params) {
        const XmlText document("<spawn>" + params + "</spawn>");
        arguments.reset();
        arguments.prepare(document.root());
        return texts(arguments);
    }

    ZORArgVector arguments;
};

using Texts = std::vector<std::string>;

TEST_F(ZORArgVectorTest, KeepsCopiesOfWhatIsAdded) {
    std::string text = "first";
    arguments.add(text.c_str());
    text = "other";
    arguments.add("");
    arguments.terminateList();
    ASSERT_EQ(arguments.size(), 3U);
    EXPECT_STREQ(arguments[0], "first");
    EXPECT_STREQ(arguments[1], "");
    EXPECT_EQ(arguments[2], nullptr);
}

TEST_F(ZORArgVectorTest, AddingNullAddsATerminator) {
    arguments.add(nullptr);
    ASSERT_EQ(arguments.size(), 1U);
    EXPECT_EQ(arguments[0], nullptr);
}

TEST_F(ZORArgVectorTest, AnArgumentThatCannotBeCopiedEndsTheListEarly) {
    LinkSeam seam;
    seam.failCopiesOf("second");
    for (const char* const text : {"first", "second", "third"})
        arguments.add(text);
    ASSERT_EQ(arguments.size(), 3U);
    EXPECT_EQ(arguments[1], nullptr);
    EXPECT_EQ(texts(arguments), Texts{"first"});
}

TEST_F(ZORArgVectorTest, ResetEmptiesTheVector) {
    arguments.add("first");
    arguments.terminateList();
    arguments.reset();
    EXPECT_TRUE(arguments.empty());
    arguments.add("again");
    EXPECT_EQ(texts(arguments), Texts{"again"});
}

TEST_F(ZORArgVectorTest, TakesTheParamsInDocumentOrderAtAnyDepth) {
    EXPECT_EQ(
        prepared("<param>one</param><group><param>two</param></group><other>x</other><param>three</param>"),
        (Texts{"one", "two", "three"}));
    EXPECT_EQ(arguments.size(), 3U) << "the terminator is added by the caller";
}

TEST_F(ZORArgVectorTest, ExpandsReferencesAndLogsTheResult) {
    setProperty("port", "8080");
    EXPECT_EQ(prepared("<param>-port=${port}</param>"), Texts{"-port=8080"});
    EXPECT_EQ(log.linesOf("ZORArgVector"),
              (std::vector<LogLine>{{"DEBUG", "ZORArgVector", R"(adding arg "-port=8080")", {}}}));
}

TEST_F(ZORArgVectorTest, AParamWithoutTextIsAnEmptyArgument) {
    EXPECT_EQ(prepared("<param>one</param><param/>"), (Texts{"one", ""}));
}

TEST_F(ZORArgVectorTest, AConditionalParamIsPassedWhenThePropertyHasTheValue) {
    setProperty("secure", "true");
    setProperty("nothing", "");
    struct Case {
        const char* attributes;
        bool wanted;
    };
    for (const auto& [attributes, wanted] : {
             Case{"condName='${secure}' condValue='true'", true},
             Case{"condName='${secure}' condValue='false'", false},
             Case{"condName='${secure}' condValue='True'", false},
             Case{"condName='${secure}' condValue='tru'", false},
             Case{"condName='${secure}'", true},
             Case{"condName='${secure}' condValue=''", true},
             Case{"condName='${nothing}' condValue='true'", true},
             Case{"condName='' condValue='true'", true},
             Case{"condValue='true'", true},
             Case{"condName='true' condValue='true'", true},
             Case{"condName='${unknown}' condValue='true'", false},
             Case{"condName='${unknown}' condValue='${unknown}'", true},  // the value is not expanded
             Case{"condName='true' condValue='${secure}'", false},
         }) {
        log.clear();
        const Texts found = prepared(std::string("<param ") + attributes + ">arg</param>");
        EXPECT_EQ(found, wanted ? Texts{"arg"} : Texts{}) << attributes;
        EXPECT_EQ(log.linesOf("ZORArgVector").size(), found.size()) << attributes;
    }
}

TEST_F(ZORArgVectorTest, AParamThatIsLeftOutLeavesNoTraceInTheNext) {
    EXPECT_EQ(prepared("<param condName='a' condValue='b'>one</param><param/><param>three</param>"),
              (Texts{"", "three"}));
}

}  // namespace
