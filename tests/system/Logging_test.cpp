// Where an invocation logs: the sections of the logging document, standard output, the console.

#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <regex>

#include "ServiceUnderTest.h"

namespace {

class LoggingTest : public SystemTest {
  protected:
    void logTo(const std::string& elements) {
        service.write("bin/zorlogconfig.xml", "<c>" + elements + "</c>");
    }

    // The levels that an option lets through to standard output, in a run that has something to say at each.
    std::string levelsOnStandardOutput(const std::string& option) {
        service.remove("bin/bootstrap_linuxi38632.xml");
        const RunResult result = service.run({"-isrunning", option});
        EXPECT_EQ(result.exitCode, 1);
        std::string levels;
        for (const char* const level : {"FATAL", "ERROR", "WARN", "INFO", "DEBUG"}) {
            if (("\n" + ServiceUnderTest::normalised(result.out)).find("\n" + std::string(level) + " ") !=
                std::string::npos) {
                levels += std::string(levels.empty() ? "" : " ") + level;
            }
        }
        return levels;
    }
};

TEST_F(LoggingTest, EachModeHasItsSection) {
    BootstrapXml document;
    document.daemonSpawn = "<daemonSpawn><path>/bin/true</path></daemonSpawn>";
    service.bootstrap(document);
    for (const auto& [option, section] : {std::pair{"-start", "start"},
                                          {"-stop", "stop"},
                                          {"-isrunning", "isrunning"},
                                          {"-isRunning", "isrunning"},
                                          {"-run", "run"},
                                          {"-other", "default"}}) {
        service.remove("logs");
        std::filesystem::create_directory(service.path("logs"));
        service.run({option, "-testReadyTries=0"});
        for (const char* const name : {"start", "stop", "isrunning", "run", "default"})
            EXPECT_EQ(service.exists(std::string("logs/") + name + ".log"), std::string(name) == section)
                << option;
    }
}

TEST_F(LoggingTest, ALineHasTimeLevelThreadAndLogger) {
    service.run({"-isrunning"});
    const std::string log = service.read("logs/isrunning.log");
    const std::string line = log.substr(0, log.find('\n'));
    const std::regex shape(
        "(Mon|Tue|Wed|Thu|Fri|Sat|Sun) (Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [ 0-3][0-9] "
        "[0-9]{2}:[0-9]{2}:[0-9]{2} [0-9]{4}  DEBUG t\\[[0-9a-f]+\\] ZORBootstrapService envp is\\.\\.\\.");
    EXPECT_TRUE(std::regex_match(line, shape)) << line;
    EXPECT_NE(log.find(" INFO  t["), std::string::npos);
}

TEST_F(LoggingTest, TheTimeIsUniversalWhateverTheZone) {
    const std::time_t before = std::time(nullptr);
    service.run({.arguments = {"-isrunning"}, .environment = {{"TZ", "XXX-13"}}});
    const std::time_t after = std::time(nullptr);
    std::tm written{};
    ASSERT_NE(strptime(service.read("logs/isrunning.log").c_str(), "%a %b %d %H:%M:%S %Y", &written),
              nullptr);
    EXPECT_GE(timegm(&written), before);
    EXPECT_LE(timegm(&written), after);
}

TEST_F(LoggingTest, AWholeControlRunIsLoggedAsAgreed) {
    const RunResult result = service.run({"-isrunning", "-stdoutLog=INFO"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(
        ServiceUnderTest::normalised(result.out),
        "WARN ZORBootstrapService Failed to find parameter \"dispatcherPingTimeout\" in startup config ZOR "
        "element.\n"
        "WARN ZORBootstrapService Failed to find parameter \"dispatcherMaxMemory\" in startup config ZOR "
        "element.\n"
        "WARN ZORBootstrapService Failed to find parameter \"shutdownPort\" in startup config ZOR element.\n"
        "INFO ZORBootstrapService Testing to see if daemon is running.\n"
        "INFO ZORBootstrapService attempt to load config from \"" +
            service.path("bin/bootstrap_linuxi38632.xml") +
            "\"\n"
            "WARN ZORChildProcess no ping element in config.\n"
            "INFO ZORBootstrapService Process is not running.\n");
}

TEST_F(LoggingTest, StandardOutputTakesTheLevelAskedFor) {
    EXPECT_EQ(levelsOnStandardOutput("-stdoutLog=FATAL"), "FATAL");
    EXPECT_EQ(levelsOnStandardOutput("-stdoutLog=ERROR"), "FATAL ERROR");
    EXPECT_EQ(levelsOnStandardOutput("-stdoutLog=WARN"), "FATAL ERROR WARN");
    EXPECT_EQ(levelsOnStandardOutput("-stdoutLog=INFO"), "FATAL ERROR WARN INFO");
    EXPECT_EQ(levelsOnStandardOutput("-stdoutLog=DEBUG"), "FATAL ERROR WARN INFO DEBUG");
}

TEST_F(LoggingTest, StandardOutputsLevelIsReadLeniently) {
    EXPECT_EQ(levelsOnStandardOutput("-STDOUTLOG=error"), "FATAL ERROR");
    EXPECT_EQ(levelsOnStandardOutput("-stdoutLog="), "FATAL ERROR WARN INFO");
    EXPECT_EQ(levelsOnStandardOutput("-stdoutLog=LOUD"), "FATAL ERROR WARN INFO DEBUG");
    EXPECT_EQ(levelsOnStandardOutput("-stdoutLog"), "");
}

TEST_F(LoggingTest, StandardOutputsLevelHoldsForTheFilesToo) {
    service.run({"-isrunning", "-stdoutLog=INFO"});
    EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService", "Process is not running.", "isrunning"));
    EXPECT_TRUE(service.neverLogged("DEBUG", "isrunning"));
}

TEST_F(LoggingTest, TheLoggingDocumentMayBeNamed) {
    service.write(
        "temp/own.xml",
        "<c><isrunning><logging level=\"INFO\"><logFiles><file name=\"../logs/own.log\"/></logFiles>"
        "</logging></isrunning></c>");
    service.run({"-isrunning", "-logconfig=../temp/own.xml"});
    EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService", "Process is not running.", "own"));
    EXPECT_TRUE(service.neverLogged("DEBUG", "own"));
    EXPECT_FALSE(service.exists("logs/isrunning.log"));
}

TEST_F(LoggingTest, ALevelInTheDocumentIsCaseSensitive) {
    logTo(
        "<isrunning><logging level=\"info\"><logFiles><file "
        "name=\"../logs/x.log\"/></logFiles></logging></isrunning>");
    service.run({"-isrunning"});
    EXPECT_TRUE(service.logged("DEBUG", "ZORBootstrapService", "called isRunningUnix()", "x"));
}

TEST_F(LoggingTest, WithoutALevelOnlyFatalLinesAreWritten) {
    logTo("<isrunning><logging><logFiles><file name=\"../logs/x.log\"/></logFiles></logging></isrunning>");
    service.remove("bin/bootstrap_linuxi38632.xml");
    service.run({"-isrunning"});
    EXPECT_EQ(service.log("x"), "FATAL ZORBootstrapService cannot open bootstrap config file \"" +
                                    service.path("bin/bootstrap_linuxi38632.xml") + "\".\n");
}

TEST_F(LoggingTest, EveryDestinationGetsEveryLine) {
    logTo(
        "<isrunning><logging level=\"INFO\"><logFiles><stdout/><file "
        "name=\"${install_path}/logs/x.log\"/><stderr/>"
        "<stdout/><other/></logFiles></logging></isrunning>");
    const RunResult result = service.run({"-isrunning"});
    const std::string line = "INFO ZORBootstrapService Process is not running.\n";
    const auto times = [&](const std::string& text) {
        std::size_t count = 0;
        for (std::size_t at = text.find(line); at != std::string::npos; at = text.find(line, at + 1))
            ++count;
        return count;
    };
    EXPECT_EQ(times(ServiceUnderTest::normalised(result.out)), 2U);
    EXPECT_EQ(times(ServiceUnderTest::normalised(result.err)), 1U);
    EXPECT_EQ(times(service.log("x")), 1U);
}

TEST_F(LoggingTest, AFileIsTruncatedUnlessItAppends) {
    for (const auto& [append, kept] :
         {std::pair{"true", true}, {"TRUE", false}, {"false", false}, {"", false}}) {
        service.write("logs/x.log", "before\n");
        logTo("<isrunning><logging level=\"INFO\"><logFiles><file name=\"../logs/x.log\" append=\"" +
              std::string(append) + "\"/></logFiles></logging></isrunning>");
        service.run({"-isrunning"});
        EXPECT_EQ(service.read("logs/x.log").rfind("before\n", 0) == 0, kept) << append;
    }
}

TEST_F(LoggingTest, TheDefaultLogIsTruncatedByEveryRun) {
    service.write("logs/zordefault.log", "before\n");
    service.run({"-help"});
    EXPECT_EQ(service.read("logs/zordefault.log"), "");
}

TEST_F(LoggingTest, TheConsoleTellsOfASectionWithoutLogging) {
    logTo("<isrunning/>");
    EXPECT_EQ(service.run({"-isrunning"}).err, "");
    EXPECT_EQ(service.run({"-isrunning", "-CONSOLE"}).err,
              "no logger element in config, so LoggerFactory is not reconfigured.\n");
}

TEST_F(LoggingTest, TheConsoleTellsOfASectionWithoutFiles) {
    for (const char* const files : {"", "<logFiles/>"}) {
        logTo("<isrunning><logging level=\"DEBUG\">" + std::string(files) + "</logging></isrunning>");
        EXPECT_EQ(service.run({"-isrunning"}).err, "");
        EXPECT_EQ(service.run({"-console", "-isrunning"}).err,
                  "no log file elements in config, so no log files added.\n");
    }
    logTo("<isrunning><logging level=\"DEBUG\"><logFiles> </logFiles></logging></isrunning>");
    EXPECT_EQ(service.run({"-isrunning", "-console"}).err, "");
}

TEST_F(LoggingTest, ASectionWithoutFilesSilencesEvenFatalLines) {
    logTo("<isrunning><logging level=\"DEBUG\"/></isrunning>");
    service.remove("bin/bootstrap_linuxi38632.xml");
    const RunResult result = service.run({"-isrunning"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out + result.err + service.read("logs/zordefault.log"), "");
}

TEST_F(LoggingTest, AFullDiskDisturbsNobody) {
    logTo(
        "<isrunning><logging level=\"DEBUG\"><logFiles><file name=\"/dev/full\"/><file "
        "name=\"../logs/x.log\"/>"
        "<file name=\"../nowhere/x.log\"/><file name=\"\"/></logFiles></logging></isrunning>");
    const RunResult result = service.run({"-isrunning"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.signal, 0);
    EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService", "Process is not running.", "x"));
}

TEST_F(LoggingTest, AStandardStreamThatIsClosedIsNotMistakenForALog) {
    const RunResult result = service.run({.arguments = {"-isrunning", "-stdoutLog=DEBUG"}, .closed = {1, 2}});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(service.countLogged("INFO", "ZORBootstrapService", "Process is not running.", "isrunning"), 1U);
    EXPECT_EQ(service.read("logs/zordefault.log"), "");
}

}  // namespace
