// A random method of one's own is what OpenSSL 3 calls deprecated; the way it offers instead, a provider, takes a
// library's worth of code for the same row of numbers.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "FuzzTls.h"

#include <openssl/rand.h>
#include <openssl/x509_vfy.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <filesystem>

#include "FuzzService.h"
#include "TestPki.h"

using FuzzTarget::require;

namespace {

constexpr const char* kSettings =
    "[gateway]\nVerifyCAFile = ../configuration/authority.pem\nCertificate = ../configuration/server.pem\n"
    "PrivateKey = ../configuration/server.key\n";

std::uint64_t nextRandom = 0;

int fillWithRandom(unsigned char* bytes, int count) {
    for (int i = 0; i < count; ++i) {
        nextRandom = nextRandom * 6364136223846793005U + 1442695040888963407U;
        bytes[i] = static_cast<unsigned char>(nextRandom >> 56U);
    }
    return 1;
}

int isSeeded() {
    return 1;
}

void installRandom() {
    static const RAND_METHOD method{nullptr, fillWithRandom, nullptr, nullptr, fillWithRandom, isSeeded};
    require(RAND_set_rand_method(&method) == 1, "the random numbers are ours");
}

SEKContextPtr build(SEKRole role) {
    SEKContextPtr context = SEKSettings::build("gateway", role).context;
    X509_VERIFY_PARAM_set_flags(SSL_CTX_get0_param(context.get()), X509_V_FLAG_NO_CHECK_TIME);
    return context;
}

struct Contexts {
    Contexts() {
        FuzzTls::beginRandom();
        const FuzzFolder folder;
        TestPki pki(folder.path("configuration"));
        const TestPki::Issued server = pki.issueForLocalhost();
        require(server.key == folder.path("configuration/server.key"),
                "the files have the names in the settings");
        folder.write("configuration/sek.cnf", kSettings);
        client = build(SEKRole::Client);
        serverSide = build(SEKRole::Server);
    }
    SEKContextPtr client;
    SEKContextPtr serverSide;
};

}  // namespace

void FuzzTls::beginRandom() {
    static const bool ready = (installRandom(), true);
    require(ready, "set up");
    nextRandom = 1;
}

SSL_CTX* FuzzTls::context(SEKRole role) {
    static const Contexts contexts;
    return role == SEKRole::Client ? contexts.client.get() : contexts.serverSide.get();
}

void FuzzTls::checkReason(const std::string& reason) {
    require(!reason.empty(), "a failure has a reason");
    require(std::all_of(reason.begin(), reason.end(), [](char c) { return c >= ' ' && c < '\x7f'; }),
            "a reason is one printable line");
}

FuzzTls::Connection::Connection() {
    std::array<int, 2> ends{};
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()) == 0,
            "there is a pair of sockets");
    m_here = SEKDescriptor(ends[0]);
    m_there = SEKDescriptor(ends[1]);
}

void FuzzTls::Connection::send(const std::string& bytes) const {
    const ssize_t sent = ::send(m_there.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    require(bytes.empty() || sent == static_cast<ssize_t>(bytes.size()), "an input fits into the socket");
}

void FuzzTls::Connection::sendEnd() const {
    shutdown(m_there.get(), SHUT_WR);
}

std::string FuzzTls::Connection::takeSent() const {
    std::string bytes;
    std::array<char, 16384> block{};
    for (ssize_t got = 1; got > 0;) {
        got = recv(m_there.get(), block.data(), block.size(), 0);
        if (got > 0) bytes.append(block.data(), static_cast<std::size_t>(got));
    }
    return bytes;
}
