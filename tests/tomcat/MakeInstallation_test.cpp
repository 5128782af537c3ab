// The script that makes an installation with a Tomcat: what it makes, and what it refuses.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "TomcatTest.h"

namespace fs = std::filesystem;

namespace {

// Only the folder of the tree is used, for installations of the test's own.
class MakeInstallationTest : public SystemTest {
  protected:
    std::string folder(const std::string& name = "made") const { return service.path("temp/" + name); }
    std::string in(const std::string& file) const { return service.read("temp/made/" + file); }

    // Nothing of an attempt stays.
    bool isUntouched() const { return fs::is_empty(service.path("temp/alpha")) && entries() == 1; }
    std::ptrdiff_t entries() const {
        return std::distance(fs::directory_iterator(service.path("temp")), fs::directory_iterator());
    }

    void expectRefusal(const std::vector<std::string>& arguments, const std::string& words) const {
        const Said said = makeInstallation(arguments);
        EXPECT_EQ(said.exitCode, 1) << said.words;
        EXPECT_NE(said.words.find("velbootstrap-tomcat: " + words), std::string::npos) << said.words;
        EXPECT_TRUE(isUntouched());
    }
};

// Where the first of the commands leads that the script prints.
std::string placeToGoOn(const std::string& words) {
    const std::size_t begin = words.find("\n  cd ");
    if (begin == std::string::npos) return {};
    const std::string command = words.substr(begin, words.find('\n', begin + 1) - begin);
    return say({"bash", "-e", "-c", command + "\npwd"}).words;
}

mode_t modeOf(const std::string& file) {
    struct stat status {};
    return stat(file.c_str(), &status) == 0 ? status.st_mode & 0777U : 0;
}

}  // namespace

TEST_F(MakeInstallationTest, PortsAndJavaHomeStandInItsDocuments) {
    const Said said = makeInstallation({"--port", "9500", folder()});
    ASSERT_EQ(said.exitCode, 0) << said.words;
    EXPECT_NE(in("configuration/startup.xml").find(">https://localhost:9500/dispatch<"), std::string::npos);
    EXPECT_NE(in("configuration/startup.xml").find("unsignedShort\">9501<"), std::string::npos);
    const std::string environment = in("configuration/zorEnvironmentVars.ini");
    const std::string home = environment.substr(environment.find("\nJAVA_HOME=") + 11);
    EXPECT_TRUE(fs::exists(home.substr(0, home.find('\n')) + "/bin/java")) << environment;
    EXPECT_NE(in("temp/zor.prefs").find("\njava_vendor=Sun ("), std::string::npos);
    EXPECT_TRUE(fs::is_symlink(folder() + "/bin/velbootstrapservice"));
    EXPECT_EQ(modeOf(folder() + "/configuration/dispatcher.key"), 0600U);
    // The way on, as it is to be typed.
    EXPECT_EQ(placeToGoOn(said.words), folder() + "/bin\n");
    EXPECT_NE(said.words.find("/bin\n  ./velbootstrapservice -start\n"), std::string::npos) << said.words;
}

TEST_F(MakeInstallationTest, AValueMayBeJoinedToItsOption) {
    const Said said = makeInstallation({"--port=9500", "--shutdown-port=9600", folder()});
    ASSERT_EQ(said.exitCode, 0) << said.words;
    EXPECT_NE(in("configuration/startup.xml").find(">https://localhost:9500/dispatch<"), std::string::npos);
    EXPECT_NE(in("configuration/startup.xml").find("unsignedShort\">9600<"), std::string::npos);
}

TEST_F(MakeInstallationTest, TheCertificateIsGoodForFurtherNames) {
    const Said said =
        makeInstallation({"--name", "gate.example", "--name=192.0.2.7", "--days", "40", folder()});
    ASSERT_EQ(said.exitCode, 0) << said.words;
    EXPECT_NE(said.words.find("The certificate is good until "), std::string::npos) << said.words;
    const std::string file = folder() + "/configuration/dispatcher.pem";
    for (const std::string name : {"localhost", "gate.example"})
        EXPECT_EQ(say({"openssl", "x509", "-in", file, "-noout", "-checkhost", name}).words,
                  "Hostname " + name + " does match certificate\n");
    EXPECT_EQ(say({"openssl", "x509", "-in", file, "-noout", "-checkip", "192.0.2.7"}).words,
              "IP 192.0.2.7 does match certificate\n");
}

TEST_F(MakeInstallationTest, ANameThatIsNoneIsRefused) {
    for (const std::string name : {"a b", "x,DNS:y"}) {
        const Said said = makeInstallation({"--name", name, folder()});
        EXPECT_EQ(said.exitCode, 1);
        EXPECT_EQ(said.words, "make-certificates: no host name and no address: '" + name + "'\n");
        EXPECT_TRUE(isUntouched());
    }
}

TEST_F(MakeInstallationTest, RenewingChangesTheCertificatesOnly) {
    ASSERT_EQ(makeInstallation({folder()}).exitCode, 0);
    service.write("temp/made/configuration/startup.xml", "edited");
    const std::string before = in("configuration/dispatcher.pem");
    const Said said = makeInstallation({"--renew", folder()});
    EXPECT_EQ(said.exitCode, 0) << said.words;
    EXPECT_NE(in("configuration/dispatcher.pem"), before);
    EXPECT_EQ(in("configuration/startup.xml"), "edited");
    // The new authority vouches for the new certificate.
    EXPECT_EQ(say({"openssl", "verify", "-CAfile", folder() + "/configuration/ca.pem",
                   folder() + "/configuration/dispatcher.pem"})
                  .exitCode,
              0);
}

TEST_F(MakeInstallationTest, RenewingTellsHowToRestartTheService) {
    ASSERT_EQ(makeInstallation({folder("a b")}).exitCode, 0);
    const Said said = makeInstallation({"--renew", folder("a b")});
    EXPECT_EQ(placeToGoOn(said.words), folder("a b") + "/bin\n") << said.words;
    EXPECT_NE(said.words.find("/bin\n  ./velbootstrapservice -stop\n  ./velbootstrapservice -start\n"),
              std::string::npos)
        << said.words;
}

TEST_F(MakeInstallationTest, AFolderInUseIsLeftAsItIs) {
    service.write("temp/alpha/note", "mine");
    const Said said = makeInstallation({service.path("temp/alpha")});
    EXPECT_EQ(said.exitCode, 1);
    EXPECT_NE(said.words.find("is there already"), std::string::npos) << said.words;
    EXPECT_EQ(service.read("temp/alpha/note"), "mine");
    EXPECT_EQ(entries(), 1);
}

TEST_F(MakeInstallationTest, AnEmptyFolderIsFilled) {
    fs::create_directory(folder());
    EXPECT_EQ(makeInstallation({folder()}).exitCode, 0);
    EXPECT_TRUE(service.exists("temp/made/tomcat/conf/server.xml"));
}

TEST_F(MakeInstallationTest, TheFolderMayBeALinkOrTheCallersOwn) {
    fs::create_directory(folder());
    fs::create_symlink("made", folder("link"));
    const Said linked = makeInstallation({folder("link") + "//"});
    EXPECT_EQ(linked.exitCode, 0) << linked.words;
    EXPECT_TRUE(fs::is_symlink(folder("link")));
    EXPECT_TRUE(service.exists("temp/made/tomcat/conf/server.xml"));

    fs::create_directory(folder("own"));
    const Said own = makeInstallation({"."}, {"--chdir=" + folder("own"), "CDPATH=" + folder()});
    EXPECT_EQ(own.exitCode, 0) << own.words;
    EXPECT_EQ(placeToGoOn(own.words), folder("own") + "/bin\n") << own.words;
    EXPECT_TRUE(service.exists("temp/own/tomcat/conf/server.xml"));
}

TEST_F(MakeInstallationTest, PathsMayHoldWhatAShellOrAnEditorOfStreamsWouldTakeForItsOwn) {
    const std::string odd = "made/a b'c&d|e\\1$f";
    const std::string home = folder(odd + "/java");
    fs::create_directories(home + "/bin");
    fs::create_symlink(fs::canonical("/usr/bin/java"), home + "/bin/java");
    const Said said = makeInstallation({folder(odd + "/installation")}, {"JAVA_HOME=" + home});
    ASSERT_EQ(said.exitCode, 0) << said.words;
    const std::string environment =
        service.read("temp/" + odd + "/installation/configuration/zorEnvironmentVars.ini");
    EXPECT_NE(environment.find("\nJAVA_HOME=" + home + "\n"), std::string::npos) << environment;
    EXPECT_EQ(placeToGoOn(said.words), folder(odd + "/installation/bin\n")) << said.words;
}

TEST_F(MakeInstallationTest, AnAttemptThatFailsHalfWayLeavesNothing) {
    fs::create_directories(folder("java/bin"));
    fs::create_symlink("/bin/false", folder("java/bin/java"));
    fs::create_directory(folder("empty"));
    for (const char* const name : {"made", "empty"}) {
        const Said said = makeInstallation({folder(name)}, {"JAVA_HOME=" + folder("java")});
        EXPECT_EQ(said.exitCode, 1);
        EXPECT_NE(said.words.find("/bin/java does not run"), std::string::npos) << said.words;
    }
    EXPECT_FALSE(service.exists("temp/made"));
    EXPECT_TRUE(fs::is_empty(folder("empty")));
}

TEST_F(MakeInstallationTest, WrongArgumentsAreNamedAndNothingIsMade) {
    expectRefusal({"--port", "0", folder()}, "--port must be a number from 1 to 65535, not '0'");
    expectRefusal({"--port", "65536", folder()}, "--port must be a number from 1 to 65535, not '65536'");
    expectRefusal({"--port", "65535", folder()},
                  "--shutdown-port must be a number from 1 to 65535, not '65536'");
    expectRefusal({"--port", "9300", "--shutdown-port", "9300", folder()},
                  "--port and --shutdown-port must differ");
    expectRefusal({"--days", "soon", folder()}, "--days must be a number from 1 to 99999, not 'soon'");
    expectRefusal({"--days"}, "option '--days' requires an argument");
    expectRefusal({"--ports", "1", folder()}, "unrecognized option '--ports'");
    expectRefusal({folder(), folder("other")}, "more than one folder");
    expectRefusal({"--renew", folder()}, folder() + " is no installation");
    expectRefusal({"--renew", "--port", "9400", folder()}, "--port is only for a new installation");
    expectRefusal({folder("a \"quoted\" one")},
                  "Tomcat cannot work in a folder with a double quote in its path: ");
    expectRefusal({"--programs", service.path("logs"), folder()},
                  "no velbootstrapservice in " + service.path("logs") + ": name its folder with --programs");
}
