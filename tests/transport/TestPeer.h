// The other end of a connection, written on sockets and OpenSSL directly.
//
// Purpose: a server on a port of its own whose behaviour a test writes as a script, so that well-behaved and
//   misbehaving peers look alike.
// Ownership: owns the listener and the thread, which its destructor joins.
// Threads: the script runs on the peer's thread. SIGPIPE is blocked there, so that one that ends the test
//   process can only have come from the library.
// Units: bytes.
// Errors: a script's own failed reads and writes end quietly; what matters is what the library reports.
#pragma once

#include <openssl/ssl.h>
#include <sys/socket.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "TestPki.h"

struct PeerContextFreer {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
using PeerContext = std::shared_ptr<SSL_CTX>;

// A TLS server's context with that certificate, any version allowed.
PeerContext serverContext(const TestPki::Issued& identity);
// A TLS client's context that trusts that authority.
PeerContext clientContext(const std::filesystem::path& authority);

// One accepted or made connection inside a script.
class PeerConnection {
  public:
    explicit PeerConnection(int descriptor) : m_descriptor(descriptor) {}
    ~PeerConnection();
    PeerConnection(const PeerConnection&) = delete;
    PeerConnection& operator=(const PeerConnection&) = delete;

    bool acceptTls(const PeerContext& context);
    bool connectTls(const PeerContext& context, const char* serverName);
    std::string lastTlsError() const { return m_tlsError; }
    SSL* tls() const { return m_ssl.get(); }
    int descriptor() const { return m_descriptor; }

    // One block; empty at the end.
    std::string read();
    bool write(const std::string& data);
    void waitForEnd();
    // After a failed handshake: what was said last arrives, since nothing is left unread when the connection ends.
    void drain();
    // Three ways to end: with a close notification, without one, and with a TCP reset.
    void closePolitely();
    void closeAbruptly();
    void reset();

  private:
    bool handshake(const PeerContext& context, bool asServer, const char* serverName);

    int m_descriptor;
    std::shared_ptr<SSL> m_ssl;
    std::string m_tlsError;
};

class TestPeer {
  public:
    using Script = std::function<void(PeerConnection&)>;

    // Serves `connections` connections one after the other with the script. A receive buffer of so many bytes, where
    // one is given, soon makes a peer that does not read felt.
    explicit TestPeer(Script script, int connections = 1, int family = AF_INET, int receiveBuffer = 0);
    ~TestPeer();
    TestPeer(const TestPeer&) = delete;
    TestPeer& operator=(const TestPeer&) = delete;

    std::uint16_t port() const { return m_port; }
    std::string url(const std::string& scheme, const std::string& host = "127.0.0.1") const;
    // Waits for the script's end; a test may then look at what it noted.
    void join();

  private:
    void serve(const Script& script, int connections) const;

    int m_listener;
    std::uint16_t m_port = 0;
    std::thread m_thread;
};

// A plain connection to a local port, for tests in which the library is the server; -1 when refused.
int connectPlain(std::uint16_t port, int family = AF_INET);
// A descriptor bound to a free port of the loopback interface. As long as it is open, nobody else is given that
// port, and whoever asks for it by number may listen on it.
int bindToLoopback(int family);
// A descriptor that listens on a free port of the loopback interface.
int listenOnLoopback(int family, int backlog);
std::uint16_t portOf(int descriptor);
