// What "check" finds that a schema cannot say, in this process.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "CTLCheck.h"
#include "CTLCondition.h"
#include "CTLExecutable.h"
#include "CTLInstance.h"
#include "CTLListener.h"
#include "CTLReferences.h"
#include "FileContent.h"
#include "SEKDescriptor.h"
#include "TestAccess.h"
#include "TestKit.h"

namespace fs = std::filesystem;

namespace {

// Of one child that is pinged without encryption, so that no certificate is needed.
constexpr const char* kBootstrap = R"(<bootstrap>
<processManager pollIntervalsec="10" checkForShutdownIntervalms="500"/>
<process name="alpha">
<start><spawn sync="1">
<path>/bin/true</path>
<param>one</param>
</spawn></start>
<stop type="socketSend"><socketSend URI="tcp://localhost:9" commandString="STOP"/></stop>
<ping>
<socketSend URI="tcp://localhost:9" commandString="PING" responseSize="64" responseOK="READY" responseRetry="LATER"/>
</ping>
</process>
<daemonSpawn>
<path>${bin_path}/velbootstrapservice</path>
<param>runAsDaemon</param>
</daemonSpawn>
</bootstrap>
)";
constexpr const char* kStartup = R"(<startupConfiguration xmlns:vrx="urn:velmora:startup"
 xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" xmlns:xsd="http://www.w3.org/2001/XMLSchema">
<ZOR>
<vrx:parameter name="dispatcherPingTimeout"><vrx:value xsi:type="xsd:unsignedShort">60</vrx:value></vrx:parameter>
</ZOR>
<temp>../temp</temp>
<internalDispatcher>http://localhost:9/x</internalDispatcher>
<components><component name="web" version="1"/></components>
</startupConfiguration>
)";
constexpr const char* kLogging = R"(<logConfiguration>
<run><logging level="INFO"><logFiles>
<file name="${install_path}/logs/run.log" append="true"/>
</logFiles></logging></run>
</logConfiguration>
)";

constexpr const char* kDocument = "bin/bootstrap_linuxi38632.xml";
constexpr const char* kStartupDocument = "configuration/startup.xml";

class CheckFindingsTest : public ServiceTest {
  protected:
    CheckFindingsTest() {
        setenv("JAVA_HOME", "/opt/java", 1);
        write(kDocument, kBootstrap);
        write(kStartupDocument, kStartup);
        write("bin/zorlogconfig.xml", kLogging);
        write("bin/velbootstrapservice", "#!/bin/sh\n");
        write("bin/libSEK_Crypto_Interface.so", "");
        fs::permissions(folder.path("bin/velbootstrapservice"), fs::perms::owner_all);
    }
    ~CheckFindingsTest() override { unsetenv("JAVA_HOME"); }

    void write(const std::string& file, const std::string& text) const { folder.write(file, text); }
    void change(const std::string& file, const std::string& from, const std::string& to) const {
        std::string text = folder.read(file);
        ASSERT_NE(text.find(from), std::string::npos) << from;
        write(file, text.replace(text.find(from), from.size(), to));
    }

    // "FILE:LINE text [CHILD]" of all but the schema's; the tree's folder is left out. What the security library's own
    // absence would say is left to the tests of the program.
    std::vector<std::string> findings() {
        m_check.reset();
        TestAccess::renewProperties();
        TestAccess::renewConfiguration();
        m_check = std::make_unique<CTLCheck>(VBS_SOURCE_FOLDER "/schemas");
        m_check->checkInstance(CTLInstance(folder.path()));
        std::vector<std::string> lines;
        for (const CTLFinding& finding : m_check->findings().sorted()) {
            if (finding.rule == "schema" || finding.file == "libSEK_Crypto_Interface.so") continue;
            std::string line = finding.file.substr(std::min(finding.file.size(), folder.path().size() + 1));
            if (finding.place.line != 0) line += ":" + std::to_string(finding.place.line);
            line += " " + finding.text + (finding.child.empty() ? "" : " [" + finding.child + "]");
            lines.push_back(std::regex_replace(line, std::regex(folder.path()), ""));
        }
        return lines;
    }
    // With one text of the bootstrap document replaced.
    std::vector<std::string> with(const std::string& from, const std::string& to) {
        write(kDocument, kBootstrap);
        change(kDocument, from, to);
        return findings();
    }
    std::vector<std::string> withStartup(const std::string& from, const std::string& to) {
        write(kStartupDocument, kStartup);
        change(kStartupDocument, from, to);
        return findings();
    }

    std::unique_ptr<CTLCheck> m_check;
};

using Lines = std::vector<std::string>;

TEST_F(CheckFindingsTest, OfARightInstanceNothingIsFound) {
    EXPECT_EQ(findings(), Lines{});
    EXPECT_EQ(m_check->children(), 1U);
}

// ---- References ----

TEST_F(CheckFindingsTest, AnUnknownReferenceIsFoundWhereverOneIsReplaced) {
    const std::string complaint = "nobody defines ${dispacherPort}: did you mean \"dispatcherPort\"?";
    EXPECT_EQ(with("<param>one", "<param>${dispacherPort}"),
              Lines{"bin/bootstrap_linuxi38632.xml:6 " + complaint + " [alpha]"});
    EXPECT_EQ(with("/bin/true", "/bin/${dispacherPort}"),
              Lines{"bin/bootstrap_linuxi38632.xml:5 " + complaint + " [alpha]"});
    EXPECT_EQ(with("commandString=\"PING\"", "commandString=\"${dispacherPort}\""),
              Lines{"bin/bootstrap_linuxi38632.xml:10 " + complaint + " [alpha]"});
    EXPECT_EQ(with("URI=\"tcp://localhost:9\" commandString=\"STOP\"",
                   "URI=\"tcp://localhost:${dispacherPort}\" commandString=\"STOP\""),
              Lines{"bin/bootstrap_linuxi38632.xml:8 " + complaint + " [alpha]"});
}

TEST_F(CheckFindingsTest, AReferenceOfTheServicesOwnWithoutAValueIsFound) {
    EXPECT_EQ(with("<param>one", "<param>${shutdownPort}"),
              Lines{"bin/bootstrap_linuxi38632.xml:6 nobody defines ${shutdownPort} here: the startup "
                    "configuration, or the "
                    "environment, has no value for it [alpha]"});
}

TEST_F(CheckFindingsTest, WhatTheDaemonsCommandLineDefinesIsKnown) {
    change(kDocument, "<param>one", "<param>${mine}");
    EXPECT_EQ(findings().size(), 1U);
    change(kDocument, "runAsDaemon</param>", "runAsDaemon</param><param>$$mine=1</param>");
    EXPECT_EQ(findings(), Lines{});
}

TEST_F(CheckFindingsTest, AReferenceInTheLoggingDocumentKnowsTheFoldersOnly) {
    change("bin/zorlogconfig.xml", "${install_path}/logs", "${temp}");
    EXPECT_EQ(findings(),
              Lines{"bin/zorlogconfig.xml:3 ${temp} is not known yet when this document is read"});
}

TEST_F(CheckFindingsTest, AValueThatRefersToItselfIsFoundAndNotFollowed) {
    EXPECT_EQ(withStartup("http://localhost:9/x", "http://localhost:${dispatcherPort}/x"),
              Lines{"configuration/startup.xml ${contentManagerURI} refers to itself: no command of the "
                    "service would ever "
                    "end"});
    write(kStartupDocument, kStartup);
    write("configuration/zorEnvironmentVars.ini", "JAVA_HOME=${java_home}\n");
    EXPECT_EQ(
        findings(),
        Lines{"configuration/zorEnvironmentVars.ini ${java_home} refers to itself: no command of the service "
              "would ever end"});
}

TEST_F(CheckFindingsTest, TextsThatGrowBeyondMeasureAreNotFollowed) {
    std::string many;
    for (int i = 0; i < 10000; ++i)
        many += "${temp}";
    change(kDocument, "<param>one", "<param>" + many);
    EXPECT_EQ(withStartup("../temp", "../" + std::string(20000, 't')),
              Lines{"configuration/startup.xml ${temp} makes the texts longer than the service can be "
                    "expected to take"});
}

// Whoever adds a property to the service adds it to the list of names here.
TEST(ReferencesTest, EveryNameThatTheServiceDefinesIsKnown) {
    static const std::regex defined(R"re((?:setProperty|->add)\("(\w+)")re");
    static const std::regex listed(R"re(Parameter\{"(\w+)")re");
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(VBS_SOURCE_FOLDER "/source")) {
        const std::string text = contentOf(entry.path());
        for (const std::regex& form : {defined, listed}) {
            for (std::sregex_iterator it(text.begin(), text.end(), form); it != std::sregex_iterator(); ++it)
                names.insert((*it)[1]);
        }
    }
    EXPECT_GT(names.size(), 15U);
    // The service's own affairs, no document's.
    for (const char* const internal : {"configfile", "daemonWaitIndefinitely"})
        EXPECT_EQ(names.erase(internal), 1U) << internal;
    for (const std::string& name : names)
        EXPECT_EQ(CTLReferences::ofTheService().count(name), 1U) << name;
}

// ---- Numbers and texts ----

TEST_F(CheckFindingsTest, ANumberThatIsNoneIsToldAsTheServiceReadsIt) {
    EXPECT_EQ(with("sync=\"1\"", "sync=\"soon\""),
              Lines{"bin/bootstrap_linuxi38632.xml:4 sync=\"soon\" is 0 to the service [alpha]"});
    EXPECT_EQ(with("responseSize=\"64\"", "responseSize=\"64k\""),
              Lines{"bin/bootstrap_linuxi38632.xml:10 responseSize=\"64k\" is 64 to the service [alpha]"});
    EXPECT_EQ(with("pollIntervalsec=\"10\"", "pollIntervalsec=\"-10\""),
              Lines{"bin/bootstrap_linuxi38632.xml:2 with a negative poll interval nobody watches the "
                    "children, and only "
                    "SIGKILL ends the daemon"});
    EXPECT_EQ(with("pollIntervalsec=\"10\"", "pollIntervalsec=\"0\""),
              Lines{"bin/bootstrap_linuxi38632.xml:2 pollIntervalsec: poll interval must not be 0."});
}

TEST_F(CheckFindingsTest, APartOfTheStartupConfigurationThatCountsForNothingIsFound) {
    EXPECT_EQ(withStartup(">60<", ">0<"),
              Lines{"configuration/startup.xml:4 dispatcherPingTimeout is \"0\", which counts as 60"});
    EXPECT_EQ(withStartup(">60<", "><!-- seconds -->60<"),
              Lines{"configuration/startup.xml:4 the service finds no value of dispatcherPingTimeout: it "
                    "takes text that the "
                    "element begins with"});
    EXPECT_EQ(withStartup("xsd:unsignedShort", "xsd:unsignedInt"),
              Lines{"configuration/startup.xml:4 Failed to find value of type \"xsd:unsignedShort\" for "
                    "parameter named "
                    "\"dispatcherPingTimeout\"."});
}

TEST_F(CheckFindingsTest, ATextThatIsReadOnlyInPartIsFound) {
    const std::string only = "of this text the service takes \"two\" only: ";
    EXPECT_EQ(with("<param>one", "<param>one<!-- and -->two").size(), 1U);
    EXPECT_NE(with("<param>one", "<param>one<!-- and -->two")[0].find(only), std::string::npos);
    EXPECT_EQ(with("<param>one", "<param><![CDATA[one]]>").size(), 1U);
}

// ---- Conditions ----

TEST(ConditionTest, ItHoldsWhereTheTextsAroundReferencesFit) {
    EXPECT_TRUE(CTLCondition::canHold("${warmUp}", "slow"));
    EXPECT_TRUE(CTLCondition::canHold("vendor ${java_vendor}", "vendor Sun"));
    EXPECT_TRUE(CTLCondition::canHold("a${x}b${y}c", "a-b-c"));
    EXPECT_TRUE(CTLCondition::canHold("${x}", ""));
    EXPECT_FALSE(CTLCondition::canHold("vendor ${java_vendor}", "Sun"));
    EXPECT_FALSE(CTLCondition::canHold("${java_vendor}", "sun"));
    EXPECT_FALSE(CTLCondition::canHold("${ip_protocol}", "IPv4"));
    EXPECT_FALSE(CTLCondition::canHold("a${x}", "b"));
    EXPECT_FALSE(CTLCondition::canHold("constant", "other"));
    EXPECT_TRUE(CTLCondition::canHold("${open", "${open"));
}

TEST_F(CheckFindingsTest, AConditionThatNeverHoldsIsFound) {
    EXPECT_EQ(with("<param>one", "<param condName=\"${java_vendor}\" condValue=\"sun\">one"),
              Lines{"bin/bootstrap_linuxi38632.xml:6 \"${java_vendor}\" can never be \"sun\", so the "
                    "condition never holds "
                    "[alpha]"});
    EXPECT_EQ(with("<param>one", "<param condName=\"${ip_protocoll}\" condValue=\"IPv6\">one"),
              Lines{"bin/bootstrap_linuxi38632.xml:6 nobody defines ${ip_protocoll}: did you mean "
                    "\"ip_protocol\"? [alpha]"});
    EXPECT_EQ(with("<param>one", "<param condName=\"${ip_protocol}\">one").size(), 1U);
    EXPECT_EQ(with("<param>one", "<param condName=\"${ip_protocol}\" condValue=\"IPv6\">one"), Lines{});
    EXPECT_EQ(with("<param>one", "<param condName=\"${warmUp}\" condValue=\"slow\">one"), Lines{});
}

// ---- Children ----

TEST_F(CheckFindingsTest, AChildThatIsLeftOutIsNamedWithTheReason) {
    EXPECT_EQ(
        with("type=\"socketSend\"", "type=\"kill\""),
        (Lines{"bin/bootstrap_linuxi38632.xml:3 the service leaves this child out: unexpected type for stop "
               "command "
               "\"kill\" [alpha]",
               "bin/bootstrap_linuxi38632.xml:8 type: unexpected type for stop command \"kill\" [alpha]"}));
    EXPECT_EQ(m_check->children(), 0U);
}

TEST_F(CheckFindingsTest, AnotherChildIsToldFromTheOneThatIsLeftOut) {
    const std::string second =
        "<process name=\"beta\"><start><spawn><path>/none</path></spawn></start><stop "
        "type=\"signal\"><signal "
        "signal=\"15\"/></stop></process>\n<daemonSpawn>";
    change(kDocument, "<daemonSpawn>", second);
    change(kDocument, "type=\"socketSend\"", "type=\"kill\"");
    EXPECT_EQ(findings().back(), "bin/bootstrap_linuxi38632.xml:13 /none: No such file or directory [beta]");
    EXPECT_EQ(m_check->children(), 1U);
}

TEST_F(CheckFindingsTest, ASignalForAChildWithAPingIsFound) {
    EXPECT_EQ(
        with(
            "<stop type=\"socketSend\"><socketSend URI=\"tcp://localhost:9\" commandString=\"STOP\"/></stop>",
            "<stop type=\"signal\"><signal signal=\"15\"/></stop>"),
        Lines{"bin/bootstrap_linuxi38632.xml:8 a child with a ping must not be stopped by a signal: when it "
              "is to be "
              "restarted, the signal reaches the whole process group, the service included [alpha]"});
}

TEST_F(CheckFindingsTest, ASignalWhoseNumberIsNoughtIsFound) {
    change(kDocument, "<ping>", "<!--");
    change(kDocument, "</ping>", "-->");
    change(kDocument,
           "<stop type=\"socketSend\"><socketSend URI=\"tcp://localhost:9\" commandString=\"STOP\"/></stop>",
           "<stop type=\"signal\"><signal signal=\"${temp}\"/></stop>");
    EXPECT_EQ(
        findings(),
        Lines{
            "bin/bootstrap_linuxi38632.xml:8 signal \"../temp\" is 0 to the service, which stops nobody: it "
            "wants the number [alpha]"});
}

TEST_F(CheckFindingsTest, APingThatIsNeverUsedIsFound) {
    EXPECT_EQ(with("responseRetry", "dependency=\"wep\" responseRetry"),
              Lines{"bin/bootstrap_linuxi38632.xml:10 the service never pings this child: the startup "
                    "configuration has no "
                    "component \"wep\" with a version: did you mean \"web\"? [alpha]"});
    EXPECT_EQ(with("responseRetry", "dependency=\"web\" responseRetry"), Lines{});
}

TEST_F(CheckFindingsTest, AnAddressThatIsNoneIsFound) {
    EXPECT_EQ(with("URI=\"tcp://localhost:9\" commandString=\"PING\"",
                   "URI=\"tcp:/localhost\" commandString=\"PING\""),
              Lines{"bin/bootstrap_linuxi38632.xml:10 bad address \"tcp:/localhost\": no scheme [alpha]"});
}

TEST_F(CheckFindingsTest, MarkersThatAreNeverFoundAreFound) {
    const auto one = [&](const std::string& from, const std::string& to) {
        const Lines lines = with(from, to);
        return lines.size() == 1 ? lines[0].substr(0, lines[0].find(" [alpha]"))
                                 : testing::PrintToString(lines);
    };
    const std::string place = "bin/bootstrap_linuxi38632.xml:10 ";
    EXPECT_EQ(one("\"LATER\"", "\"NOT READY\""), place +
                                                     "responseRetry holds \"READY\", which is responseOK and "
                                                     "is looked for first: it counts as a good answer");
    EXPECT_EQ(one(" responseOK=\"READY\"", ""),
              place + "responseRetry is never looked for, because there is no responseOK");
    EXPECT_EQ(one("\"LATER\"", "\"sp\xC3\xA4ter\""),
              place + "responseRetry is in no answer: only plain ASCII is compared");
    EXPECT_EQ(with("responseSize=\"64\"", "").size(), 2U);
    EXPECT_EQ(one("responseOK=\"READY\"", "responseOK=\"" + std::string(65, 'x') + "\""),
              place + "responseOK: configured OK response is longer that the response length.");
}

TEST_F(CheckFindingsTest, ADaemonThatIsNotToldToBeOneIsFound) {
    EXPECT_EQ(with("<param>runAsDaemon</param>", "<param>-runAsDaemon</param>"),
              Lines{"bin/bootstrap_linuxi38632.xml:13 without <param>runAsDaemon</param> \"-start\" starts "
                    "no daemon: the program "
                    "prints its usage and ends"});
    EXPECT_EQ(with("/velbootstrapservice</path>", "/velbotstrapservice</path>"),
              Lines{"bin/bootstrap_linuxi38632.xml:14 /bin/velbotstrapservice: No such file or directory"});
}

// ---- Programs ----

TEST_F(CheckFindingsTest, WhatTheSystemWouldNotRunIsToldWithTheReason) {
    const auto complaint = [&](const std::string& text, fs::perms mode) {
        write("temp/program", text);
        fs::permissions(folder.path("temp/program"), mode);
        const std::string words = CTLExecutable::complaint(folder.path("temp/program"));
        return words.substr(std::min(words.size(), folder.path("temp/program: ").size()));
    };
    EXPECT_EQ(complaint("#! /bin/sh -e\n", fs::perms::owner_all), "");
    EXPECT_EQ(complaint("#!/bin/none\n", fs::perms::owner_all),
              "its interpreter /bin/none: No such file or directory");
    EXPECT_EQ(complaint("#!", fs::perms::owner_all), "its interpreter : No such file or directory");
    EXPECT_EQ(complaint("exit\n", fs::perms::owner_all),
              "it is neither a program nor a script that begins with #!");
    EXPECT_EQ(complaint("#!/bin/sh\n", fs::perms::owner_read), "it may not be executed");
    EXPECT_EQ(CTLExecutable::complaint("/bin/true"), "");
    EXPECT_EQ(CTLExecutable::complaint("/tmp"), "/tmp: it is no file");
    fs::remove(folder.path("temp/program"));
    ASSERT_EQ(mkfifo(folder.path("temp/program").c_str(), 0700), 0);
    EXPECT_EQ(CTLExecutable::complaint(folder.path("temp/program")),
              folder.path("temp/program: it is no file"));
}

// ---- Files around ----

TEST_F(CheckFindingsTest, AnEnvironmentFileIsLookedAtLineByLine) {
    write("configuration/zorEnvironmentVars.ini", "# a comment\nA=1\nB\nC=\"x\"\nD E=2\nF=3 \n");
    EXPECT_EQ(
        findings(),
        (Lines{"configuration/zorEnvironmentVars.ini:3 has no \"=\": it takes the variable away",
               "configuration/zorEnvironmentVars.ini:4 the quotes belong to the value of C",
               "configuration/zorEnvironmentVars.ini:5 sets a variable with the name \"D E\"",
               "configuration/zorEnvironmentVars.ini:6 the blank at the end belongs to the value of F"}));
}

TEST_F(CheckFindingsTest, WithoutAJavaHomeNothingWorks) {
    unsetenv("JAVA_HOME");
    EXPECT_EQ(findings(), Lines{"configuration/zorEnvironmentVars.ini no command works without a Java home: "
                                "set JAVA_HOME here or "
                                "in the environment"});
}

TEST_F(CheckFindingsTest, AFileWithALimitOfNoughtIsFound) {
    write("bin/zor.failedPingLimit", "none\n");
    EXPECT_EQ(
        findings(),
        Lines{
            "bin/zor.failedPingLimit the limit of failed pings in it is 0: the first one restarts a child"});
    write("bin/zor.failedPingLimit", "3\n");
    EXPECT_EQ(findings(), Lines{});
}

TEST_F(CheckFindingsTest, AFolderThatIsNotThereIsFound) {
    fs::remove(folder.path("logs"));
    EXPECT_EQ(findings().front(),
              "logs is not there: no log and no PID file, so that no command finds the daemon");
}

// The service makes it with its parents; a check makes nothing.
TEST_F(CheckFindingsTest, AMissingFolderForTemporaryFilesIsNoMistakeAndStaysMissing) {
    fs::remove(folder.path("temp"));
    EXPECT_EQ(findings(), Lines{});
    EXPECT_FALSE(folder.exists("temp"));
}

TEST_F(CheckFindingsTest, TheLibraryIsLookedForBesideTheProgramItself) {
    fs::remove(folder.path("bin/libSEK_Crypto_Interface.so"));
    EXPECT_EQ(findings(),
              Lines{"bin/libSEK_Crypto_Interface.so the security library is not beside the program"});
    fs::create_directory(folder.path("temp/real"));
    fs::rename(folder.path("bin/velbootstrapservice"), folder.path("temp/real/velbootstrapservice"));
    fs::create_symlink("../temp/real/velbootstrapservice", folder.path("bin/velbootstrapservice"));
    write("temp/real/libSEK_Crypto_Interface.so", "");
    EXPECT_EQ(findings(), Lines{});
}

// ---- Ports ----

class ListeningPort {
  public:
    ListeningPort(int family, bool isListening) : m_socket(socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_storage address{};
        address.ss_family = static_cast<sa_family_t>(family);
        socklen_t length = family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
        bind(m_socket.get(), reinterpret_cast<sockaddr*>(&address), length);
        if (isListening) listen(m_socket.get(), 1);
        length = sizeof(address);
        getsockname(m_socket.get(), reinterpret_cast<sockaddr*>(&address), &length);
        // The port stands in the same place for both families.
        m_port = ntohs(reinterpret_cast<sockaddr_in*>(&address)->sin_port);
    }
    std::uint16_t port() const { return m_port; }

  private:
    SEKDescriptor m_socket;
    std::uint16_t m_port = 0;
};

TEST_F(CheckFindingsTest, APortThatAnotherProcessHasIsFound) {
    const ListeningPort port(AF_INET, true);
    const std::string number = std::to_string(port.port());
    change(kDocument, "URI=\"tcp://localhost:9\" commandString=\"PING\"",
           "URI=\"tcp://localhost:" + number + "\" commandString=\"PING\"");
    EXPECT_EQ(findings(), Lines{"bin/bootstrap_linuxi38632.xml:10 the service does not run, but process " +
                                std::to_string(getpid()) + " (tools_tests) listens on port " + number +
                                ", where this child would [alpha]"});
    // While it runs, it is the child that has the port.
    write("logs/velbootstrap_service.pid", std::to_string(getpid()) + "\n");
    EXPECT_EQ(findings(), Lines{});
}

TEST(ListenerTest, OnlyWhoeverListensIsFoundOnBothFamilies) {
    const ListeningPort first(AF_INET, true);
    const ListeningPort second(AF_INET6, true);
    const ListeningPort bound(AF_INET, false);
    EXPECT_TRUE(CTLListener::on(first.port()).has_value());
    EXPECT_TRUE(CTLListener::on(second.port()).has_value());
    EXPECT_FALSE(CTLListener::on(bound.port()).has_value());
}

// ---- Hostile files ----

TEST_F(CheckFindingsTest, APipeInPlaceOfADocumentHoldsNothingUp) {
    for (const char* const file : {kDocument, "bin/zorlogconfig.xml", kStartupDocument}) {
        const std::string before = folder.read(file);
        fs::remove(folder.path(file));
        ASSERT_EQ(mkfifo(folder.path(file).c_str(), 0600), 0);
        const Lines lines = findings();
        EXPECT_EQ(std::count(lines.begin(), lines.end(),
                             std::string(file) + " cannot be read: is not a regular file"),
                  1)
            << testing::PrintToString(lines);
        fs::remove(folder.path(file));
        write(file, before);
    }
}

TEST_F(CheckFindingsTest, AnEndlessOrHugeDocumentIsRefused) {
    fs::remove(folder.path(kDocument));
    fs::create_symlink("/dev/zero", folder.path(kDocument));
    EXPECT_EQ(findings().size(), 1U);
    fs::remove(folder.path(kDocument));
    write(kDocument, "");
    fs::resize_file(folder.path(kDocument), 1ULL << 40U);  // takes no room
    EXPECT_EQ(findings(),
              Lines{"bin/bootstrap_linuxi38632.xml cannot be read: is larger than 67108864 bytes"});
}

TEST_F(CheckFindingsTest, EntitiesThatMultiplyAreRefused) {
    std::string bomb = "<!DOCTYPE bootstrap [<!ENTITY a \"" + std::string(1000, 'a') + "\">";
    for (char name = 'b'; name < 'k'; ++name)
        bomb += std::string("<!ENTITY ") + name + " \"&" + char(name - 1) + ";&" + char(name - 1) + ";\">";
    write(kDocument, bomb + "]>" + kBootstrap);
    change(kDocument, "<param>one", "<param>&j;");
    EXPECT_EQ(findings().size(), 1U);
}

TEST_F(CheckFindingsTest, ADocumentOfManyMistakesIsCheckedToItsEnd) {
    std::string many;
    for (int i = 0; i < 20000; ++i)
        many += "<param condNmae=\"\">${x" + std::to_string(i) + "}</param>\n";
    change(kDocument, "<param>one</param>", many);
    findings();
    EXPECT_GT(m_check->findings().errors() + m_check->findings().warnings(), 1000U);
    EXPECT_EQ(m_check->findings().sorted().size(), CTLFindings::kMost);
}

}  // namespace
