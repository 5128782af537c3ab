// Locating, loading and reading the bootstrap document.
#include <unistd.h>

#include "TestWorld.h"
#include "ZORBadConfigException.h"

namespace {

constexpr const char* kLogger = "ZORBootstrapService";
constexpr const char* kDaemonSpawn = "<daemonSpawn><path>/bin/true</path></daemonSpawn>";

class BootstrapDocumentTest : public WorldTest {
  protected:
    BootstrapDocumentTest() {
        setProperty("install_path", folder.path().c_str());
        setProperty("bin_path", folder.path("bin").c_str());
        setProperty("temp", folder.path("temp").c_str());
        log.clear();
    }
    int parse(const std::string& xml) {
        const XmlText document(xml);
        return service.parseParams(document.root());
    }
    void writeDocument(const std::string& xml) const { folder.write("bin/bootstrap_linuxi38632.xml", xml); }
    std::string documentPath() const { return folder.path("bin/bootstrap_linuxi38632.xml"); }
    bool logged(const std::string& level, const std::string& text) const {
        return log.has(level, kLogger, text);
    }
    std::vector<std::string> childNames() {
        std::vector<std::string> names;
        for (ZORChildProcess* const each : service.getChildren())
            names.emplace_back(each->getName());
        return names;
    }
    static std::string bad() { return "<process name='bad'/>"; }
};

// ---- parseParams ----

TEST_F(BootstrapDocumentTest, RootAttributesAreReadAndLogged) {
    EXPECT_EQ(parse("<any startupDelaySec='3' pingRetries='7' pingRetryIntervalSec='9'>" + ChildXml{}.text() +
                    kDaemonSpawn + "</any>"),
              1);
    EXPECT_EQ(TestAccess::rootNumber(service, "startupDelaySec"), 3000);
    EXPECT_EQ(TestAccess::rootNumber(service, "pingRetries"), 7);
    EXPECT_EQ(TestAccess::rootNumber(service, "pingRetryIntervalSec"), 9);
    EXPECT_TRUE(logged("DEBUG", "configured startup delay is 3000 ms."));
    EXPECT_TRUE(logged("DEBUG", "configured startup ping retries is 7."));
    EXPECT_TRUE(logged("DEBUG", "configured startup ping retry interval is 9 sec."));
}

TEST_F(BootstrapDocumentTest, EveryDocumentBeginsWithTheUsualRetries) {
    parse("<any pingRetries='7' pingRetryIntervalSec='9'>" + ChildXml{}.text() + kDaemonSpawn + "</any>");
    parse("<any>" + ChildXml{}.text() + kDaemonSpawn + "</any>");
    EXPECT_EQ(TestAccess::rootNumber(service, "pingRetries"), 5);
    EXPECT_EQ(TestAccess::rootNumber(service, "pingRetryIntervalSec"), 2);
}

TEST_F(BootstrapDocumentTest, AbsentAndEmptyRootAttributesAreDefaultsWithoutAWord) {
    EXPECT_EQ(parse("<any startupDelaySec=''>" + ChildXml{}.text() + kDaemonSpawn + "</any>"), 1);
    EXPECT_EQ(TestAccess::rootNumber(service, "startupDelaySec"), 0);
    EXPECT_EQ(TestAccess::rootNumber(service, "pingRetries"), 5);
    EXPECT_EQ(TestAccess::rootNumber(service, "pingRetryIntervalSec"), 2);
    for (const LogLine& line : log.lines())
        EXPECT_EQ(line.text.find("configured startup"), std::string::npos);
}

TEST_F(BootstrapDocumentTest, ADelayThatIsNoNumberIsZeroAndLogged) {
    EXPECT_EQ(parse("<any startupDelaySec='abc'>" + ChildXml{}.text() + kDaemonSpawn + "</any>"), 1);
    EXPECT_EQ(TestAccess::rootNumber(service, "startupDelaySec"), 0);
    EXPECT_TRUE(logged("DEBUG", "configured startup delay is 0 ms."));
}

TEST_F(BootstrapDocumentTest, RootAttributesAreNotExpanded) {
    setProperty("delay", "5");
    EXPECT_EQ(parse("<any startupDelaySec='${delay}'>" + ChildXml{}.text() + kDaemonSpawn + "</any>"), 1);
    EXPECT_EQ(TestAccess::rootNumber(service, "startupDelaySec"), 0);
}

TEST_F(BootstrapDocumentTest, WithoutAProcessTheDocumentIsUseless) {
    EXPECT_EQ(parse(std::string("<any>") + kDaemonSpawn + "</any>"), 0);
    EXPECT_TRUE(logged("ERROR", "no process elements."));
}

TEST_F(BootstrapDocumentTest, ProcessesAreFoundAtAnyDepthInDocumentOrder) {
    EXPECT_EQ(parse("<any><group>" + ChildXml{"one"}.text() + "<deep>" + ChildXml{"two"}.text() +
                    "</deep></group>" + ChildXml{"three"}.text() + kDaemonSpawn + "</any>"),
              1);
    EXPECT_EQ(childNames(), (std::vector<std::string>{"one", "two", "three"}));
    EXPECT_EQ(log.count("DEBUG", kLogger, "processing config for process"), 3U);
}

TEST_F(BootstrapDocumentTest, ABadProcessIsSkipped) {
    EXPECT_EQ(parse("<any>" + bad() + ChildXml{"good"}.text() + kDaemonSpawn + "</any>"), 1);
    EXPECT_EQ(childNames(), std::vector<std::string>{"good"});
    EXPECT_EQ(
        log.count("ERROR", kLogger,
                  "exception while processing configuration: \"required element \"start\" is missing.\""),
        1U);
}

TEST_F(BootstrapDocumentTest, ADocumentOfBadProcessesOnlyStillLoads) {
    EXPECT_EQ(parse("<any>" + bad() + bad() + kDaemonSpawn + "</any>"), 1);
    EXPECT_TRUE(childNames().empty());
}

TEST_F(BootstrapDocumentTest, WithoutADaemonSpawnTheDocumentIsUseless) {
    EXPECT_EQ(parse("<any>" + ChildXml{}.text() + "</any>"), 0);
    EXPECT_TRUE(logged("FATAL", "required element \"daemonSpawn\" is missing."));
    EXPECT_EQ(TestAccess::daemonSpawn(service), nullptr);
}

TEST_F(BootstrapDocumentTest, ADaemonSpawnWithoutAPathThrowsOutOfTheParsing) {
    try {
        parse("<any>" + ChildXml{}.text() + "<daemonSpawn/></any>");
        FAIL();
    } catch (const ZORBadConfigException& exception) {
        EXPECT_STREQ(exception.getMessage(), "ZORSpawnAction required attribute \"path\" is missing");
    }
}

TEST_F(BootstrapDocumentTest, ParsingTwiceAppendsToTheList) {
    const std::string xml = "<any>" + ChildXml{}.text() + kDaemonSpawn + "</any>";
    EXPECT_EQ(parse(xml), 1);
    EXPECT_EQ(parse(xml), 1);
    EXPECT_EQ(service.getChildren().size(), 2U);
}

// ---- Loading ----

TEST_F(BootstrapDocumentTest, TheDocumentIsNamedAfterThePlatform) {
    writeDocument(documentText({ChildXml{}}, ""));
    EXPECT_EQ(service.OnInit(), 1);
    EXPECT_TRUE(logged("INFO", "attempt to load config from \"" + documentPath() + "\""));
    EXPECT_EQ(TestAccess::pidFile(service).path(), folder.path("logs/velbootstrap_service.pid"));
    EXPECT_STREQ(property("platform"), "linuxi38632");
}

TEST_F(BootstrapDocumentTest, AnotherPlatformIsAnotherDocument) {
    setProperty("platform", "other");
    folder.write("bin/bootstrap_other.xml", documentText({ChildXml{}}, ""));
    EXPECT_EQ(service.OnInit(), 1);
}

TEST_F(BootstrapDocumentTest, AnExplicitDocumentHasAPidFileOfItsOwn) {
    folder.write("test.xml", documentText({ChildXml{}}, ""));
    setProperty("configfile", "${install_path}/test.xml");
    EXPECT_EQ(service.OnInit(), 1);
    EXPECT_TRUE(logged("INFO", "attempt to load config from \"" + folder.path("test.xml") + "\""));
    EXPECT_EQ(TestAccess::pidFile(service).path(),
              folder.path("logs/zor_cnfgtest_") + std::to_string(getpid()));
}

TEST_F(BootstrapDocumentTest, AMissingDocumentFailsTheInitialisation) {
    EXPECT_EQ(service.OnInit(), 0);
    EXPECT_TRUE(logged("FATAL", "cannot open bootstrap config file \"" + documentPath() + "\"."));
}

TEST_F(BootstrapDocumentTest, AMalformedDocumentFailsWithThePlaceInTheFile) {
    writeDocument("<root>\n  <process>\n</root>");
    EXPECT_EQ(service.OnInit(), 0);
    const std::string start =
        "Error parsing bootstrap.xml file = \"" + documentPath() + "\", error string = \"line 3, column ";
    bool found = false;
    for (const LogLine& line : log.lines()) {
        found = found || (line.level == "FATAL" && line.logger == kLogger && line.text.rfind(start, 0) == 0 &&
                          line.text.back() == '"' && line.text.find('\n') == std::string::npos);
    }
    EXPECT_TRUE(found) << log.raw();
}

TEST_F(BootstrapDocumentTest, AnEmptyDocumentFailsAsUnparsable) {
    writeDocument("");
    EXPECT_EQ(service.OnInit(), 0);
    EXPECT_NE(log.raw().find("Error parsing bootstrap.xml file = "), std::string::npos);
}

TEST_F(BootstrapDocumentTest, AUselessDocumentFailsTheInitialisation) {
    writeDocument(std::string("<root>") + kDaemonSpawn + "</root>");
    EXPECT_EQ(service.OnInit(), 0);
    EXPECT_TRUE(log.inOrder({
        {"ERROR", kLogger, "no process elements.", {}},
        {"FATAL", kLogger, "Error processing bootstrap.xml file = \"" + documentPath() + "\"", {}},
    }));
}

TEST_F(BootstrapDocumentTest, AConfigurationErrorThatLeavesTheParsingFailsTheInitialisation) {
    writeDocument("<root>" + ChildXml{}.text() + "<daemonSpawn/></root>");
    EXPECT_EQ(service.OnInit(), 0);
    EXPECT_TRUE(log.inOrder({
        {"FATAL", kLogger, "ZORSpawnAction required attribute \"path\" is missing", {}},
        {"FATAL", kLogger, "Error processing bootstrap.xml file = \"" + documentPath() + "\"", {}},
    }));
}

TEST_F(BootstrapDocumentTest, APollIntervalOfZeroFailsTheInitialisation) {
    writeDocument(documentText({ChildXml{}}, "<processManager pollIntervalsec='0'/>"));
    EXPECT_EQ(service.OnInit(), 0);
    EXPECT_TRUE(log.inOrder({
        {"FATAL", "PingChildProcess", "poll interval must not be 0.", {}},
        {"FATAL", kLogger, "poll interval must not be 0.", {}},
        {"FATAL", kLogger, "Error processing bootstrap.xml file = \"" + documentPath() + "\"", {}},
    }));
}

TEST_F(BootstrapDocumentTest, TheDaemonWaitMarkerSetsItsProperty) {
    writeDocument(documentText({ChildXml{}}, ""));
    folder.write("temp/zordaemonwait", "");
    EXPECT_EQ(service.OnInit(), 1);
    EXPECT_TRUE(logged("DEBUG", "m_sDaemonWaitFileName is \"" + folder.path("temp/zordaemonwait") + "\""));
    EXPECT_STREQ(property("daemonWaitIndefinitely"), "true");
}

TEST_F(BootstrapDocumentTest, WithoutTheMarkerThePropertyIsNotSet) {
    writeDocument(documentText({ChildXml{}}, ""));
    EXPECT_EQ(service.OnInit(), 1);
    EXPECT_EQ(property("daemonWaitIndefinitely"), nullptr);
}

TEST_F(BootstrapDocumentTest, AFailedLoadingDoesNotLookForTheMarker) {
    folder.write("temp/zordaemonwait", "");
    EXPECT_EQ(service.OnInit(), 0);
    EXPECT_EQ(property("daemonWaitIndefinitely"), nullptr);
}

TEST_F(BootstrapDocumentTest, LoadingInitialisesTheSecurityLibrary) {
    ZORCryptoHelper::TerminateCrypto();
    writeDocument(documentText({ChildXml{}}, ""));
    EXPECT_EQ(service.OnInit(), 1);
    EXPECT_NE(ZORCryptoHelper::GetCrypto(), nullptr);
}

}  // namespace
