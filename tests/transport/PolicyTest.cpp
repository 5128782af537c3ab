#include "PolicyTest.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <stdexcept>

#include "ResultTable.h"

namespace fs = std::filesystem;

TestPki& PolicyWorld::below(const TestPki& issuer, const std::string& name, const TestPki::Traits& traits) {
    return *m_authorities.emplace_back(std::make_unique<TestPki>(m_folder, name, issuer, traits));
}

TestPki& PolicyWorld::otherRoot(const std::string& name, const TestPki::Traits& traits) {
    return *m_authorities.emplace_back(std::make_unique<TestPki>(m_folder, name, traits));
}

TestPki& PolicyWorld::impostor() {
    const fs::path folder = m_folder / "impostor";
    fs::create_directory(folder);
    return *m_authorities.emplace_back(std::make_unique<TestPki>(folder));
}

TestPki::Request PolicyWorld::leaf() {
    return named({"DNS:localhost", "IP:127.0.0.1", "IP:::1"});
}

TestPki::Request PolicyWorld::named(const std::vector<std::string>& alternatives) {
    TestPki::Request request;
    request.name = "peer";
    request.alternatives = alternatives;
    return request;
}

// The peer itself minds nothing: the library is what is tested.
PeerContext PolicyWorld::server(const TestPki::Issued& identity, const std::vector<const TestPki*>& chain) {
    for (const TestPki* authority : chain)
        std::ofstream(identity.certificate, std::ios::app) << contentOf(authority->authorityFile());
    PeerContext context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    SSL_CTX_set_security_level(context.get(), 0);
    SSL_CTX_set_min_proto_version(context.get(), TLS1_VERSION);
    // What follows tickets at once waits for their confirmation, and nobody here takes a session up again.
    SSL_CTX_set_num_tickets(context.get(), 0);
    // OpenSSL's macro for this call hides a cast that the compiler flags refuse.
    std::string groups = "X25519:P-256:P-384:P-224:P-192";
    const bool isReady =
        SSL_CTX_set_cipher_list(context.get(), "ALL:COMPLEMENTOFALL") == 1 &&
        SSL_CTX_ctrl(context.get(), SSL_CTRL_SET_GROUPS_LIST, 0, groups.data()) == 1 &&
        SSL_CTX_use_certificate_chain_file(context.get(), identity.certificate.c_str()) == 1 &&
        SSL_CTX_use_PrivateKey_file(context.get(), identity.key.c_str(), SSL_FILETYPE_PEM) == 1;
    if (!isReady) throw std::runtime_error("policy: the peer's context");
    return context;
}

PeerContext PolicyWorld::rsa() const {
    TestPki::Request request = leaf();
    request.key = TestPki::Key::Rsa;
    return server(request);
}

PeerContext speaking(PeerContext context, int leastVersion, int mostVersion, const char* suites) {
    SSL_CTX_set_min_proto_version(context.get(), leastVersion);
    SSL_CTX_set_max_proto_version(context.get(), mostVersion);
    if (suites != nullptr && SSL_CTX_set_cipher_list(context.get(), suites) != 1)
        throw std::runtime_error(std::string("policy: no such suites: ") + suites);
    return context;
}

void PolicyTest::SetUp() {
    HandshakeTest::SetUp();
    setenv("SSL_CERT_FILE", "../configuration/trusted.pem", 1);
    setenv("SSL_CERT_DIR", "/nowhere", 1);
    m_world = std::make_unique<PolicyWorld>(configuration(), pki());
    write("all.crl", "");
}

void PolicyTest::TearDown() {
    unsetenv("SSL_CERT_FILE");
    unsetenv("SSL_CERT_DIR");
    HandshakeTest::TearDown();
}

void PolicyTest::settle(const char* lines) const {
    const TestPki& trusted = m_world->root();
    const std::string content = contentOf(trusted.authorityFile());
    write("trusted.pem", content);
    fs::create_directories(configuration() / "trusted");
    write("trusted/" + trusted.nameHash() + ".0", content);
    if (lines != nullptr)
        writeSettings(std::string("[gateway]\n") + lines);
    else
        fs::remove(configuration() / "sek.cnf");
}

namespace {

std::string partOf(const std::string& xml, const std::string& element) {
    const std::size_t begin = xml.find("<" + element + ">") + element.size() + 2;
    return xml.substr(begin, xml.find('<', begin) - begin);
}

std::string manner(const SekHandle& handle) {
    char* result = nullptr;
    EXPECT_EQ(SEK_SocketSecurityOp(handle.get(), text("describePeer"), &result, nullptr), SEK_Ok)
        << handle.details();
    const std::string xml = result != nullptr ? result : "";
    SEK_CryptoFree(result, nullptr);
    const bool isVerified = xml.find(" verified=\"true\">") != std::string::npos;
    return partOf(xml, "protocol") + " " + partOf(xml, "cipher") +
           (isVerified ? ", verified" : ", not verified");
}

}  // namespace

PolicyTest::Outcome PolicyTest::speak(const TestPeer::Script& script, const std::string& host) {
    TestPeer peer(script);
    SekHandle handle;
    long result = handle.open(peer.url("https", host));
    const std::string words = result == SEK_Ok ? manner(handle) : "";
    if (result == SEK_Ok) result = handle.send("ping");
    if (result == SEK_Ok) {
        const Received answer = handle.receive();
        result = answer.result == SEK_Ok && answer.data != "pong" ? long{SEK_Failed} : answer.result;
    }
    return {result, result == SEK_Ok ? words : handle.details()};
}

TestPeer::Script answering(const PeerContext& context) {
    return [context](PeerConnection& connection) {
        if (!connection.acceptTls(context)) return connection.drain();
        if (connection.read() != "ping") return;
        connection.write("pong");
        connection.waitForEnd();
    };
}

void PolicyTest::judge(const std::string& name, const std::string& peer, const char* settings,
                       const Outcome& outcome, long expected, const std::string& words) {
    std::string lines = settings != nullptr ? settings : "no sek.cnf";
    while (!lines.empty() && lines.back() == '\n')
        lines.pop_back();
    std::replace(lines.begin(), lines.end(), '\n', ';');
    // Dates and ports differ from run to run.
    static const std::regex port("127\\.0\\.0\\.1:[0-9]+");
    const std::string brief = outcome.words.find(" failed: ") == std::string::npos
                                  ? outcome.words
                                  : withoutCertificate(outcome.words);
    ResultTable("policy", {"case", "peer", "sek.cnf", "result", "protocol and suite, or reason"})
        .add({name, peer, lines.empty() ? "an empty section" : lines, std::to_string(outcome.result),
              std::regex_replace(brief, port, "its address")});
    EXPECT_EQ(outcome.result, expected) << name << " under " << lines << ": " << outcome.words;
    EXPECT_NE(outcome.words.find(words), std::string::npos)
        << name << " under " << lines << ": " << outcome.words << "\nwithout: " << words;
}
