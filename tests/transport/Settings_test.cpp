#include <fstream>

#include "TransportTest.h"

namespace {

namespace fs = std::filesystem;

class SettingsTest : public TlsTest {
  protected:
    // What a handshake with a good server says under these settings; "" when it works.
    std::string handshakeUnder(const std::string& settings, const std::string& service = "gateway") {
        writeSettings(settings);
        return handshake(service);
    }
    std::string handshake(const std::string& service = "gateway") {
        TestPeer peer(tlsScript([](PeerConnection& connection) { connection.waitForEnd(); }));
        SekHandle handle("IPv4", service);
        EXPECT_EQ(handle.connectUrl(peer.url("https")), SEK_HandshakePending);
        if (handle.establish() == SEK_Ok) return "";
        return withoutCertificate(handle.details());
    }
    std::string authority() const { return pki().authorityFile().string(); }
};

const std::string place = "../configuration/sek.cnf [gateway]";
const std::string notTrusted = "certificate verify failed: unable to get local issuer certificate";

TEST_F(SettingsTest, WithoutTheFileThePeerIsVerifiedAgainstTheSystemsStore) {
    fs::remove(configuration() / "sek.cnf");
    EXPECT_EQ(handshake(), notTrusted);
}

TEST_F(SettingsTest, AFileWithoutTheSectionIsRefused) {
    EXPECT_EQ(handshakeUnder("[gatway]\nVerifyMode = None\n"), place + ": no such section");
    EXPECT_EQ(handshakeUnder("VerifyMode = None\n"), place + ": no such section");
}

TEST_F(SettingsTest, AnEmptySectionHasTheSafeDefaults) {
    EXPECT_EQ(handshakeUnder("[gateway]\n"), notTrusted);
}

TEST_F(SettingsTest, TheSectionIsTheServices) {
    const std::string settings =
        "[gateway]\nVerifyCAFile = " + authority() + "\n[other]\nVerifyMode = None\n";
    EXPECT_EQ(handshakeUnder(settings), "");
    EXPECT_EQ(handshakeUnder(settings, "other"), "");
    EXPECT_EQ(handshakeUnder(settings, "third"), "../configuration/sek.cnf [third]: no such section");
}

TEST_F(SettingsTest, FilesAreFoundRelativeToTheWorkingDirectory) {
    EXPECT_EQ(handshakeUnder("[gateway]\nVerifyCAFile = ../configuration/authority.pem\n"), "");
}

TEST_F(SettingsTest, VerificationIsOffOnlyWhenTheFileSaysSo) {
    EXPECT_EQ(handshakeUnder("[gateway]\nMinProtocol = TLSv1.2\n"), notTrusted);
    EXPECT_EQ(handshakeUnder("[gateway]\nVerifyMode = Peer\n"), notTrusted);
    EXPECT_EQ(handshakeUnder("[gateway]\nVerifyMode = None\n"), "");
}

TEST_F(SettingsTest, NothingButTheLiteralNoneSwitchesVerificationOff) {
    for (const std::string value :
         {"Peer,-Require", "-Once", "-Peer", "none", "NONE", "Peer,None", "-Request"}) {
        const std::string refusal = handshakeUnder("[gateway]\nVerifyMode = " + value + "\n");
        EXPECT_EQ(refusal.rfind(place + " VerifyMode = " + value + ": ", 0), 0U) << refusal;
    }
    EXPECT_EQ(
        handshakeUnder("[gateway]\nVerifyMode = -Peer\n"),
        place + " VerifyMode = -Peer: the peer would not be verified, which only the value None may say");
}

TEST_F(SettingsTest, TheLastOfSeveralVerifyModesCounts) {
    EXPECT_EQ(handshakeUnder("[gateway]\na.VerifyMode = None\nb.VerifyMode = Peer\n"), notTrusted);
    EXPECT_EQ(handshakeUnder("[gateway]\nVerifyMode = None\nVerifyMode = Peer\n"), notTrusted);
    EXPECT_EQ(handshakeUnder("[gateway]\na.VerifyMode = Peer\nb.VerifyMode = None\n"), "");
}

TEST_F(SettingsTest, CipherSuitesWithoutCertificatesAreRefused) {
    const std::string weak = "[gateway]\nCipherString = ALL:@SECLEVEL=0\n";
    const std::string refusal = handshakeUnder(weak);
    EXPECT_EQ(refusal.rfind(place + " CipherString = ALL:@SECLEVEL=0: the peer would not be verified", 0), 0U)
        << refusal;
    EXPECT_EQ(handshakeUnder("[gateway]\nCipherString = aNULL:@SECLEVEL=0\n")
                  .rfind(place + " CipherString = aNULL:@SECLEVEL=0: ", 0),
              0U);
    EXPECT_EQ(handshakeUnder(weak + "VerifyMode = None\n"), "");
}

TEST_F(SettingsTest, CommandsMayCarryAPrefix) {
    EXPECT_EQ(handshakeUnder("[gateway]\nfirst.VerifyCAFile = " + authority() + "\n"), "");
}

TEST_F(SettingsTest, UnknownCommandIsRefused) {
    EXPECT_EQ(handshakeUnder("[gateway]\nVerifyEverything = yes\n"),
              place + " VerifyEverything = yes: unknown command");
}

TEST_F(SettingsTest, BadValueIsRefused) {
    EXPECT_EQ(handshakeUnder("[gateway]\nMinProtocol = TLSv9\n").rfind(place + " MinProtocol = TLSv9: ", 0),
              0U);
}

TEST_F(SettingsTest, MissingFilesAreNamed) {
    const std::string text = handshakeUnder("[gateway]\nVerifyCAFile = ../configuration/missing.pem\n");
    EXPECT_EQ(text.rfind(place + " VerifyCAFile = ../configuration/missing.pem: ", 0), 0U) << text;
    EXPECT_NE(text.find("No such file"), std::string::npos) << text;
}

TEST_F(SettingsTest, AFileThatIsNoConfigurationIsRefused) {
    const std::string text = handshakeUnder("[gateway\nVerifyMode = None\n");
    EXPECT_EQ(text.rfind("cannot read ../configuration/sek.cnf line 1: ", 0), 0U) << text;
}

TEST_F(SettingsTest, AFolderInPlaceOfTheFileIsRefused) {
    fs::remove(configuration() / "sek.cnf");
    fs::create_directory(configuration() / "sek.cnf");
    const std::string text = handshake();
    EXPECT_EQ(text.rfind("cannot read ../configuration/sek.cnf", 0), 0U) << text;
}

TEST_F(SettingsTest, APrivateKeyThatOthersCanReadIsRefused) {
    fs::permissions(identity().key, fs::perms::group_read | fs::perms::others_read, fs::perm_options::add);
    const std::string text = handshakeUnder("[gateway]\nCertificate = " + identity().certificate.string() +
                                            "\nPrivateKey = " + identity().key.string() + "\n");
    EXPECT_EQ(text, place + " PrivateKey: private key file " + identity().key.string() +
                        " can be read by others (mode 0644): chmod 600 it");
}

TEST_F(SettingsTest, AKeyInsideAnOpenCertificateFileIsRefused) {
    const fs::path both = configuration() / "both.pem";
    std::ofstream(both) << std::ifstream(identity().certificate).rdbuf()
                        << std::ifstream(identity().key).rdbuf();
    fs::permissions(both, fs::perms(0644));
    const std::string settings =
        "[gateway]\nVerifyCAFile = " + authority() + "\nCertificate = " + both.string() + "\n";
    EXPECT_EQ(handshakeUnder(settings), place + " Certificate: private key file " + both.string() +
                                            " can be read by others (mode 0644): chmod 600 it");
    fs::permissions(both, fs::perms(0600));
    EXPECT_EQ(handshake(), "");
}

TEST_F(SettingsTest, AnEncryptedKeyIsRefusedWithoutAQuestion) {
    TestPki::Request request{"locked", {}};
    request.password = "secret";
    const TestPki::Issued locked = pki().issue(request);
    const std::string text = handshakeUnder("[gateway]\nCertificate = " + locked.certificate.string() +
                                            "\nPrivateKey = " + locked.key.string() + "\n");
    EXPECT_EQ(text, place + " PrivateKey = " + locked.key.string() +
                        ": the private key is encrypted, which is not supported");
}

TEST_F(SettingsTest, AKeyOfAnotherCertificateIsRefused) {
    const TestPki::Issued other = pki().issueForLocalhost("other");
    const std::string text = handshakeUnder("[gateway]\nCertificate = " + identity().certificate.string() +
                                            "\nPrivateKey = " + other.key.string() + "\n");
    EXPECT_NE(text.find("key values mismatch"), std::string::npos) << text;
}

TEST_F(SettingsTest, ACertificateWithoutAKeyIsRefused) {
    const std::string text =
        handshakeUnder("[gateway]\nCertificate = " + identity().certificate.string() + "\n");
    EXPECT_EQ(text.rfind(place + ": no private key for the certificate", 0), 0U) << text;
}

TEST_F(SettingsTest, ARevokedCertificateIsRefused) {
    const std::string list = pki().revocationList(identity().certificate).string();
    EXPECT_EQ(handshakeUnder("[gateway]\nVerifyCAFile = " + authority() + "\nCRLFile = " + list + "\n"),
              "certificate verify failed: certificate revoked");
}

TEST_F(SettingsTest, ACertificateThatIsNotRevokedPasses) {
    const std::string list = pki().revocationList("").string();
    EXPECT_EQ(handshakeUnder("[gateway]\nCRLFile = " + list + "\nVerifyCAFile = " + authority() + "\n"), "");
}

TEST_F(SettingsTest, ARevocationListOfAnotherAuthorityLeavesNobodyAccepted) {
    TestPki stranger(configuration(), "stranger");
    const std::string list = stranger.revocationList("").string();
    EXPECT_EQ(handshakeUnder("[gateway]\nVerifyCAFile = " + authority() + "\nCRLFile = " + list + "\n"),
              "certificate verify failed: unable to get certificate CRL");
}

TEST_F(SettingsTest, CommandsAreKnownInAnyCase) {
    const std::string list = pki().revocationList(identity().certificate).string();
    EXPECT_EQ(handshakeUnder("[gateway]\nverifycafile = " + authority() + "\n"), "");
    EXPECT_EQ(handshakeUnder("[gateway]\nVERIFYCAFILE = " + authority() + "\ncrlfile = " + list + "\n"),
              "certificate verify failed: certificate revoked");
}

TEST_F(SettingsTest, AnUnreadableRevocationListIsRefused) {
    const std::string text = handshakeUnder("[gateway]\nVerifyCAFile = " + authority() +
                                            "\nCRLFile = ../configuration/missing.crl\n");
    EXPECT_EQ(text.rfind(place + " CRLFile = ../configuration/missing.crl: ", 0), 0U) << text;
}

TEST_F(SettingsTest, ChangedSettingsApplyToTheNextConnection) {
    EXPECT_EQ(handshake(), "");
    EXPECT_EQ(handshakeUnder("[gateway]\nMinProtocol = TLSv1.2\n"), notTrusted);
    trust(pki());
    EXPECT_EQ(handshake(), "");
}

TEST_F(SettingsTest, AChangedFileNamedInTheSettingsAppliesToo) {
    EXPECT_EQ(handshake(), "");
    TestPki stranger(configuration(), "stranger");
    fs::rename(stranger.authorityFile(), pki().authorityFile());
    EXPECT_EQ(handshake(), notTrusted);
}

TEST_F(SettingsTest, TheLastGoodSettingsStayInForceUntilTheFileIsGoodAgain) {
    EXPECT_EQ(handshake(), "");
    EXPECT_EQ(handshakeUnder("[gateway]\nNonsense = 1\n"), "");
    EXPECT_EQ(handshakeUnder("[gateway\n"), "");
    EXPECT_EQ(handshakeUnder("[gatway]\nVerifyMode = None\n"), "");
    fs::remove(configuration() / "sek.cnf");
    EXPECT_EQ(handshake(), "");
    fs::create_directory(configuration() / "sek.cnf");
    EXPECT_EQ(handshake(), "");
    fs::remove(configuration() / "sek.cnf");
    EXPECT_EQ(handshakeUnder("[gateway]\nMinProtocol = TLSv1.2\n"), notTrusted);
}

TEST_F(SettingsTest, AMissingFileThatIsNamedLeavesTheLastGoodSettingsInForce) {
    EXPECT_EQ(handshake(), "");
    fs::rename(pki().authorityFile(), configuration() / "away");
    EXPECT_EQ(handshake(), "");
}

TEST_F(SettingsTest, AnErrorDoesNotOutliveItsCause) {
    EXPECT_NE(handshakeUnder("[gateway]\nNonsense = 1\n"), "");
    trust(pki());
    EXPECT_EQ(handshake(), "");
}

}  // namespace
