// The ground of all transport tests: an install tree, the initialised library, and handles that close
// themselves.
//
// Purpose: lets a test read as what a caller does.
// Ownership: the fixture owns the tree, SekHandle its handle.
// Threads: a handle is used by one thread at a time; the fixture by the test's own.
// Units: milliseconds.
// Errors: set-up failures throw.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "SEK_Crypto_Interface.h"
#include "TestPeer.h"
#include "TestPki.h"

inline const std::string initializeText =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?><initializeDocument><serviceID>BTSV</serviceID>"
    "</initializeDocument>";
inline const std::string terminateText = "<terminateDocument><serviceID>BTSV</serviceID></terminateDocument>";

std::string sessionDocument(const std::string& family = "IPv4", const std::string& service = "gateway");

// Entry points take their texts as char*, although they only read them.
char* text(const std::string& value);

// The last failure of this thread's calls without a handle, or of the handle.
std::string detailsOf(void* handle);
bool hasDetails(void* handle);

// The reason in the text of a failed handshake, without the description of the certificate at its end.
std::string withoutCertificate(const std::string& details);

struct Received {
    long result = -1;
    std::string data;
};
struct Polled {
    long result = -1;
    bool readable = false;
    bool writable = false;
};

class SekHandle {
  public:
    explicit SekHandle(const std::string& family = "IPv4", const std::string& service = "gateway");
    // Takes over a handle that the library has made.
    explicit SekHandle(void* handle) : m_handle(handle) {}
    ~SekHandle() { close(); }
    SekHandle(const SekHandle&) = delete;
    SekHandle& operator=(const SekHandle&) = delete;

    void* get() const { return m_handle; }
    std::string details() const { return detailsOf(m_handle); }
    bool hasDetails() const { return ::hasDetails(m_handle); }

    long connectUrl(const std::string& url);
    long establish();
    // Connect, handshake, connect again: what a caller does until it may send; the last result.
    long open(const std::string& url);
    long send(const std::string& data, long* sent = nullptr);
    Received receive(long capacity = 4096);
    // Everything up to the end of the stream or the first failure.
    Received receiveAll();
    Polled poll(long timeLimitMs, std::uint16_t events = SEK_Readable);
    void limit(int option, long limitMs);
    // Binds to a free port and listens; the port.
    std::uint16_t listen(const std::string& scheme, const std::string& host = "127.0.0.1");
    void* accept();
    long close();

  private:
    void* m_handle = nullptr;
};

class TransportTest : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // The folder of certificates and settings; the working directory is its neighbour.
    std::filesystem::path configuration() const { return m_root / "configuration"; }
    void writeSettings(const std::string& content) const;
    // Settings of the usual client: trusts the authority.
    void trust(const TestPki& pki) const;

  private:
    std::filesystem::path m_root;
};

// With an authority, a server certificate, and a client that trusts the authority.
class TlsTest : public TransportTest {
  protected:
    void SetUp() override;
    PeerContext server() const { return serverContext(m_identity); }
    // Accepts TLS, then runs the rest of the script.
    TestPeer::Script tlsScript(TestPeer::Script rest) const;
    TestPki& pki() const { return *m_pki; }
    const TestPki::Issued& identity() const { return m_identity; }

  private:
    std::unique_ptr<TestPki> m_pki;
    TestPki::Issued m_identity;
};

// What handshakes under some settings say.
class HandshakeTest : public TlsTest {
  protected:
    // The reason of a handshake with a server that fails; "" when it works.
    static std::string handshake(const PeerContext& context);
    std::string handshake() const { return handshake(server()); }
    std::string handshakeUnder(const std::string& settings) const;
    // The line that trusts the authority.
    std::string trusting() const { return "VerifyCAFile = " + pki().authorityFile().string() + "\n"; }
    // A file beside the settings.
    void write(const std::string& name, const std::string& content) const;
};

std::string contentOf(const std::filesystem::path& file);

// The number of open descriptors of this process.
std::size_t openDescriptors();
