// What the tests against other programs share: the servers they connect to, and kinds of identities.
//
// Purpose: starts servers of other makers on the loopback interface with throw-away certificates, ready to
//   answer when the constructor returns.
// Ownership: a server object owns its process and, where the port is chosen beforehand, the port.
// Threads: used by the test's thread.
// Units: none.
// Errors: a server that does not come up throws std::runtime_error with its own words.
#pragma once

#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "ExternalProgram.h"
#include "TransportTest.h"

class InteropTest : public TlsTest {
  protected:
    // A certificate for "localhost" and both loopback addresses with that kind of key.
    TestPki::Issued identityWith(TestPki::Key key) const;
    // The client's settings: trusts the authority and shows that certificate.
    void showCertificate(const TestPki::Issued& issued) const;
    std::string authority() const { return pki().authorityFile().string(); }
};

std::string loopbackHost(int family);
std::string familyName(int family);
// One kind of connection: the peer's word for the version of TLS, the kind of the server's key, and the family.
using Exchange = std::tuple<const char*, TestPki::Key, int>;
inline auto everyExchange(const char* olderVersion, const char* newerVersion) {
    return testing::Combine(testing::Values(olderVersion, newerVersion),
                            testing::Values(TestPki::Key::Rsa, TestPki::Key::Ecdsa),
                            testing::Values(AF_INET, AF_INET6));
}
std::string exchangeName(const testing::TestParamInfo<Exchange>& info);

// "openssl s_server", which serves a number of connections and then ends.
class OpensslServer {
  public:
    OpensslServer(const TestPki::Issued& identity, const std::vector<std::string>& options,
                  int family = AF_INET, int connections = 1);
    std::string url(const std::string& scheme = "https", const std::string& host = {}) const;
    ExternalProgram& program() { return m_program; }
    // Everything that the server said, once it has served its connections.
    std::string log();

  private:
    int m_family;
    ExternalProgram m_program;
    std::string m_port;
};

// nginx with a configuration of its own, in a folder of the test's, in the foreground as one process.
class NginxServer {
  public:
    // The lines belong inside the "server" block; "listen" is followed by the address and by these options.
    NginxServer(const std::filesystem::path& folder, const std::string& listenOptions,
                const std::string& lines, int family = AF_INET);
    std::string url(const std::string& scheme, const std::string& host = {}) const;
    // Whatever the server has logged that is not mere information, up to its end, which this brings about.
    std::string complaints();
    static std::string tls(const TestPki::Issued& identity, const std::string& version = "TLSv1.2 TLSv1.3");

  private:
    static std::string configuration(const std::string& listen, const std::string& lines);
    static std::vector<std::string> prepared(const std::filesystem::path& folder,
                                             const std::string& configuration);
    std::string address() const;

    int m_family;
    SEKDescriptor m_port;
    ExternalProgram m_program;
};
