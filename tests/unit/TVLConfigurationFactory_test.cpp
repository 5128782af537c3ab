#include "TVLConfigurationFactory.h"

#include <sys/stat.h>

#include "TestKit.h"

namespace {

namespace fs = std::filesystem;

class TVLConfigurationFactoryTest : public ServiceTest {
  protected:
    static TVLConfigurationFactory& factory() { return *TVLConfigurationFactory::getInstance(); }

    static std::string failureOf(const char* name) {
        try {
            factory().getElement(name);
        } catch (const TVLConfigurationException& exception) {
            return exception.getMessage();
        }
        return "nothing was thrown";
    }
};

TEST_F(TVLConfigurationFactoryTest, ThereIsOneInstance) {
    EXPECT_EQ(&factory(), TVLConfigurationFactory::getInstance());
}

TEST_F(TVLConfigurationFactoryTest, AnElementIsTheFirstChildOfTheRootWithThatName) {
    writeStartup("text<a><ZOR n='deeper'/></a><ZOR n='first'/><ZOR n='second'/><vrx:x n='prefixed'/>");
    EXPECT_EQ(factory().getElement("ZOR").getAttribute("n"), "first");
    EXPECT_EQ(factory().getElement("vrx:x").getAttribute("n"), "prefixed");
    EXPECT_TRUE(factory().getElement("x").isNull());
    EXPECT_TRUE(factory().getElement("startupConfiguration").isNull());
}

TEST_F(TVLConfigurationFactoryTest, AStringIsTheElementsWholeText) {
    writeStartup("<s> a<b>b</b><![CDATA[<c>]]> </s>");
    EXPECT_EQ(factory().getString("s"), " ab<c> ");
    EXPECT_EQ(factory().getString("none"), "");
}

TEST_F(TVLConfigurationFactoryTest, AComponentHasAVersion) {
    writeStartup(
        "<components><component name='other' version='1'/>"
        "<component name='servletContainer' version='10.1'/></components>");
    EXPECT_EQ(factory().getComponentVersion("servletContainer"), "10.1");
    EXPECT_EQ(factory().getComponentVersion("none"), "");
}

TEST_F(TVLConfigurationFactoryTest, WithoutComponentsThereAreNoVersions) {
    writeStartup("<component name='servletContainer' version='10.1'/>");
    EXPECT_EQ(factory().getComponentVersion("servletContainer"), "");
}

TEST_F(TVLConfigurationFactoryTest, WithoutAFileNothingIsFound) {
    EXPECT_TRUE(factory().getElement("ZOR").isNull());
    EXPECT_EQ(factory().getString("temp"), "");
    EXPECT_EQ(factory().getComponentVersion("servletContainer"), "");
}

TEST_F(TVLConfigurationFactoryTest, TheFileIsReadOnFirstUseOnly) {
    writeStartup("<temp>first</temp>");
    EXPECT_EQ(factory().getString("temp"), "first");
    folder.write("configuration/startup.xml", "<a><temp>second</temp></a>");
    EXPECT_EQ(factory().getString("temp"), "first");
}

TEST_F(TVLConfigurationFactoryTest, AMalformedFileIsToldWithFileLineColumnAndTheParsersWords) {
    folder.write("configuration/startup.xml", "<a>\n  <b></a>");
    const std::string expected = "cannot read startup configuration \"" +
                                 folder.path("configuration/startup.xml") +
                                 "\": line 2, column 8: expected end of tag 'b'";
    EXPECT_EQ(failureOf("ZOR"), expected);
    EXPECT_EQ(failureOf("temp"), expected) << "every look-up fails, not only the first";
    EXPECT_THROW(factory().getString("temp"), TVLConfigurationException);
    EXPECT_THROW(factory().getComponentVersion("x"), TVLConfigurationException);
}

TEST_F(TVLConfigurationFactoryTest, AnEmptyFileIsMalformed) {
    folder.write("configuration/startup.xml", "");
    EXPECT_NE(failureOf("ZOR").find("\": line 1, column 1: "), std::string::npos);
}

TEST_F(TVLConfigurationFactoryTest, AFileThatCannotBeOpenedIsToldWithTheSystemsReason) {
    fs::create_symlink("startup.xml", folder.path("configuration/startup.xml"));
    EXPECT_EQ(failureOf("ZOR"), "cannot read startup configuration \"" +
                                    folder.path("configuration/startup.xml") +
                                    "\": Too many levels of symbolic links");
}

TEST_F(TVLConfigurationFactoryTest, AFileThatCannotBeReadIsToldWithTheSystemsReason) {
    fs::create_directory(folder.path("configuration/startup.xml"));
    EXPECT_EQ(failureOf("ZOR"), "cannot read startup configuration \"" +
                                    folder.path("configuration/startup.xml") + "\": Is a directory");
}

TEST_F(TVLConfigurationFactoryTest, AFileOfAnotherKindOrTooLargeAFileIsToldSo) {
    const std::string path = folder.path("configuration/startup.xml");
    const std::string failure = "cannot read startup configuration \"" + path + "\": ";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(failureOf("ZOR"), failure + "is not a regular file");
    fs::remove(path);
    writeStartup("");
    fs::resize_file(path, 64 * 1024 * 1024 + 1);
    EXPECT_EQ(failureOf("ZOR"), failure + "is larger than 67108864 bytes");
}

TEST_F(TVLConfigurationFactoryTest, TheFailureNamesThePlaceThatThrew) {
    folder.write("configuration/startup.xml", "<a>");
    try {
        factory().getElement("ZOR");
        FAIL() << "nothing was thrown";
    } catch (const TVLThrowable& throwable) {
        EXPECT_NE(std::string(throwable.getBackTrace()).find("TVLConfigurationFactory.cpp:"),
                  std::string::npos);
    }
}

TEST_F(TVLConfigurationFactoryTest, ThePathOperationDoesNotReadTheFile) {
    folder.write("configuration/startup.xml", "malformed");
    std::string path = "./zorlogconfig.xml";
    factory().getFullPath(path);
    EXPECT_EQ(path, folder.path("bin/zorlogconfig.xml"));
    path = "/opt/./x";
    factory().getFullPath(path);
    EXPECT_EQ(path, "/opt/x");
}

}  // namespace
