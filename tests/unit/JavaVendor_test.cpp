#include "TestKit.h"
#include "ZORBootstrapService.h"

namespace {

namespace fs = std::filesystem;

class JavaVendorTest : public ServiceTest {
  protected:
    JavaVendorTest() {
        setProperty("temp", "../temp");
        fs::create_directory(folder.path("java"));
        log.clear();
    }

    std::string javaHome() const { return "java_home=" + folder.path("java"); }
    // The vendor that this preferences file gives.
    std::string vendorOf(const std::string& preferences) {
        folder.write("temp/zor.prefs", preferences);
        service.getJavaVendor();
        return property("java_vendor");
    }
    bool logged(const std::string& text) const { return log.has("DEBUG", "ZORBootstrapService", text); }
    // The message about a home that was not found; its second value is never supplied.
    static std::string notChecked(const std::string& home) {
        return "Java home in the ZOR Java properties file is empty, no need to check java vendor. "
               "JavaHomeInFile=\"" +
               home + "\", JavaHomeInZOR=\"(null)\"";
    }

    ZORBootstrapService service;
};

TEST_F(JavaVendorTest, WithoutAPreferencesFileThereIsNoVendor) {
    service.getJavaVendor();
    EXPECT_STREQ(property("java_vendor"), "");
    EXPECT_TRUE(logged("ZOR Java properties file \"../temp/zor.prefs\" is NOT found."));
}

TEST_F(JavaVendorTest, AnExistingHomeAndAKnownVendorGiveTheVendor) {
    EXPECT_EQ(vendorOf(javaHome() + "\njava_vendor=Sun Microsystems Inc.\n"), "Sun");
    EXPECT_TRUE(logged("ZOR Java properties file \"../temp/zor.prefs\" is found."));
    EXPECT_TRUE(logged("AbsJavaHomeInFile =\"" + folder.path("java") + "\""));
}

TEST_F(JavaVendorTest, TheOtherVendorIsKnownToo) {
    EXPECT_EQ(vendorOf(javaHome() + "\njava_vendor=The Orv Company\n"), "Orv");
}

TEST_F(JavaVendorTest, SunIsTriedFirst) {
    EXPECT_EQ(vendorOf(javaHome() + "\njava_vendor=Orv and Sun\n"), "Sun");
}

TEST_F(JavaVendorTest, TheVendorIsSearchedCaseSensitively) {
    EXPECT_EQ(vendorOf(javaHome() + "\njava_vendor=SUN sun ORV orv\n"), "");
}

TEST_F(JavaVendorTest, WithoutAVendorLineTheVendorIsEmpty) {
    EXPECT_EQ(vendorOf(javaHome() + "\n"), "");
    EXPECT_TRUE(logged("AbsJavaHomeInFile =\"" + folder.path("java") + "\""));
    EXPECT_FALSE(logged(notChecked(folder.path("java"))));
}

TEST_F(JavaVendorTest, AHomeWithoutALineFeedLosesItsLastCharacter) {
    EXPECT_EQ(vendorOf("java_vendor=Sun\n" + javaHome()), "");
    EXPECT_TRUE(logged("AbsJavaHomeInFile =\"\""));
    EXPECT_TRUE(logged(notChecked(folder.path("jav"))));
    EXPECT_EQ(vendorOf("java_vendor=Sun\n" + javaHome() + "/"), "Sun") << "a slash may go";
}

TEST_F(JavaVendorTest, AHomeThatDoesNotExistIsNotChecked) {
    EXPECT_EQ(vendorOf("java_home=/none/at/all\njava_vendor=Sun\n"), "");
    EXPECT_TRUE(logged("AbsJavaHomeInFile =\"\""));
    EXPECT_TRUE(logged(notChecked("/none/at/all")));
}

TEST_F(JavaVendorTest, WithoutAHomeTheVendorIsNotChecked) {
    EXPECT_EQ(vendorOf("java_vendor=Sun\n"), "");
    EXPECT_TRUE(logged(notChecked("")));
    EXPECT_EQ(vendorOf(""), "");
}

TEST_F(JavaVendorTest, TheLastOfSeveralLinesWins) {
    EXPECT_EQ(vendorOf("java_home=/none\njava_vendor=Sun\n" + javaHome() + "\njava_vendor=Orv\n"), "Orv");
    EXPECT_EQ(vendorOf(javaHome() + "\njava_vendor=Sun\njava_home=/none\n"), "");
}

TEST_F(JavaVendorTest, ALineWithBothKeysIsAHomeOnly) {
    fs::create_directory(folder.path("java java_vendor=Sun"));
    EXPECT_EQ(vendorOf(javaHome() + " java_vendor=Sun\n"), "");
    EXPECT_TRUE(logged("AbsJavaHomeInFile =\"" + folder.path("java java_vendor=Sun") + "\""));
}

TEST_F(JavaVendorTest, ValuesAreCutAtFixedPlacesWhereverTheKeyStands) {
    EXPECT_EQ(vendorOf("  java_home=/opt\n"), "");
    EXPECT_TRUE(logged(notChecked("e=/opt")));
    EXPECT_EQ(vendorOf(javaHome() + "\nSun java_vendor=x\n"), "") << "what stands before is not searched";
    EXPECT_EQ(vendorOf(javaHome() + "\n  java_vendor=Sun\n"), "Sun");
}

TEST_F(JavaVendorTest, KeysWithoutAValueAreEmpty) {
    EXPECT_EQ(vendorOf("java_home=\njava_vendor=\n"), "");
    EXPECT_TRUE(logged(notChecked("")));
    EXPECT_EQ(vendorOf("java_home="), "");
    EXPECT_EQ(vendorOf(javaHome() + "\njava_vendor="), "");
}

TEST_F(JavaVendorTest, OtherLinesAreIgnored) {
    EXPECT_EQ(vendorOf("# a file\nJAVA_HOME=/x\nanything\n" + javaHome() + "\nvendor=Orv\njava_vendor=Sun\n"),
              "Sun");
}

// A line longer than the reader's buffer is read as several.
TEST_F(JavaVendorTest, LongLinesAreReadInPieces) {
    EXPECT_EQ(vendorOf(std::string(4095, 'x') + javaHome() + "\njava_vendor=Sun\n"), "Sun");
}

TEST_F(JavaVendorTest, SymbolicLinksInTheHomeAreResolved) {
    fs::create_directory_symlink(folder.path("java"), folder.path("link"));
    EXPECT_EQ(vendorOf("java_home=" + folder.path("link") + "\njava_vendor=Sun\n"), "Sun");
    EXPECT_TRUE(logged("AbsJavaHomeInFile =\"" + folder.path("java") + "\""));
}

TEST_F(JavaVendorTest, TheWorkingDirectoryIsRestored) {
    vendorOf(javaHome() + "\n");
    EXPECT_EQ(fs::current_path(), folder.path("bin"));
    vendorOf("java_home=/none\n");
    EXPECT_EQ(fs::current_path(), folder.path("bin"));
}

TEST_F(JavaVendorTest, TheHomeInTheFileNeverBecomesTheJavaHome) {
    vendorOf(javaHome() + "\njava_vendor=Sun\n");
    EXPECT_EQ(property("java_home"), nullptr);
}

}  // namespace
