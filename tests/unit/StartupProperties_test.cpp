#include <cstdlib>

#include "TVLConfigurationFactory.h"
#include "TestKit.h"
#include "ZORBadConfigException.h"
#include "ZORBootstrapService.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kLogger = "ZORBootstrapService";

class StartupPropertiesTest : public ServiceTest {
  protected:
    StartupPropertiesTest() { unsetenv("JAVA_HOME"); }
    ~StartupPropertiesTest() override { unsetenv("JAVA_HOME"); }

    // Reads a startup configuration as the command line does; `zor` is the content of the service's element.
    void prepare(const std::string& zor, const std::string& others = {}) {
        writeStartup("<ZOR>" + zor + "</ZOR>" + others);
        ASSERT_EQ(service.initZORElement(), 1);
        service.prepareProperties();
    }
    static std::string parameter(const std::string& name, const std::string& type,
                                 const std::string& content) {
        return "<vrx:parameter name='" + name + "'><vrx:value xsi:type='" + type + "'>" + content +
               "</vrx:value></vrx:parameter>";
    }
    static std::string instance(const std::string& name) {
        return "<vrx:instances name='zor'><vrx:instance name='" + name + "'/></vrx:instances>";
    }
    static std::string dispatcher(const std::string& uri) {
        return "<internalDispatcher>" + uri + "</internalDispatcher>";
    }
    std::string portOf(const std::string& uri) {
        prepare("", dispatcher(uri));
        return property("dispatcherPort");
    }
    bool logged(const std::string& level, const std::string& text) const {
        return log.has(level, kLogger, text);
    }

    ZORBootstrapService service;
};

TEST_F(StartupPropertiesTest, TheServicesElementIsFound) {
    writeStartup("<ZOR/>");
    EXPECT_EQ(service.initZORElement(), 1);
    EXPECT_EQ(log.raw(), "");
}

TEST_F(StartupPropertiesTest, AMissingElementIsAnError) {
    writeStartup("<temp>../temp</temp>");
    EXPECT_EQ(service.initZORElement(), 0);
    EXPECT_TRUE(logged("ERROR", "failed to find ZOR element in bootstrap config (via CFGAPI)"));
}

TEST_F(StartupPropertiesTest, AMissingFileIsAMissingElement) {
    EXPECT_EQ(service.initZORElement(), 0);
    EXPECT_TRUE(logged("ERROR", "failed to find ZOR element in bootstrap config (via CFGAPI)"));
}

TEST_F(StartupPropertiesTest, AMalformedFileIsAConfigurationErrorWithTheSameText) {
    folder.write("configuration/startup.xml", "<a>\n  <b></a>");
    const std::string expected = "cannot read startup configuration \"" +
                                 folder.path("configuration/startup.xml") +
                                 "\": line 2, column 8: expected end of tag 'b'";
    try {
        service.initZORElement();
        FAIL() << "nothing was thrown";
    } catch (const ZORBadConfigException& exception) {
        EXPECT_EQ(exception.getMessage(), expected);
    }
    try {
        service.prepareProperties();
        FAIL() << "nothing was thrown";
    } catch (const ZORBadConfigException& exception) {
        EXPECT_EQ(exception.getMessage(), expected);
    }
}

TEST_F(StartupPropertiesTest, CrlfIsALineFeedOnly) {
    prepare("");
    EXPECT_STREQ(property("CRLF"), "\n");
}

TEST_F(StartupPropertiesTest, TheJavaHomeComesFromTheEnvironment) {
    setenv("JAVA_HOME", "/opt/java", 1);
    prepare("");
    EXPECT_STREQ(property("java_home"), "/opt/java");
}

TEST_F(StartupPropertiesTest, AnEmptyJavaHomeIsAValue) {
    setenv("JAVA_HOME", "", 1);
    prepare("");
    EXPECT_STREQ(property("java_home"), "");
}

TEST_F(StartupPropertiesTest, WithoutTheVariableThereIsNoJavaHome) {
    prepare("");
    EXPECT_EQ(property("java_home"), nullptr);
}

TEST_F(StartupPropertiesTest, EveryParameterBecomesAProperty) {
    prepare(parameter("dispatcherStopWaitTime", "xsd:unsignedShort", "120") +
            parameter("dispatcherPingTimeout", "xsd:unsignedShort", "60") +
            parameter("dispatcherMaxMemory", "xsd:unsignedInt", "1024") +
            parameter("shutdownPort", "xsd:unsignedShort", "9399"));
    EXPECT_STREQ(property("dispatcherStopWaitTime"), "120");
    EXPECT_STREQ(property("dispatcherPingTimeout"), "60");
    EXPECT_STREQ(property("dispatcherMaxMemory"), "1024");
    EXPECT_STREQ(property("dispatcherMaxMemoryBy2"), "512");
    EXPECT_STREQ(property("dispatcherMaxMemoryBy3"), "341");
    EXPECT_STREQ(property("dispatcherMaxMemoryBy4"), "256");
    EXPECT_STREQ(property("shutdownPort"), "9399");
}

TEST_F(StartupPropertiesTest, TheFractionsFollowTheMemoryAtOnce) {
    prepare(parameter("shutdownPort", "xsd:unsignedShort", "9399") +
            parameter("dispatcherMaxMemory", "xsd:unsignedInt", "1024"));
    EXPECT_TRUE(log.inOrder(
        {{"DEBUG", "ZORPropertyInserter", "Added property dispatcherMaxMemory with value \"1024\"", {}},
         {"DEBUG", "ZORPropertyInserter", "Added property dispatcherMaxMemoryBy2 with value \"512\"", {}},
         {"DEBUG", "ZORPropertyInserter", "Added property dispatcherMaxMemoryBy3 with value \"341\"", {}},
         {"DEBUG", "ZORPropertyInserter", "Added property dispatcherMaxMemoryBy4 with value \"256\"", {}},
         {"DEBUG", "ZORPropertyInserter", "Added property shutdownPort with value \"9399\"", {}}}));
}

TEST_F(StartupPropertiesTest, AMissingParameterIsAWarning) {
    prepare(parameter("dispatcherMaxMemory", "xsd:unsignedInt", "1024"));
    for (const char* const name : {"dispatcherStopWaitTime", "dispatcherPingTimeout", "shutdownPort"}) {
        EXPECT_EQ(property(name), nullptr);
        EXPECT_TRUE(logged(
            "WARN", std::string("Failed to find parameter \"") + name + "\" in startup config ZOR element."));
    }
    EXPECT_FALSE(
        logged("WARN", "Failed to find parameter \"dispatcherMaxMemory\" in startup config ZOR element."));
}

TEST_F(StartupPropertiesTest, WithoutTheMemoryThereAreNoFractions) {
    prepare("");
    for (const char* const name : {"dispatcherMaxMemory", "dispatcherMaxMemoryBy2", "dispatcherMaxMemoryBy3",
                                   "dispatcherMaxMemoryBy4"})
        EXPECT_EQ(property(name), nullptr) << name;
}

TEST_F(StartupPropertiesTest, AValueOfAnotherTypeIsNotFound) {
    prepare(parameter("shutdownPort", "xsd:unsignedInt", "9399"));
    EXPECT_EQ(property("shutdownPort"), nullptr);
    EXPECT_TRUE(logged(
        "WARN", "Failed to find value of type \"xsd:unsignedShort\" for parameter named \"shutdownPort\"."));
}

TEST_F(StartupPropertiesTest, TheValueOfTheRightTypeIsChosen) {
    prepare(
        "<vrx:parameter name='shutdownPort'><vrx:value xsi:type='xsd:string'>no</vrx:value>"
        "<vrx:value xsi:type='xsd:unsignedShort'>9399</vrx:value></vrx:parameter>");
    EXPECT_STREQ(property("shutdownPort"), "9399");
}

TEST_F(StartupPropertiesTest, ParametersAndValuesAreFoundAtAnyDepth) {
    prepare(
        "<group><vrx:parameter name='shutdownPort'><more>"
        "<vrx:value xsi:type='xsd:unsignedShort'>9399</vrx:value></more></vrx:parameter></group>");
    EXPECT_STREQ(property("shutdownPort"), "9399");
}

TEST_F(StartupPropertiesTest, OnlyTheFirstParameterOfANameCounts) {
    prepare(parameter("shutdownPort", "xsd:string", "1") +
            parameter("shutdownPort", "xsd:unsignedShort", "2"));
    EXPECT_EQ(property("shutdownPort"), nullptr);
}

TEST_F(StartupPropertiesTest, AnEmptyValueIsNoneAndWorthNoMessage) {
    prepare(parameter("shutdownPort", "xsd:unsignedShort", ""));
    EXPECT_EQ(property("shutdownPort"), nullptr);
    EXPECT_EQ(log.raw().find("\"shutdownPort\""), std::string::npos);
}

TEST_F(StartupPropertiesTest, AValueThatBeginsWithACommentIsNoneAndWorthNoMessage) {
    prepare(parameter("shutdownPort", "xsd:unsignedShort", "<!-- the port -->9399"));
    EXPECT_EQ(property("shutdownPort"), nullptr);
    EXPECT_EQ(log.raw().find("\"shutdownPort\""), std::string::npos);
}

TEST_F(StartupPropertiesTest, AValueIsItsFirstTextAsItStands) {
    prepare(parameter("shutdownPort", "xsd:unsignedShort", " 93<!-- c -->99"));
    EXPECT_STREQ(property("shutdownPort"), " 93");
}

TEST_F(StartupPropertiesTest, DataOfAParameterIsLeftAloneWhenThereIsNone) {
    writeStartup("<ZOR>" + parameter("a", "xsd:string", "found") + parameter("b", "xsd:string", "") +
                 "</ZOR>");
    ASSERT_EQ(service.initZORElement(), 1);
    I18NString value("before");
    EXPECT_EQ(service.getDataFromZORElement(value, "none", "xsd:string"), 0);
    EXPECT_EQ(service.getDataFromZORElement(value, "a", "xsd:other"), 0);
    EXPECT_EQ(service.getDataFromZORElement(value, "b", "xsd:string"), 0);
    EXPECT_EQ(value, "before");
    EXPECT_EQ(service.getDataFromZORElement(value, "a", "xsd:string"), 1);
    EXPECT_EQ(value, "found");
}

TEST_F(StartupPropertiesTest, AnExistingTempDirectoryIsConfirmed) {
    prepare("", "<temp>../temp</temp>");
    EXPECT_STREQ(property("temp"), "../temp");
    EXPECT_TRUE(logged("DEBUG", "Confirmed that temp directory \"../temp\" does exist."));
    EXPECT_FALSE(logged("WARN", "Temp directory \"../temp\" does not exist, will try to create."));
}

TEST_F(StartupPropertiesTest, AMissingTempDirectoryIsCreatedWithItsParents) {
    prepare("", "<temp>../made/deep/temp</temp>");
    EXPECT_TRUE(fs::is_directory(folder.path("made/deep/temp")));
    EXPECT_TRUE(log.inOrder(
        {{"WARN", kLogger, "Temp directory \"../made/deep/temp\" does not exist, will try to create.", {}},
         {"WARN", kLogger, "Temp directory \"../made/deep/temp\" was created successfully.", {}}}));
}

TEST_F(StartupPropertiesTest, ATempDirectoryThatCannotBeCreatedIsFatalInTheLogOnly) {
    folder.write("file", "");
    prepare("", "<temp>../file/temp</temp>" + dispatcher("https://localhost:9300/d"));
    EXPECT_TRUE(log.inOrder(
        {{"WARN", kLogger, "Temp directory \"../file/temp\" does not exist, will try to create.", {}},
         {"FATAL", kLogger, "Failed to create temp directory \"../file/temp\".", {}}}));
    EXPECT_STREQ(property("dispatcherPort"), "9300") << "the rest is prepared all the same";
}

TEST_F(StartupPropertiesTest, AFileIsNoTempDirectory) {
    folder.write("file", "");
    prepare("", "<temp>../file</temp>");
    EXPECT_TRUE(logged("FATAL", "Failed to create temp directory \"../file\"."));
}

TEST_F(StartupPropertiesTest, MissingElementsAreEmptyTexts) {
    prepare("");
    for (const char* const name : {"temp", "dispatcherURI", "contentManagerURI", "dispatcherPort"})
        EXPECT_STREQ(property(name), "") << name;
    EXPECT_TRUE(logged("WARN", "Temp directory \"\" does not exist, will try to create."));
    EXPECT_TRUE(logged("FATAL", "Failed to create temp directory \"\"."));
    EXPECT_STREQ(property("serviceName"), "Velmora 8:");
}

TEST_F(StartupPropertiesTest, TheDispatchersUriIsTheContentManagersToo) {
    prepare("", dispatcher("https://machine:9300/path"));
    EXPECT_STREQ(property("dispatcherURI"), "https://machine:9300/path");
    EXPECT_STREQ(property("contentManagerURI"), "https://machine:9300/path");
}

TEST_F(StartupPropertiesTest, ThePortIsCutOutOfTheUri) {
    EXPECT_EQ(portOf("https://machine:9300/path"), "9300");
    EXPECT_STREQ(property("serviceName"), "Velmora 8");
}

TEST_F(StartupPropertiesTest, APortWithoutAPathRunsToTheEnd) {
    EXPECT_EQ(portOf("host:9400"), "9400");
    EXPECT_STREQ(property("serviceName"), "Velmora 8:9400");
}

TEST_F(StartupPropertiesTest, AUriWithoutAPortIsItsOwnPort) {
    EXPECT_EQ(portOf("https://machine/path"), "https://machine/path");
    EXPECT_STREQ(property("serviceName"), "Velmora 8:https://machine/path");
}

TEST_F(StartupPropertiesTest, AUriWithoutAColonIsItsOwnPort) {
    EXPECT_EQ(portOf("machine"), "machine");
}

TEST_F(StartupPropertiesTest, TheFirstColonCountsEvenInABracketedAddress) {
    EXPECT_EQ(portOf("https://[::1]:9300/path"), ":1]:9300");
}

TEST_F(StartupPropertiesTest, AnotherPortIsAppendedToTheServiceName) {
    prepare("", dispatcher("https://machine:9400/path"));
    EXPECT_STREQ(property("serviceName"), "Velmora 8:9400");
}

TEST_F(StartupPropertiesTest, APortThatOnlyBeginsAsTheUsualOneIsAnother) {
    prepare("", dispatcher("https://machine:93000/path"));
    EXPECT_STREQ(property("serviceName"), "Velmora 8:93000");
}

TEST_F(StartupPropertiesTest, TheInstanceNameIsTheServiceName) {
    prepare(instance("production"), dispatcher("https://machine:9300/path"));
    EXPECT_STREQ(property("serviceName"), "production");
}

TEST_F(StartupPropertiesTest, TheInstanceNameGetsAnotherPortToo) {
    prepare(instance("production"), dispatcher("https://machine:9301/path"));
    EXPECT_STREQ(property("serviceName"), "production:9301");
}

TEST_F(StartupPropertiesTest, TheFirstInstanceOfTheServicesInstancesCounts) {
    prepare(
        "<vrx:instances name='other'><vrx:instance name='not this'/></vrx:instances>"
        "<vrx:instances name='zor'><vrx:instance name='this'/><vrx:instance name='nor "
        "this'/></vrx:instances>",
        dispatcher("https://machine:9300/path"));
    EXPECT_STREQ(property("serviceName"), "this");
}

TEST_F(StartupPropertiesTest, InstancesOfOthersGiveNoName) {
    prepare("<vrx:instances name='other'><vrx:instance name='not this'/></vrx:instances>",
            dispatcher("https://machine:9300/path"));
    EXPECT_STREQ(property("serviceName"), "Velmora 8");
}

TEST_F(StartupPropertiesTest, OnlyTheExactNetworkConfigurationIsIPv6) {
    prepare("", "<networkConfiguration>IPv6</networkConfiguration>");
    EXPECT_STREQ(property("ip_protocol"), "IPv6");
}

class OtherNetworkTest : public StartupPropertiesTest, public testing::WithParamInterface<const char*> {};

TEST_P(OtherNetworkTest, DefinesNoProtocol) {
    prepare("", std::string("<networkConfiguration>") + GetParam() + "</networkConfiguration>");
    EXPECT_EQ(property("ip_protocol"), nullptr);
}
INSTANTIATE_TEST_SUITE_P(StartupPropertiesTest, OtherNetworkTest,
                         testing::Values("IPv4", "ipv6", "", " IPv6", "IPv6 "));

TEST_F(StartupPropertiesTest, WithoutANetworkConfigurationThereIsNoProtocol) {
    prepare("");
    EXPECT_EQ(property("ip_protocol"), nullptr);
}

TEST_F(StartupPropertiesTest, TheJavaVendorIsDeterminedLast) {
    prepare("", "<temp>../temp</temp>");
    EXPECT_STREQ(property("java_vendor"), "");
    EXPECT_TRUE(logged("DEBUG", "ZOR Java properties file \"../temp/zor.prefs\" is NOT found."));
}

TEST_F(StartupPropertiesTest, WithoutTheServicesElementTheRestIsPreparedAllTheSame) {
    writeStartup("<temp>../temp</temp>" + dispatcher("https://machine:9300/path"));
    service.prepareProperties();
    EXPECT_STREQ(property("dispatcherPort"), "9300");
    EXPECT_STREQ(property("serviceName"), "Velmora 8");
    EXPECT_EQ(log.raw().find("Failed to find parameter"), std::string::npos);
}

TEST_F(StartupPropertiesTest, FractionsAreWholeNumbersTowardsZero) {
    for (const auto& [memory, by2, by3, by4] : {std::tuple{"1000", "500", "333", "250"},
                                                {"7", "3", "2", "1"},
                                                {"-7", "-3", "-2", "-1"},
                                                {"abc", "0", "0", "0"},
                                                {"", "0", "0", "0"},
                                                {"2147483647", "1073741823", "715827882", "536870911"},
                                                {"12m", "6", "4", "3"}}) {
        setProperty("dispatcherMaxMemory", memory);
        service.calculateProperties();
        EXPECT_STREQ(property("dispatcherMaxMemoryBy2"), by2) << memory;
        EXPECT_STREQ(property("dispatcherMaxMemoryBy3"), by3) << memory;
        EXPECT_STREQ(property("dispatcherMaxMemoryBy4"), by4) << memory;
    }
}

TEST_F(StartupPropertiesTest, WithoutAMemoryNothingIsCalculated) {
    service.calculateProperties();
    EXPECT_EQ(property("dispatcherMaxMemoryBy2"), nullptr);
    EXPECT_EQ(log.raw(), "");
}

}  // namespace
