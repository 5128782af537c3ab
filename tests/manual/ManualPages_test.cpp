// The manual pages: free of faults, complete, and their example works.

#include <algorithm>
#include <regex>
#include <set>

#include "ExternalProgram.h"
#include "Repository.h"
#include "SchemaCheck.h"
#include "ServiceUnderTest.h"
#include "SourceText.h"

namespace fs = std::filesystem;

namespace {

std::vector<std::string> pages() {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(repository::root() / "packaging/man"))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string fileOf(const std::string& page) {
    return (repository::root() / "packaging/man" / page).string();
}

// As a reader sees the page on a wide terminal; bold and underlined characters are printed over each other.
std::string rendered(const std::string& page) {
    ExternalProgram mandoc({"mandoc", "-T", "ascii", "-O", "width=160", fileOf(page)});
    EXPECT_EQ(mandoc.waitForEnd(), 0) << mandoc.words();
    return std::regex_replace(mandoc.words(), std::regex(".\b"), "");
}

class ManualPageTest : public testing::TestWithParam<std::string> {};

TEST_P(ManualPageTest, MandocFindsNoFault) {
    ExternalProgram mandoc({"mandoc", "-T", "lint", "-W", "warning", fileOf(GetParam())});
    EXPECT_EQ(mandoc.waitForEnd(), 0);
    EXPECT_EQ(mandoc.words(), "");
}

TEST_P(ManualPageTest, GroffHasNoWarning) {
    ExternalProgram man(
        {"sh", "-c", "man --warnings -E UTF-8 -l -- \"$1\" 2>&1 >/dev/null", "sh", fileOf(GetParam())});
    EXPECT_EQ(man.waitForEnd(), 0);
    EXPECT_EQ(man.words(), "");
}

TEST_P(ManualPageTest, TheFooterShowsNameAndVersion) {
    const std::string project = repository::read(repository::root() / "CMakeLists.txt");
    std::smatch match;
    ASSERT_TRUE(std::regex_search(project, match, std::regex("project\\(([a-z]+) VERSION ([0-9.]+)")));
    const std::string words = match[1].str() + " " + match[2].str();
    const std::string text = rendered(GetParam());
    const std::string footer = text.substr(text.rfind('\n', text.size() - 2) + 1);
    EXPECT_TRUE(footer.starts_with(words + " ") && footer.ends_with(" " + words + "\n")) << footer;
}

INSTANTIATE_TEST_SUITE_P(All, ManualPageTest, testing::ValuesIn(pages()), [](const auto& page) {
    return std::regex_replace(page.param, std::regex("[^a-z0-9]"), "_");
});

class ManualPagesTest : public SystemTest {
  protected:
    static void expectWords(const std::string& page, const std::set<std::string>& words) {
        const std::string text = rendered(page);
        for (const std::string& word : words) {
            const std::string escaped = std::regex_replace(word, std::regex("[?$]"), "\\$&");
            EXPECT_TRUE(std::regex_search(text, std::regex("(^|[^A-Za-z])" + escaped + "([^A-Za-z]|$)")))
                << page << " does not mention " << word;
        }
    }

    // From the declaration to the end of the element.
    static std::string exampleOf(const std::string& page, const std::string& root) {
        const std::string text = rendered(page);
        const std::string last = "</" + root + ">";
        const std::size_t begin = text.find("<?xml");
        const std::size_t end = text.find(last);
        EXPECT_LT(begin, end) << page;
        return begin < end ? text.substr(begin, end + last.size() - begin) : std::string();
    }

    static std::set<std::string> matches(const std::string& text, const std::string& expression) {
        const std::regex pattern(expression);
        std::set<std::string> found;
        for (std::sregex_iterator it(text.begin(), text.end(), pattern); it != std::sregex_iterator(); ++it)
            found.insert((*it)[1]);
        return found;
    }
};

TEST_F(ManualPagesTest, TheServicesPageHasAllSections) {
    const std::string text = rendered("velbootstrapservice.8");
    for (const char* const section : {"NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "SIGNALS", "ENVIRONMENT",
                                      "FILES", "EXIT STATUS", "EXAMPLES", "DIAGNOSTICS", "SEE ALSO"}) {
        EXPECT_NE(text.find(std::string("\n") + section + "\n"), std::string::npos) << section;
    }
}

TEST_F(ManualPagesTest, EachOptionOfTheUsageTextIsDescribed) {
    const std::set<std::string> options = matches(service.run({"-h"}).err, "[\\s\\[](-[A-Za-z_]+)");
    EXPECT_GE(options.size(), 9U);
    expectWords("velbootstrapservice.8", options);
}

TEST_F(ManualPagesTest, EachOptionThatTheServiceReadsIsDescribed) {
    std::set<std::string> options;
    for (const char* const file : {"source/ZORBootstrapService.cpp", "source/ZORModes.cpp"}) {
        const SourceText source(repository::read(repository::root() / file));
        for (const SourceText::Literal& literal : source.literals()) {
            if (std::regex_match(literal.text, std::regex("-[A-Za-z_0-9?]+"))) options.insert(literal.text);
        }
    }
    EXPECT_GE(options.size(), 18U);
    expectWords("velbootstrapservice.8", options);
}

TEST_F(ManualPagesTest, EachOptionOfTheTomcatScriptIsDescribed) {
    ExternalProgram script({(repository::root() / "programs/velbootstrap-tomcat").string(), "--help"});
    ASSERT_EQ(script.waitForEnd(), 0) << script.words();
    const std::set<std::string> options = matches(script.words(), "(--[a-z-]+)");
    EXPECT_GE(options.size(), 6U);
    expectWords("velbootstrap-tomcat.1", options);
}

TEST_F(ManualPagesTest, TheExamplesOfTheOtherDocumentsAreReadWithoutComplaint) {
    const std::string startup = exampleOf("startup.xml.5", "startupConfiguration");
    const std::string logging = exampleOf("zorlogconfig.xml.5", "logConfiguration");
    EXPECT_EQ(schemaComplaints("startup", startup), "");
    EXPECT_EQ(schemaComplaints("zorlogconfig", logging), "");
    service.write("configuration/startup.xml", startup);
    service.write("bin/zorlogconfig.xml", logging);
    const RunResult result = service.run({"-isrunning", "-stdoutLog=WARN"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(ServiceUnderTest::normalised(result.out), "WARN ZORChildProcess no ping element in config.\n");
    EXPECT_NE(service.read("logs/velbootstrapservice.log"), "");
}

TEST_F(ManualPagesTest, TheExampleOfADocumentIsAcceptedWhole) {
    const std::string example = exampleOf("velbootstrap.xml.5", "bootstrap");
    EXPECT_EQ(schemaComplaints("bootstrap", example), "");
    service.write("bin/bootstrap_linuxi38632.xml", example);
    const std::string log = ServiceUnderTest::normalised(service.run({"-isrunning", "-stdoutLog=DEBUG"}).out);
    EXPECT_EQ(matches(log, "(?:^|\n)((?:FATAL|ERROR) .*)"), std::set<std::string>{});
    EXPECT_EQ(matches(log, "preparing process named (.*)"), (std::set<std::string>{"helper", "server"}));
    EXPECT_NE(log.find("DEBUG ZORArgVector adding arg \"runAsDaemon\""), std::string::npos) << log;
}

}  // namespace
