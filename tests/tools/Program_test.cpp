// What all commands have in common.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "CTLProgram.h"
#include "CTLTerminal.h"

struct Spoken {
    int exitCode = -1;
    std::string out;
    std::string err;
};

static Spoken given(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "velbootstrapctl");
    std::ostringstream out;
    std::ostringstream err;
    CTLTerminal terminal(out, err, false);
    CTLProgram program(terminal);
    const int exitCode = program.run(static_cast<int>(arguments.size()), arguments.data());
    return {exitCode, out.str(), err.str()};
}

TEST(ProgramTest, WithoutACommandItSaysSoOnStandardError) {
    const Spoken spoken = given({});
    EXPECT_EQ(spoken.exitCode, 64);
    EXPECT_EQ(spoken.out, "");
    EXPECT_EQ(spoken.err, "velbootstrapctl: which command? --help lists them\n");
}

TEST(ProgramTest, AnUnknownCommandIsAnError) {
    const Spoken spoken = given({"frobnicate"});
    EXPECT_EQ(spoken.exitCode, 64);
    EXPECT_NE(spoken.err.find("frobnicate"), std::string::npos) << spoken.err;
}

TEST(ProgramTest, HelpAndVersionGoToStandardOutput) {
    EXPECT_EQ(given({"--help"}).exitCode, 0);
    EXPECT_NE(given({"--help"}).out.find("--instance FOLDER"), std::string::npos) << given({"--help"}).out;
    EXPECT_EQ(given({"--version"}).out.substr(0, 16), "velbootstrapctl ");
}
