// The program "velbootstrapctl check" before instances as they are shipped and documented, and before its users.

#include <gtest/gtest.h>
#include <pty.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <system_error>
#include <vector>

#include "ExternalProgram.h"
#include "FileContent.h"
#include "MarkdownBlocks.h"
#include "Mistakes.h"
#include "SEKDescriptor.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kProgram = VBS_BIN "/velbootstrapctl";

struct Outcome {
    int exitCode = -1;
    std::string words;
};

Outcome run(const std::vector<std::string>& command, const std::string& folder = {}) {
    ExternalProgram program(command, folder);
    const int exitCode = program.waitForEnd();
    return {exitCode, program.words()};
}

// In surroundings that are always the same.
std::vector<std::string> command(const std::string& instance, const std::vector<std::string>& options = {}) {
    std::vector<std::string> words{
        "env",    "-u",   "VELBOOTSTRAP_INSTANCE", "LD_LIBRARY_PATH=" VBS_BIN, "JAVA_HOME=/opt/java",
        kProgram, "check"};
    if (!instance.empty()) words.insert(words.end(), {"--instance", instance});
    words.insert(words.end(), options.begin(), options.end());
    return words;
}

class CheckProgramTest : public SystemTest {
  protected:
    Outcome check(const std::vector<std::string>& options = {}) {
        return run(command(service.path(), options));
    }

    // A folder of the tree, for an installation of another kind.
    std::string emptyFolder(const std::string& name) const {
        fs::create_directories(service.path("temp/" + name));
        return service.path("temp/" + name);
    }
    void copyPrograms(const std::string& to) const {
        for (const char* const name :
             {"velbootstrapservice", "libSEK_Crypto_Interface.so", "sampledispatcher"})
            fs::copy_file(service.path(std::string("bin/") + name), to + "/bin/" + name);
    }
};

// ---- Samples ----

TEST_F(CheckProgramTest, InTheSampleNothingIsFound) {
    const std::string folder = emptyFolder("sample");
    fs::copy(VBS_SAMPLE, folder, fs::copy_options::recursive);
    copyPrograms(folder);
    ASSERT_EQ(run({VBS_SOURCE_FOLDER "/programs/make-certificates", folder + "/configuration"}).exitCode, 0);
    const Outcome outcome = run(command(folder));
    EXPECT_EQ(outcome.words, "nothing found\n");
    EXPECT_EQ(outcome.exitCode, 0);
}

TEST_F(CheckProgramTest, InAnInstallationWithTomcatNothingIsFound) {
    const std::string folder = emptyFolder("tomcat");
    fs::create_directories(service.path("temp/programs"));
    fs::create_directories(service.path("temp/programs/bin"));
    copyPrograms(service.path("temp/programs"));
    const Outcome made = run({VBS_SOURCE_FOLDER "/programs/velbootstrap-tomcat", "--programs",
                              service.path("temp/programs/bin"), folder});
    ASSERT_EQ(made.exitCode, 0) << made.words;
    const Outcome outcome = run(command(folder));
    EXPECT_EQ(outcome.words, "nothing found\n");
}

std::string exampleWith(const std::string& words) {
    for (const std::string& block : markdownBlocks(VBS_SOURCE_FOLDER "/docs/configuration.md", "xml")) {
        if (block.find(words) != std::string::npos) return block;
    }
    return {};
}

// The programs of the guide's example are nowhere.
TEST_F(CheckProgramTest, InTheExamplesOfTheGuideOnlyTheirProgramsAreMissing) {
    service.write("bin/bootstrap_linuxi38632.xml", exampleWith("</bootstrap>"));
    service.write("bin/zorlogconfig.xml", exampleWith("</logConfiguration>"));
    service.write("configuration/startup.xml", exampleWith("</startupConfiguration>"));
    const nlohmann::json found = nlohmann::json::parse(check({"--json"}).words);
    EXPECT_EQ(found["children"], 2);
    for (const nlohmann::json& finding : found["findings"])
        EXPECT_EQ(finding["rule"], "program") << finding;
}

// ---- Output ----

std::string schemaComplaints(const std::string& json) {
    constexpr const char* kScript =
        "import json, sys, jsonschema\n"
        "schema = json.load(open(sys.argv[1]))\n"
        "jsonschema.Draft202012Validator.check_schema(schema)\n"
        "jsonschema.validate(json.load(sys.stdin), schema, cls=jsonschema.Draft202012Validator)\n";
    ExternalProgram python(
        {"python3", "-c", kScript, VBS_SOURCE_FOLDER "/schemas/velbootstrapctl-check.schema.json"});
    python.type(json);
    python.endInput();
    return python.waitForEnd() == 0 ? "" : python.words();
}

TEST_F(CheckProgramTest, ItsJsonIsAsTheSchemaSays) {
    Installation installation(service);
    EXPECT_EQ(schemaComplaints(check({"--json"}).words), "");
    installation.replace(Installation::bootstrap, "--service=dispatcher", "\xC3\xA9${unknown}");
    installation.replace(Installation::settings, "VerifyMode", "VerifyMood");
    installation.remove(Installation::logging);
    const Outcome outcome = check({"--json"});
    EXPECT_EQ(schemaComplaints(outcome.words), "");
    EXPECT_EQ(nlohmann::json::parse(outcome.words)["exitCode"], outcome.exitCode);
    EXPECT_NE(schemaComplaints("{}"), "");
}

TEST_F(CheckProgramTest, WarningsAndErrorsHaveExitCodesOfTheirOwn) {
    Installation installation(service);
    installation.replace(Installation::bootstrap, "--service=dispatcher", "${unknown}");
    Outcome outcome = check();
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(installation.plain(outcome.words),
              "/bin/bootstrap_linuxi38632.xml:9:9: warning: nobody defines ${unknown} [child dispatcher]\n"
              "0 errors, 1 warning\n");
    installation.replace(Installation::bootstrap, "pollIntervalsec=\"1\"", "pollIntervalsec=\"0\"");
    outcome = check();
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_NE(outcome.words.find("poll interval must not be 0."), std::string::npos) << outcome.words;
}

// What a row says is a matter of the budget's own tests.
TEST_F(CheckProgramTest, TheBudgetIsShownToWhoeverAsksForIt) {
    const Installation installation(service);
    EXPECT_EQ(check().words, "nothing found\n");
    const std::string words = check({"--budget"}).words;
    for (const char* const line : {"nothing found\n\nchild dispatcher, in seconds\n  death: noticed ",
                                   "\n\nchild helper, in seconds\n", "\n\nthe whole service, in seconds\n"})
        EXPECT_NE(words.find(line), std::string::npos) << words;
    const nlohmann::json json = nlohmann::json::parse(check({"--json"}).words);
    EXPECT_GT(json["budget"].size(), 20U);
    EXPECT_EQ(json["budget"][0]["child"], "dispatcher");
}

TEST_F(CheckProgramTest, WithoutAUsableDocumentThereIsNoBudget) {
    Installation installation(service);
    installation.replace(Installation::bootstrap, "pollIntervalsec=\"1\"", "pollIntervalsec=\"0\"");
    EXPECT_TRUE(nlohmann::json::parse(check({"--json"}).words)["budget"].empty());
}

// ---- Terminals ----

std::string onATerminal(const std::vector<std::string>& words, bool hasColour) {
    int master = -1;
    const pid_t child = forkpty(&master, nullptr, nullptr, nullptr);
    if (child == 0) {
        setenv("TERM", "xterm", 1);
        hasColour ? unsetenv("NO_COLOR") : setenv("NO_COLOR", "1", 1);
        std::vector<char*> arguments;
        for (const std::string& word : words)
            arguments.push_back(const_cast<char*>(word.c_str()));
        arguments.push_back(nullptr);
        alarm(60);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    const SEKDescriptor terminal(master);
    std::string shown;
    std::array<char, 4096> block{};
    for (ssize_t got = 1; got > 0;) {
        got = read(master, block.data(), block.size());
        if (got > 0) shown.append(block.data(), static_cast<std::size_t>(got));
        if (got < 0 && errno == EINTR) got = 1;
    }
    waitpid(child, nullptr, 0);
    return shown;
}

TEST_F(CheckProgramTest, OnATerminalThereIsColourAndTheBudget) {
    const Installation installation(service);
    const std::string coloured = onATerminal(command(service.path()), true);
    EXPECT_EQ(coloured.find("\033[32mnothing found\033[0m\r\n"), 0U) << coloured;
    EXPECT_NE(coloured.find("\033[1mthe whole service, in seconds\033[0m"), std::string::npos) << coloured;
    const std::string plain = onATerminal(command(service.path()), false);
    EXPECT_EQ(plain.find("nothing found\r\n"), 0U) << plain;
    EXPECT_EQ(plain.find('\033'), std::string::npos) << plain;
}

// ---- Documents by their names ----

TEST_F(CheckProgramTest, ADocumentAloneIsToldByItsRootAndHeldAgainstItsSchema) {
    const std::string folder = emptyFolder("alone");
    service.write("temp/alone/one", "<startupConfiguration>\n<tmp/></startupConfiguration>");
    service.write("temp/alone/two", "<bootstrapp/>");
    const Outcome outcome = run(command("", {"one", "two", "three"}), folder);
    EXPECT_EQ(outcome.exitCode, 2);
    for (const std::string words :
         {"/one:2:1: error: unknown element <tmp>: did you mean \"temp\"?",
          "/two:1:1: error: <bootstrapp> begins no document of the service: did you mean \"bootstrap\"?",
          "/three: error: cannot be read: No such file or directory"})
        EXPECT_NE(outcome.words.find(folder + words), std::string::npos) << outcome.words;
}

// As the service's own option -config= has it.
TEST_F(CheckProgramTest, ABootstrapDocumentIsPreparedInTheInstance) {
    const Installation installation(service);
    std::string text = service.read(Installation::bootstrap);
    service.write("temp/other.xml", text);
    const Outcome good = check({service.path("temp/other.xml")});
    EXPECT_EQ(good.words, "nothing found\n");
    text.replace(text.find("fakechild"), 9, "nochild");
    service.write("temp/other.xml", text);
    const Outcome bad = check({service.path("temp/other.xml")});
    EXPECT_EQ(installation.plain(bad.words),
              "/temp/other.xml:23:9: error: /bin/nochild: No such file or directory [child helper]\n1 error, "
              "0 warnings\n");
}

// ---- Users ----

TEST_F(CheckProgramTest, RootChecksWithTheRightsOfTheUserWhoRunsTheService) {
    if (geteuid() != 0) return;  // nobody else can become another user
    Installation installation(service);
    installation.logsBelongToUser();
    // What is the user's own can be read.
    EXPECT_EQ(check().words.find("private key"), std::string::npos);
    installation.mode("bin/fakechild", 0700);
    const Outcome outcome = check();
    EXPECT_NE(installation.plain(outcome.words).find("/bin/fakechild: it may not be executed [child helper]"),
              std::string::npos)
        << outcome.words;
}

// ---- Bounds ----

// Of the children that have ended, in milliseconds.
double processorTimeMs() {
    rusage used{};
    getrusage(RUSAGE_CHILDREN, &used);
    const auto ms = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1000 + static_cast<double>(time.tv_usec) / 1000;
    };
    return ms(used.ru_utime) + ms(used.ru_stime);
}

// Before each start of the service it may cost no more than a few starts of the tool that reads one document.
TEST_F(CheckProgramTest, ItCostsLittleMoreThanThreeDocumentsCostAnotherTool) {
    const Installation installation(service);
    constexpr int kTimes = 5;
    double before = processorTimeMs();
    for (int i = 0; i < kTimes; ++i)
        ASSERT_EQ(check().exitCode, 0);
    const double own = processorTimeMs() - before;
    before = processorTimeMs();
    for (int i = 0; i < kTimes; ++i) {
        for (const char* const name : {"bootstrap", "zorlogconfig", "startup"}) {
            const bool isBootstrap = std::string(name) == "bootstrap";
            const std::string file =
                std::string("configuration/") + name + (isBootstrap ? "_linuxi38632" : "") + ".xml";
            const std::string schema = std::string(VBS_SOURCE_FOLDER "/schemas/") + name + ".xsd";
            ASSERT_EQ(run({"xmllint", "--noout", "--nonet", "--schema", schema, service.path(file)}).exitCode,
                      0);
        }
    }
    const double other = processorTimeMs() - before;
#ifndef VBS_SANITIZED
    EXPECT_LT(own, 6 * other) << own / kTimes << " ms against " << other / kTimes << " ms";
#endif
    EXPECT_GT(other, 0);
}

TEST_F(CheckProgramTest, AHugeDocumentIsCheckedInBoundedTime) {
    const Installation installation(service);
    std::string text = service.read(Installation::bootstrap);
    std::string many;
    for (int i = 0; i < 100000; ++i)
        many += "<param>${unknown}</param>\n";
    service.write(Installation::bootstrap, text.insert(text.find("<param>--service"), many));
    const Outcome outcome = check();
    EXPECT_EQ(outcome.exitCode, 1) << outcome.words.substr(0, 1000);
}

TEST_F(CheckProgramTest, AnEndlessSettingsFileHoldsNothingUp) {
    const Installation installation(service);
    service.remove(Installation::settings);
    fs::create_symlink("/dev/zero", service.path(Installation::settings));
    EXPECT_EQ(check().exitCode, 2);
    service.remove(Installation::settings);
    ASSERT_EQ(mkfifo(service.path(Installation::settings).c_str(), 0600), 0);
    EXPECT_EQ(check().exitCode, 2);
    for (const char* const name : {"configuration/zorEnvironmentVars.ini", "bin/zor.failedPingLimit"}) {
        service.remove(name);
        ASSERT_EQ(mkfifo(service.path(name).c_str(), 0600), 0);
    }
    const Outcome outcome = check();
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_NE(outcome.words.find("zor.failedPingLimit"), std::string::npos) << outcome.words;
}

TEST_F(CheckProgramTest, AMissingSchemaIsAnErrorOfTheToolAndNoFinding) {
    const Installation installation(service);
    const Outcome outcome = check({"--schemas", service.path("temp")});
    EXPECT_EQ(outcome.exitCode, 70);
    EXPECT_EQ(
        outcome.words.find("velbootstrapctl: cannot read the schema " + service.path("temp/bootstrap.xsd")),
        0U)
        << outcome.words;
}

}  // namespace
