#include "SEKTlsStream.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/x509v3.h>

#include "SEKErrors.h"
#include "SEKPeerDescription.h"
#include "SEKSocketBio.h"
#include "SEKVerification.h"

namespace {

bool isAddress(const std::string& host) {
    in6_addr bytes{};
    return inet_pton(AF_INET, host.c_str(), &bytes) == 1 || inet_pton(AF_INET6, host.c_str(), &bytes) == 1;
}

// What a certificate can name: no zone of an address and no final dot of a name.
std::string certifiedName(const std::string& host) {
    const bool hasZone = host.find(':') != std::string::npos;
    std::string name = hasZone ? host.substr(0, host.find('%')) : host;
    if (name.size() > 1 && name.back() == '.') name.pop_back();
    return name;
}

constexpr unsigned int nameRules = X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS | X509_CHECK_FLAG_NEVER_CHECK_SUBJECT;

bool isFor(X509* certificate, const std::string& name) {
    if (isAddress(name)) return X509_check_ip_asc(certificate, name.c_str(), 0) > 0;
    return X509_check_host(certificate, name.c_str(), name.size(), nameRules, nullptr) > 0;
}

// OpenSSL's macro for this call hides a cast that the compiler flags refuse.
int sendServerName(SSL* ssl, std::string name) {
    return static_cast<int>(
        SSL_ctrl(ssl, SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name, name.data()));
}

// Peers that speak another protocol are a common mistake, and OpenSSL's words hide it.
const char* hintFor(unsigned long code) {
    if (ERR_GET_LIB(code) != ERR_LIB_SSL) return "";
    switch (ERR_GET_REASON(code)) {
        case SSL_R_WRONG_VERSION_NUMBER:
        case SSL_R_HTTP_REQUEST:
        case SSL_R_PACKET_LENGTH_TOO_LONG:
            return " (the peer seems not to speak TLS)";
        case SSL_R_UNEXPECTED_EOF_WHILE_READING:
            return " (the peer ended the connection without a TLS close notification)";
        default:
            return "";
    }
}

}  // namespace

SEKTlsStream::SEKTlsStream(SSL_CTX* context, int descriptor, SEKRole role) : m_ssl(SSL_new(context)) {
    if (m_ssl == nullptr) throw SEKFailure("cannot set up TLS: " + SEKErrors::tlsReason());
    BIO* bio = SEKSocketBio::create(descriptor);
    SSL_set_bio(m_ssl.get(), bio, bio);
    if (role == SEKRole::Client)
        SSL_set_connect_state(m_ssl.get());
    else
        SSL_set_accept_state(m_ssl.get());
}

void SEKTlsStream::expectPeer(const std::string& host) {
    m_expected = certifiedName(host);
    const std::string& name = m_expected;
    begin();
    int result = 0;
    if (isAddress(name)) {
        result = X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(m_ssl.get()), name.c_str());
    } else {
        SSL_set_hostflags(m_ssl.get(), nameRules);
        result = SSL_set1_host(m_ssl.get(), name.c_str());
        if (result > 0) result = sendServerName(m_ssl.get(), name);
    }
    if (result <= 0) throw SEKFailure("cannot set the expected host: " + SEKErrors::tlsReason());
}

void SEKTlsStream::begin() const {
    if (m_isBroken) throw SEKFailure(m_broken.empty() ? "no memory" : m_broken);
    ERR_clear_error();
    SEKSocketBio::beginStep(SSL_get_rbio(m_ssl.get()));
}

SEKTlsStream::Step SEKTlsStream::handshake() {
    begin();
    const Step step = outcome(SSL_do_handshake(m_ssl.get()));
    if (step == Step::EndOfStream) fail("the peer ended the connection during the handshake");
    if (step == Step::Done) {
        requireEncryption();
        requireVerifiedPeer();
        requireExpectedPeer();
    }
    m_established = step == Step::Done;
    if (m_established) SEKSocketBio::noteProgress(SSL_get_rbio(m_ssl.get()));
    return step;
}

void SEKTlsStream::requireEncryption() {
    const SSL_CIPHER* const cipher = SSL_get_current_cipher(m_ssl.get());
    if (cipher == nullptr || SSL_CIPHER_get_cipher_nid(cipher) == NID_undef)
        fail("nothing would be encrypted");
}

void SEKTlsStream::requireVerifiedPeer() {
    try {
        SEKVerification::requireVerifiedPeer(m_ssl.get());
    } catch (const SEKFailure& reason) {
        fail(reason.what());
    }
}

// OpenSSL has looked already, and its refusal says more. But it compares nothing, and says nothing of it, when it has no
// memory to take the name along.
void SEKTlsStream::requireExpectedPeer() {
    if (m_expected.empty() || SSL_get_verify_mode(m_ssl.get()) == SSL_VERIFY_NONE) return;
    if (!isFor(SSL_get0_peer_certificate(m_ssl.get()), m_expected))
        fail("the peer's certificate could not be found to be for " + m_expected);
}

void SEKTlsStream::breakOff(const char* reason) noexcept {
    m_isBroken = true;
    try {
        m_broken = reason;
    } catch (const std::exception&) {
        m_broken.clear();  // it is broken all the same
    }
}

void SEKTlsStream::fail(const std::string& reason) {
    breakOff(reason.c_str());
    throw SEKFailure(reason);
}

SEKTlsStream::Step SEKTlsStream::read(void* buffer, std::size_t capacity, std::size_t& received) {
    begin();
    return inputOutcome(SSL_read_ex(m_ssl.get(), buffer, capacity, &received));
}

SEKTlsStream::Step SEKTlsStream::peek() {
    begin();
    char byte = 0;
    std::size_t found = 0;
    return inputOutcome(SSL_peek_ex(m_ssl.get(), &byte, 1, &found));
}

SEKTlsStream::Step SEKTlsStream::write(const void* data, std::size_t length, std::size_t& sent) {
    begin();
    return outcome(SSL_write_ex(m_ssl.get(), data, length, &sent));
}

SEKTlsStream::Step SEKTlsStream::inputOutcome(int result) {
    if (result > 0) SEKSocketBio::noteProgress(SSL_get_rbio(m_ssl.get()));
    return outcome(result);
}

SEKTlsStream::Step SEKTlsStream::outcome(int result) {
    if (result > 0) return Step::Done;
    const int error = SSL_get_error(m_ssl.get(), result);
    if (error == SSL_ERROR_WANT_READ) return Step::WantRead;
    if (error == SSL_ERROR_WANT_WRITE) return Step::WantWrite;
    if (error == SSL_ERROR_ZERO_RETURN) return Step::EndOfStream;
    m_isBroken = true;  // even if there should be no memory for the reason
    fail(reasonFor(error));
}

std::string SEKTlsStream::reasonFor(int error) const {
    if (SEKSocketBio::isOverfed(SSL_get_rbio(m_ssl.get()))) return surfeitReason();
    const int systemError = SEKSocketBio::lastError(SSL_get_rbio(m_ssl.get()));
    const unsigned long code = ERR_peek_error();
    if (error == SSL_ERROR_SYSCALL || code == 0) {
        ERR_clear_error();
        return systemError != 0 ? SEKErrors::systemReason(systemError) : "the peer ended the connection";
    }
    const bool isRefusal = ERR_GET_REASON(code) == SSL_R_CERTIFICATE_VERIFY_FAILED;
    return SEKErrors::tlsReason() +
           (isRefusal ? ": " + SEKVerification::refusal(m_ssl.get()) : hintFor(code));
}

std::string SEKTlsStream::describePeer() const {
    return SEKPeerDescription::of(m_ssl.get());
}

std::string SEKTlsStream::surfeitReason() const {
    ERR_clear_error();
    return "the peer sent " + std::to_string(SEKSocketBio::fruitlessLimitBytes >> 20U) +
           (m_established ? " MiB of records without data" : " MiB that do not finish the handshake");
}

void SEKTlsStream::sayGoodbye() noexcept {
    // After a failure OpenSSL forbids the call, and before the handshake there is nothing to end.
    if (m_isBroken || !m_established) return;
    ERR_clear_error();
    SSL_shutdown(m_ssl.get());
    ERR_clear_error();
}
