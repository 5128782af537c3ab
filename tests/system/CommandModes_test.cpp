// What the command line asks for: modes, options and exit codes.

#include <sys/inotify.h>
#include <unistd.h>

#include <csignal>

#include "ServiceUnderTest.h"

namespace {

constexpr const char* kUsage =
    R"(
velbootstrapservice - manage the Velmora Bootstrap Service daemon.
	-java_home is required unless the environment variable JAVA_HOME variable is defined.

Usage:

	velbootstrapservice -start [-testReadyTries=20] [-testReadyInterval=6] -install_root=... [-java_home=...]
		spawn a zor child process. Waits until the child process is ready,
		polling it at intervals until it reports it is ready.  The number of
		polls and the interval (seconds) can be specified by -testReadyTries
		and -testReadyInterval (defaults are as shown).

	velbootstrapservice -stop [-testDeadTries=20] [-testDeadInterval=6] -install_root=... [-java_home=...]
		Stop the zor child process. Waits until the child process is dead,
		checking at intervals.  The number of checks and the interval (seconds)
		can be specified by -testDeadTries and -testDeadInterval (defaults are as shown).

	velbootstrapservice -isrunning -install_root=... [-java_home=...]
		Test if the zor child process is running. Exit code of 0 indicates
		that the process is running.

	The option -stdoutLog=DEBUG|INFO|WARN|ERROR|FATAL is optional for all
	flavours of the command line.  It causes log messages that describe the
	actvities of ZOR to be written to stdout.

)";

constexpr const char* kNoJavaHome =
    "A value for JAVA_HOME must be provided either as an environment variable or with the -java_home= "
    "command line argument.";

class CommandModesTest : public SystemTest {
  protected:
    static testing::AssertionResult isUsage(const RunResult& result) {
        if (result.exitCode == 0 && result.out.empty() && result.err == kUsage)
            return testing::AssertionSuccess();
        return testing::AssertionFailure() << testing::PrintToString(result);
    }

    // The value that a parameter of a child has once references are expanded.
    testing::AssertionResult expandsTo(const std::string& text, const std::string& value,
                                       std::vector<std::string> arguments = {}) {
        BootstrapXml document;
        document.children[0].options = {text};
        service.bootstrap(document);
        service.remove("logs/isrunning.log");
        arguments.emplace_back("-isrunning");
        service.run(arguments);
        return service.logged("DEBUG", "ZORArgVector", "adding arg \"" + value + "\"", "isrunning");
    }
};

// ---- Usage ----

TEST_F(CommandModesTest, NoArgumentsShowTheUsage) {
    EXPECT_TRUE(isUsage(service.run(std::vector<std::string>{})));
}

TEST_F(CommandModesTest, NoArgumentsStillReadTheEnvironmentFile) {
    service.write("configuration/zorEnvironmentVars.ini", "A=1\n");
    const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(
        inotify_add_watch(watch, service.path("configuration/zorEnvironmentVars.ini").c_str(), IN_ACCESS), 0);
    EXPECT_TRUE(isUsage(service.run(std::vector<std::string>{})));
    inotify_event event{};
    EXPECT_EQ(read(watch, &event, sizeof event), static_cast<ssize_t>(sizeof event))
        << "the file was not read";
    close(watch);
}

TEST_F(CommandModesTest, EverySpellingOfHelpShowsTheUsage) {
    for (const char* const option : {"-h", "-H", "-help", "-HELP", "-Help", "-?"})
        EXPECT_TRUE(isUsage(service.run({option}))) << option;
}

TEST_F(CommandModesTest, HelpWinsOverEveryModeAndNeedsNoConfiguration) {
    service.remove("bin/zorlogconfig.xml");
    service.remove("configuration/startup.xml");
    EXPECT_TRUE(isUsage(service.run({.arguments = {"-stop", "-help"}, .withoutVariables = {"JAVA_HOME"}})));
    EXPECT_EQ(service.read("logs/zordefault.log"), "");
}

TEST_F(CommandModesTest, RunAndWin95OnlyChooseTheLogging) {
    for (const char* const option : {"-run", "-win95", "-RUN"}) {
        service.remove("logs/run.log");
        EXPECT_TRUE(isUsage(service.run({option}))) << option;
        EXPECT_TRUE(service.logged("DEBUG", "ZORBootstrapService", "envp is...")) << option;
        EXPECT_FALSE(service.exists("logs/default.log"));
    }
}

TEST_F(CommandModesTest, AnUnknownOptionShowsTheUsage) {
    for (const char* const option : {"-v", "start", "-starting", "$$x"}) {
        service.remove("logs/default.log");
        EXPECT_TRUE(isUsage(service.run({option}))) << option;
        EXPECT_TRUE(service.logged("DEBUG", "ZORBootstrapService", "envp is...", "default")) << option;
    }
}

// ---- Java home ----

TEST_F(CommandModesTest, WithoutAJavaHomeNothingIsDone) {
    for (const char* const option : {"-v", "-start", "-stop", "-isrunning", "-d", "runAsDaemon"}) {
        service.remove("logs");
        std::filesystem::create_directory(service.path("logs"));
        const RunResult result =
            service.run({.arguments = {option, "-stdoutLog=FATAL"}, .withoutVariables = {"JAVA_HOME"}});
        EXPECT_EQ(result.exitCode, 0) << option;
        EXPECT_EQ(result.err, "") << option;
        EXPECT_EQ(ServiceUnderTest::normalised(result.out),
                  std::string("FATAL ZORBootstrapService ") + kNoJavaHome + "\n")
            << option;
    }
}

TEST_F(CommandModesTest, TheJavaHomeMayComeFromTheCommandLine) {
    const RunResult result =
        service.run({.arguments = {"-isrunning", "-java_home=/opt/x"}, .withoutVariables = {"JAVA_HOME"}});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(service.logged("DEBUG", "ZORPropertyInserter",
                               "Added property java_home with value \"/opt/x\"", "isrunning"));
}

TEST_F(CommandModesTest, TheCommandLinesJavaHomeReplacesTheEnvironments) {
    EXPECT_TRUE(expandsTo("${java_home}", "/opt/java"));
    EXPECT_TRUE(expandsTo("${java_home}", "/opt/x", {"-JAVA_HOME=/opt/x"}));
}

TEST_F(CommandModesTest, ACommandWithoutMemoryForAVariableSaysSoAndFails) {
    service.write("configuration/zorEnvironmentVars.ini", "A=1\n");
    const RunResult result = service.run(
        {.arguments = {"-isrunning"},
         .environment = {{"LD_PRELOAD", VBS_NO_VARIABLES}, {"ASAN_OPTIONS", "verify_asan_link_order=0"}}});
    EXPECT_EQ(result.exitCode, 1) << testing::PrintToString(result);
    EXPECT_EQ(result.err, "The command has failed: out of memory\n");
    EXPECT_TRUE(service.logged("FATAL", "ZORBootstrapService", "The command has failed: out of memory",
                               "zordefault"));
}

TEST_F(CommandModesTest, TheJavaHomeMayComeFromTheEnvironmentFile) {
    service.write("configuration/zorEnvironmentVars.ini",
                  "# JAVA_HOME=/commented\n\nJAVA_HOME=/first\nJAVA_HOME=/opt/f");
    EXPECT_TRUE(expandsTo("${java_home}", "/opt/f"));
}

TEST_F(CommandModesTest, ALineWithoutAnEqualsSignTakesTheVariableAway) {
    service.write("configuration/zorEnvironmentVars.ini", "JAVA_HOME\n");
    const RunResult result = service.run({"-isrunning"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_TRUE(service.logged("FATAL", "ZORBootstrapService", kNoJavaHome, "isrunning"));
}

TEST_F(CommandModesTest, ACarriageReturnStaysPartOfTheValue) {
    service.write("configuration/zorEnvironmentVars.ini", "JAVA_HOME=/opt/f \r\n");
    EXPECT_TRUE(expandsTo("${java_home}", "/opt/f \r"));
}

TEST_F(CommandModesTest, AnEmptyJavaHomeCountsAsGiven) {
    const RunResult result =
        service.run({.arguments = {"-isrunning", "-java_home="}, .withoutVariables = {"JAVA_HOME"}});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService", "Process is not running.", "isrunning"));
}

// ---- Which mode wins ----

TEST_F(CommandModesTest, StopWinsOverStartWhateverTheOrder) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"-stop", "-start"}, {"-start", "-stop"}, {"-Stop", "-START"}}) {
        service.remove("logs/start.log");
        const RunResult result = service.run(arguments);
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService",
                                   "stopRunningUnix() - process is dead, nothing to stop.", "start"));
        EXPECT_TRUE(service.neverLogged("Starting the daemon.", "start"));
        EXPECT_FALSE(service.exists("logs/stop.log"));
    }
    EXPECT_TRUE(service.childPids().empty());
}

TEST_F(CommandModesTest, IsRunningWinsOverStop) {
    EXPECT_EQ(service.run({"-stop", "-isrunning"}).exitCode, 1);
    EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService", "Process is not running.", "stop"));
    EXPECT_TRUE(service.neverLogged("Stopping daemon.", "stop"));
}

TEST_F(CommandModesTest, TheForegroundWinsOverStart) {
    const pid_t program = service.begin({.arguments = {"-start", "-d"}});
    ASSERT_TRUE(service.waitFor("the PID file", [&] { return service.daemonPid() == program; }));
    EXPECT_EQ(kill(program, SIGTERM), 0);
    const RunResult result = service.finish(program);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService", "Done.", "start"));
    EXPECT_TRUE(service.neverLogged("Starting the daemon.", "start"));
    EXPECT_FALSE(service.exists("logs/run.log"));
}

TEST_F(CommandModesTest, StartWinsOverTheDaemonsWord) {
    BootstrapXml document;
    document.daemonSpawn = "<daemonSpawn><path>/bin/true</path></daemonSpawn>";
    service.bootstrap(document);
    EXPECT_EQ(service.run({"runAsDaemon", "-start", "-testReadyTries=0"}).exitCode, 1);
    EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService", "Starting the daemon.", "start"));
}

TEST_F(CommandModesTest, AValueDoesNotHideAModeOption) {
    EXPECT_EQ(service.run({"-isrunning=no"}).exitCode, 1);
    EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService", "Process is not running.", "isrunning"));
}

// ---- Properties from the command line ----

TEST_F(CommandModesTest, ADollarArgumentSetsAProperty) {
    EXPECT_TRUE(expandsTo("${colour}-${colour}", "a=b-a=b", {"$$colour=a=b"}));
    EXPECT_TRUE(expandsTo("${colour}", "", {"$$colour=red", "$$colour="}));
}

TEST_F(CommandModesTest, ADollarArgumentWithoutAValueSetsNothing) {
    EXPECT_TRUE(expandsTo("${colour}", "${colour}", {"$$colour"}));
    EXPECT_TRUE(service.neverLogged("Added property colour", "isrunning"));
}

TEST_F(CommandModesTest, AnOverriddenMemoryRecomputesItsFractions) {
    constexpr const char* kFractions =
        "${dispatcherMaxMemoryBy2} ${dispatcherMaxMemoryBy3} ${dispatcherMaxMemoryBy4}";
    EXPECT_TRUE(expandsTo(kFractions, "500 333 250", {"$$dispatcherMaxMemory=1000"}));
    EXPECT_TRUE(expandsTo(kFractions, "-3 -2 -1", {"$$dispatcherMaxMemory=-7"}));
}

TEST_F(CommandModesTest, WithoutAnOverrideTheFractionsAreComputedOnce) {
    service.startup(ServiceUnderTest::startupDefaults() +
                    "<networkConfiguration>IPv6</networkConfiguration>");
    service.write(
        "configuration/startup.xml",
        "<s><ZOR><vrx:parameter name=\"dispatcherMaxMemory\"><vrx:value xsi:type=\"xsd:unsignedInt\">1024"
        "</vrx:value></vrx:parameter></ZOR><temp>../temp</temp></s>");
    EXPECT_TRUE(expandsTo("${dispatcherMaxMemoryBy2}", "512", {"$$x"}));
    EXPECT_EQ(service.countLogged("DEBUG", "ZORPropertyInserter",
                                  "Added property dispatcherMaxMemoryBy3 with value \"341\"", "isrunning"),
              1U);
    EXPECT_TRUE(expandsTo("${dispatcherMaxMemoryBy2}", "512", {"$$x=1"}));
    EXPECT_EQ(service.countLogged("DEBUG", "ZORPropertyInserter",
                                  "Added property dispatcherMaxMemoryBy3 with value \"341\"", "isrunning"),
              2U);
}

TEST_F(CommandModesTest, ThePlatformChoosesTheDocument) {
    EXPECT_EQ(service.run({"-isrunning", "$$platform=other"}).exitCode, 1);
    EXPECT_TRUE(service.logged(
        "FATAL", "ZORBootstrapService",
        "cannot open bootstrap config file \"" + service.path("bin/bootstrap_other.xml") + "\".",
        "isrunning"));
}

TEST_F(CommandModesTest, TheInstallRootOptionLeavesThePropertiesAlone) {
    EXPECT_TRUE(expandsTo("${install_path} ${bin_path}", service.path() + " " + service.path("bin"),
                          {"-install_root=/elsewhere"}));
}

TEST_F(CommandModesTest, StartupValuesBecomeProperties) {
    service.write(
        "configuration/startup.xml",
        "<s><ZOR><vrx:instances name=\"zor\"><vrx:instance name=\"production\"/></vrx:instances>"
        "<vrx:parameter name=\"shutdownPort\"><vrx:value xsi:type=\"xsd:unsignedShort\">9399</vrx:value>"
        "</vrx:parameter></ZOR><temp>../temp</temp>"
        "<internalDispatcher>https://localhost:9400/dispatch</internalDispatcher>"
        "<networkConfiguration>IPv6</networkConfiguration></s>");
    EXPECT_TRUE(
        expandsTo("${shutdownPort}|${dispatcherPort}|${serviceName}|${ip_protocol}|${contentManagerURI}",
                  "9399|9400|production:9400|IPv6|https://localhost:9400/dispatch"));
    EXPECT_TRUE(service.logged(
        "WARN", "ZORBootstrapService",
        "Failed to find parameter \"dispatcherPingTimeout\" in startup config ZOR element.", "isrunning"));
}

TEST_F(CommandModesTest, AMissingTempFolderIsCreated) {
    service.startup("<ZOR/><temp>../temp/new/deep</temp>");
    service.run({"-isrunning"});
    EXPECT_TRUE(std::filesystem::is_directory(service.path("temp/new/deep")));
    EXPECT_TRUE(service.inOrder(
        {"WARN ZORBootstrapService Temp directory \"../temp/new/deep\" does not exist, will try to "
         "create.",
         "WARN ZORBootstrapService Temp directory \"../temp/new/deep\" was created successfully."},
        "isrunning"));
}

TEST_F(CommandModesTest, ATempFolderThatCannotBeCreatedStopsNothing) {
    service.startup("<ZOR/><temp>../bin/fakechild/temp</temp>");
    service.run({"-isrunning"});
    EXPECT_TRUE(service.logged("FATAL", "ZORBootstrapService",
                               "Failed to create temp directory \"../bin/fakechild/temp\".", "isrunning"));
    EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService", "Process is not running.", "isrunning"));
}

TEST_F(CommandModesTest, TheJavaVendorComesFromThePreferences) {
    service.write("temp/zor.prefs",
                  "java_home=" + service.path("bin") + "\njava_vendor=Sun Microsystems Inc.\n");
    EXPECT_TRUE(expandsTo("[${java_vendor}]", "[Sun]"));
    service.write("temp/zor.prefs", "java_home=/nowhere/at/all\njava_vendor=Orv\n");
    EXPECT_TRUE(expandsTo("[${java_vendor}]", "[]"));
    EXPECT_TRUE(
        service.logged("DEBUG", "ZORBootstrapService",
                       "Java home in the ZOR Java properties file is empty, no need to check java vendor. "
                       "JavaHomeInFile=\"/nowhere/at/all\", JavaHomeInZOR=\"(null)\"",
                       "isrunning"));
}

TEST_F(CommandModesTest, EverythingIsFoundFromTheWorkingFolder) {
    const RunResult result = service.run(
        {.arguments = {"-isrunning", "-java_home=/opt/java", "-stdoutLog=FATAL"}, .workingFolder = "output"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(ServiceUnderTest::normalised(result.out),
              "FATAL ZORBootstrapService cannot open bootstrap config file \"" +
                  service.path("output/bootstrap_linuxi38632.xml") + "\".\n");
    EXPECT_TRUE(service.exists("logs/zordefault.log"));
    EXPECT_EQ(ServiceUnderTest::normalised(service.read("logs/zordefault.log")),
              "FATAL ZORLoggerFactory cannot open logging config file \"" +
                  service.path("output/zorlogconfig.xml") + "\".\n" +
                  ServiceUnderTest::normalised(result.out));
}

// ---- A document of one's own ----

TEST_F(CommandModesTest, ARunWithItsOwnDocumentHasItsOwnPidFile) {
    service.write("temp/own.xml", BootstrapXml{}.str());
    service.remove("bin/bootstrap_linuxi38632.xml");
    const pid_t program = service.begin({.arguments = {"-d", "-config=" + service.path("temp/own.xml")}});
    const std::string pidFile = "logs/zor_cnfgtest_" + std::to_string(program);
    ASSERT_TRUE(service.waitFor("the PID file",
                                [&] { return service.read(pidFile) == std::to_string(program) + "\n"; }));
    EXPECT_EQ(service.daemonPid(), 0);
    EXPECT_EQ(kill(program, SIGTERM), 0);
    EXPECT_EQ(service.finish(program).exitCode, 0);
    EXPECT_FALSE(service.exists(pidFile));
    EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService",
                               "attempt to load config from \"" + service.path("temp/own.xml") + "\""));
}

TEST_F(CommandModesTest, AControlRunWithItsOwnDocumentDoesNotSeeTheDaemon) {
    const pid_t daemon = runningDaemon();
    service.write("temp/own.xml", BootstrapXml{}.str());
    EXPECT_EQ(service.run({"-isrunning"}).exitCode, 0);
    EXPECT_EQ(service.run({"-isrunning", "-config=../temp/own.xml"}).exitCode, 1);
    stopDaemon(daemon);
}

}  // namespace
