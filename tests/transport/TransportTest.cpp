#include "TransportTest.h"

#include <netinet/in.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

std::string sessionDocument(const std::string& family, const std::string& service) {
    const std::string schema = "http://schemas.velmora.example/sek/crypto/1/";
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><sessionConfigDocument xmlns=\"" + schema +
           "\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xsi:schemaLocation=\"" + schema +
           "crypto.xsd\"><serviceID>" + service + "</serviceID><protocolFamily>" + family +
           "</protocolFamily></sessionConfigDocument>";
}

char* text(const std::string& value) {
    return const_cast<char*>(value.c_str());
}

namespace {

std::string takeOver(char* details) {
    std::string copy = details != nullptr ? details : "";
    SEK_CryptoFree(details, nullptr);
    return copy;
}

}  // namespace

std::string detailsOf(void* handle) {
    char* details = nullptr;
    SEK_CryptoGetLastErrorDetails(handle, nullptr, &details);
    return takeOver(details);
}

bool hasDetails(void* handle) {
    char* details = nullptr;
    SEK_CryptoGetLastErrorDetails(handle, nullptr, &details);
    const bool found = details != nullptr;
    SEK_CryptoFree(details, nullptr);
    return found;
}

std::string withoutCertificate(const std::string& details) {
    const std::string reason = details.substr(details.find(" failed: ") + 9);
    const std::size_t description = reason.find("certificate of ");
    return description == std::string::npos ? reason : reason.substr(0, reason.rfind(" (", description));
}

SekHandle::SekHandle(const std::string& family, const std::string& service) {
    char* details = nullptr;
    const std::string document = sessionDocument(family, service);
    if (SEK_Socket(&m_handle, text(document), nullptr, &details) != SEK_Ok)
        throw std::runtime_error(takeOver(details));
}

long SekHandle::connectUrl(const std::string& url) {
    return SEK_Connect_Url(m_handle, text(url), nullptr);
}

long SekHandle::establish() {
    return SEK_EstablishSecure(m_handle, nullptr);
}

long SekHandle::open(const std::string& url) {
    const long connected = connectUrl(url);
    if (connected != SEK_HandshakePending) return connected;
    const long established = establish();
    return established == SEK_Ok ? connectUrl(url) : established;
}

long SekHandle::send(const std::string& data, long* sent) {
    return SEK_Send(m_handle, data.data(), static_cast<long>(data.size()), 0, sent, nullptr);
}

Received SekHandle::receive(long capacity) {
    Received received;
    std::string buffer(static_cast<std::size_t>(capacity), '\0');
    long count = -1;
    received.result = SEK_Recv(m_handle, buffer.data(), capacity, 0, &count, nullptr);
    received.data = buffer.substr(0, static_cast<std::size_t>(count));
    return received;
}

Received SekHandle::receiveAll() {
    Received all;
    while (true) {
        const Received block = receive(65536);
        all.result = block.result;
        if (block.result != SEK_Ok || block.data.empty()) return all;
        all.data += block.data;
    }
}

Polled SekHandle::poll(long timeLimitMs, std::uint16_t events) {
    SEK_Pollfd entry{m_handle, events, 0};
    char* details = nullptr;
    Polled polled;
    polled.result = SEK_Poll(&entry, 1, timeLimitMs, nullptr, &details);
    polled.readable = (entry.revents & SEK_Readable) != 0;
    polled.writable = (entry.revents & SEK_Writable) != 0;
    SEK_CryptoFree(details, nullptr);
    return polled;
}

void SekHandle::limit(int option, long limitMs) {
    const timeval limit{limitMs / 1000, limitMs % 1000 * 1000};
    EXPECT_EQ(SEK_SetSockOpt(m_handle, option, &limit, sizeof limit, nullptr), SEK_Ok) << details();
}

std::uint16_t SekHandle::listen(const std::string& scheme, const std::string& host) {
    const std::string url = scheme + "://" + host + ":0";
    EXPECT_EQ(SEK_Bind_Url(m_handle, text(url), nullptr), SEK_Ok) << details();
    EXPECT_EQ(SEK_Listen(m_handle, 16, nullptr), SEK_Ok) << details();
    sockaddr_storage address{};
    long length = sizeof address;
    EXPECT_EQ(SEK_GetSockName(m_handle, &address, &length, nullptr), SEK_Ok) << details();
    // Both families keep the port at the same place.
    sockaddr_in v4{};
    std::memcpy(&v4, &address, sizeof v4);
    return ntohs(v4.sin_port);
}

void* SekHandle::accept() {
    void* accepted = nullptr;
    EXPECT_EQ(SEK_Accept(m_handle, &accepted, nullptr, nullptr, nullptr), SEK_Ok) << details();
    return accepted;
}

long SekHandle::close() {
    return m_handle == nullptr ? long{SEK_Ok} : SEK_CloseHandle(&m_handle, nullptr, nullptr);
}

void TransportTest::SetUp() {
    std::string pattern = (fs::temp_directory_path() / "transport-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    m_root = pattern;
    fs::create_directory(m_root / "bin");
    fs::create_directory(configuration());
    fs::current_path(m_root / "bin");
    char* details = nullptr;
    ASSERT_EQ(SEK_CryptoInitialize(text(initializeText), nullptr, &details), SEK_Ok);
}

void TransportTest::TearDown() {
    char* details = nullptr;
    EXPECT_EQ(SEK_CryptoTerminate(text(terminateText), nullptr, &details), SEK_Ok) << details;
    fs::current_path("/");
    fs::remove_all(m_root);
}

void TransportTest::writeSettings(const std::string& content) const {
    std::ofstream(configuration() / "sek.cnf") << content;
}

void TransportTest::trust(const TestPki& pki) const {
    writeSettings("[gateway]\nVerifyCAFile = " + pki.authorityFile().string() + "\n");
}

void TlsTest::SetUp() {
    TransportTest::SetUp();
    m_pki = std::make_unique<TestPki>(configuration());
    m_identity = m_pki->issueForLocalhost();
    trust(*m_pki);
}

TestPeer::Script TlsTest::tlsScript(TestPeer::Script rest) const {
    return [context = server(), rest = std::move(rest)](PeerConnection& peer) {
        if (peer.acceptTls(context)) rest(peer);
    };
}

std::string HandshakeTest::handshake(const PeerContext& context) {
    TestPeer peer([context](PeerConnection& connection) {
        if (connection.acceptTls(context)) connection.waitForEnd();
    });
    SekHandle handle;
    EXPECT_EQ(handle.connectUrl(peer.url("https")), SEK_HandshakePending);
    return handle.establish() == SEK_Ok ? "" : withoutCertificate(handle.details());
}

std::string HandshakeTest::handshakeUnder(const std::string& settings) const {
    writeSettings(settings);
    return handshake();
}

void HandshakeTest::write(const std::string& name, const std::string& content) const {
    std::ofstream(configuration() / name) << content;
}

std::string contentOf(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

std::size_t openDescriptors() {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}
