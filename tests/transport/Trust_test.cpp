// Whom the library believes and what it reads for that: revocation along a chain, the files that make up the
// settings, and the description of a peer.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>

#include "TransportTest.h"

namespace {

namespace fs = std::filesystem;

const std::string place = "../configuration/sek.cnf [gateway]";
const std::string notTrusted = "certificate verify failed: unable to get local issuer certificate";

using TrustTest = HandshakeTest;

// A server below an authority that is below the trusted one.
class RevocationTest : public TrustTest {
  protected:
    void SetUp() override {
        TrustTest::SetUp();
        m_middle = std::make_unique<TestPki>(configuration(), "middle", pki());
        m_leaf = m_middle->issueForLocalhost("leaf");
        std::ofstream(m_leaf.certificate, std::ios::app) << contentOf(m_middle->authorityFile());
    }
    TestPki& middle() const { return *m_middle; }
    const TestPki::Issued& leaf() const { return m_leaf; }
    // What a handshake says with these lists and lines.
    std::string outcome(const std::vector<fs::path>& lists, const std::string& lines = "") const {
        std::string all;
        for (const fs::path& list : lists)
            all += contentOf(list);
        write("all.crl", all);
        writeSettings("[gateway]\n" + trusting() + "CRLFile = ../configuration/all.crl\n" + lines);
        return handshake(serverContext(m_leaf));
    }

  private:
    std::unique_ptr<TestPki> m_middle;
    TestPki::Issued m_leaf;
};

const std::string revoked = "certificate verify failed: certificate revoked";
const std::string noList = "certificate verify failed: unable to get certificate CRL";

TEST_F(RevocationTest, ARevokedLeafIsRefusedHoweverFarTheCheckGoes) {
    const fs::path ofMiddle = middle().revocationList(leaf().certificate);
    const fs::path ofRoot = pki().revocationList("");
    EXPECT_EQ(outcome({ofMiddle}), revoked);
    EXPECT_EQ(outcome({ofMiddle, ofRoot}, "CRLCheck = leaf\n"), revoked);
    EXPECT_EQ(outcome({ofMiddle, ofRoot}, "CRLCheck = chain\n"), revoked);
}

TEST_F(RevocationTest, ARevokedAuthorityIsRefusedWhenTheListOfItsIssuerIsThere) {
    const fs::path ofMiddle = middle().revocationList("");
    const fs::path ofRoot = pki().revocationList(middle().authorityFile());
    EXPECT_EQ(outcome({ofMiddle, ofRoot}), revoked);
    EXPECT_EQ(outcome({ofMiddle, ofRoot}, "CRLCheck = chain\n"), revoked);
    EXPECT_EQ(outcome({ofMiddle, ofRoot}, "CRLCheck = leaf\n"), "");
}

TEST_F(RevocationTest, AListThatIsMissingAboveTheLeafCountsForChainOnly) {
    const fs::path ofMiddle = middle().revocationList("");
    EXPECT_EQ(outcome({ofMiddle}), "");
    EXPECT_EQ(outcome({ofMiddle}, "CRLCheck = leaf\n"), "");
    EXPECT_EQ(outcome({ofMiddle}, "CRLCheck = chain\n"), noList);
    EXPECT_EQ(outcome({ofMiddle, pki().revocationList("")}, "CRLCheck = chain\n"), "");
}

TEST_F(RevocationTest, TheLeafsOwnListMustAlwaysBeThere) {
    EXPECT_EQ(outcome({pki().revocationList("")}), noList);
    EXPECT_EQ(outcome({pki().revocationList("")}, "CRLCheck = leaf\n"), noList);
}

TEST_F(RevocationTest, AnExpiredListIsRefusedOnEachLevelThatIsChecked) {
    const fs::path ofMiddle = middle().revocationList("");
    const fs::path ofRoot = pki().revocationList("", -3600);
    const std::string expired = "certificate verify failed: CRL has expired";
    EXPECT_EQ(outcome({ofMiddle, ofRoot}), expired);
    EXPECT_EQ(outcome({ofMiddle, ofRoot}, "CRLCheck = chain\n"), expired);
    EXPECT_EQ(outcome({ofMiddle, ofRoot}, "CRLCheck = leaf\n"), "");
    EXPECT_EQ(outcome({middle().revocationList("", -3600)}), expired);
}

TEST_F(RevocationTest, SeveralFilesCountTogether) {
    const fs::path ofMiddle = middle().revocationList("");
    const fs::path ofRoot = pki().revocationList(middle().authorityFile());
    EXPECT_EQ(outcome({ofMiddle}, "second.CRLFile = " + ofRoot.string() + "\n"), revoked);
}

TEST_F(RevocationTest, AnotherValueOfTheExtentIsRefused) {
    EXPECT_EQ(
        handshakeUnder("[gateway]\nCRLFile = " + pki().revocationList("").string() + "\nCRLCheck = all\n"),
        place + " CRLCheck = all: neither leaf nor chain");
    EXPECT_EQ(handshakeUnder("[gateway]\nCRLCheck = chain\n"),
              place + " CRLCheck = chain: there is no CRLFile");
}

using SourcesTest = TrustTest;

TEST_F(SourcesTest, IncludedFilesArePartOfTheSettingsAndReadAnewWhenTheyChange) {
    write("more.inc", "# nothing yet\n");
    EXPECT_EQ(handshakeUnder("[gateway]\n.include ../configuration/more.inc\n"), notTrusted);
    write("more.inc", trusting());
    EXPECT_EQ(handshake(), "");
}

TEST_F(SourcesTest, IncludesMayBeNestedFoldersAndVariables) {
    fs::create_directory(configuration() / "parts");
    write("parts/a.cnf", ".include = \"../configuration/deep.inc\" # a comment\n");
    write("parts/b.txt", "Nonsense = 1\n");
    write("deep.inc", trusting());
    EXPECT_EQ(handshakeUnder("home = ../configuration\n[gateway]\n.include $home/parts\n"), "");
    write("deep.inc", "MinProtocol = TLSv1.2\n");
    EXPECT_EQ(handshake(), notTrusted);
    write("parts/c.conf", trusting());
    EXPECT_EQ(handshake(), "");
}

TEST_F(SourcesTest, TheFolderOfIncludesIsHeeded) {
    write("more.inc", trusting());
    EXPECT_EQ(
        handshakeUnder(".pragma includedir:" + configuration().string() + "\n[gateway]\n.include more.inc\n"),
        "");
}

TEST_F(SourcesTest, AnErrorInAnIncludedFileNamesThatFile) {
    write("more.inc", "MinProtocol = TLSv1.2\nno assignment\n");
    const std::string text = handshakeUnder("[gateway]\n.include ../configuration/more.inc\n");
    EXPECT_EQ(text.rfind("cannot read ../configuration/more.inc line 2: ", 0), 0U) << text;
}

TEST_F(SourcesTest, AnIncludeWhosePathCannotBeReadIsNamedWithItsOwnFileAndLine) {
    write("more.inc", "MinProtocol = TLSv1.2\n\n.include $missing/x\n");
    const std::string included = handshakeUnder("[gateway]\n.include ../configuration/more.inc\n");
    EXPECT_EQ(included.rfind("cannot read ../configuration/more.inc line 3: ", 0), 0U) << included;
    const std::string own = handshakeUnder("[gateway]\n#\n#\n.include = $missing/x\n");
    EXPECT_EQ(own.rfind("cannot read ../configuration/sek.cnf line 4: ", 0), 0U) << own;
}

TEST_F(SourcesTest, AFlagOfTheReaderMayBeWrittenInAnyCase) {
    write("more.inc", trusting());
    const std::string rest = "\n[gateway]\n.include ../configuration/more.inc\n";
    for (const std::string value : {"on", "ON", "True", "TRUE"})
        EXPECT_EQ(
            handshakeUnder(".pragma abspath:" + value + rest),
            "cannot read ../configuration/sek.cnf line 3: the path ../configuration/more.inc is relative");
    for (const std::string value : {"off", "OFF", "False"})
        EXPECT_EQ(handshakeUnder(".pragma abspath:on\n.pragma abspath:" + value + rest), "");
}

// As a crash in the midst of writing leaves a file; OpenSSL would take it for its end.
TEST_F(SourcesTest, AFileWithZeroBytesIsRefused) {
    const std::string settings = "[gateway]\nMinProtocol = TLSv1.2\n";
    EXPECT_EQ(handshakeUnder(settings + std::string(2, '\0') + "\nNonsense = 1\n"),
              "cannot read ../configuration/sek.cnf: not a text");
}

TEST_F(SourcesTest, AnIncludedFileThatIsNotThereIsRefused) {
    EXPECT_EQ(handshakeUnder("[gateway]\n.include ../configuration/missing.inc\n"),
              "cannot read ../configuration/missing.inc: No such file or directory");
}

TEST_F(SourcesTest, AFileThatIncludesItselfIsRefused) {
    EXPECT_EQ(handshakeUnder("[gateway]\n.include ../configuration/sek.cnf\n"),
              "cannot read ../configuration/sek.cnf: too many included files");
}

TEST_F(SourcesTest, APipeInPlaceOfAnyFileIsRefusedAtOnce) {
    const fs::path pipe = configuration() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const char* command : {"Certificate", "PrivateKey", "VerifyCAFile", "CRLFile", "VerifyCAStore"})
        EXPECT_EQ(handshakeUnder("[gateway]\n" + std::string(command) + " = " + pipe.string() + "\n"),
                  place + " " + command + " = " + pipe.string() + ": not a regular file");
    EXPECT_EQ(handshakeUnder("[gateway]\n.include " + pipe.string() + "\n"),
              "cannot read " + pipe.string() + ": not a regular file");
    fs::remove(configuration() / "sek.cnf");
    fs::rename(pipe, configuration() / "sek.cnf");
    EXPECT_EQ(handshake(), "cannot read ../configuration/sek.cnf: not a regular file");
}

TEST_F(SourcesTest, ASocketADeviceAndAnEndlessFileAreRefused) {
    const std::string path = (configuration() / "socket").string();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(listener);
    write("endless", "");
    fs::resize_file(configuration() / "endless", 1U << 30U);
    EXPECT_EQ(handshakeUnder("[gateway]\n.include " + path + "\n"),
              "cannot read " + path + ": not a regular file");
    EXPECT_EQ(handshakeUnder("[gateway]\nVerifyCAFile = /dev/zero\n"),
              place + " VerifyCAFile = /dev/zero: not a regular file");
    EXPECT_EQ(handshakeUnder("[gateway]\nCRLFile = ../configuration/endless\n"),
              place + " CRLFile = ../configuration/endless: larger than 16 MiB, which no such file is");
    EXPECT_EQ(handshakeUnder("[gateway]\n.include ../configuration/endless\n"),
              "cannot read ../configuration/endless: larger than 1 MiB, which no such file is");
}

TEST_F(SourcesTest, APipeInAFolderOfAuthoritiesIsRefused) {
    fs::create_directory(configuration() / "authorities");
    ASSERT_EQ(mkfifo((configuration() / "authorities/01234567.0").c_str(), 0600), 0);
    EXPECT_EQ(handshakeUnder("[gateway]\nVerifyCAPath = ../configuration/authorities\n"),
              place + " VerifyCAPath = ../configuration/authorities: 01234567.0: not a regular file");
}

// The system's trust store lies where the environment says.
class EnvironmentTest : public TrustTest {
  protected:
    void TearDown() override {
        unsetenv("SSL_CERT_FILE");
        unsetenv("SSL_CERT_DIR");
        TrustTest::TearDown();
    }
    // What a handshake says that trusts whom the system trusts.
    std::string handshakeTrusting(const char* variable, const std::string& value) const {
        setenv(variable, value.c_str(), 1);
        const std::string outcome = handshakeUnder("[gateway]\n");
        unsetenv(variable);
        return outcome;
    }
};

TEST_F(EnvironmentTest, APipeInPlaceOfTheSystemsTrustStoreIsRefusedAtOnce) {
    const std::string folder = (configuration() / "authorities").string();
    const std::string pipe = folder + "/01234567.0";
    fs::create_directory(folder);
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::string failure = "cannot read the system's trust store: ";
    EXPECT_EQ(handshakeTrusting("SSL_CERT_FILE", pipe),
              failure + "SSL_CERT_FILE = " + pipe + ": not a regular file");
    EXPECT_EQ(handshakeTrusting("SSL_CERT_DIR", "/nowhere:" + folder),
              failure + "SSL_CERT_DIR = /nowhere:" + folder + ": 01234567.0: not a regular file");
}

TEST_F(EnvironmentTest, ATrustStoreThatIsNotThereTrustsNobody) {
    EXPECT_EQ(handshakeTrusting("SSL_CERT_FILE", "/nowhere"), notTrusted);
    EXPECT_EQ(handshakeTrusting("SSL_CERT_DIR", "/nowhere"), notTrusted);
}

TEST_F(EnvironmentTest, TheTrustStoreOfTheEnvironmentIsReadAnewWhenItChanges) {
    const fs::path store = configuration() / "store.pem";
    setenv("SSL_CERT_FILE", store.c_str(), 1);
    EXPECT_EQ(handshakeUnder("[gateway]\n"), notTrusted);
    fs::copy_file(pki().authorityFile(), store);
    EXPECT_EQ(handshake(), "");
}

class DescribePeerTest : public TrustTest {
  protected:
    static std::string describe(const SekHandle& handle) {
        char* result = nullptr;
        EXPECT_EQ(SEK_SocketSecurityOp(handle.get(), text("describePeer"), &result, nullptr), SEK_Ok)
            << handle.details();
        std::string copy = result != nullptr ? result : "";
        SEK_CryptoFree(result, nullptr);
        return copy;
    }
    std::string descriptionOf(const PeerContext& context) const {
        TestPeer peer([context](PeerConnection& connection) {
            if (connection.acceptTls(context)) connection.waitForEnd();
        });
        SekHandle handle;
        EXPECT_EQ(handle.open(peer.url("https")), SEK_Ok) << handle.details();
        return describe(handle);
    }
};

TEST_F(DescribePeerTest, TellsProtocolCipherAndTheVerifiedChain) {
    const std::string xml = descriptionOf(server());
    EXPECT_EQ(
        xml.rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?><peerDescription "
                  "xmlns=\"http://schemas.velmora.example/sek/peer/1/\" verified=\"true\">"
                  "<protocol>TLSv1.3</protocol><cipher>TLS_AES_256_GCM_SHA384</cipher><chain>"
                  "<certificate><subject>CN=server</subject><issuer>CN=authority</issuer>"
                  "<alternativeNames><name kind=\"DNS\">localhost</name><name kind=\"IP\">127.0.0.1</name>"
                  "<name kind=\"IP\">::1</name></alternativeNames><notBefore>20",
                  0),
        0U)
        << xml;
    EXPECT_NE(xml.find("Z</notAfter><fingerprint algorithm=\"SHA-256\">"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<certificate><subject>CN=authority</subject>"), std::string::npos) << xml;
}

TEST_F(DescribePeerTest, AHostileCertificateMakesNoHarm) {
    TestPki::Request request{"hostile", {"IP:127.0.0.1"}};
    request.commonName = "</subject>&\"\n\xC3\xBC";
    for (int i = 0; i < 500; ++i)
        request.alternatives.push_back("DNS:<" + std::to_string(i) + "&\x02>");
    const std::string xml = descriptionOf(serverContext(pki().issue(request)));
    EXPECT_NE(xml.find("&lt;/subject\\&gt;&amp;"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<name kind=\"DNS\">&lt;0&amp;\\02&gt;</name>"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<alternativeNames omitted=\"401\">"), std::string::npos) << xml;
    EXPECT_TRUE(std::all_of(xml.begin(), xml.end(), [](char c) { return c >= ' ' && c < 0x7F; }));
}

TEST_F(DescribePeerTest, WithoutVerificationItSaysSo) {
    writeSettings("[gateway]\nVerifyMode = None\n");
    const std::string xml = descriptionOf(server());
    EXPECT_NE(xml.find(" verified=\"false\">"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<subject>CN=server</subject>"), std::string::npos) << xml;
}

TEST_F(DescribePeerTest, PlainAndUnfinishedConnectionsHaveNoDescription) {
    TestPeer peer([](PeerConnection& connection) { connection.waitForEnd(); }, 2);
    char* result = nullptr;
    SekHandle fresh;
    EXPECT_EQ(SEK_SocketSecurityOp(fresh.get(), text("describePeer"), &result, nullptr), SEK_Failed);
    EXPECT_EQ(fresh.details(), "cannot describe the peer: the socket is not connected");
    for (const char* scheme : {"http", "https"}) {
        SekHandle handle;
        handle.connectUrl(peer.url(scheme));
        EXPECT_EQ(SEK_SocketSecurityOp(handle.get(), text("describePeer"), &result, nullptr), SEK_Failed);
        EXPECT_EQ(handle.details(), "cannot describe the peer 127.0.0.1:" + std::to_string(peer.port()) +
                                        ": TLS is not established");
        EXPECT_EQ(result, nullptr);
    }
}

}  // namespace
