// The ground of the policy tables: peers of every kind against settings of every kind.
//
// Purpose: a row names a peer and settings; the test makes both, has them speak with each other, holds the outcome
//   against the row and adds a line to the table "policy".
// Ownership: the fixture owns the authorities that a row makes.
// Threads: a peer's script runs on the peer's thread, everything else on the test's own.
// Units: seconds, relative to now.
// Errors: set-up failures throw.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "TransportTest.h"

// What the peer of a row shows; its parts are made when the row needs them.
class PolicyWorld {
  public:
    PolicyWorld(const std::filesystem::path& folder, TestPki& root) : m_folder(folder), m_root(&root) {}

    TestPki& root() const { return *m_root; }
    // An authority below another one, or a root of its own.
    TestPki& below(const TestPki& issuer, const std::string& name, const TestPki::Traits& traits = {});
    TestPki& otherRoot(const std::string& name, const TestPki::Traits& traits = {});
    // The authority that has the same name and another key.
    TestPki& impostor();
    // The client trusts this authority instead.
    void trust(TestPki& authority) { m_root = &authority; }

    // A certificate for "localhost", 127.0.0.1 and ::1, to be changed as needed.
    static TestPki::Request leaf();
    static TestPki::Request named(const std::vector<std::string>& alternatives);
    // A server that shows the certificate and then those of the authorities.
    static PeerContext server(const TestPki::Issued& identity, const std::vector<const TestPki*>& chain = {});
    PeerContext server(const TestPki::Request& request) const { return server(m_root->issue(request)); }
    PeerContext good() const { return server(leaf()); }
    // A server of RSA, for suites that ask for it.
    PeerContext rsa() const;

  private:
    std::filesystem::path m_folder;
    TestPki* m_root;
    std::vector<std::unique_ptr<TestPki>> m_authorities;
};

// Limits what a peer speaks; the versions are TLS1_VERSION and so on.
PeerContext speaking(PeerContext context, int leastVersion, int mostVersion, const char* suites = nullptr);

// A server that answers a word once the handshake is done.
TestPeer::Script answering(const PeerContext& context);

class PolicyTest : public HandshakeTest {
  protected:
    struct Outcome {
        long result = -1;
        std::string words;  // protocol and suite, or the reason of the failure
    };

    void SetUp() override;
    void TearDown() override;

    PolicyWorld& world() { return *m_world; }
    // Writes the lines of the section; "trusted.pem", "trusted" and "all.crl" beside the settings are the trusted
    // authority, the folder of it, and the lists. Without lines there is no file, and the system trusts the
    // authority.
    void settle(const char* lines) const;
    // Connects, shakes hands, exchanges a word.
    static Outcome speak(const TestPeer::Script& script, const std::string& host = "localhost");
    // An empty expectation means that they understand each other; otherwise it is a part of the words.
    static void judge(const std::string& name, const std::string& peer, const char* settings,
                      const Outcome& outcome, long expected, const std::string& words);

  private:
    std::unique_ptr<PolicyWorld> m_world;
};

// The line that trusts the authority of the row.
#define POLICY_TRUST "VerifyCAFile = ../configuration/trusted.pem\n"
