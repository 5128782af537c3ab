// The service and the schemas: what the service does with what an editor needs, with the example of the manual,
// and with what the schemas cannot say.

#include "MarkdownBlocks.h"
#include "SchemaCheck.h"
#include "ServiceUnderTest.h"

namespace {

constexpr const char* kBootstrap = "bin/bootstrap_linuxi38632.xml";
constexpr const char* kLogging = "bin/zorlogconfig.xml";
constexpr const char* kStartup = "configuration/startup.xml";

class ServiceAndSchemasTest : public SystemTest {
  protected:
    // What a question says, at most this serious.
    std::string words(const std::string& level = "DEBUG") {
        const RunResult result =
            service.run({.arguments = {"-isrunning", "-stdoutLog=" + level}, .environment = {{"PWD", "/"}}});
        EXPECT_EQ(result.exitCode, 1) << testing::PrintToString(result);
        EXPECT_EQ(result.err, "");
        return ServiceUnderTest::normalised(result.out);
    }

    // Both ways of naming a schema, one that is not there.
    void nameSchema(const char* file) {
        std::string document = service.read(file);
        const std::size_t start = document.compare(0, 5, "<?xml") == 0 ? document.find("?>") + 2 : 0;
        const std::size_t end = document.find_first_of(" >", document.find('<', start));
        const std::string declared = document.find("xmlns:xsi=") == std::string::npos
                                         ? " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\""
                                         : "";
        document.insert(end, declared + " xsi:noNamespaceSchemaLocation=\"file:///nowhere.xsd\"");
        document.insert(start,
                        "\n<?xml-model href=\"file:///nowhere.xsd\" type=\"application/xml\" "
                        "schematypens=\"http://www.w3.org/2001/XMLSchema\"?>\n");
        service.write(file, document);
    }

    static std::string markdownBlockAbout(const std::string& page, const std::string& words) {
        for (const std::string& block : markdownBlocks(page, "xml")) {
            if (block.find(words) != std::string::npos) return block;
        }
        return {};
    }

    // A startup configuration that its schema accepts.
    void startupWith(const std::string& zor, const std::string& uri = "https://localhost:9300") {
        service.startup("<ZOR>" + zor + "</ZOR><temp>../temp</temp><internalDispatcher>" + uri +
                        "</internalDispatcher>");
    }
};

TEST_F(ServiceAndSchemasTest, TheServiceTakesNoNoticeOfANamedSchema) {
    const std::string before = words();
    for (const char* const file : {kBootstrap, kLogging, kStartup})
        nameSchema(file);
    EXPECT_NE(service.read(kLogging).find("<logConfiguration xmlns:xsi="), std::string::npos);
    EXPECT_EQ(words(), before);
}

TEST_F(ServiceAndSchemasTest, TheExamplesOfTheManualAreReadWithoutComplaint) {
    const std::string page = VBS_SOURCE_FOLDER "/docs/configuration.md";
    for (const auto& [root, file] : {std::pair{"bootstrap", kBootstrap},
                                     {"logConfiguration", kLogging},
                                     {"startupConfiguration", kStartup}}) {
        const std::string example = markdownBlockAbout(page, std::string("</") + root + ">");
        ASSERT_NE(example, "") << root;
        service.write(file, example);
    }
    EXPECT_EQ(words("ERROR"), "");
    EXPECT_TRUE(service.exists("logs/isrunning.log"));
    // Both processes and the ping are in use.
    const std::string said = words();
    for (const char* const prepared : {"preparing process named server\n", "preparing process named helper\n",
                                       "URI is http://localhost:9300\n", "signal is 15\n"})
        EXPECT_NE(said.find(prepared), std::string::npos) << prepared;
}

// ---- What the schemas cannot say ----

TEST_F(ServiceAndSchemasTest, TheTypeOfAParameterIsOnlyTheServicesToCheck) {
    startupWith(
        "<vrx:parameter name=\"shutdownPort\"><vrx:value>9301</vrx:value></vrx:parameter>"
        "<vrx:parameter name=\"dispatcherMaxMemory\"><vrx:value xsi:type=\"xsd:unsignedShort\">64"
        "</vrx:value></vrx:parameter>");
    const std::string said = words("WARN");
    const std::string notFound = "WARN ZORBootstrapService Failed to find value of type ";
    EXPECT_NE(said.find(notFound + "\"xsd:unsignedShort\" for parameter named \"shutdownPort\"."),
              std::string::npos)
        << said;
    EXPECT_NE(said.find(notFound + "\"xsd:unsignedInt\" for parameter named \"dispatcherMaxMemory\"."),
              std::string::npos)
        << said;
}

TEST_F(ServiceAndSchemasTest, OnlyTheUsualPrefixesAreUnderstood) {
    startupWith(
        "<v:parameter xmlns:v=\"urn:velmora:startup\" name=\"shutdownPort\">"
        "<v:value xsi:type=\"xsd:unsignedShort\">9301</v:value></v:parameter>");
    EXPECT_NE(words("WARN").find("Failed to find parameter \"shutdownPort\" in startup config ZOR element."),
              std::string::npos);
}

TEST_F(ServiceAndSchemasTest, AnAddressInBracketsHasNoUsablePort) {
    startupWith("", "https://[::1]:9300/dispatch");
    EXPECT_NE(words().find("Added property dispatcherPort with value \":1]:9300\""), std::string::npos);
}

TEST_F(ServiceAndSchemasTest, OfADividedTextTheLastPieceCountsAndACharacterSectionIsNone) {
    BootstrapXml document;
    document.children[0].options = {"first<!-- and -->last", "<![CDATA[section]]>"};
    service.bootstrap(document);
    const std::string said = words();
    EXPECT_NE(said.find("adding arg \"last\"\nDEBUG ZORArgVector adding arg \"\"\n"), std::string::npos)
        << said;
}

}  // namespace
