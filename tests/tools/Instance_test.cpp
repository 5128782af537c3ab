// Which instance a command is about.

#include "CTLInstance.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "CTLError.h"
#include "TestKit.h"

namespace fs = std::filesystem;

class InstanceTest : public testing::Test {
  protected:
    InstanceTest() {
        unsetenv("VELBOOTSTRAP_INSTANCE");
        folder.write("bin/velbootstrapservice", "");
        fs::create_directories(folder.path("other/bin"));
        folder.write("other/bin/velbootstrapservice", "");
    }
    ~InstanceTest() override { unsetenv("VELBOOTSTRAP_INSTANCE"); }

    static std::string found(const std::string& given) { return CTLInstance::find(given).folder().string(); }

    InstallFolder folder;  // the working folder is its bin/
};

TEST_F(InstanceTest, TheOneThatIsNamedComesFirst) {
    setenv("VELBOOTSTRAP_INSTANCE", folder.path("").c_str(), 1);
    EXPECT_EQ(found(folder.path("other")), folder.path("other"));
}

TEST_F(InstanceTest, TheVariableComesBeforeTheWorkingFolder) {
    setenv("VELBOOTSTRAP_INSTANCE", folder.path("other").c_str(), 1);
    EXPECT_EQ(found(""), folder.path("other"));
}

TEST_F(InstanceTest, ItsFolderAndItsBinAreBothTheWorkingFolder) {
    EXPECT_EQ(found(""), folder.path(""));
    fs::current_path(folder.path("other"));
    EXPECT_EQ(found(""), folder.path("other"));
}

TEST_F(InstanceTest, ALinkIsFollowedOnce) {
    fs::create_symlink(folder.path("other"), folder.path("link"));
    EXPECT_EQ(found(folder.path("link")), folder.path("other"));
}

TEST_F(InstanceTest, OneThatIsNamedAndIsNoneIsAnError) {
    try {
        CTLInstance::find(folder.path("logs"));
        FAIL() << "was taken for an instance";
    } catch (const CTLError& error) {
        EXPECT_EQ(error.exitCode(), 64);
        EXPECT_EQ(error.what(),
                  folder.path("logs") + " (--instance) is no instance: it has no bin/velbootstrapservice");
    }
}

TEST_F(InstanceTest, WithoutAnyItSaysWhereItHasLooked) {
    fs::current_path(folder.path("logs"));
    fs::remove(folder.path("bin/velbootstrapservice"));
    try {
        CTLInstance::find("");
        FAIL() << "found " << found("");
    } catch (const CTLError& error) {
        EXPECT_NE(std::string(error.what()).find(folder.path("logs")), std::string::npos) << error.what();
        EXPECT_NE(std::string(error.what()).find(CTLInstance::systemFolder().string()), std::string::npos);
    }
}
