#include "ZORCmdLine.h"

#include "TestKit.h"

namespace {

// A command line as main() gets it.
class Arguments {
  public:
    Arguments(std::initializer_list<const char*> texts) : m_texts(texts.begin(), texts.end()) {
        for (std::string& text : m_texts)
            m_pointers.push_back(text.data());
        m_pointers.push_back(nullptr);
    }
    int argc() const { return static_cast<int>(m_texts.size()); }
    char** argv() { return m_pointers.data(); }

  private:
    std::vector<std::string> m_texts;
    std::vector<char*> m_pointers;
};

class ZORCmdLineTest : public testing::Test {
  protected:
    static ZORCmdLine fromArguments(std::initializer_list<const char*> texts) {
        Arguments arguments(texts);
        return {arguments.argc(), arguments.argv()};
    }
    static ZORCmdLine fromText(std::string text) { return ZORCmdLine(text.data()); }

    // The arguments as name or name=value.
    static std::vector<std::string> texts(const ZORCmdLine& cmdLine) {
        std::vector<std::string> result;
        for (const ZORCLArg& arg : cmdLine.getArgs())
            result.push_back(arg.getName() + (arg.hasValue() ? std::string("=") + arg.getValue() : ""));
        return result;
    }
    static std::string quotesProcessed(std::string in) {
        std::vector<char> out(in.size() + 1, 'X');
        ZORCmdLine().preProcessQuotes(in.data(), out.data());
        return out.data();
    }

    using Texts = std::vector<std::string>;
    LogCapture log;
};

TEST_F(ZORCmdLineTest, AnEmptyOneHasNoArguments) {
    const ZORCmdLine cmdLine;
    EXPECT_EQ(cmdLine.getArgCount(), 0);
    EXPECT_TRUE(cmdLine.getArgs().empty());
    EXPECT_EQ(cmdLine.find("", 0), -1);
}

TEST_F(ZORCmdLineTest, TakesTheArgumentsAfterTheProgramName) {
    const ZORCmdLine cmdLine = fromArguments({"program", "-java_home=/opt/x", "-console", "-x="});
    EXPECT_EQ(cmdLine.getArgCount(), 3);
    EXPECT_EQ(texts(cmdLine), (Texts{"-java_home=/opt/x", "-console", "-x="}));
}

TEST_F(ZORCmdLineTest, AProgramNameAloneOrLessGivesNothing) {
    EXPECT_EQ(fromArguments({"program"}).getArgCount(), 0);
    EXPECT_EQ(fromArguments({}).getArgCount(), 0);
    EXPECT_EQ(ZORCmdLine(-3, nullptr).getArgCount(), 0);
}

TEST_F(ZORCmdLineTest, ArgumentsAreNotLogged) {
    fromArguments({"program", "-start"});
    EXPECT_EQ(log.raw(), "");
}

TEST_F(ZORCmdLineTest, PreparingAgainAppends) {
    ZORCmdLine cmdLine = fromArguments({"program", "-a"});
    Arguments more{"program", "-b"};
    cmdLine.prepare(more.argc(), more.argv());
    EXPECT_EQ(texts(cmdLine), (Texts{"-a", "-b"}));
}

TEST_F(ZORCmdLineTest, GetArgsGivesACopy) {
    const ZORCmdLine cmdLine = fromArguments({"program", "-a"});
    std::vector<ZORCLArg> copy = cmdLine.getArgs();
    copy.clear();
    EXPECT_EQ(cmdLine.getArgCount(), 1);
}

TEST_F(ZORCmdLineTest, WholeNamesAreFoundInAnyLetterCase) {
    const ZORCmdLine cmdLine = fromArguments({"program", "-isRunning", "-x=1"});
    EXPECT_EQ(cmdLine.find("-ISRUNNING", 0), 0);
    EXPECT_EQ(cmdLine.find("-X", 0), 1);
    EXPECT_EQ(cmdLine.find("-isrun", 0), -1);
    EXPECT_EQ(cmdLine.find("-isrunning2", 0), -1);
    EXPECT_EQ(cmdLine.find("-x=1", 0), -1);
}

TEST_F(ZORCmdLineTest, TheDashIsPartOfTheName) {
    const ZORCmdLine cmdLine = fromArguments({"program", "runAsDaemon", "-d"});
    EXPECT_EQ(cmdLine.find("runasdaemon", 0), 0);
    EXPECT_EQ(cmdLine.find("-runAsDaemon", 0), -1);
    EXPECT_EQ(cmdLine.find("d", 0), -1);
}

TEST_F(ZORCmdLineTest, FindingStartsAtThePosition) {
    const ZORCmdLine cmdLine = fromArguments({"program", "-d", "-d"});
    EXPECT_EQ(cmdLine.find("-d", 0), 0);
    EXPECT_EQ(cmdLine.find("-d", 1), 1);
    EXPECT_EQ(cmdLine.find("-d", 2), -1);
    EXPECT_EQ(cmdLine.find("-d", 100), -1);
    EXPECT_EQ(cmdLine.find("-d", -1), 0);
}

TEST_F(ZORCmdLineTest, GetValueAssignsTheValue) {
    const ZORCmdLine cmdLine = fromArguments({"program", "-config=a", "-Config=b", "-x="});
    std::string value = "before";
    EXPECT_EQ(cmdLine.getValue("-CONFIG", value, 0), 1);
    EXPECT_EQ(value, "a");
    EXPECT_EQ(cmdLine.getValue("-config", value, 1), 1);
    EXPECT_EQ(value, "b");
    EXPECT_EQ(cmdLine.getValue("-x", value, 0), 1);
    EXPECT_EQ(value, "");
}

TEST_F(ZORCmdLineTest, WithoutAValueTheOutputStays) {
    const ZORCmdLine cmdLine = fromArguments({"program", "-console", "-console=late"});
    std::string value = "before";
    EXPECT_EQ(cmdLine.getValue("-none", value, 0), 0);
    EXPECT_EQ(cmdLine.getValue("-console", value, 0), 0) << "only the first of that name is looked at";
    EXPECT_EQ(value, "before");
    EXPECT_EQ(cmdLine.getValue("-console", value, 1), 1);
    EXPECT_EQ(value, "late");
}

TEST_F(ZORCmdLineTest, GetIntValueTakesDecimalDigits) {
    const ZORCmdLine cmdLine = fromArguments({"program", "-testReadyTries=5", "-n=007"});
    int value = 20;
    EXPECT_EQ(cmdLine.getIntValue("-testreadytries", value, 0), 1);
    EXPECT_EQ(value, 5);
    EXPECT_EQ(cmdLine.getIntValue("-n", value, 0), 1);
    EXPECT_EQ(value, 7);
}

TEST_F(ZORCmdLineTest, WhatIsNoNumberKeepsTheDefault) {
    for (const char* const text : {"-testReadyTries=5x", "-testReadyTries=-1",
                                   "-testReadyTries=", "-testReadyTries", "-testReadyTries=+5", "-other=5"}) {
        const ZORCmdLine cmdLine = fromArguments({"program", text});
        int value = 20;
        EXPECT_EQ(cmdLine.getIntValue("-testReadyTries", value, 0), 0) << text;
        EXPECT_EQ(value, 20) << text;
    }
}

TEST_F(ZORCmdLineTest, ATextIsSplitAtBlanks) {
    EXPECT_EQ(texts(fromText("  -start   -x=1 ")), (Texts{"-start", "-x=1"}));
    EXPECT_EQ(texts(fromText("")), Texts{});
}

TEST_F(ZORCmdLineTest, QuotesKeepTheirBlanks) {
    EXPECT_EQ(texts(fromText("a \"b c\" d")), (Texts{"a", "b c", "d"}));
    EXPECT_EQ(texts(fromText("-path=\"a  b\"/c")), (Texts{"-path=a  b/c"}));
}

TEST_F(ZORCmdLineTest, AnOpeningQuoteAtTheEndIsDropped) {
    EXPECT_EQ(texts(fromText("a \"")), Texts{"a"});
}

TEST_F(ZORCmdLineTest, AnOpenQuoteRunsToTheEnd) {
    EXPECT_EQ(texts(fromText("a \"b c d")), (Texts{"a", "b c d"}));
}

TEST_F(ZORCmdLineTest, LineFeedsBecomeBlanksWithinAnArgument) {
    EXPECT_EQ(texts(fromText("a\nb c")), (Texts{"a b", "c"}));
}

TEST_F(ZORCmdLineTest, TheTextItselfIsNotChanged) {
    std::string text = "a \"b c\"";
    const ZORCmdLine cmdLine(text.data());
    EXPECT_EQ(text, "a \"b c\"");
}

TEST_F(ZORCmdLineTest, QuotesAreDroppedAndTheirBlanksMarked) {
    EXPECT_EQ(quotesProcessed("a \"b c\" d"), "a b\nc d");
    EXPECT_EQ(quotesProcessed("\"\""), "");
    EXPECT_EQ(quotesProcessed("a\"b \"\" c\"d"), "ab\n\ncd");
    EXPECT_EQ(quotesProcessed("a\""), "a");
    EXPECT_EQ(quotesProcessed("\"a b"), "a\nb");
    EXPECT_EQ(quotesProcessed("\"a\tb\""), "a\tb");
    EXPECT_EQ(quotesProcessed(""), "");
}

TEST_F(ZORCmdLineTest, NullTextsAreLeftAlone) {
    ZORCmdLine cmdLine;
    char text[] = "\"a\"";
    cmdLine.preProcessQuotes(nullptr, text);
    EXPECT_STREQ(text, "\"a\"");
    cmdLine.preProcessQuotes(text, nullptr);
    EXPECT_STREQ(text, "\"a\"");
}

TEST_F(ZORCmdLineTest, ATextIsLoggedBeforeAndAfter) {
    fromText("a -x=\"b c\" -y=");
    EXPECT_TRUE(
        log.inOrder({{"DEBUG", "ZORCmdLine", "Preparing cmdline from string: \"a -x=\"b c\" -y=\"", {}},
                     {"DEBUG", "ZORCmdLine", "Command line as parsed:\na\n-x=\"b c\"\n-y=\"\"", {}}}));
    EXPECT_EQ(log.lines().size(), 2U);
}

TEST_F(ZORCmdLineTest, ANullTextIsLoggedAndNothingElse) {
    const ZORCmdLine cmdLine(static_cast<char*>(nullptr));
    EXPECT_EQ(cmdLine.getArgCount(), 0);
    EXPECT_TRUE(log.has("DEBUG", "ZORCmdLine", "Preparing cmdline from string: \"(null)\""));
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(ZORCmdLineTest, TheParsedListIsLoggedOnDemand) {
    fromArguments({"program", "-start", "-config=a=b", "100%s"}).log();
    EXPECT_TRUE(log.has("DEBUG", "ZORCmdLine", "Command line as parsed:\n-start\n-config=\"a=b\"\n100%s"));
    log.clear();
    ZORCmdLine().log();
    EXPECT_TRUE(log.has("DEBUG", "ZORCmdLine", "Command line as parsed:"));
}

}  // namespace
