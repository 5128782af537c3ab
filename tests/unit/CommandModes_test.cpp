// From the command line to a mode: the order of the steps, the overrides, the modes' precedence and exit
// codes.
#include <algorithm>
#include <cstdlib>

#include "TestWorld.h"
#include "ZORCmdLine.h"

namespace {

class CommandModesTest : public WorldTest {
  protected:
    CommandModesTest() {
        folder.write("bin/bootstrap_linuxi38632.xml",
                     documentText({ChildXml{.name = "alpha", .stopType = "signal"}}, ""));
        answers("alpha", "READY");
        logEverything("default");
        unsetenv("JAVA_HOME");
    }
    // One section that keeps the log of this test in a file.
    void logEverything(const std::string& section) const {
        folder.write("bin/zorlogconfig.xml",
                     "<config><" + section + "><logging level='DEBUG'><logFiles><file name='" +
                         folder.path("logs/all.log") + "' append='true'/></logFiles></logging></" + section +
                         "></config>");
    }
    int run(std::vector<std::string> arguments, std::vector<std::string> environment = {"A=1"}) {
        arguments.insert(arguments.begin(), "velbootstrapservice");
        m_arguments = std::move(arguments);
        m_environment = std::move(environment);
        ZORCmdLine line(static_cast<int>(m_arguments.size()), pointers(m_arguments, m_argv));
        const int result = service.ParseStandardArgs(line, pointers(m_environment, m_envp));
        EXPECT_EQ(result, 1);
        return service.getExitCode();
    }
    bool logged(const std::string& text) const {
        return folder.read("logs/all.log").find(text) != std::string::npos;
    }

    // The service's own line, of that level, as a whole.
    bool loggedAsFatal(const std::string& text) const {
        const std::string all = folder.read("logs/all.log");
        const std::size_t at = all.find(" ZORBootstrapService " + text);
        if (at == std::string::npos) return false;
        const std::size_t line = all.rfind('\n', at) + 1;  // 0 when it is the first
        return all.compare(line + 24, 10, "  FATAL t[") == 0;
    }

  private:
    static char** pointers(std::vector<std::string>& texts, std::vector<char*>& result) {
        result.clear();
        for (std::string& text : texts)
            result.push_back(text.data());
        result.push_back(nullptr);
        return result.data();
    }

    std::vector<std::string> m_arguments;
    std::vector<std::string> m_environment;
    std::vector<char*> m_argv;
    std::vector<char*> m_envp;
};

TEST_F(CommandModesTest, WithoutArgumentsTheEnvironmentFileHasStillBeenRead) {
    folder.write("configuration/zorEnvironmentVars.ini", "VBS_TEST_MODES=seen\n");
    testing::internal::CaptureStderr();
    EXPECT_EQ(run({}), 0);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("Usage:"), std::string::npos);
    EXPECT_STREQ(std::getenv("VBS_TEST_MODES"), "seen");
    EXPECT_EQ(property("install_path"), nullptr);
}

TEST_F(CommandModesTest, HelpIsShownInAnyLetterCase) {
    for (const char* const option : {"-h", "-HELP", "-Help", "-?"}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(run({option, "-start"}), 0);
        EXPECT_NE(testing::internal::GetCapturedStderr().find("Usage:"), std::string::npos) << option;
    }
}

TEST_F(CommandModesTest, WithoutAJavaHomeNothingIsDone) {
    logEverything("isrunning");
    EXPECT_EQ(run({"-isrunning"}), 0);
    EXPECT_TRUE(
        loggedAsFatal("A value for JAVA_HOME must be provided either as an environment variable or "
                      "with the -java_home= command line argument.\n"));
    EXPECT_FALSE(logged("Testing to see if daemon is running."));
}

TEST_F(CommandModesTest, TheJavaHomeOfTheCommandLineWins) {
    writeStartup("<ZOR/>");
    setenv("JAVA_HOME", "/from/environment", 1);
    run({"-isrunning", "-java_home=/from/line"});
    EXPECT_STREQ(property("java_home"), "/from/line");
}

TEST_F(CommandModesTest, TheEnvironmentsJavaHomeNeedsTheServicesElement) {
    setenv("JAVA_HOME", "/from/environment", 1);
    run({"-isrunning"});
    EXPECT_EQ(property("java_home"), nullptr);
    EXPECT_EQ(property("CRLF"), nullptr);
}

TEST_F(CommandModesTest, OverridesComeInCommandLineOrderAndAreCalculatedWith) {
    writeStartup(
        "<ZOR><vrx:parameter name='dispatcherMaxMemory'><vrx:value "
        "xsi:type='xsd:unsignedInt'>1024</vrx:value>"
        "</vrx:parameter></ZOR>");
    run({"-isrunning", "-java_home=/j", "$$dispatcherMaxMemory=600", "$$a=1", "$$a=2", "$$platform=other",
         "$$ignored"});
    EXPECT_STREQ(property("dispatcherMaxMemoryBy3"), "200");
    EXPECT_STREQ(property("a"), "2");
    EXPECT_STREQ(property("platform"), "other");
    EXPECT_EQ(property("ignored"), nullptr);
}

TEST_F(CommandModesTest, AnOverrideWithoutAValueDoesNotRecalculate) {
    logEverything("isrunning");
    setProperty("dispatcherMaxMemory", "100");
    run({"-isrunning", "-java_home=/j", "$$x"});
    EXPECT_EQ(property("dispatcherMaxMemoryBy2"), nullptr);
    run({"-isrunning", "-java_home=/j", "$$x=1"});
    EXPECT_STREQ(property("dispatcherMaxMemoryBy2"), "50");
}

TEST_F(CommandModesTest, TheInstallRootOptionChangesTheFieldsOnly) {
    run({"-isrunning", "-java_home=/j", "-install_root=/opt/velmora"});
    EXPECT_EQ(TestAccess::installRoot(service), "/opt/velmora");
    EXPECT_EQ(TestAccess::binDirectory(service), "/opt/velmora/bin");
    EXPECT_STREQ(property("install_path"), folder.path().c_str());
    EXPECT_STREQ(property("bin_path"), folder.path("bin").c_str());
}

TEST_F(CommandModesTest, AnOptionCountsWhereverItStands) {
    logEverything("isrunning");
    std::filesystem::rename(folder.path("bin/zorlogconfig.xml"), folder.path("bin/own.xml"));
    std::vector<std::string> options{"-isrunning", "-java_home=/j", "-install_root=/opt/velmora",
                                     "-config=none.xml", "-logconfig=own.xml"};
    for (std::size_t i = 0; i < options.size(); ++i) {
        std::rotate(options.begin(), options.begin() + 1, options.end());
        setProperty("java_home", "");
        setProperty("configfile", "");
        std::filesystem::remove(folder.path("logs/all.log"));
        EXPECT_EQ(run(options), 1) << options[0];
        EXPECT_STREQ(property("java_home"), "/j") << options[0];
        EXPECT_STREQ(property("configfile"), "none.xml") << options[0];
        EXPECT_EQ(TestAccess::installRoot(service), "/opt/velmora") << options[0];
        EXPECT_TRUE(logged("Testing to see if daemon is running.")) << options[0];
    }
}

TEST_F(CommandModesTest, ANameOfTheDefaultLoggingDocumentIsExpandedForTheLog) {
    logEverything("isrunning");
    run({"-isrunning", "-java_home=/j"});
    EXPECT_TRUE(logged("changed \n   \"${install_path}/bin/zorlogconfig.xml\" \nto \"" +
                       folder.path("bin/zorlogconfig.xml") + "\"\n"));
    std::filesystem::remove(folder.path("logs/all.log"));
    run({"-isrunning", "-java_home=/j", "-logconfig=" + folder.path("bin/zorlogconfig.xml")});
    EXPECT_FALSE(logged("${install_path}/bin/zorlogconfig.xml"));
}

TEST_F(CommandModesTest, TheLoggingModeFollowsItsOwnOrder) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"-start"}, "start"},
        {{"-stop", "-start"}, "start"},
        {{"-stop"}, "stop"},
        {{"-isrunning", "-stop"}, "stop"},
        {{"-ISRUNNING"}, "isrunning"},
        {{"-run"}, "run"},
        {{"-d"}, "run"},
        {{"-win95"}, "run"},
        {{"runAsDaemon"}, "run"},
        {{"-runAsDaemon"}, "default"},
        {{"-v"}, "default"}};
    for (const auto& [arguments, mode] : cases) {
        std::filesystem::remove(folder.path("logs/all.log"));
        logEverything(mode);
        testing::internal::CaptureStderr();
        run(arguments);  // ends for want of a Java home, which is logged where the mode says
        testing::internal::GetCapturedStderr();
        EXPECT_TRUE(logged("A value for JAVA_HOME must be provided")) << mode << " for " << arguments[0];
    }
}

TEST_F(CommandModesTest, OptionsThatStartNothingEndInTheUsageText) {
    for (const char* const option : {"-run", "-win95", "-v", "-console", "-runAsDaemon"}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(run({option, "-java_home=/j"}), 0);
        EXPECT_NE(testing::internal::GetCapturedStderr().find("Usage:"), std::string::npos) << option;
    }
    EXPECT_EQ(os.lastPid(), 1000);
}

TEST_F(CommandModesTest, TheFirstModeOfTheTableWins) {
    logEverything("start");
    EXPECT_EQ(run({"-java_home=/j", "-start", "-stop"}), 0);
    EXPECT_TRUE(logged("stopRunningUnix() - process is dead, nothing to stop."));
    EXPECT_EQ(run({"-java_home=/j", "-start", "-stop", "-isrunning"}), 1);
    EXPECT_TRUE(logged("Testing to see if daemon is running."));
    EXPECT_EQ(os.lastPid(), 1000);
    os.at(100000, [&] { os.raiseSignal(SIGTERM); });
    EXPECT_EQ(run({"-java_home=/j", "-start", "-isrunning", "-d"}), 0);
    EXPECT_TRUE(logged("Done."));
}

TEST_F(CommandModesTest, ExitCodesTellTheOutcome) {
    EXPECT_EQ(run({"-java_home=/j", "-isRunning"}), 1);
    EXPECT_EQ(run({"-java_home=/j", "-stop"}), 0);
    EXPECT_EQ(run({"-java_home=/j", "-start", "-testReadyTries=1"}), 1);
    std::filesystem::remove(folder.path("bin/bootstrap_linuxi38632.xml"));
    EXPECT_EQ(run({"-java_home=/j", "-stop"}), 1);
    EXPECT_EQ(run({"-java_home=/j", "-start"}), 1);
    EXPECT_EQ(run({"-java_home=/j", "-d"}), 0);
    EXPECT_EQ(run({"-java_home=/j", "runAsDaemon"}), 0);
}

TEST_F(CommandModesTest, TheEnvironmentIsListedAtDebugAndKept) {
    logEverything("isrunning");
    run({"-isrunning"}, {"FIRST=1", "PERCENT=%s%n"});
    EXPECT_TRUE(logged("ZORBootstrapService envp is...\n"));
    EXPECT_TRUE(logged("ZORBootstrapService FIRST=1\n"));
    EXPECT_TRUE(logged("ZORBootstrapService PERCENT=%s%n\n"));
    ASSERT_NE(ZORBootstrapService::getEnv(), nullptr);
    EXPECT_STREQ(ZORBootstrapService::getEnv()[0], "FIRST=1");
}

TEST_F(CommandModesTest, AStartupConfigurationThatCannotBeReadEndsTheCommand) {
    logEverything("start");
    folder.write("configuration/startup.xml", "<startupConfiguration>\n<100%d></startupConfiguration>");
    testing::internal::CaptureStderr();
    EXPECT_EQ(run({"-java_home=/j", "-start"}), 0);
    const std::string error = testing::internal::GetCapturedStderr();
    EXPECT_EQ(error.rfind("Error occured processing configuration. Error message:\n", 0), 0U) << error;
    EXPECT_NE(error.find(folder.path("configuration/startup.xml")), std::string::npos) << error;
    EXPECT_NE(error.find("line 2, column "), std::string::npos) << error;
    EXPECT_TRUE(loggedAsFatal(error + "\n"));
    EXPECT_FALSE(logged("Starting the daemon."));
}

TEST_F(CommandModesTest, AStandardOutputLogIsAddedAtItsLevel) {
    logEverything("isrunning");
    for (const auto& [level, writesDebug] : {std::pair{"-stdoutLog=DEBUG", true},
                                             {"-stdoutLog=LOUD", true},
                                             {"-stdoutLog=info", false},
                                             {"-stdoutLog=", false}}) {
        ZORLoggerFactory::getInstance()->reset();  // as a new process has it
        testing::internal::CaptureStdout();
        run({"-isrunning", "-java_home=/j", level});
        std::fflush(stdout);
        const std::string out = testing::internal::GetCapturedStdout();
        EXPECT_NE(out.find("INFO  t["), std::string::npos) << level;
        EXPECT_EQ(out.find("DEBUG t[") != std::string::npos, writesDebug) << level;
    }
}

TEST_F(CommandModesTest, AStandardOutputLogWithoutAValueHasNoEffect) {
    logEverything("isrunning");
    testing::internal::CaptureStdout();
    run({"-isrunning", "-java_home=/j", "-stdoutLog"});
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(CommandModesTest, APlatformThatIsSetIsKept) {
    EXPECT_STREQ(ZORBootstrapService::getPlatform(), "linuxi38632");
    setProperty("platform", "mine");
    EXPECT_STREQ(ZORBootstrapService::getPlatform(), "mine");
}

}  // namespace
