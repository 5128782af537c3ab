#include "ZORPropertyInserter.h"

#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <random>

#include "PlainExpansion.h"
#include "TestAccess.h"
#include "TestKit.h"

namespace {

class ZORPropertyInserterTest : public ServiceTest {
  protected:
    static std::string expanded(std::string text) {
        ZORPropertyInserter::getInstance()->insertProperties(text);
        return text;
    }
    static std::string changed(const std::string& before, const std::string& after) {
        return "changed \n   \"" + before + "\" \nto \"" + after + "\"";
    }
    void define(std::initializer_list<std::pair<const char*, const char*>> properties) {
        for (const auto& [name, value] : properties)
            setProperty(name, value);
        log.clear();
    }
};

TEST_F(ZORPropertyInserterTest, ThereIsOneInstance) {
    EXPECT_EQ(ZORPropertyInserter::getInstance(), ZORPropertyInserter::getInstance());
}

TEST_F(ZORPropertyInserterTest, WhoeverAsksFirstMakesTheInstance) {
    TestAccess::dropProperties();
    ASSERT_NE(ZORPropertyInserter::getInstance(), nullptr);
    EXPECT_EQ(property("a"), nullptr);
}

TEST_F(ZORPropertyInserterTest, AnAbsentNameIsNullAnEmptyValueIsNot) {
    EXPECT_EQ(property("a"), nullptr);
    setProperty("a", "");
    EXPECT_STREQ(property("a"), "");
}

TEST_F(ZORPropertyInserterTest, NamesAreCaseSensitive) {
    define({{"name", "1"}});
    EXPECT_EQ(property("Name"), nullptr);
    EXPECT_EQ(expanded("${Name}"), "${Name}");
}

TEST_F(ZORPropertyInserterTest, TheSecondValueStaysAndBothAreLogged) {
    setProperty("a", "1");
    setProperty("a", "2");
    EXPECT_STREQ(property("a"), "2");
    EXPECT_TRUE(log.inOrder({{"DEBUG", "ZORPropertyInserter", "Added property a with value \"1\"", {}},
                             {"DEBUG", "ZORPropertyInserter", "Added property a with value \"2\"", {}}}));
    EXPECT_EQ(log.lines().size(), 2U);
}

TEST_F(ZORPropertyInserterTest, ValuesAreCopied) {
    std::string value = "kept";
    setProperty("a", value.c_str());
    value = "gone";
    EXPECT_STREQ(property("a"), "kept");
}

TEST_F(ZORPropertyInserterTest, ATextWithoutReferencesStaysAndIsNotLogged) {
    define({{"a", "1"}});
    for (const char* const text : {"", "plain", "$a {a} a}", "$ {a}", "$", "{", "a$"})
        EXPECT_EQ(expanded(text), text);
    EXPECT_EQ(log.raw(), "");
}

TEST_F(ZORPropertyInserterTest, EveryReferenceIsReplacedAndOneLineIsLogged) {
    define({{"a", "1"}});
    EXPECT_EQ(expanded("x${a}y${a}"), "x1y1");
    EXPECT_TRUE(log.has("DEBUG", "ZORPropertyInserter", changed("x${a}y${a}", "x1y1")));
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(ZORPropertyInserterTest, AnUnknownReferenceStaysSilently) {
    define({{"a", "1"}});
    EXPECT_EQ(expanded("${unknown}"), "${unknown}");
    EXPECT_EQ(log.raw(), "");
    EXPECT_EQ(expanded("${unknown}${a}"), "${unknown}1");
    EXPECT_TRUE(log.has("DEBUG", "ZORPropertyInserter", changed("${unknown}${a}", "${unknown}1")));
}

TEST_F(ZORPropertyInserterTest, AnUnterminatedReferenceEndsTheScan) {
    define({{"a", "1"}});
    EXPECT_EQ(expanded("${a"), "${a");
    EXPECT_EQ(expanded("${"), "${");
    EXPECT_EQ(expanded("${a}${a"), "1${a");
    EXPECT_EQ(expanded("x${"), "x${");
}

TEST_F(ZORPropertyInserterTest, ReferencesInValuesAreExpanded) {
    define({{"a", "${b}"}, {"b", "2"}, {"c", "<${a}${a}>"}});
    EXPECT_EQ(expanded("${a}"), "2");
    EXPECT_EQ(expanded("${c}"), "<22>");
}

// The processor time that it is given runs out.
TEST_F(ZORPropertyInserterTest, AValueThatRefersToItselfNeverEnds) {
    define({{"self", "${self}"}});
    const auto expandForASecond = [] {
        const rlimit nothing = {.rlim_cur = 0, .rlim_max = 0};
        const rlimit oneSecond = {.rlim_cur = 1, .rlim_max = 2};
        setrlimit(RLIMIT_CORE, &nothing);
        setrlimit(RLIMIT_CPU, &oneSecond);
        expanded("${self}");
        std::_Exit(0);
    };
    EXPECT_EXIT(expandForASecond(), testing::KilledBySignal(SIGXCPU), "");
}

TEST_F(ZORPropertyInserterTest, TheEmptyNameIsAName) {
    EXPECT_EQ(expanded("${}"), "${}");
    define({{"", "empty"}});
    EXPECT_EQ(expanded("${}"), "empty");
}

TEST_F(ZORPropertyInserterTest, NothingIsTrimmed) {
    define({{"x", "1"}, {" y ", "2"}});
    EXPECT_EQ(expanded("${ x }"), "${ x }");
    EXPECT_EQ(expanded("${ y }"), "2");
    EXPECT_EQ(expanded("$ {x}"), "$ {x}");
}

TEST_F(ZORPropertyInserterTest, ReferencesDoNotNest) {
    define({{"a", "1"}, {"b", "2"}, {"a2", "3"}});
    EXPECT_EQ(expanded("${a${b}}"), "${a${b}}");
    define({{"a${b", "odd"}});
    EXPECT_EQ(expanded("${a${b}}"), "odd}");
}

// The search goes on from where it was, so that what a value brings and what stands around it count together.
TEST_F(ZORPropertyInserterTest, AReferenceMayBePutTogetherByAValue) {
    define({{"dollar", "$"}, {"open", "${"}, {"name", "a"}, {"nothing", ""}, {"brace", "{a}"}, {"a", "1"}});
    EXPECT_EQ(expanded("${dollar}{a}"), "1");
    EXPECT_EQ(expanded("${open}a}"), "1");
    EXPECT_EQ(expanded("$${brace}"), "1");
    EXPECT_EQ(expanded("$${nothing}{a}"), "1");
    EXPECT_EQ(expanded("$$${nothing}{a}"), "$1");
}

// What was left standing is not looked at again, except for its closing brace.
TEST_F(ZORPropertyInserterTest, AnUnknownReferenceIsNotCompletedLater) {
    define({{"a", "1"}});
    EXPECT_EQ(expanded("${x${a}${a}"), "${x${a}1");
    EXPECT_EQ(expanded("${$}{a}"), "${$}{a}");
}

TEST_F(ZORPropertyInserterTest, AValueMayHoldZeroToManyReferencesInAnyState) {
    define({{"a", "${none}${b}${"}, {"b", "2"}});
    EXPECT_EQ(expanded("<${a}>"), "<${none}2${>");
    EXPECT_EQ(expanded("<${a}b}>"), "<${none}22>");
}

TEST_F(ZORPropertyInserterTest, ATextThatEndsAsItBeganIsNotLogged) {
    define({{"a", "${x}"}, {"x${a", "1"}});
    EXPECT_EQ(expanded("${x}"), "${x}");
    define({{"open", "${"}});
    EXPECT_EQ(expanded("${open}"), "${");
    EXPECT_TRUE(log.has("DEBUG", "ZORPropertyInserter", changed("${open}", "${")));
}

class RandomTexts {
  public:
    std::string next(const std::vector<std::string>& pieces, std::size_t most) {
        std::string text;
        for (std::size_t left = below(most + 1); left > 0; --left)
            text += pieces[below(pieces.size())];
        return text;
    }

  private:
    std::size_t below(std::size_t limit) {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(m_random);
    }

    std::mt19937 m_random{20240229};  // the same texts every time
};

// Values refer only to names that come later, so that every expansion ends.
TEST_F(ZORPropertyInserterTest, ManyRandomTextsExpandAsTheRulesSay) {
    ZORLoggerFactory::getInstance()->reset();
    RandomTexts random;
    const std::vector<std::string> anything{"$",    "{",    "}",    "${",   "$$",   "${a}",
                                            "${b}", "${c}", "${d}", "${e}", "${f}", "${x}",
                                            "${}",  "a",    "b",    "x",    " "};
    int changes = 0;
    for (int round = 0; round < 400; ++round) {
        setProperty("f", random.next({"", "}", "x", "a", "}}", "-"}, 3).c_str());
        setProperty("e", random.next({"$", "", "}", "${f}", "b"}, 2).c_str());
        setProperty("d", random.next({"${f}", "$", "${e}", "}", "${x}", "{f}"}, 3).c_str());
        setProperty("c", random.next({"{f}", "${d}", "x", "}", "{e}"}, 3).c_str());
        for (int i = 0; i < 100; ++i) {
            const std::string text = random.next(anything, 12);
            const std::string result = expanded(text);
            ASSERT_EQ(result, plainlyExpanded(text)) << text;
            if (result != text) ++changes;
        }
    }
    EXPECT_GT(changes, 10000) << "texts that do change are among them";
}

}  // namespace
