// Lives of a connection through the security library's entry points, with right peers and with wrong ones.
//
// Purpose: reads settings of every kind, connects or listens, shakes hands, describes the peer, sends, polls, receives
//   and closes, and notes what each call has said.
// Ownership: owns the folder of settings and certificates, and the peers, which serve for as long as it exists.
// Threads: each life has a thread of its own, so that what is kept for a thread goes with it.
// Errors: set-up failures throw.
#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "TestPeer.h"
#include "TestPki.h"

struct TransportLife {
    struct Step {
        std::string name;
        long code = 0;
        std::string text;
    };
    std::vector<Step> steps;  // up to the first that failed, and the end
    bool isConnected = false;
    bool isAnswered = false;   // all that a life is for has come to pass
    bool peerGotData = false;  // of the application, or was believed to have sent some

    const Step* failure() const;
};

enum class Way {
    ByName,          // the right peer, whose name is expected
    ByAddress,       // the right peer, whose address is expected, with the system's trust store
    ToStranger,      // a peer whose certificate another authority has issued
    ToOther,         // a peer whose certificate is for another host
    ToOtherName,     // the same, asked for by a name that takes memory of its own
    ToRevoked,       // a peer whose certificate has been revoked
    ToBare,          // a peer that encrypts nothing, with settings that would let it
    Plain,           // without TLS
    Serving,         // the server's side, a client with a certificate
    ServingStranger  // the server's side, a client whose certificate another authority has issued
};
const char* nameOf(Way way);
inline constexpr Way kWays[] = {Way::ByName,      Way::ByAddress,      Way::ToStranger, Way::ToOther,
                                Way::ToOtherName, Way::ToRevoked,      Way::ToBare,     Way::Plain,
                                Way::Serving,     Way::ServingStranger};
bool isWrong(Way way);

class TransportWorld {
  public:
    TransportWorld();
    ~TransportWorld();
    TransportWorld(const TransportWorld&) = delete;
    TransportWorld& operator=(const TransportWorld&) = delete;

    TransportLife live(Way way);

    // A life whose settings are changed after a first connection: `arm` is called then, and `disarm` when the
    // connection after it has come to its end.
    struct Renewal {
        TransportLife life;
        bool isBegun = false;     // the first connection has come about
        bool isForgotten = true;  // no right peer can be reached afterwards
        bool isRenewed = false;   // afterwards the new settings are in force
    };
    Renewal renew(Way way, const std::function<void()>& arm, const std::function<void()>& disarm);

  private:
    void writeSettings(const char* change = "") const;
    const TestPeer& peerFor(Way way) const;
    void makeAuthorities();
    std::unique_ptr<TestPeer> peerWith(const TestPki::Issued& identity, const char* suites = nullptr);
    void connectWhileServing(TransportLife& life, void*& handle, Way way);
    void serve(TransportLife& life, Way way);
    void connect(TransportLife& life, Way way);
    bool reaches(const TestPeer& peer) const;

    std::filesystem::path m_root;
    std::filesystem::path m_folder;
    std::unique_ptr<TestPki> m_pki;
    std::unique_ptr<TestPki> m_otherPki;
    TestPki::Issued m_server;
    TestPki::Issued m_client;
    TestPki::Issued m_strangeClient;
    std::unique_ptr<TestPeer> m_right;
    std::unique_ptr<TestPeer> m_stranger;
    std::unique_ptr<TestPeer> m_other;
    std::unique_ptr<TestPeer> m_revoked;
    std::unique_ptr<TestPeer> m_bare;
    std::unique_ptr<TestPeer> m_plain;
    std::unique_ptr<TestPeer> m_old;  // the right one, of TLS 1.2
    std::atomic<bool> m_gotData{false};
};
