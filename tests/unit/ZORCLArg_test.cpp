#include "ZORCLArg.h"

#include <gtest/gtest.h>

namespace {

TEST(ZORCLArgTest, SplitsAtTheFirstEqualsSign) {
    const ZORCLArg arg("-java_home=/opt/x");
    EXPECT_EQ(arg.getName(), "-java_home");
    EXPECT_STREQ(arg.getValue(), "/opt/x");
    EXPECT_TRUE(arg.hasValue());
}

TEST(ZORCLArgTest, FurtherEqualsSignsBelongToTheValue) {
    const ZORCLArg arg("-a=b=c");
    EXPECT_EQ(arg.getName(), "-a");
    EXPECT_STREQ(arg.getValue(), "b=c");
}

TEST(ZORCLArgTest, WithoutAnEqualsSignThereIsNoValue) {
    const ZORCLArg arg("-console");
    EXPECT_EQ(arg.getName(), "-console");
    EXPECT_EQ(arg.getValue(), nullptr);
    EXPECT_FALSE(arg.hasValue());
    EXPECT_FALSE(arg.isNumber());
}

TEST(ZORCLArgTest, AnEmptyValueIsAValue) {
    const ZORCLArg arg("-x=");
    EXPECT_EQ(arg.getName(), "-x");
    EXPECT_STREQ(arg.getValue(), "");
    EXPECT_TRUE(arg.hasValue());
    EXPECT_FALSE(arg.isNumber());
}

TEST(ZORCLArgTest, TheNameMayBeEmpty) {
    const ZORCLArg arg("=value");
    EXPECT_EQ(arg.getName(), "");
    EXPECT_STREQ(arg.getValue(), "value");
}

TEST(ZORCLArgTest, ANullTextIsAnEmptyNameWithoutAValue) {
    const ZORCLArg arg(nullptr);
    EXPECT_EQ(arg.getName(), "");
    EXPECT_EQ(arg.getValue(), nullptr);
}

TEST(ZORCLArgTest, OnlyDecimalDigitsAreANumber) {
    for (const char* const text : {"-n=0", "-n=5", "-n=007", "-n=99999999999999999999"})
        EXPECT_TRUE(ZORCLArg(text).isNumber()) << text;
    for (const char* const text :
         {"-n=5x", "-n=-1", "-n=+1", "-n= 1", "-n=1 ", "-n=", "-n", "-n=0x1", "-n=1.5"})
        EXPECT_FALSE(ZORCLArg(text).isNumber()) << text;
}

TEST(ZORCLArgTest, CopiesOwnTheirValue) {
    ZORCLArg original("-a=first");
    const ZORCLArg copy(original);
    ZORCLArg assigned("-b");
    assigned = original;
    EXPECT_NE(copy.getValue(), original.getValue());
    EXPECT_NE(assigned.getValue(), original.getValue());
    original = ZORCLArg("-c=second");
    EXPECT_EQ(copy.getName(), "-a");
    EXPECT_STREQ(copy.getValue(), "first");
    EXPECT_STREQ(assigned.getValue(), "first");
}

TEST(ZORCLArgTest, AssigningWithoutAValueTakesTheValueAway) {
    ZORCLArg arg("-a=first");
    arg = ZORCLArg("-a");
    EXPECT_FALSE(arg.hasValue());
}

TEST(ZORCLArgTest, SelfAssignmentDoesNothing) {
    ZORCLArg arg("-a=first");
    const ZORCLArg& same = arg;
    arg = same;
    EXPECT_EQ(arg.getName(), "-a");
    EXPECT_STREQ(arg.getValue(), "first");
}

}  // namespace
