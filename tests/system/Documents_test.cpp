// The three documents when they are missing, unreadable, cut off or wrong.

#include <sys/stat.h>

#include "ServiceUnderTest.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kBootstrap = "bin/bootstrap_linuxi38632.xml";
constexpr const char* kLogging = "bin/zorlogconfig.xml";
constexpr const char* kStartup = "configuration/startup.xml";

class DocumentsTest : public SystemTest {
  protected:
    void makeUnreadable(const std::string& file) {
        chmod(service.path(file).c_str(), 0);
        service.asOrdinaryUser();
    }

    // The FATAL and ERROR lines of a run that asks whether the daemon runs.
    std::string complaints(int expectedExitCode) {
        const RunResult result = service.run({"-isrunning", "-stdoutLog=ERROR"});
        EXPECT_EQ(result.exitCode, expectedExitCode) << testing::PrintToString(result);
        m_standardError = result.err;
        return ServiceUnderTest::normalised(result.out);
    }

    std::string cannotParse(const std::string& error) {
        return "FATAL ZORBootstrapService Error parsing bootstrap.xml file = \"" + service.path(kBootstrap) +
               "\", error string = \"" + error + "\"\n" + kInitFailed;
    }

    std::string cannotProcess() {
        return "FATAL ZORBootstrapService Error processing bootstrap.xml file = \"" +
               service.path(kBootstrap) + "\"\n" + kInitFailed;
    }

    // What a startup configuration that cannot be used leads to, in the log and on standard error.
    void expectStartupError(const std::string& words) {
        const std::string text =
            "Error occured processing configuration. Error message:\ncannot read startup "
            "configuration \"" +
            service.path(kStartup) + "\": " + words;
        EXPECT_EQ(complaints(0), "FATAL ZORBootstrapService " + text + "\n");
        EXPECT_EQ(m_standardError, text);
    }

    // The FATAL lines of a run whose logging document cannot be used.
    std::string loggingComplaints() {
        EXPECT_EQ(service.run({"-isrunning"}).exitCode, 1);
        return ServiceUnderTest::normalised(service.read("logs/zordefault.log"));
    }

    std::string processComplaints(const std::string& process) {
        BootstrapXml document;
        document.extra = process;
        document.schema = Schema::Refuses;
        service.bootstrap(document);
        return complaints(1);
    }

    static constexpr const char* kInitFailed =
        "ERROR ZORBootstrapService isRunningUnix() - OnInit() call failed.\n";
    std::string m_standardError;
};

// ---- The bootstrap document ----

TEST_F(DocumentsTest, AMissingBootstrapDocumentFailsEveryMode) {
    service.remove(kBootstrap);
    const std::string cannotOpen =
        "FATAL ZORBootstrapService cannot open bootstrap config file \"" + service.path(kBootstrap) + "\".\n";
    const auto failureOf = [&](const char* mode, int exitCode) {
        const RunResult result = service.run({mode, "-stdoutLog=ERROR"});
        EXPECT_EQ(result.exitCode, exitCode) << mode;
        return ServiceUnderTest::normalised(result.out);
    };
    EXPECT_EQ(failureOf("-isrunning", 1), cannotOpen + kInitFailed);
    EXPECT_EQ(failureOf("-start", 1),
              cannotOpen + "ERROR ZORBootstrapService startDaemon() - OnInit() call failed.\n");
    EXPECT_EQ(failureOf("-stop", 1),
              cannotOpen + "FATAL ZORBootstrapService stopRunningUnix() - OnInit() call failed.\n");
    EXPECT_EQ(failureOf("-d", 0), cannotOpen);
}

TEST_F(DocumentsTest, AnUnreadableBootstrapDocumentIsLikeAMissingOne) {
    makeUnreadable(kBootstrap);
    EXPECT_EQ(complaints(1), "FATAL ZORBootstrapService cannot open bootstrap config file \"" +
                                 service.path(kBootstrap) + "\".\n" + kInitFailed);
}

TEST_F(DocumentsTest, ABootstrapDocumentThatIsNotWellFormedFails) {
    for (const auto& [content, error] :
         {std::pair{"", "line 1, column 1: invalid document structure"},
          {"<bootstrap><process>",
           "line 1, column 21: input ended before all started tags were ended; last tag "
           "started is 'process'"},
          {"<bootstrap>\n  <a></b>\n</bootstrap>", "line 2, column 8: expected end of tag 'a'"},
          {"not xml", "line 1, column 1: invalid document structure"}}) {
        service.write(kBootstrap, content);
        EXPECT_EQ(complaints(1), cannotParse(error)) << content;
    }
}

TEST_F(DocumentsTest, AFolderInTheBootstrapDocumentsPlaceFails) {
    service.remove(kBootstrap);
    fs::create_directory(service.path(kBootstrap));
    EXPECT_EQ(complaints(1), "FATAL ZORBootstrapService cannot open bootstrap config file \"" +
                                 service.path(kBootstrap) + "\".\n" + kInitFailed);
}

TEST_F(DocumentsTest, AHostileBootstrapDocumentFailsInsteadOfHanging) {
    std::string entities = "<!ENTITY a0 \"aaaaaaaaaa\">";
    for (int i = 1; i < 10; ++i) {
        entities.append("<!ENTITY a").append(std::to_string(i)).append(" \"");
        for (int times = 0; times < 6; ++times)
            entities.append("&a").append(std::to_string(i - 1)).append(";");
        entities.append("\">");
    }
    service.write(kBootstrap, "<!DOCTYPE b [" + entities + "]><b>&a9;</b>");
    EXPECT_NE(complaints(1).find("FATAL ZORBootstrapService Error parsing bootstrap.xml file"),
              std::string::npos);
    service.write(kBootstrap, "<!DOCTYPE b [<!ENTITY x SYSTEM \"/etc/passwd\">]><b>&x;</b>");
    const std::string external = complaints(1);
    EXPECT_NE(external.find("external entities are not loaded"), std::string::npos) << external;
}

TEST_F(DocumentsTest, ABootstrapDocumentWithoutProcessesFails) {
    service.write(kBootstrap, "<b><daemonSpawn><path>/bin/true</path></daemonSpawn></b>");
    EXPECT_EQ(complaints(1), "ERROR ZORBootstrapService no process elements.\n" + cannotProcess());
}

TEST_F(DocumentsTest, ABootstrapDocumentWithoutADaemonSpawnFails) {
    BootstrapXml document;
    document.daemonSpawn = "";
    document.schema = Schema::Refuses;
    service.bootstrap(document);
    EXPECT_EQ(complaints(1),
              "FATAL ZORBootstrapService required element \"daemonSpawn\" is missing.\n" + cannotProcess());
}

TEST_F(DocumentsTest, ADaemonSpawnWithoutAPathFailsInAllModes) {
    BootstrapXml document;
    document.daemonSpawn = "<daemonSpawn><param>runAsDaemon</param></daemonSpawn>";
    document.schema = Schema::Refuses;
    service.bootstrap(document);
    EXPECT_EQ(complaints(1),
              "FATAL ZORSpawnAction required attribute \"path\" is missing\n"
              "FATAL ZORBootstrapService ZORSpawnAction required attribute \"path\" is missing\n" +
                  cannotProcess());
    EXPECT_EQ(service.run({"-d"}).exitCode, 0);
}

TEST_F(DocumentsTest, APollIntervalOfZeroFails) {
    BootstrapXml document;
    document.schema = Schema::Refuses;
    for (const char* const interval : {"0", "often"}) {
        document.manager = std::string("<processManager pollIntervalsec=\"") + interval + "\"/>";
        service.bootstrap(document);
        EXPECT_EQ(complaints(1),
                  "FATAL PingChildProcess poll interval must not be 0.\n"
                  "FATAL ZORBootstrapService poll interval must not be 0.\n" +
                      cannotProcess());
    }
}

TEST_F(DocumentsTest, ABadProcessIsDroppedAndTheOthersStay) {
    BootstrapXml document;
    document.extra = "<process name=\"bad\"/>";
    document.schema = Schema::Refuses;
    service.bootstrap(document);
    const pid_t daemon = runningInForeground();
    EXPECT_TRUE(service.waitForStarts(1));
    EXPECT_TRUE(
        service.inOrder({"FATAL ZORChildProcess required element \"start\" is missing.",
                         "ERROR ZORBootstrapService exception while processing configuration: \"required "
                         "element \"start\" is missing.\""}));
    EXPECT_TRUE(service.neverLogged("starting \"bad\""));
    stopDaemon(daemon);
}

TEST_F(DocumentsTest, EachMistakeOfAProcessIsTold) {
    const std::string start = "<start><spawn><path>/bin/true</path></spawn></start>";
    const std::string stop = "<stop type=\"signal\"><signal signal=\"15\"/></stop>";
    const auto dropped = [](const std::string& lines, const std::string& message) {
        return lines + "ERROR ZORBootstrapService exception while processing configuration: \"" + message +
               "\"\n";
    };
    EXPECT_EQ(processComplaints("<process><start/></process>"),
              dropped("FATAL ZORChildProcess required element \"spawn\" is missing.\n",
                      "required element \"spawn\" is missing."));
    EXPECT_EQ(processComplaints("<process><start><spawn/></start></process>"),
              dropped("FATAL ZORSpawnAction required attribute \"path\" is missing\n",
                      "ZORSpawnAction required attribute \"path\" is missing"));
    EXPECT_EQ(processComplaints("<process>" + start + "<stop type=\"Signal\"/></process>"),
              dropped("FATAL ZORChildProcess unexpected type for stop command \"Signal\"\n",
                      "unexpected type for stop command"));
    EXPECT_EQ(processComplaints("<process>" + start + "</process>"),
              dropped("FATAL ZORChildProcess unexpected type for stop command \"\"\n",
                      "unexpected type for stop command"));
    EXPECT_EQ(processComplaints("<process>" + start + "<stop type=\"signal\"><signal/></stop></process>"),
              dropped("FATAL ZORSignalAction required attribute \"signal\" is missing.\n",
                      "required element \"signal\" is missing."));
    EXPECT_EQ(processComplaints("<process>" + start + stop +
                                "<ping><socketSend commandString=\"x\"/></ping></process>"),
              dropped("ERROR ZORSockSendAction missing URI attribute\n", "ping action must have URI"));
    EXPECT_EQ(
        processComplaints("<process>" + start + stop + "<ping><socketSend URI=\"x\"/></ping></process>"),
        dropped("ERROR ZORSockSendAction missing commandString attribute\n",
                "ping action must have commandString attribute."));
}

TEST_F(DocumentsTest, MarkersThatCannotFitAreSwitchedOff) {
    EXPECT_EQ(processComplaints(
                  "<process><start><spawn><path>/bin/true</path></spawn></start>"
                  "<stop type=\"signal\"><signal signal=\"15\"/></stop>"
                  "<ping><socketSend URI=\"x\" commandString=\"x\" responseSize=\"4\" responseOK=\"READY\" "
                  "responseFatal=\"FATAL\" responseRetry=\"RETRY\"/></ping></process>"),
              "ERROR ZORSockSendAction configured OK response is longer that the response length.\n"
              "ERROR ZORSockSendAction configured FATAL response is longer that the response length.\n"
              "ERROR ZORSockSendAction configured RETRY response is longer that the response length.\n");
}

TEST_F(DocumentsTest, ADocumentWhoseEveryProcessIsBadStillLoads) {
    BootstrapXml document;
    document.children.clear();
    document.extra = "<process name=\"bad\"/>";
    document.schema = Schema::Refuses;
    service.bootstrap(document);
    service.run({"-isrunning"});
    EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService", "Process is not running.", "isrunning"));
}

TEST_F(DocumentsTest, WithoutAProcessManagerDefaultsHold) {
    BootstrapXml document;
    document.manager = "";
    service.bootstrap(document);
    service.run({"-isrunning"});
    EXPECT_TRUE(service.logged("WARN", "PingChildProcess",
                               "no procManager element in config, using default poll interval, etc.",
                               "isrunning"));
}

// ---- The startup configuration ----

TEST_F(DocumentsTest, WithoutAStartupConfigurationItsPropertiesAreMissing) {
    service.remove(kStartup);
    EXPECT_EQ(complaints(0),
              "ERROR ZORBootstrapService failed to find ZOR element in bootstrap config (via CFGAPI)\n"
              "FATAL ZORBootstrapService A value for JAVA_HOME must be provided either as an environment "
              "variable or with the -java_home= command line argument.\n");
    EXPECT_EQ(service.run({"-isrunning", "-java_home=/opt/java"}).exitCode, 1);
    EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService", "Process is not running.", "isrunning"));
    EXPECT_TRUE(service.neverLogged("Added property CRLF", "isrunning"));
}

TEST_F(DocumentsTest, AStartupConfigurationWithoutTheServicesElementIsLikeNone) {
    service.startup("<temp>../temp</temp>", Schema::Refuses);
    EXPECT_EQ(complaints(0).substr(0, 86),
              "ERROR ZORBootstrapService failed to find ZOR element in bootstrap config (via CFGAPI)\n");
}

TEST_F(DocumentsTest, AnUnreadableStartupConfigurationEndsTheCommand) {
    makeUnreadable(kStartup);
    expectStartupError("Permission denied");
}

TEST_F(DocumentsTest, AFolderInTheStartupConfigurationsPlaceEndsTheCommand) {
    service.remove(kStartup);
    fs::create_directory(service.path(kStartup));
    expectStartupError("Is a directory");
}

TEST_F(DocumentsTest, AStartupConfigurationThatIsNotWellFormedEndsTheCommand) {
    service.write(kStartup, "");
    expectStartupError("line 1, column 1: invalid document structure");
    service.write(kStartup, "<s>\n<ZOR>");
    expectStartupError(
        "line 2, column 6: input ended before all started tags were ended; last tag started is 'ZOR'");
    service.write(kStartup, "<s>%s%n</t>");
    expectStartupError("line 1, column 10: expected end of tag 's'");
    EXPECT_TRUE(service.childPids().empty());
}

TEST_F(DocumentsTest, AWrongStartupConfigurationStartsNothing) {
    service.write(kStartup, "<s>");
    EXPECT_EQ(service.run({"-start"}).exitCode, 0);
    EXPECT_EQ(service.run({"-d"}).exitCode, 0);
    EXPECT_EQ(service.run({"-v"}).out, "");
    EXPECT_TRUE(service.childPids().empty());
}

TEST_F(DocumentsTest, AParameterOfAnotherTypeIsNotFound) {
    service.startup(
        "<ZOR><vrx:parameter name=\"shutdownPort\"><vrx:value xsi:type=\"xsd:unsignedInt\">9399</vrx:value>"
        "</vrx:parameter></ZOR><temp>../temp</temp>");
    service.run({"-isrunning"});
    EXPECT_TRUE(service.logged(
        "WARN", "ZORBootstrapService",
        "Failed to find value of type \"xsd:unsignedShort\" for parameter named \"shutdownPort\".",
        "isrunning"));
}

// ---- The logging document ----

TEST_F(DocumentsTest, AMissingLoggingDocumentIsToldInTheDefaultLog) {
    service.remove(kLogging);
    EXPECT_EQ(loggingComplaints(),
              "FATAL ZORLoggerFactory cannot open logging config file \"" + service.path(kLogging) + "\".\n");
}

TEST_F(DocumentsTest, ANamedLoggingDocumentIsToldAsItWasNamed) {
    EXPECT_EQ(service.run({"-isrunning", "-logconfig=nowhere.xml"}).exitCode, 1);
    EXPECT_EQ(ServiceUnderTest::normalised(service.read("logs/zordefault.log")),
              "FATAL ZORLoggerFactory cannot open logging config file \"nowhere.xml\".\n");
}

TEST_F(DocumentsTest, AnUnreadableLoggingDocumentIsLikeAMissingOne) {
    makeUnreadable(kLogging);
    EXPECT_EQ(loggingComplaints(),
              "FATAL ZORLoggerFactory cannot open logging config file \"" + service.path(kLogging) + "\".\n");
}

TEST_F(DocumentsTest, ALoggingDocumentThatIsNotWellFormedIsTold) {
    for (const auto& [content, error] :
         {std::pair{"", "line 1, column 1: invalid document structure"},
          {"<c><isrunning>",
           "line 1, column 15: input ended before all started tags were ended; last tag started is "
           "'isrunning'"},
          {"<c></d>", "line 1, column 6: expected end of tag 'c'"}}) {
        service.write(kLogging, content);
        EXPECT_EQ(loggingComplaints(), "FATAL ZORLoggerFactory Error parsing logging config file = " +
                                           service.path(kLogging) + ", error string = " + error + "\n");
    }
}

TEST_F(DocumentsTest, ALoggingDocumentWithoutTheSectionIsTold) {
    service.write(kLogging, "<c><start/></c>");
    EXPECT_EQ(loggingComplaints(),
              "FATAL ZORLoggerFactory logging config element \"isrunning\" is missing.\n");
}

TEST_F(DocumentsTest, ASectionMayStandAnywhere) {
    service.write(
        kLogging,
        "<c><x><isrunning><y><logging level=\"INFO\"><logFiles><file name=\"../logs/x.log\"/></logFiles>"
        "</logging></y></isrunning></x></c>");
    EXPECT_EQ(loggingComplaints(), "");
    EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService", "Process is not running.", "x"));
}

}  // namespace
