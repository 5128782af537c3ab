// Folders and stores of authorities: what in them counts, that it is read when the settings are, and that nothing in
// them can hold a handshake up.
#include <fcntl.h>
#include <openssl/pem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <future>

#include "TransportTest.h"

namespace {

namespace fs = std::filesystem;

const std::string place = "../configuration/sek.cnf [gateway]";
const std::string notTrusted = "certificate verify failed: unable to get local issuer certificate";

class TrustFolderTest : public HandshakeTest {
  protected:
    void SetUp() override {
        HandshakeTest::SetUp();
        fs::create_directory(folder());
        m_stranger = std::make_unique<TestPki>(configuration(), "stranger");
        m_strange = serverContext(m_stranger->issueForLocalhost("strange-server"));
        writeSettings("[gateway]\n" + path() + "\n");
    }
    void TearDown() override {
        unsetenv("SSL_CERT_DIR");
        unsetenv("SSL_CERT_FILE");
        HandshakeTest::TearDown();
    }
    fs::path folder() const { return configuration() / "authorities"; }
    static std::string path() { return "VerifyCAPath = ../configuration/authorities"; }
    const TestPki& stranger() const { return *m_stranger; }
    const PeerContext& strange() const { return m_strange; }
    // Puts an authority into the folder under the name that the folder's readers look for.
    fs::path add(const TestPki& authority, const std::string& ending = ".0") const {
        const fs::path file = folder() / (authority.nameHash() + ending);
        fs::copy_file(authority.authorityFile(), file, fs::copy_options::overwrite_existing);
        return file;
    }
    fs::path addPipe(const std::string& name) const {
        const fs::path pipe = folder() / name;
        EXPECT_EQ(mkfifo(pipe.c_str(), 0600), 0);
        return pipe;
    }
    // As handshake, but frees whoever waits for the pipe's other end, and tells that he did.
    static std::string handshakeBeside(const fs::path& pipe, const PeerContext& context) {
        auto outcome = std::async(std::launch::async, [&] { return handshake(context); });
        bool hasWaited = false;
        for (int i = 0; i < 200; ++i) {
            if (outcome.wait_for(std::chrono::milliseconds(10)) == std::future_status::ready) break;
            const int writer = open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
            hasWaited = hasWaited || writer >= 0;
            if (writer >= 0) close(writer);
        }
        return (hasWaited ? "waited for the pipe; " : "") + outcome.get();
    }

  private:
    std::unique_ptr<TestPki> m_stranger;
    PeerContext m_strange;
};

TEST_F(TrustFolderTest, APipeThatComesWhileTheServiceRunsHoldsNoHandshakeUp) {
    add(pki());
    EXPECT_EQ(handshake(), "");
    const fs::path pipe = addPipe(stranger().nameHash() + ".0");
    EXPECT_EQ(handshakeBeside(pipe, strange()), notTrusted);
    EXPECT_EQ(handshakeBeside(pipe, server()), "");
}

TEST_F(TrustFolderTest, APipeThatComesIntoTheFolderOfAStoreHoldsNoHandshakeUp) {
    add(pki());
    EXPECT_EQ(handshakeUnder("[gateway]\nVerifyCAStore = " + folder().string() + "\n"), "");
    const fs::path pipe = addPipe(stranger().nameHash() + ".0");
    EXPECT_EQ(handshakeBeside(pipe, strange()), notTrusted);
}

TEST_F(TrustFolderTest, APipeThatTakesThePlaceOfAStoreHoldsNoHandshakeUp) {
    const fs::path store = folder() / "store.pem";
    fs::copy_file(pki().authorityFile(), store);
    EXPECT_EQ(handshakeUnder("[gateway]\nVerifyCAStore = " + store.string() + "\n"), "");
    fs::remove(store);
    EXPECT_EQ(handshakeBeside(addPipe("store.pem"), server()), "");
}

TEST_F(TrustFolderTest, APipeThatComesIntoTheEnvironmentsTrustStoreHoldsNoHandshakeUp) {
    add(pki());
    setenv("SSL_CERT_DIR", folder().c_str(), 1);
    EXPECT_EQ(handshakeUnder("[gateway]\n"), "");
    const fs::path pipe = addPipe(stranger().nameHash() + ".0");
    EXPECT_EQ(handshakeBeside(pipe, strange()), notTrusted);
}

TEST_F(TrustFolderTest, APipeInTheFolderOfOnesOwnChainHoldsNoHandshakeUp) {
    const std::string client = pki().issueForClient().certificate.string();
    const std::string key = fs::path(client).replace_extension(".key").string();
    writeSettings("[gateway]\n" + trusting() + "ChainCAPath = ../configuration/authorities\nCertificate = " +
                  client + "\nPrivateKey = " + key + "\n");
    EXPECT_EQ(handshake(), "");
    const fs::path pipe = addPipe(pki().nameHash() + ".0");
    const PeerContext asking = server();
    SSL_CTX_set_verify(asking.get(), SSL_VERIFY_PEER, [](int, X509_STORE_CTX*) { return 1; });
    EXPECT_EQ(handshakeBeside(pipe, asking), "");
}

// Those that a peer is told of when it is asked for its certificate; OpenSSL reads them itself.
TEST_F(TrustFolderTest, TheAuthoritiesThatAPeerIsToldOfAreFilesAndNothingElse) {
    const std::string beginning = "[gateway]\n" + trusting();
    const std::string asFolder = beginning + "RequestCAPath = ../configuration/authorities\n";
    const std::string asStore = beginning + "RequestCAStore = " + folder().string() + "\n";
    add(pki());
    fs::create_directory(folder() / "below");
    fs::create_symlink("nowhere", folder() / "dangling");
    const fs::path pipe = addPipe("01234567.0");
    for (const std::string& settings : {asFolder, asStore}) {
        const std::string refusal = handshakeUnder(settings);
        EXPECT_NE(refusal.find("01234567.0: not a regular file"), std::string::npos) << refusal;
    }
    const std::string refusal = handshakeUnder(beginning + "RequestCAStore = " + pipe.string() + "\n");
    EXPECT_NE(refusal.find("not a regular file"), std::string::npos) << refusal;
    for (const char* const other : {"01234567.0", "below", "dangling"})
        fs::remove(folder() / other);
    const std::string file = pki().authorityFile().string();
    for (const std::string& settings : {asFolder, beginning + "RequestCAStore = " + file + "\n"})
        EXPECT_EQ(handshakeUnder(settings), "") << settings;
}

// A file of authorities may bring their lists of revoked certificates along.
TEST_F(TrustFolderTest, AFileMayHoldListsBesideAuthorities) {
    const fs::path list = pki().revocationList({});
    std::ofstream both(folder() / "both.pem");
    both << std::ifstream(pki().authorityFile()).rdbuf() << std::ifstream(list).rdbuf();
    both.close();
    EXPECT_EQ(handshakeUnder("[gateway]\nVerifyCAFile = ../configuration/authorities/both.pem\n"), "");
}

TEST_F(TrustFolderTest, TheLastGoodSettingsCoverWhatLiesInTheFolder) {
    const fs::path own = add(pki());
    EXPECT_EQ(handshake(), "");
    const fs::path pipe = addPipe("01234567.0");
    add(stranger());
    fs::remove(own);
    EXPECT_EQ(handshake(strange()), notTrusted);
    EXPECT_EQ(handshake(), "");
    fs::remove(pipe);
    EXPECT_EQ(handshake(strange()), "");
    EXPECT_EQ(handshake(), notTrusted);
}

TEST_F(TrustFolderTest, AuthoritiesThatComeAndGoCountForTheNextConnection) {
    EXPECT_EQ(handshake(), notTrusted);
    const fs::path file = add(pki());
    EXPECT_EQ(handshake(), "");
    fs::copy_file(stranger().authorityFile(), file, fs::copy_options::overwrite_existing);
    EXPECT_EQ(handshake(), notTrusted);
    fs::remove(file);
    fs::create_symlink("elsewhere.pem", file);
    EXPECT_EQ(handshake(), notTrusted);
    fs::copy_file(pki().authorityFile(), folder() / "elsewhere.pem");
    EXPECT_EQ(handshake(), "");
}

TEST_F(TrustFolderTest, OnlyFilesUnderTheirHashAndNumberedWithoutAGapCount) {
    fs::copy_file(pki().authorityFile(), folder() / "authority.pem");
    EXPECT_EQ(handshake(), notTrusted);
    add(pki(), ".1");
    EXPECT_EQ(handshake(), notTrusted);
    add(stranger(), ".pem");
    std::ofstream(folder() / (pki().nameHash() + ".0")) << contentOf(stranger().authorityFile());
    EXPECT_EQ(handshake(), "");
    EXPECT_EQ(handshake(strange()), notTrusted);
}

TEST_F(TrustFolderTest, RevocationListsInTheFolderCountBesideThoseOfTheSettings) {
    add(pki());
    const std::string hash = pki().nameHash();
    fs::rename(pki().revocationList(identity().certificate), folder() / (hash + ".r0"));
    EXPECT_EQ(handshake(), "");
    TestPki other(configuration(), "other");
    const std::string list = other.revocationList("").string();
    EXPECT_EQ(handshakeUnder("[gateway]\n" + path() + "\nCRLFile = " + list + "\n"),
              "certificate verify failed: certificate revoked");
}

TEST_F(TrustFolderTest, AFileThatHoldsNoCertificateIsNamed) {
    std::ofstream(folder() / "01234567.0") << "nothing\n";
    EXPECT_EQ(handshake(), place + " " + path() + ": 01234567.0: no certificate in it");
    fs::rename(folder() / "01234567.0", folder() / "01234567.r0");
    EXPECT_EQ(handshake(), place + " " + path() + ": 01234567.r0: no revocation list in it");
}

TEST_F(TrustFolderTest, FoldersTogetherAreOfALimitedSize) {
    const fs::path first = folder() / "01234567.0";
    std::ofstream(first) << contentOf(pki().authorityFile());
    fs::resize_file(first, 15U << 20U);
    for (int i = 1; i < 5; ++i)
        fs::create_symlink("01234567.0", folder() / ("01234567." + std::to_string(i)));
    EXPECT_EQ(handshake(), place + " " + path() + ": 01234567.4: too much in the folders of authorities");
}

TEST_F(TrustFolderTest, AFolderThatIsNotThereIsRefused) {
    EXPECT_EQ(handshakeUnder("[gateway]\nVerifyCAPath = /nowhere\n"),
              place + " VerifyCAPath = /nowhere: No such file or directory");
}

// What OpenSSL takes for the path of a store.
TEST_F(TrustFolderTest, AStoreMayBeWrittenAsAUriInAnyCase) {
    const std::string file = pki().authorityFile().string();
    for (const std::string beginning :
         {"", "file:", "FILE:", "File://", "file://localhost", "file://LOCALHOST"})
        EXPECT_EQ(handshakeUnder("[gateway]\nVerifyCAStore = " + beginning + file + "\n"), "") << beginning;
    add(pki());
    EXPECT_EQ(handshakeUnder("[gateway]\nVerifyCAStore = FILE://" + folder().string() + "\n"), "");
}

TEST_F(TrustFolderTest, APipeInPlaceOfAStoreIsRefusedHoweverItIsWritten) {
    const std::string pipe = addPipe("pipe").string();
    for (const std::string beginning :
         {"", "file:", "FILE:", "File://", "file://localhost", "FILE://LocalHost"}) {
        const std::string line = "VerifyCAStore = " + beginning + pipe;
        EXPECT_EQ(handshakeUnder("[gateway]\n" + line + "\n"), place + " " + line + ": not a regular file");
    }
}

TEST_F(TrustFolderTest, AStoreThatIsNotThereIsRefused) {
    EXPECT_EQ(handshakeUnder("[gateway]\nVerifyCAStore = ../configuration/missing\n"),
              place + " VerifyCAStore = ../configuration/missing: No such file or directory");
    EXPECT_EQ(handshakeUnder("[gateway]\nVerifyCAStore = file:authority.pem\n"),
              place + " VerifyCAStore = file:authority.pem: a file: URI needs an absolute path");
    EXPECT_EQ(handshakeUnder("[gateway]\nVerifyCAStore = file://other/authority.pem\n"),
              place + " VerifyCAStore = file://other/authority.pem: a file: URI needs an absolute path");
}

TEST_F(TrustFolderTest, AStoreMayHoldACertificateInBinary) {
    const fs::path binary = folder() / "authority.der";
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> in(std::fopen(pki().authorityFile().c_str(), "re"),
                                                             std::fclose);
    const std::unique_ptr<X509, void (*)(X509*)> certificate(
        PEM_read_X509(in.get(), nullptr, nullptr, nullptr), X509_free);
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> out(std::fopen(binary.c_str(), "we"), std::fclose);
    ASSERT_EQ(i2d_X509_fp(out.get(), certificate.get()), 1);
    out.reset();
    EXPECT_EQ(handshakeUnder("[gateway]\nVerifyCAStore = " + binary.string() + "\n"), "");
}

}  // namespace
