#include "TVLStringTokenizer.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<std::string> tokensOf(const std::string& text, const std::string& delimiters) {
    TVLStringTokenizer tokenizer(text, delimiters);
    std::vector<std::string> tokens;
    while (tokenizer.hasMoreTokens())
        tokens.push_back(tokenizer.nextToken());
    return tokens;
}

using Tokens = std::vector<std::string>;

TEST(TVLStringTokenizerTest, SplitsAtTheDelimiter) {
    EXPECT_EQ(tokensOf("a bc d", " "), (Tokens{"a", "bc", "d"}));
}

TEST(TVLStringTokenizerTest, RunsOfDelimitersYieldNoEmptyTokens) {
    EXPECT_EQ(tokensOf("  a   b  ", " "), (Tokens{"a", "b"}));
}

TEST(TVLStringTokenizerTest, EveryDelimiterCharacterSplits) {
    EXPECT_EQ(tokensOf("a,b; c", ",; "), (Tokens{"a", "b", "c"}));
}

TEST(TVLStringTokenizerTest, OtherWhiteSpaceBelongsToTheToken) {
    EXPECT_EQ(tokensOf("a\tb\nc d", " "), (Tokens{"a\tb\nc", "d"}));
}

TEST(TVLStringTokenizerTest, AnEmptyTextHasNoTokens) {
    EXPECT_EQ(tokensOf("", " "), Tokens{});
    EXPECT_EQ(tokensOf("   ", " "), Tokens{});
}

TEST(TVLStringTokenizerTest, PastTheLastTokenThereIsAnEmptyText) {
    TVLStringTokenizer tokenizer("a", " ");
    EXPECT_EQ(tokenizer.nextToken(), "a");
    EXPECT_FALSE(tokenizer.hasMoreTokens());
    EXPECT_EQ(tokenizer.nextToken(), "");
}

TEST(TVLStringTokenizerTest, KeepsItsOwnCopyOfTheText) {
    std::string text = "one two";
    TVLStringTokenizer tokenizer(text, " ");
    text = "gone";
    EXPECT_EQ(tokenizer.nextToken(), "one");
    EXPECT_EQ(tokenizer.nextToken(), "two");
}

}  // namespace
