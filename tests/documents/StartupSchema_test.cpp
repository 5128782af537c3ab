// What the schema of the startup configuration accepts, and the mistakes that it finds.

#include <gtest/gtest.h>

#include "DocumentChanges.h"

namespace {

constexpr const char* kInstances =
    R"(<vrx:instances name="zor"><vrx:instance name="sample"/></vrx:instances>)";
constexpr const char* kDispatcher =
    "<internalDispatcher>https://localhost:9300/dispatch</internalDispatcher>";
constexpr const char* kNetwork = "<networkConfiguration>IPv4</networkConfiguration>";
constexpr const char* kComponents =
    R"(<components><component name="container" version="10.1"/><component name="other" version="2"/></components>)";
constexpr const char* kTemp = "<temp>../temp</temp>";

std::string parameter(const std::string& name, const std::string& type, const std::string& value) {
    return "<vrx:parameter name=\"" + name + "\"><vrx:value xsi:type=\"xsd:" + type + "\">" + value +
           "</vrx:value></vrx:parameter>";
}

std::string pingTimeout() {
    return parameter("dispatcherPingTimeout", "unsignedShort", "60");
}

std::string maxMemory() {
    return parameter("dispatcherMaxMemory", "unsignedInt", "1024");
}

std::string zor() {
    return "<ZOR>" + std::string(kInstances) + pingTimeout() +
           parameter("dispatcherStopWaitTime", "unsignedShort", "30") + maxMemory() +
           parameter("shutdownPort", "unsignedShort", "9301") + "</ZOR>";
}

std::string root(const std::string& elements) {
    return R"(<startupConfiguration xmlns:vrx="urn:velmora:startup" )"
           R"(xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" )"
           R"(xmlns:xsd="http://www.w3.org/2001/XMLSchema">)" +
           elements + "</startupConfiguration>";
}

std::string document() {
    return root(zor() + kTemp + kDispatcher + kNetwork + kComponents);
}

TEST(StartupSchemaTest, ChildrenComeInAnyOrderAndMostMayBeLeftOut) {
    expectAccepted("startup", root(kComponents + std::string(kNetwork) + kDispatcher + kTemp + zor()),
                   {{kComponents, ""},
                    {kNetwork, ""},
                    {kDispatcher, ""},
                    {zor(), "<ZOR/>"},
                    {zor(), "<ZOR>" + maxMemory() + kInstances + pingTimeout() + "</ZOR>"}});
}

TEST(StartupSchemaTest, ValuesMayBeWhatTheServiceReads) {
    expectAccepted("startup", document(),
                   {{">60<", ">0<"},
                    {">60<", ">65535<"},
                    {">1024<", ">4294967295<"},
                    {"IPv4", "IPv6"},
                    {"../temp", "/var/tmp/my temp"},
                    {"../temp", "t"},
                    {"</vrx:value>", "</vrx:value><vrx:value xsi:type=\"xsd:unsignedInt\">70</vrx:value>"},
                    {"https://localhost:9300/dispatch", "tcp://127.0.0.1:9300"},
                    {"https://localhost:9300/dispatch", "https://[::1]:9300/dispatch"},
                    {"https://localhost:9300/dispatch", "https://localhost:${port}/dispatch"},
                    {kComponents, "<components/>"},
                    {"name=\"sample\"/>", "name=\"a b\"/><vrx:instance name=\"second\"/>"}});
}

TEST(StartupSchemaTest, MisspeltNamesAreFound) {
    expectRefused(
        "startup", document(),
        {{zor(), "<zor/>", "Element 'zor'"},
         {kTemp, "<Temp>../temp</Temp>", "Element 'Temp'"},
         {kDispatcher, "<dispatcher>https://localhost:9300</dispatcher>", "Element 'dispatcher'"},
         {kNetwork, "<network>IPv4</network>", "Element 'network'"},
         {"dispatcherPingTimeout", "dispatcherPingTimeOut", "attribute 'name'"},
         {"<vrx:parameter name=\"shutdownPort\"", "<vrx:parameter key=\"shutdownPort\"", "attribute 'key'"},
         {R"(vrx:instances name="zor")", R"(vrx:instances name="ZOR")", "attribute 'name'"},
         {"vrx:instance name", "vrx:instance id", "attribute 'id'"},
         {kInstances, "<instances name=\"zor\"><instance name=\"a\"/></instances>", "Element 'instances'"},
         {R"(<component name="container")", R"(<Component name="container")", "Element 'Component'"},
         {"version=\"10.1\"", "Version=\"10.1\"", "attribute 'Version'"}});
}

TEST(StartupSchemaTest, WhatIsMissingIsFound) {
    expectRefused(
        "startup", document(),
        {{zor(), "", "Element 'startupConfiguration': Missing child element(s)"},
         {kTemp, "", "Element 'startupConfiguration': Missing child element(s)"},
         {R"(name="sample")", "", "The attribute 'name' is required"},
         {R"( name="zor")", "", "The attribute 'name' is required"},
         {R"(<vrx:instance name="sample"/>)", "", "}instances': Missing child element(s)"},
         {R"(<vrx:value xsi:type="xsd:unsignedShort">60</vrx:value>)", "",
          "}parameter': Missing child element(s)"},
         {R"( name="dispatcherPingTimeout")", "", "}parameter': The attribute 'name' is required"},
         {R"( version="10.1")", "", "Element 'component': The attribute 'version'"},
         {R"(component name="container")", "component", "Element 'component': The attribute 'name'"}});
}

TEST(StartupSchemaTest, WhatIsThereTwiceIsFound) {
    expectRefused(
        "startup", document(),
        {{kTemp, std::string(kTemp) + kTemp, "Element 'temp'"},
         {zor(), zor() + zor(), "Element 'ZOR'"},
         {kDispatcher, std::string(kDispatcher) + kDispatcher, "Element 'internalDispatcher'"},
         {kInstances, std::string(kInstances) + kInstances, "Duplicate key-sequence ['zor']"},
         {pingTimeout(), pingTimeout() + pingTimeout(), "Duplicate key-sequence ['dispatcherPingTimeout']"},
         {"\"other\"", "\"container\"", "Element 'component': Duplicate key-sequence ['container']"}});
}

TEST(StartupSchemaTest, ValuesThatTheServiceMisreadsAreFound) {
    expectRefused(
        "startup", document(),
        {{">60<", ">60s<", "}value'"},
         {">60<", "><", "}value'"},
         {">60<", ">-1<", "}value'"},
         {">60<", ">65536<", "}value'"},
         {">1024<", ">1G<", "}value'"},
         {">9301<", ">${port}<", "}value'"},
         {"xsd:unsignedShort", "xsd:string", "}value', attribute '"},
         {"xsd:unsignedShort", "xsd:int", "}value', attribute '"},
         {"xsd:unsignedShort", "unsignedShort", "}value', attribute '"},
         {"IPv4", "ipv6", "Element 'networkConfiguration'"},
         {"IPv4", " IPv6 ", "Element 'networkConfiguration'"},
         {"../temp", "", "Element 'temp'"},
         {"../temp", "\n../temp\n", "Element 'temp'"},
         {"../temp", "${install_path}/temp", "Element 'temp'"},
         {":9300", "", "Element 'internalDispatcher'"},
         {"https://localhost:9300/dispatch", " https://localhost:9300/dispatch", "'internalDispatcher'"},
         {"https://localhost:9300/dispatch", "${dispatcherURI}", "Element 'internalDispatcher'"},
         {"https://localhost", "ftp://localhost", "Element 'internalDispatcher'"},
         {R"(version="10.1")", R"(version="")", "attribute 'version'"},
         {R"("sample")", R"("")", "attribute 'name'"}});
}

TEST(StartupSchemaTest, OnlyTheWholeDocumentIsOne) {
    expectRefused("startup", document(),
                  {{document(), kTemp, "Element 'temp': No matching global"},
                   {document(), "<s/>", "Element 's': No matching global"}});
}

}  // namespace
