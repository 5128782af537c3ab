// What the schema of the bootstrap document accepts, and the mistakes that it finds.

#include <gtest/gtest.h>

#include <cstddef>
#include <regex>
#include <string>
#include <vector>

#include "DocumentChanges.h"
#include "FileContent.h"

namespace {

constexpr const char* kManager = R"(<processManager pollIntervalsec="30" checkForShutdownIntervalms="500"/>)";
constexpr const char* kStop =
    R"(<stop type="socketSend"><socketSend URI="tls://localhost:${shutdownPort}" commandString="SHUTDOWN"/></stop>)";
constexpr const char* kPing =
    R"(<ping><socketSend URI="${dispatcherURI}" commandString="PING" sockIOTimeoutSec="5" responseSize="64" )"
    R"(responseOK="READY" responseFatal="BROKEN" responseRetry="LATER" dependency="container" wait_time="1"/></ping>)";
constexpr const char* kStart =
    R"(<start><spawn sync="1" wait_time="2"><path quoteAsParam="true">${bin_path}/program</path>)"
    R"(<param condName="${ip_protocol}" condValue="IPv6">-6</param><param/></spawn></start>)";
constexpr const char* kDaemon =
    R"(<daemonSpawn><path>${bin_path}/velbootstrapservice</path><param>runAsDaemon</param></daemonSpawn>)";

std::string process(const std::string& name) {
    return "<process name=\"" + name + "\">" + kStart + kStop + kPing + "</process>";
}

std::string root(const std::string& elements) {
    return R"(<bootstrap startupDelaySec="1" pingRetries="5" pingRetryIntervalSec="2">)" + elements +
           "</bootstrap>";
}

std::string document() {
    return root(kManager + process("a") + process("b") + kDaemon);
}

void refuse(const std::vector<RefusedChange>& mistakes) {
    expectRefused("bootstrap", document(), mistakes);
}

void accept(const std::vector<Change>& changes) {
    expectAccepted("bootstrap", document(), changes);
}

// ---- What the schema says of itself, so that what is new in it is tried as it comes ----

std::string schemaText() {
    return contentOf(VBS_SOURCE_FOLDER "/schemas/bootstrap.xsd");
}

std::string typeNamed(const std::string& name) {
    const std::string text = schemaText();
    const std::size_t begin = text.find("<xs:complexType name=\"" + name + "\">");
    return begin == std::string::npos ? ""
                                      : text.substr(begin, text.find("</xs:complexType>", begin) - begin);
}

// The first groups of all matches.
std::vector<std::string> allIn(const std::string& text, const std::string& pattern) {
    const std::regex expression(pattern);
    std::vector<std::string> found;
    for (std::sregex_iterator it(text.begin(), text.end(), expression); it != std::sregex_iterator(); ++it)
        found.push_back((*it)[1]);
    return found;
}

TEST(BootstrapSchemaTest, EachNumberOfTheRootIsANumber) {
    const std::vector<std::string> numbers = allIn(
        typeNamed("bootstrap"), R"re(<xs:attribute name="(\w+)" type="(?:seconds|milliseconds|count)")re");
    EXPECT_GT(numbers.size(), 2U);
    for (const std::string& name : numbers) {
        const std::string good = "<bootstrap " + name + "=\"1\">";
        expectRefused("bootstrap", good + process("a") + kDaemon + "</bootstrap>",
                      {{good, "<bootstrap " + name + "=\"soon\">", "attribute '" + name + "'"},
                       {good, "<bootstrap " + name + "=\"-1\">", "attribute '" + name + "'"},
                       {good, "<bootstrap " + name + "=\"\">", "attribute '" + name + "'"}});
    }
}

TEST(BootstrapSchemaTest, EachWayToStopHasAnElementOfItsOwn) {
    const std::string stop = typeNamed("stop");
    const std::vector<std::string> ways = allIn(stop, R"re(<xs:enumeration value="(\w+)")re");
    EXPECT_GT(ways.size(), 2U);
    EXPECT_EQ(allIn(stop, R"re(<xs:element name="(\w+)")re"), ways);
    for (const std::string& way : ways) {
        const auto stopWith = [&way](const std::string& element) {
            return "<stop type=\"" + way + "\">" + element + "</stop>";
        };
        refuse({{kStop, stopWith(""), "Element 'stop': Missing child element(s)"},
                {kStop, stopWith("<unknown/>"), "Element 'unknown'"},
                {kStop, stopWith("<" + way + " unknown=\"1\"/>"), "attribute 'unknown'"},
                {kStop, stopWith("<" + way + " type=\"unknown\"/>"), "attribute 'type'"}});
        const std::vector<std::string> type =
            allIn(stop, R"re(<xs:element name=")re" + way + R"re(" type="(\w+)")re");
        ASSERT_EQ(type.size(), 1U) << way;
        for (const std::string& name :
             allIn(typeNamed(type[0]), R"re(<xs:attribute name="(\w+)"[^>]* use="required")re"))
            refuse({{kStop, stopWith("<" + way + "/>"), "The attribute '" + name + "' is required"}});
    }
}

// ---- Accepted ----

// M is the manager, D the daemon's start; a small letter is a process of that name.
TEST(BootstrapSchemaTest, EveryOrderBelowTheRootIsAccepted) {
    for (const std::string order :
         {"aD", "aMD", "aDM", "abMceD", "abMDce", "abMceDfg", "abDceM", "abDMce", "abDceMfg", "MaD", "MDa",
          "MabDce", "MDab", "Da", "DaM", "DMa", "DabMce", "DMab"}) {
        std::string elements;
        for (const char element : order) {
            if (element == 'M') elements += kManager;
            if (element == 'D') elements += kDaemon;
            if (element >= 'a') elements += process(std::string(1, element));
        }
        expectAccepted("bootstrap", root(elements), {});
    }
}

// S is the start, T the stop, P the ping.
TEST(BootstrapSchemaTest, EveryOrderInAProcessIsAccepted) {
    for (const std::string order : {"ST", "TS", "STP", "SPT", "TSP", "TPS", "PST", "PTS"}) {
        std::string elements = "<process name=\"a\">";
        for (const char element : order) {
            if (element == 'S') elements += kStart;
            if (element == 'T') elements += kStop;
            if (element == 'P') elements += kPing;
        }
        expectAccepted("bootstrap", root(elements + "</process>" + kDaemon), {});
    }
}

TEST(BootstrapSchemaTest, TheThreeWaysToStopAreAccepted) {
    accept({{kStop, R"(<stop type="signal"><signal signal="15"/></stop>)"},
            {kStop, R"(<stop type="signal"><signal wait_time="3" signal="${stopSignal}"/></stop>)"},
            {kStop, R"(<stop type="spawn"><spawn sync="1"><path>/bin/stop</path></spawn></stop>)"}});
}

TEST(BootstrapSchemaTest, WhatMayBeLeftOutMayBeLeftOut) {
    accept({{kPing, ""},
            {R"( startupDelaySec="1")", ""},
            {R"( pingRetries="5")", ""},
            {R"( pingRetryIntervalSec="2")", ""},
            {kManager, ""},
            {kManager, "<processManager/>"},
            {R"( sync="1" wait_time="2")", ""},
            {R"( quoteAsParam="true")", ""},
            {R"( condName="${ip_protocol}" condValue="IPv6")", ""},
            {R"( sockIOTimeoutSec="5")", ""},
            {R"( responseSize="64" responseOK="READY" responseFatal="BROKEN" responseRetry="LATER")", ""},
            {R"( dependency="container")", ""},
            {R"( wait_time="1")", ""}});
}

TEST(BootstrapSchemaTest, NumbersMayBeWrittenAsTheServiceReadsThem) {
    accept({{R"(sync="1")", R"(sync=" +005")"},
            {R"(sync="1")", R"(sync="0")"},
            {R"(sync="1")", R"(sync="2147483")"},
            {R"(responseSize="64")", R"(responseSize="2147483647")"},
            {R"(sockIOTimeoutSec="5")", R"(sockIOTimeoutSec="-1")"},
            {R"(pollIntervalsec="30")", R"(pollIntervalsec="1")"},
            {R"(checkForShutdownIntervalms="500")", R"(checkForShutdownIntervalms="1")"}});
}

TEST(BootstrapSchemaTest, AddressesMayHoldReferencesAnywhere) {
    const std::string uri = "tls://localhost:${shutdownPort}";
    accept({{uri, "https://localhost/dispatch"},
            {uri, "http://127.0.0.1"},
            {uri, "tcp://[::1]:9301"},
            {uri, "https://[fe80::1]/x"},
            {uri, "tls://${host}:9301/${path}"},
            {uri, "${scheme}://localhost:9301"},
            {uri, "https://localhost:9${port}1/a/b?c=d"}});
}

TEST(BootstrapSchemaTest, ArgumentsAreAnyText) {
    accept({{"<param/>", "<param> -Dname=\"a b\"\n</param>"},
            {"<param/>", "<param>a<!-- not this -->b</param>"},
            {"<param/>", "<param>$$name=${value}</param>"},
            {"<path", "<param>first</param><path"},
            {"${bin_path}/program", "program"},
            {"${bin_path}/program", "p"},
            {"${bin_path}/program", "/opt/my programs/one"},
            {"\"PING\"", "\"GET /ready HTTP/1.0&#13;&#10;&#13;&#10;\""},
            {"\"READY\"", "\"$READY$\""},
            {"${ip_protocol}", "${a}-${b}"}});
}

// ---- Refused ----

TEST(BootstrapSchemaTest, MisspeltNamesAreFound) {
    refuse({{"startupDelaySec", "startupDelay", "attribute 'startupDelay'"},
            {"pingRetries", "pingretries", "attribute 'pingretries'"},
            {"pollIntervalsec", "pollIntervalSec", "attribute 'pollIntervalSec'"},
            {"checkForShutdownIntervalms", "checkForShutdownIntervalMs",
             "attribute 'checkForShutdownIntervalMs'"},
            {"processManager", "procManager", "Element 'procManager'"},
            {"name=\"a\"", "Name=\"a\"", "attribute 'Name'"},
            {"<start>", "<Start/><start>", "Element 'Start'"},
            {"<param/>", "<parameter/>", "Element 'parameter'"},
            {"sync=", "Sync=", "attribute 'Sync'"},
            {"wait_time=", "waitTime=", "attribute 'waitTime'"},
            {"quoteAsParam", "quoteAsParameter", "attribute 'quoteAsParameter'"},
            {"condName", "conDName", "attribute 'conDName'"},
            {"condValue", "conValue", "attribute 'conValue'"},
            {"responseOK", "responseOk", "attribute 'responseOk'"},
            {"sockIOTimeoutSec", "timeout", "attribute 'timeout'"},
            {"commandString=\"SHUTDOWN\"", "commandString=\"SHUTDOWN\" dependency=\"container\"",
             "attribute 'dependency'"},
            {"<bootstrap ", "<bootstrap pollInterval=\"1\" ", "attribute 'pollInterval'"}});
}

TEST(BootstrapSchemaTest, WhatIsMissingIsFound) {
    refuse(
        {{kDaemon, "", "Element 'bootstrap': Missing child element(s)"},
         {kStart, "", "Element 'process': Missing child element(s)"},
         {kStop, "", "Element 'process': Missing child element(s)"},
         {R"(name="a")", "", "Element 'process': The attribute 'name'"},
         {kStart, "<start/>", "Element 'start': Missing child element(s). Expected is ( spawn )"},
         {kPing, "<ping/>", "Element 'ping': Missing child element(s). Expected is ( socketSend )"},
         {kStop, R"(<stop type="signal"/>)", "Element 'stop': Missing child element(s)"},
         {R"(stop type="socketSend")", "stop", "Element 'stop': The attribute 'type'"},
         {R"(<path quoteAsParam="true">${bin_path}/program</path>)", "",
          "Expected is one of ( param, path )"},
         {R"(URI="tls://localhost:${shutdownPort}")", "", "The attribute 'URI' is required"},
         {R"(commandString="SHUTDOWN")", "", "The attribute 'commandString' is required"},
         {kStop, R"(<stop type="signal"><signal/></stop>)", "The attribute 'signal' is required"},
         {"<path>${bin_path}/velbootstrapservice</path>", "<path/>", "Element 'path': [facet 'pattern']"}});
    expectRefused(
        "bootstrap", root(process("a") + kDaemon),
        {{process("a"), "", "Element 'bootstrap': Missing child element(s). Expected is one of ( process,"},
         {process("a"), kManager, "Element 'bootstrap': Missing child element(s). Expected is ( process )"}});
}

TEST(BootstrapSchemaTest, WhatIsThereTwiceIsFound) {
    const auto twice = [](const std::string& text, const std::string& named) {
        return RefusedChange{text, text + text, named};
    };
    refuse({twice(kManager, "Element 'processManager': This element is not expected"),
            twice(kDaemon, "Element 'daemonSpawn': This element is not expected"),
            twice(kStart, "Element 'start': This element is not expected"),
            twice(kStop, "Element 'stop': This element is not expected"),
            twice(kPing, "Element 'ping': This element is not expected"),
            twice("<path>${bin_path}/velbootstrapservice</path>",
                  "Element 'path': This element is not expected"),
            {R"(name="b")", R"(name="a")", "Element 'process': Duplicate key-sequence ['a']"}});
}

TEST(BootstrapSchemaTest, WhatStandsInTheWrongPlaceIsFound) {
    refuse({{process("a"), "<group>" + process("a") + "</group>", "Element 'group'"},
            {kManager, "<process name=\"c\">" + std::string(kManager) + kStart + kStop + "</process>",
             "Element 'processManager'"},
            {"<ping>", "<ping>now", "Element 'ping': Character content"},
            {kDaemon, "text" + std::string(kDaemon), "Element 'bootstrap': Character content"}});
}

TEST(BootstrapSchemaTest, AStopThatDoesNotFitItsTypeIsFound) {
    refuse(
        {{R"(stop type="socketSend")", R"(stop type="Signal")", "Element 'stop', attribute 'type'"},
         {R"(stop type="socketSend")", R"(stop type="signal")", "Element 'stop': No match found"},
         {R"(stop type="socketSend")", R"(stop type="spawn")", "Element 'stop': No match found"},
         {kStop, R"(<stop type="spawn"><signal signal="15"/></stop>)", "Element 'stop': No match found"},
         {kStop, R"(<stop type="socketSend"><spawn><path>x</path></spawn></stop>)",
          "Element 'stop': No match found"},
         {"</stop>", R"(<signal signal="15"/></stop>)", "Element 'signal': This element is not expected"}});
}

TEST(BootstrapSchemaTest, NumbersThatTheServiceMisreadsAreFound) {
    const auto number = [](const std::string& attribute, const std::string& good, const std::string& bad) {
        const auto quoted = [&](const std::string& value) { return attribute + "=\"" + value + "\""; };
        return RefusedChange{quoted(good), quoted(bad), "attribute '" + attribute + "'"};
    };
    refuse({number("startupDelaySec", "1", "soon"),
            number("startupDelaySec", "1", "-1"),
            number("pingRetries", "5", "many"),
            number("pingRetryIntervalSec", "2", "2s"),
            number("pollIntervalsec", "30", "0"),
            number("pollIntervalsec", "30", "-1"),
            number("pollIntervalsec", "30", "30s"),
            number("pollIntervalsec", "30", ""),
            number("pollIntervalsec", "30", "2147484"),
            number("pollIntervalsec", "30", "${dispatcherPingTimeout}"),
            number("checkForShutdownIntervalms", "500", "0"),
            number("checkForShutdownIntervalms", "500", "0.5"),
            number("checkForShutdownIntervalms", "500", "2147483648"),
            number("sync", "1", "1 s"),
            number("sync", "1", "-1"),
            number("wait_time", "2", "0x10"),
            number("wait_time", "2", "2147484"),
            number("sockIOTimeoutSec", "5", "0"),
            number("sockIOTimeoutSec", "5", "-2"),
            number("sockIOTimeoutSec", "5", "2147484"),
            number("sockIOTimeoutSec", "5", "${dispatcherPingTimeout}"),
            number("responseSize", "64", "64k"),
            number("responseSize", "64", "-1"),
            number("responseSize", "64", "2147483648")});
}

TEST(BootstrapSchemaTest, SignalsAreNumbers) {
    std::vector<RefusedChange> mistakes;
    for (const char* const signal : {"SIGTERM", "TERM", "0", "-15", "65", "", "15 or 9", "${a}${b}"}) {
        mistakes.push_back({kStop,
                            std::string("<stop type=\"signal\"><signal signal=\"") + signal + "\"/></stop>",
                            "Element 'signal', attribute 'signal'"});
    }
    refuse(mistakes);
}

TEST(BootstrapSchemaTest, AddressesThatCannotBeReachedAreFound) {
    std::vector<RefusedChange> mistakes;
    for (const char* const uri :
         {"", "localhost:9301", "tls://localhost", "tcp://localhost/x", "ftp://localhost:1",
          "TLS://localhost:9301", "tls://localhost:port", "tls://localhost:123456", "tls:localhost:9301",
          "tls:// localhost:9301", "https://", "https:///x", "https://localhost/a:b", "https://::1/x"}) {
        mistakes.push_back({"tls://localhost:${shutdownPort}", uri, "Element 'socketSend', attribute 'URI'"});
    }
    refuse(mistakes);
}

TEST(BootstrapSchemaTest, ReferencesWhereNothingIsReplacedAreFound) {
    refuse({{R"(name="a")", R"(name="${serviceName}")", "Element 'process', attribute 'name'"},
            {R"(responseOK="READY")", R"(responseOK="${ready}")", "attribute 'responseOK'"},
            {R"(responseFatal="BROKEN")", R"(responseFatal="a${b}")", "attribute 'responseFatal'"},
            {R"(responseRetry="LATER")", R"(responseRetry="$${b}")", "attribute 'responseRetry'"},
            {R"(dependency="container")", R"(dependency="${c}")", "attribute 'dependency'"},
            {R"(condValue="IPv6")", R"(condValue="${d}")", "attribute 'condValue'"},
            {R"(condName="${ip_protocol}")", R"(condName="ip_protocol")", "attribute 'condName'"}});
}

TEST(BootstrapSchemaTest, TextThatCannotWorkIsFound) {
    refuse({{"${bin_path}/program", " ${bin_path}/program", "Element 'path'"},
            {"${bin_path}/program", "\n${bin_path}/program\n", "Element 'path'"},
            {R"(quoteAsParam="true")", R"(quoteAsParam="yes")", "attribute 'quoteAsParam'"},
            {R"(quoteAsParam="true")", R"(quoteAsParam="1")", "attribute 'quoteAsParam'"},
            {R"(commandString="PING")", R"(commandString="")", "attribute 'commandString'"},
            {R"(responseOK="READY")", R"(responseOK="")", "attribute 'responseOK'"},
            {R"(name="a")", R"(name="")", "attribute 'name'"}});
}

TEST(BootstrapSchemaTest, OnlyTheWholeDocumentIsOne) {
    expectRefused("bootstrap", root(process("a") + kDaemon),
                  {{root(process("a") + kDaemon), process("a"), "Element 'process': No matching global"},
                   {root(process("a") + kDaemon), "<b/>", "Element 'b': No matching global"}});
}

}  // namespace
