// The administrator's page: its commands are run as printed, in the installation's configuration folder, and each
// of its examples of sek.cnf serves a connection.

#include "InteropTest.h"
#include "MarkdownBlocks.h"

namespace {

class ManualTest : public InteropTest {
  protected:
    // The order of the page's examples.
    enum Example : std::size_t {
        PrivateAuthority,
        SystemsStore,
        ClientCertificate,
        Only13,
        Revocation,
        Server
    };

    void SetUp() override {
        InteropTest::SetUp();
        m_examples = markdownBlocks(TRANSPORT_MANUAL, "ini");
        ASSERT_EQ(m_examples.size(), Server + 1U);
        for (const std::string& commands : markdownBlocks(TRANSPORT_MANUAL, "sh"))
            run(commands);
    }
    void run(const std::string& commands) const {
        ExternalProgram shell({"sh", "-e", "-c", "umask 077\n" + commands}, configuration().string());
        ASSERT_EQ(shell.waitForEnd(), 0) << commands << shell.words();
    }
    const std::string& example(Example index) const { return m_examples.at(index); }
    PeerContext dispatcher() const {
        return serverContext({configuration() / "dispatcher.pem", configuration() / "dispatcher.key"});
    }
    // What the library says to a dispatcher under these settings; the version of TLS when it says nothing.
    std::string outcome(const std::string& settings, const PeerContext& context) const {
        writeSettings(settings);
        std::string version;
        TestPeer peer([&, context](PeerConnection& connection) {
            if (!connection.acceptTls(context)) return;
            version = SSL_get_version(connection.tls());
            connection.write("ready");
            connection.waitForEnd();
        });
        SekHandle handle;
        if (handle.open(peer.url("https", "localhost")) != SEK_Ok || handle.receive().data != "ready")
            return withoutCertificate(handle.details());
        handle.close();
        peer.join();
        return version;
    }

  private:
    std::vector<std::string> m_examples;
};

TEST_F(ManualTest, ClientExamplesWorkAsTheyStand) {
    EXPECT_EQ(outcome(example(PrivateAuthority), dispatcher()), "TLSv1.3");
    EXPECT_EQ(outcome(example(SystemsStore), dispatcher()),
              "certificate verify failed: unable to get local issuer certificate");
    EXPECT_EQ(outcome(example(Only13), dispatcher()), "TLSv1.3");
}

TEST_F(ManualTest, The13ExampleRefuses12) {
    const PeerContext older = dispatcher();
    SSL_CTX_set_max_proto_version(older.get(), TLS1_2_VERSION);
    EXPECT_EQ(outcome(example(PrivateAuthority), older), "TLSv1.2");
    const std::string refusal = outcome(example(Only13), older);
    EXPECT_NE(refusal.find("protocol version"), std::string::npos) << refusal;
}

TEST_F(ManualTest, TheClientCertificateExampleSatisfiesADemandingPeer) {
    const PeerContext demanding = dispatcher();
    const std::string ca = configuration() / "ca.pem";
    ASSERT_EQ(SSL_CTX_load_verify_locations(demanding.get(), ca.c_str(), nullptr), 1);
    SSL_CTX_set_verify(demanding.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    EXPECT_EQ(outcome(example(ClientCertificate), demanding), "TLSv1.3");
}

// The page's last commands revoke the dispatcher's certificate.
TEST_F(ManualTest, TheRevocationExampleRefusesWhatThePageRevoked) {
    EXPECT_EQ(outcome(example(Revocation), dispatcher()), "certificate verify failed: certificate revoked");
}

TEST_F(ManualTest, TheServerExampleAcceptsOnlyClientsWithACertificate) {
    writeSettings(example(Server));
    const std::string folder = configuration().string() + "/";
    for (const bool withCertificate : {true, false}) {
        SekHandle listener("IPv4", "dispatcher");
        std::vector<std::string> command{
            "openssl",         "s_client",      "-quiet",
            "-verify_quiet",   "-noservername", "-CAfile",
            folder + "ca.pem", "-connect",      "127.0.0.1:" + std::to_string(listener.listen("tls"))};
        if (withCertificate)
            command.insert(command.end(), {"-cert", folder + "service.pem", "-key", folder + "service.key"});
        ExternalProgram client(command);
        SekHandle accepted(listener.accept());
        EXPECT_EQ(accepted.establish(), withCertificate ? SEK_Ok : SEK_Failed) << accepted.details();
    }
}

}  // namespace
