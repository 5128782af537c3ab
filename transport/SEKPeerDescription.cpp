#include "SEKPeerDescription.h"

#include <algorithm>
#include <vector>

#include "SEKCertificate.h"

namespace {

constexpr const char* peerNamespace = "http://schemas.velmora.example/sek/peer/1/";

// The texts are ASCII without control characters already.
std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
        switch (c) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            default:
                result += c;
        }
    }
    return result;
}

std::string element(const std::string& name, const std::string& text, const std::string& attributes = "") {
    return "<" + name + attributes + ">" + escaped(text) + "</" + name + ">";
}

std::string omission(std::size_t count) {
    return count > 0 ? " omitted=\"" + std::to_string(count) + "\"" : "";
}

bool isVerified(const SSL* ssl) {
    return (SSL_get_verify_mode(ssl) & SSL_VERIFY_PEER) != 0 && SSL_get0_peer_certificate(ssl) != nullptr &&
           SSL_get_verify_result(ssl) == X509_V_OK;
}

std::vector<const X509*> listed(const STACK_OF(X509) * certificates) {
    // Of no chain the number is -1.
    std::vector<const X509*> list(static_cast<std::size_t>(std::max(0, sk_X509_num(certificates))));
    for (std::size_t i = 0; i < list.size(); ++i)
        list[i] = sk_X509_value(certificates, static_cast<int>(i));
    return list;
}

std::vector<const X509*> chainOf(const SSL* ssl) {
    const STACK_OF(X509)* const verified = SSL_get0_verified_chain(ssl);
    if (isVerified(ssl) && verified != nullptr) return listed(verified);
    std::vector<const X509*> sent = listed(SSL_get_peer_cert_chain(ssl));
    // A server's list of what was sent lacks the client's own.
    const X509* const own = SSL_get0_peer_certificate(ssl);
    if (own != nullptr && SSL_is_server(ssl) == 1) sent.insert(sent.begin(), own);
    return sent;
}

std::string namesOf(const SEKCertificate& certificate) {
    std::size_t omitted = 0;
    std::string names;
    for (const SEKCertificate::Name& name : certificate.names(SEKPeerDescription::nameLimit, omitted))
        names += element("name", name.value, " kind=\"" + name.kind + "\"");
    return "<alternativeNames" + omission(omitted) + ">" + names + "</alternativeNames>";
}

std::string describe(const SEKCertificate& certificate) {
    return "<certificate>" + element("subject", certificate.subject()) +
           element("issuer", certificate.issuer()) + namesOf(certificate) +
           element("notBefore", certificate.notBefore()) + element("notAfter", certificate.notAfter()) +
           element("fingerprint", certificate.fingerprint(), " algorithm=\"SHA-256\"") + "</certificate>";
}

}  // namespace

namespace SEKPeerDescription {

std::string of(const SSL* ssl) {
    const std::vector<const X509*> chain = chainOf(ssl);
    const std::size_t shown = std::min(chain.size(), chainLimit);
    std::string certificates;
    for (std::size_t i = 0; i < shown; ++i)
        certificates += describe(SEKCertificate(chain[i]));
    return std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?><peerDescription xmlns=\"") +
           peerNamespace + "\" verified=\"" + (isVerified(ssl) ? "true" : "false") + "\">" +
           element("protocol", SSL_get_version(ssl)) +
           element("cipher", SSL_CIPHER_get_name(SSL_get_current_cipher(ssl))) + "<chain" +
           omission(chain.size() - shown) + ">" + certificates + "</chain></peerDescription>";
}

}  // namespace SEKPeerDescription
