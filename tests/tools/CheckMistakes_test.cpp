// The mistakes that administrators make, each in an installation of its own: what "check" says of them.

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "ExternalProgram.h"
#include "Mistakes.h"

namespace {

class CheckTest : public SystemTest {
  protected:
    struct Outcome {
        int exitCode = -1;
        std::string words;
    };

    // As an administrator gives it, in surroundings like those of the service.
    Outcome check(const std::vector<std::string>& options = {}, bool hasJavaHome = true) {
        std::vector<std::string> command{"env", "-u", "JAVA_HOME", "LD_LIBRARY_PATH=" VBS_BIN};
        if (hasJavaHome) command.emplace_back("JAVA_HOME=/opt/java");
        for (const std::string& word : {std::string(VBS_BIN "/velbootstrapctl"), std::string("--instance"),
                                        service.path(), std::string("check")})
            command.push_back(word);
        command.insert(command.end(), options.begin(), options.end());
        ExternalProgram program(command);
        const int exitCode = program.waitForEnd();
        return {exitCode, program.words()};
    }
};

TEST_F(CheckTest, OfARightInstallationNothingIsFound) {
    const Installation installation(service);
    const Outcome outcome = check();
    EXPECT_EQ(outcome.words, "nothing found\n");
    EXPECT_EQ(outcome.exitCode, 0);
}

TEST_F(CheckTest, WhileTheServiceRunsItsPortsMayBeTaken) {
    Installation installation(service);
    installation.startByHand();
    const Outcome outcome = check();
    EXPECT_EQ(outcome.words, "nothing found\n");
    service.cleanUp();
}

// Those of which the files have nothing: the command is given somewhere, or by somebody; what the child says is only
// known when it is asked.
const std::vector<std::string> kBeyondAnyCheck{"AMarkerIsWrong",
                                               "AMarkerIsLongerThanWhatIsSaid",
                                               "ThePingIsPlain",
                                               "AChildEndsAtOnce",
                                               "TheCommandIsGivenInAnotherFolder",
                                               "TheCommandIsGivenBesideBin",
                                               "ABlankStandsForTheEqualsSign",
                                               "AnotherUserStops",
                                               "AnotherUserStarts",
                                               "RootStarts",
                                               "ATwinIsStarted"};

// Those in documents, files, rights, ports and certificates.
std::vector<Mistake> findable() {
    std::vector<Mistake> some;
    for (const Mistake& mistake : mistakes()) {
        if (std::count(kBeyondAnyCheck.begin(), kBeyondAnyCheck.end(), mistake.name) == 0)
            some.push_back(mistake);
    }
    return some;
}

TEST(FindableMistakesTest, WhatLiesInFilesIsAmongThem) {
    const std::vector<Mistake> some = findable();
    EXPECT_EQ(some.size() + kBeyondAnyCheck.size(), mistakes().size());
    for (const Mistake& mistake : mistakes()) {
        const bool isFindable = std::any_of(some.begin(), some.end(),
                                            [&](const Mistake& other) { return other.name == mistake.name; });
        EXPECT_TRUE(isFindable || !mistake.isInFiles) << mistake.name;
    }
}

using Lines = std::vector<std::string>;

// The files that have lines, with the names that they are known by.
const std::vector<std::pair<std::string, std::string>> kTexts{
    {Installation::bootstrap, "bin/bootstrap_linuxi38632.xml"},
    {Installation::logging, "bin/zorlogconfig.xml"},
    {Installation::startup, Installation::startup},
    {Installation::settings, Installation::settings}};

Lines linesOf(const std::string& text) {
    std::istringstream stream(text);
    Lines lines;
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

// The number of the first line that differs; 0 when none does.
std::size_t changedLine(const Lines& before, const Lines& after) {
    const auto [left, right] = std::mismatch(before.begin(), before.end(), after.begin(), after.end());
    if (left == before.end() && right == after.end()) return 0;
    return static_cast<std::size_t>(left - before.begin()) + 1;
}

bool isNamed(const Mistake& mistake, const nlohmann::json& finding) {
    return std::any_of(mistake.named.begin(), mistake.named.end(), [&](const std::string& word) {
        const std::string name = word.starts_with("element ") ? word.substr(8) : word;
        return finding.dump().find(name) != std::string::npos;
    });
}

class CheckMistakesTest : public CheckTest, public testing::WithParamInterface<Mistake> {
  protected:
    std::vector<Lines> texts() const {
        std::vector<Lines> all;
        for (const auto& [file, name] : kTexts)
            all.push_back(linesOf(service.exists(file) ? service.read(file) : ""));
        return all;
    }

    // A finding where a text was changed, or at an element that begins a little before. A file that is not there any
    // more has no lines.
    bool isPlaced(const nlohmann::json& findings, const std::string& name, std::size_t line) const {
        return std::any_of(findings.begin(), findings.end(), [&](const nlohmann::json& finding) {
            if (finding["file"] != service.path(name)) return false;
            if (!service.exists(name)) return !finding.contains("line");
            const std::size_t found = finding.value("line", std::size_t{0});
            return found != 0 && found + 2 >= line && found <= line + 1;
        });
    }
};

TEST_P(CheckMistakesTest, IsFoundAndPlaced) {
    const Mistake& mistake = GetParam();
    Installation installation(service);
    const std::vector<Lines> before = texts();
    mistake.make(installation);
    const Outcome outcome = check({"--json"}, mistake.withoutVariables.empty());
    ASSERT_TRUE(outcome.exitCode == 1 || outcome.exitCode == 2) << outcome.exitCode << "\n" << outcome.words;
    const nlohmann::json found = nlohmann::json::parse(outcome.words);
    const nlohmann::json& findings = found["findings"];
    EXPECT_TRUE(std::any_of(findings.begin(), findings.end(), [&](const nlohmann::json& finding) {
        return isNamed(mistake, finding);
    })) << outcome.words;
    const std::vector<Lines> after = texts();
    for (std::size_t i = 0; i < kTexts.size(); ++i) {
        const std::size_t line = changedLine(before[i], after[i]);
        const bool isOnlyMeans = mistake.name.starts_with("TheOwnKey");  // which settings name at first
        EXPECT_TRUE(line == 0 || isOnlyMeans || isPlaced(findings, kTexts[i].second, line))
            << kTexts[i].first << " line " << line << " in\n"
            << outcome.words;
    }
}

INSTANTIATE_TEST_SUITE_P(All, CheckMistakesTest, testing::ValuesIn(findable()),
                         [](const auto& mistake) { return mistake.param.name; });

}  // namespace
