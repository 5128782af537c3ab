// Each mistake of the table is made in an installation of its own; what the table says of it is what is shown, and what
// the page tells.

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <sstream>

#include "ExternalProgram.h"
#include "FileContent.h"
#include "Mistakes.h"
#include "ResultTable.h"

namespace {

const std::vector<std::string> kColumns{"mistake", "exit code", "shown", "`velbootstrapctl check`"};

const char* nameOf(Place place) {
    switch (place) {
        case Place::Terminal:
            return "terminal";
        case Place::Log:
            return "log";
        case Place::DefaultLog:
            return "`zordefault.log`";
        case Place::Check:
        case Place::Guard:
            return "journal";
        case Place::Question:
            return "question";
    }
    return "";
}

// As cells of the page's table.
std::vector<std::string> rowOf(const Mistake& mistake) {
    std::string shown = mistake.shown.empty() ? "nothing" : "";
    for (const Shown& one : mistake.shown)
        shown += (shown.empty() ? "" : "; ") + std::string(nameOf(one.place)) + ": `" + one.line + "`" +
                 (one.without.empty() ? "" : ", and no `" + one.without + "`");
    const std::string checked = mistake.checked.empty() ? "nothing" : "`" + mistake.checked + "`";
    return {mistake.told, std::to_string(mistake.exitCode), shown, checked};
}

// Whether the text has the line, in which "…" stands for anything but the line's end.
bool holds(const std::string& text, const std::string& line) {
    static const std::regex special(R"([.^$|()\[\]{}*+?\\])");
    std::string pattern = std::regex_replace(line, special, R"(\$&)");
    pattern = std::regex_replace(pattern, std::regex("…"), "[^\n]*");
    return std::regex_search(text, std::regex(pattern));
}

class UnitScriptTest : public SystemTest {
  protected:
    // The units' script, at work in this installation.
    std::string unit(const std::string& action) {
        std::string script = contentOf(VBS_SOURCE_FOLDER "/packaging/systemd/velbootstrap-unit");
        for (const auto& [name, value] :
             {std::pair<std::string, std::string>{"program", "/bin/velbootstrapservice"},
              {"settings", "/configuration"},
              {"instance", ""},
              {"logs", "/logs"}})
            script = std::regex_replace(script, std::regex("\n" + name + "=[^\n]*"),
                                        "\n" + name + "=" + service.path() + value);
        script = std::regex_replace(script, std::regex("\nschemas=[^\n]*"),
                                    "\nschemas=" VBS_SOURCE_FOLDER "/schemas");
        service.write("temp/velbootstrap-unit", script);
        ExternalProgram program({"sh", service.path("temp/velbootstrap-unit"), action});
        program.waitForEnd();
        return program.words();
    }
};

// Without a mistake nothing is shown, so what is shown comes of the mistake.
TEST_F(UnitScriptTest, ARightInstallationIsNothingToComplainAbout) {
    const Installation installation(service);
    EXPECT_EQ(unit("guard"), "");
    EXPECT_EQ(unit("check"), "");
    EXPECT_EQ(service.run({"-start", "-testReadyTries=60", "-testReadyInterval=1"}).exitCode, 0);
    for (const char* const level : {"FATAL", "ERROR"})
        EXPECT_EQ(service.read(Installation::log).find(level), std::string::npos);
    EXPECT_EQ(service.read("logs/zordefault.log"), "");
    EXPECT_EQ(service.run({"-stop", "-testDeadTries=60", "-testDeadInterval=1"}).exitCode, 0);
}

class MistakesTest : public UnitScriptTest, public testing::WithParamInterface<Mistake> {
  protected:
    // The question is asked with the surroundings of the command.
    std::string at(Place place, const RunResult& command) {
        switch (place) {
            case Place::Terminal:
                return command.out + command.err;
            case Place::Log:
                return service.read(Installation::log);
            case Place::DefaultLog:
                return service.read("logs/zordefault.log");
            case Place::Check:
                return unit("check");
            case Place::Guard:
                return unit("guard");
            case Place::Question:
                return service.run({"-isrunning", "-stdoutLog=DEBUG"}).out;
        }
        return {};
    }

    // "velbootstrapctl check", in surroundings like those of the service.
    std::string check(const Mistake& mistake) const {
        std::vector<std::string> command{"env", "-u", "JAVA_HOME", "LD_LIBRARY_PATH=" VBS_BIN};
        if (mistake.withoutVariables.empty()) command.emplace_back("JAVA_HOME=/opt/java");
        for (const std::string& word : {std::string(VBS_BIN "/velbootstrapctl"), std::string("--instance"),
                                        service.path(), std::string("check")})
            command.push_back(word);
        ExternalProgram program(command);
        program.waitForEnd();
        return program.words();
    }

    RunResult give(const Mistake& mistake) {
        return service.run({.arguments = mistake.arguments,
                            .withoutVariables = mistake.withoutVariables,
                            .workingFolder = mistake.folder,
                            .asStranger = mistake.isByStranger});
    }
};

TEST_P(MistakesTest, IsShown) {
    const Mistake& mistake = GetParam();
    Installation installation(service);
    mistake.make(installation);
    const std::string found = installation.plain(check(mistake));
    EXPECT_TRUE(mistake.checked.empty() ? found == "nothing found\n" : holds(found, mistake.checked))
        << "check: " << mistake.checked << "\nbut:\n"
        << found;
    const RunResult command = give(mistake);
    EXPECT_EQ(command.exitCode, mistake.exitCode) << testing::PrintToString(command);
    for (const Shown& one : mistake.shown) {
        std::string seen;
        EXPECT_TRUE(service.waitFor(one.line,
                                    [&] {
                                        seen = installation.plain(
                                            ServiceUnderTest::normalised(at(one.place, command)));
                                        return holds(seen, one.line);
                                    }))
            << nameOf(one.place) << " has:\n"
            << seen;
        EXPECT_TRUE(one.without.empty() || !holds(seen, one.without)) << one.without << " in:\n" << seen;
    }
    if (!HasFailure()) ResultTable("mistakes", kColumns).add(rowOf(mistake));
    service.cleanUp();
}

INSTANTIATE_TEST_SUITE_P(All, MistakesTest, testing::ValuesIn(mistakes()),
                         [](const auto& mistake) { return mistake.param.name; });

// The rows of the page's table, as the tests write them.
std::vector<std::string> rowsOfThePage() {
    const std::string page = contentOf(VBS_SOURCE_FOLDER "/docs/operation.md");
    const std::size_t begin = page.find("\n" + ResultTable::markdown(kColumns) + "\n");
    if (begin == std::string::npos) return {};
    std::istringstream table(page.substr(begin + 1, page.find("\n\n", begin) - begin));
    std::vector<std::string> rows;
    for (std::string line; std::getline(table, line);)
        rows.push_back(line);
    return rows;
}

TEST(MistakesPageTest, ThePageTellsWhatIsSeen) {
    const std::vector<std::string> rows = rowsOfThePage();
    EXPECT_EQ(rows.size(), mistakes().size() + 2);
    for (const Mistake& mistake : mistakes()) {
        const std::string row = ResultTable::markdown(rowOf(mistake));
        EXPECT_EQ(std::count(rows.begin(), rows.end(), row), 1) << "not on the page:\n" << row;
    }
}

TEST(MistakesPageTest, OneOfTheLinesNamesFileElementOrChild) {
    for (const Mistake& mistake : mistakes()) {
        bool isNamed = mistake.shown.empty();
        for (const std::string& word : mistake.named) {
            for (const Shown& one : mistake.shown)
                isNamed = isNamed || one.line.find(word) != std::string::npos;
            isNamed = isNamed || mistake.checked.find(word) != std::string::npos;
        }
        EXPECT_TRUE(isNamed) << mistake.name;
    }
}

// An option without its value is passed over like one that there is not, and no file has anything of it.
TEST(MistakesPageTest, OneMistakeOnlyIsShownNowhere) {
    std::vector<std::string> hidden;
    for (const Mistake& mistake : mistakes()) {
        if (mistake.shown.empty()) hidden.push_back(mistake.name);
    }
    EXPECT_EQ(hidden, std::vector<std::string>{"ABlankStandsForTheEqualsSign"});
}

}  // namespace
