// What the schema of the logging document accepts, and the mistakes that it finds.

#include <gtest/gtest.h>

#include "DocumentChanges.h"

namespace {

constexpr const char* kFiles =
    R"(<logFiles><file name="../logs/run.log" append="true"/><stdout/><stderr/></logFiles>)";

std::string section(const std::string& mode) {
    return "<" + mode + "><logging level=\"INFO\">" + kFiles + "</logging></" + mode + ">";
}

std::string document() {
    return "<logConfiguration>" + section("run") + section("start") + "</logConfiguration>";
}

TEST(ZorlogconfigSchemaTest, SectionsAndDestinationsComeInAnyOrder) {
    const std::string all =
        section("default") + section("isrunning") + section("stop") + section("start") + section("run");
    expectAccepted("zorlogconfig", "<logConfiguration>" + all + "</logConfiguration>", {});
    expectAccepted("zorlogconfig", document(),
                   {{section("start"), ""},
                    {section("run"), ""},
                    {kFiles, "<logFiles><stderr/><stdout/><file name=\"a\"/><file name=\"b\"/></logFiles>"},
                    {R"( level="INFO")", ""},
                    {R"( append="true")", ""},
                    {R"(append="true")", R"(append="false")"},
                    {R"(name="../logs/run.log")", R"(name="${install_path}/logs/my log.txt")"}});
    for (const char* const level : {"FATAL", "ERROR", "WARN", "DEBUG"})
        expectAccepted("zorlogconfig", document(), {{R"("INFO")", std::string("\"") + level + "\""}});
}

TEST(ZorlogconfigSchemaTest, MistakesAreFound) {
    const std::string twoSections = section("run") + section("run");
    expectRefused("zorlogconfig", document(),
                  {{section("run"), section("isRunning"), "Element 'isRunning'"},
                   {section("run"), twoSections, "Element 'run': This element is not expected"},
                   {section("run"), "<daemon>" + section("run") + "</daemon>", "Element 'daemon'"},
                   {section("run"), "<run/>", "Element 'run': Missing child element(s)"},
                   {R"("INFO")", R"("info")", "Element 'logging', attribute 'level'"},
                   {R"("INFO")", R"("WARNING")", "Element 'logging', attribute 'level'"},
                   {"level=", "Level=", "attribute 'Level'"},
                   {kFiles, "", "Element 'logging': Missing child element(s)"},
                   {kFiles, "<logFiles/>", "Element 'logFiles': Missing child element(s)"},
                   {kFiles, "<logfiles><stdout/></logfiles>", "Element 'logfiles'"},
                   {kFiles, std::string(kFiles) + kFiles, "Element 'logFiles': This element is not expected"},
                   {"<stdout/>", "<stdOut/>", "Element 'stdOut'"},
                   {"<stdout/>", "<stdout name=\"a\"/>", "Element 'stdout', attribute 'name'"},
                   {"<stdout/>", "../logs/run.log", "Element 'logFiles': Character content"},
                   {R"(name="../logs/run.log")", "", "Element 'file': The attribute 'name'"},
                   {R"(name="../logs/run.log")", R"(name="")", "Element 'file', attribute 'name'"},
                   {R"(name="../logs/run.log")", R"(name=" run.log")", "Element 'file', attribute 'name'"},
                   {R"(append="true")", R"(append="yes")", "Element 'file', attribute 'append'"},
                   {R"(append="true")", R"(append="TRUE")", "Element 'file', attribute 'append'"},
                   {R"(append="true")", R"(append="1")", "Element 'file', attribute 'append'"},
                   {R"(append="true")", R"(apend="true")", "attribute 'apend'"},
                   {document(), section("run"), "Element 'run': No matching global"}});
}

}  // namespace
