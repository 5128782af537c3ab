#include <unistd.h>

#include <cstdlib>

#include "LinkSeam.h"
#include "TVLConfigurationFactory.h"
#include "TVLThrowable.h"
#include "TestAccess.h"
#include "TestKit.h"
#include "ZORBootstrapService.h"
#include "ZORCmdLine.h"

// Of the leak checker, where there is one; the names are its own. NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" __attribute__((weak)) void __lsan_disable();
extern "C" __attribute__((weak)) void __lsan_enable();
// NOLINTEND(bugprone-reserved-identifier)

namespace {

namespace fs = std::filesystem;

// Variables that these tests may set; none is left behind.
constexpr const char* kVariables[] = {"VBS_TEST_A", "VBS_TEST_B", "VBS_TEST_C"};

// Variables are never freed, not even when these tests remove them from the environment again.
struct LeaksAllowed {
    LeaksAllowed() {
        if (__lsan_disable != nullptr) __lsan_disable();
    }
    ~LeaksAllowed() {
        if (__lsan_enable != nullptr) __lsan_enable();
    }
    LeaksAllowed(const LeaksAllowed&) = delete;
    LeaksAllowed& operator=(const LeaksAllowed&) = delete;
};

class EnvironmentTest : public ServiceTest {
  protected:
    EnvironmentTest() { forgetVariables(); }
    ~EnvironmentTest() override { forgetVariables(); }

    static void forgetVariables() {
        for (const char* const name : kVariables)
            unsetenv(name);
    }
    void setEnvironment(const std::string& file) const {
        folder.write("configuration/zorEnvironmentVars.ini", file);
        const LeaksAllowed allowed;
        ZORBootstrapService::setEnvironment();
    }
};

TEST_F(EnvironmentTest, EveryLineIsAVariable) {
    setEnvironment("VBS_TEST_A=1\nVBS_TEST_B=two words\n");
    EXPECT_STREQ(std::getenv("VBS_TEST_A"), "1");
    EXPECT_STREQ(std::getenv("VBS_TEST_B"), "two words");
    EXPECT_EQ(log.raw(), "");
}

TEST_F(EnvironmentTest, CommentsAndEmptyLinesAreSkippedAndTheLastValueWins) {
    setEnvironment("# comment\n\nVBS_TEST_A=1\nVBS_TEST_A=2\n#VBS_TEST_B=1\n");
    EXPECT_STREQ(std::getenv("VBS_TEST_A"), "2");
    EXPECT_EQ(std::getenv("VBS_TEST_B"), nullptr);
}

TEST_F(EnvironmentTest, TheLastLineNeedsNoLineFeed) {
    setEnvironment("VBS_TEST_A=1\nVBS_TEST_B=last");
    EXPECT_STREQ(std::getenv("VBS_TEST_B"), "last");
}

TEST_F(EnvironmentTest, NothingIsTrimmedQuotedOrExpanded) {
    setProperty("temp", "/tmp");
    setEnvironment("VBS_TEST_A= \"x\" # no comment \r\nVBS_TEST_B=${temp}$HOME\n");
    EXPECT_STREQ(std::getenv("VBS_TEST_A"), " \"x\" # no comment \r");
    EXPECT_STREQ(std::getenv("VBS_TEST_B"), "${temp}$HOME");
}

TEST_F(EnvironmentTest, ACommentStartsInTheFirstColumnOnly) {
    setEnvironment(" #VBS_TEST_A=1\n");
    EXPECT_STREQ(std::getenv(" #VBS_TEST_A"), "1");
    unsetenv(" #VBS_TEST_A");
}

TEST_F(EnvironmentTest, ALineWithoutAnEqualsSignRemovesTheVariable) {
    setenv("VBS_TEST_A", "before", 1);
    setEnvironment("VBS_TEST_A\n");
    EXPECT_EQ(std::getenv("VBS_TEST_A"), nullptr);
}

TEST_F(EnvironmentTest, AnEmptyValueIsAValue) {
    setEnvironment("VBS_TEST_A=\n");
    EXPECT_STREQ(std::getenv("VBS_TEST_A"), "");
}

TEST_F(EnvironmentTest, LinesMayBeLong) {
    const std::string longValue(100000, 'x');
    setEnvironment("VBS_TEST_A=" + longValue + "\nVBS_TEST_B=1\n");
    EXPECT_EQ(std::getenv("VBS_TEST_A"), longValue);
    EXPECT_STREQ(std::getenv("VBS_TEST_B"), "1");
}

TEST_F(EnvironmentTest, AMissingFileChangesNothing) {
    setenv("VBS_TEST_A", "before", 1);
    ZORBootstrapService::setEnvironment();
    EXPECT_STREQ(std::getenv("VBS_TEST_A"), "before");
    EXPECT_EQ(log.raw(), "");
}

TEST_F(EnvironmentTest, TheValuesOutliveTheCall) {
    setEnvironment("VBS_TEST_A=kept\n");
    const char* const value = std::getenv("VBS_TEST_A");
    setEnvironment("VBS_TEST_B=other\nVBS_TEST_C=another\n");
    EXPECT_EQ(std::getenv("VBS_TEST_A"), value);
    EXPECT_STREQ(value, "kept");
}

TEST_F(EnvironmentTest, ExhaustedMemoryIsAnError) {
    LinkSeam calls;
    calls.failCopiesOf("VBS_TEST_B=2");
    EXPECT_THROW(setEnvironment("VBS_TEST_A=1\nVBS_TEST_B=2\nVBS_TEST_C=3\n"), TVLOutOfMemoryError);
    EXPECT_STREQ(std::getenv("VBS_TEST_A"), "1");
    EXPECT_EQ(std::getenv("VBS_TEST_C"), nullptr);
}

TEST_F(EnvironmentTest, TheInstallPathsAreTheWorkingDirectoryAndItsParent) {
    ZORBootstrapService service;
    EXPECT_EQ(service.findHome(), 1);
    EXPECT_EQ(property("install_path"), folder.path());
    EXPECT_EQ(property("bin_path"), folder.path("bin"));
}

TEST_F(EnvironmentTest, WithoutAWorkingDirectoryThereIsNoInstallRoot) {
    fs::create_directory(folder.path("gone"));
    fs::current_path(folder.path("gone"));
    fs::remove(folder.path("gone"));
    ZORBootstrapService service;
    EXPECT_EQ(service.findHome(), 0);
    EXPECT_TRUE(log.has("FATAL", "ZORBootstrapService", "Install home directory has not been specified"));
    EXPECT_FALSE(log.has("FATAL", "ZORBootstrapService", "Install bin directory has not been specified"));
    EXPECT_EQ(property("install_path"), nullptr);
    EXPECT_EQ(property("bin_path"), nullptr);
}

// A configuration that cannot tell the working directory.
class Nowhere : public TVLConfigurationFactory {
  public:
    Nowhere() : m_before(TestAccess::configuration()) { TestAccess::configuration() = this; }
    ~Nowhere() override { TestAccess::configuration() = m_before; }
    void getFullPath(std::string& path) override { path = path == "." ? "" : "/opt/product"; }

  private:
    TVLConfigurationFactory* m_before;
};

TEST_F(EnvironmentTest, WithoutABinDirectoryThereAreNoInstallPaths) {
    const Nowhere nowhere;
    ZORBootstrapService service;
    EXPECT_EQ(service.findHome(), 0);
    EXPECT_TRUE(log.has("FATAL", "ZORBootstrapService", "Install bin directory has not been specified"));
    EXPECT_EQ(property("install_path"), nullptr);
    EXPECT_EQ(property("bin_path"), nullptr);
}

TEST_F(EnvironmentTest, TheStoredEnvironmentIsHandedOut) {
    std::string variable = "VBS_TEST_A=1";
    char* environment[] = {variable.data(), nullptr};
    std::string program = "velbootstrapservice";
    std::string option = "-v";
    char* arguments[] = {program.data(), option.data(), nullptr};
    ZORCmdLine line(2, arguments);
    ZORBootstrapService service;
    EXPECT_EQ(ZORBootstrapService::getEnv(), nullptr);
    testing::internal::CaptureStderr();
    service.ParseStandardArgs(line, environment);
    EXPECT_EQ(ZORBootstrapService::getEnv(), environment);
    service.ParseStandardArgs(line, nullptr);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(ZORBootstrapService::getEnv(), environment) << "none given leaves what is there";
}

}  // namespace
