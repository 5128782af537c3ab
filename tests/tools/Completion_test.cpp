// What shells offer for the beginning of a command line of velbootstrapctl.

#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "ExternalProgram.h"
#include "ServiceUnderTest.h"

namespace {

constexpr const char* kScript = VBS_REPOSITORY "/packaging/completion-velbootstrapctl";
using Words = std::set<std::string>;

Words linesOf(const std::string& text) {
    std::istringstream lines(text);
    Words words;
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty()) words.insert(line.substr(0, line.find('\t')));
    }
    return words;
}

std::string saidBy(const std::vector<std::string>& command) {
    ExternalProgram program(command);
    EXPECT_EQ(program.waitForEnd(), 0) << program.words();
    return program.words();
}

// The commands and options of the program, as a person reads its help.
Words inHelp(const std::string& command, const std::string& heading) {
    std::vector<std::string> words{VBS_BIN "/velbootstrapctl", "--help"};
    if (!command.empty()) words.insert(words.begin() + 1, command);
    const std::string help = saidBy(words);
    const std::size_t begin = help.find("\n" + heading + ":\n");
    if (begin == std::string::npos) return {};
    std::string part = help.substr(begin + heading.size() + 3);
    part = part.substr(0, part.find("\n\n"));
    static const std::regex word("(?:^|\n)  (-[^ ,\n]+|[a-z][a-z-]*)(?:,(--[a-z-]+))?");
    Words found;
    for (std::sregex_iterator it(part.begin(), part.end(), word); it != std::sregex_iterator(); ++it) {
        found.insert((*it)[1]);
        if ((*it)[2].matched) found.insert((*it)[2]);
    }
    return found;
}

Words both(Words some, const Words& others) {
    some.insert(others.begin(), others.end());
    return some;
}

class CompletionTest : public SystemTest {
  protected:
    // The last word is the one that is being typed.
    static Words inBash(const std::vector<std::string>& line) {
        std::vector<std::string> command{
            "bash",
            "-c",
            "source \"$1.bash\"; shift; COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); "
            "_velbootstrapctl \"$1\" \"${COMP_WORDS[COMP_CWORD]}\" \"${COMP_WORDS[COMP_CWORD - 1]}\"; "
            "printf '%s\\n' \"${COMPREPLY[@]}\"",
            "bash",
            kScript,
            VBS_BIN "/velbootstrapctl"};
        command.insert(command.end(), line.begin(), line.end());
        return linesOf(saidBy(command));
    }
    static Words inFish(const std::string& line) {
        return linesOf(
            saidBy({"env", "PATH=" VBS_BIN ":/usr/bin:/bin", "HOME=/nonexistent", "fish", "--no-config", "-c",
                    "source $argv[1].fish; complete -C $argv[2]", kScript, "velbootstrapctl " + line}));
    }
    static Words wordsInZsh(const std::string& command) {
        return linesOf(saidBy({"zsh", "-f", "-c", "source $1.zsh; _velbootstrapctl_words $2 $3", "zsh",
                               kScript, VBS_BIN "/velbootstrapctl", command}));
    }
    static Words childrenInZsh(const std::string& folder) {
        return linesOf(saidBy({"zsh", "-f", "-c", "source $1.zsh; _velbootstrapctl_children $2 --instance $3",
                               "zsh", kScript, VBS_BIN "/velbootstrapctl", folder}));
    }
};

TEST_F(CompletionTest, EachCommandAndOptionOfTheProgramIsOffered) {
    const Words commands = inHelp("", "Subcommands");
    EXPECT_GE(commands.size(), 9U);
    const Words all = both(commands, inHelp("", "Options"));
    EXPECT_EQ(inBash({""}), all);
    EXPECT_EQ(wordsInZsh(""), all);
    EXPECT_EQ(inFish(""), all);
    for (const std::string& command : commands) {
        const Words options = inHelp(command, "Options");
        EXPECT_GE(options.size(), 2U) << command;
        EXPECT_EQ(inBash({command, "-"}), options) << command;
        EXPECT_EQ(wordsInZsh(command), options) << command;
        EXPECT_EQ(inFish(command + " -"), options) << command;
    }
}

TEST_F(CompletionTest, ChildrenAreThoseOfTheInstanceThatIsNamed) {
    BootstrapXml document;
    document.children = {ChildXml{}, ChildXml{}};
    document.children.back().name = "beta";
    service.bootstrap(document);
    const Words children{"alpha", "beta"};
    EXPECT_EQ(inBash({"--instance", service.path(), "log", "--child", ""}), children);
    EXPECT_EQ(inBash({"--instance", service.path(), "restart-child", "b"}), Words{"beta"});
    EXPECT_EQ(childrenInZsh(service.path()), children);
    EXPECT_EQ(inFish("--instance " + service.path() + " history --child "), children);
}

TEST_F(CompletionTest, ValuesAreThoseThatTheProgramTakes) {
    EXPECT_EQ(inBash({"log", "--level", "wa"}), Words{"warn"});
    EXPECT_EQ(inFish("log --level de"), Words{"debug"});
    EXPECT_EQ(inBash({"--instance", service.path("bi")}), Words{service.path("bin")});
    EXPECT_EQ(inBash({"history", "--html", service.path("bin/boot")}),
              Words{service.path("bin/bootstrap_linuxi38632.xml")});
}

}  // namespace
