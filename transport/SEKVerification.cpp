#include "SEKVerification.h"

#include <openssl/x509_vfy.h>

#include <atomic>
#include <exception>
#include <memory>

#include "SEKCertificate.h"
#include "SEKErrors.h"

namespace {

void freeText(void*, void* text, CRYPTO_EX_DATA*, int, long, void*) {
    delete static_cast<std::string*>(text);
}

// Negative, which is nobody's place, when OpenSSL gives none; the next who asks tries again.
int textIndex() {
    static std::atomic<int> index{-1};
    int known = index;
    if (known >= 0) return known;
    const int made = SSL_get_ex_new_index(0, nullptr, nullptr, nullptr, freeText);
    // Another thread may have been first.
    return made >= 0 && index.compare_exchange_strong(known, made) ? made : index.load();
}

std::string expectedHost(X509_VERIFY_PARAM* parameters) {
    if (const char* name = X509_VERIFY_PARAM_get0_host(parameters, 0)) return name;
    const std::unique_ptr<char, void (*)(char*)> address(X509_VERIFY_PARAM_get1_ip_asc(parameters),
                                                         [](char* text) { OPENSSL_free(text); });
    return address != nullptr ? address.get() : "";
}

bool isMismatch(int error) {
    return error == X509_V_ERR_HOSTNAME_MISMATCH || error == X509_V_ERR_IP_ADDRESS_MISMATCH;
}

std::string describe(X509_STORE_CTX* store) {
    const int error = X509_STORE_CTX_get_error(store);
    std::string text = X509_verify_cert_error_string(error);
    const X509* certificate = X509_STORE_CTX_get_current_cert(store);
    if (certificate == nullptr) certificate = X509_STORE_CTX_get0_cert(store);
    if (certificate == nullptr) return text;
    text += " (";
    if (isMismatch(error)) text += "expected " + expectedHost(X509_STORE_CTX_get0_param(store)) + ", ";
    return text + SEKCertificate(certificate).summary() + ")";
}

// The first refusal ends the handshake, so there is one text to keep.
void remember(X509_STORE_CTX* store) {
    auto* const ssl =
        static_cast<SSL*>(X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
    if (ssl == nullptr || SSL_get_ex_data(ssl, textIndex()) != nullptr) return;
    auto text = std::make_unique<std::string>(describe(store));
    // From here on the SSL object owns it.
    if (SSL_set_ex_data(ssl, textIndex(), text.get()) > 0) static_cast<void>(text.release());
}

}  // namespace

namespace SEKVerification {

int strict(int isGood, X509_STORE_CTX* store) noexcept {
    try {
        if (isGood == 0) remember(store);
    } catch (const std::exception&) {
        return isGood;  // without memory the refusal stands all the same, with OpenSSL's words alone
    }
    return isGood;
}

int sparing(int isGood, X509_STORE_CTX* store) noexcept {
    const bool isMissingList = X509_STORE_CTX_get_error(store) == X509_V_ERR_UNABLE_TO_GET_CRL;
    if (isGood != 0 || !isMissingList || X509_STORE_CTX_get_error_depth(store) == 0)
        return strict(isGood, store);
    X509_STORE_CTX_set_error(store, X509_V_OK);
    return 1;
}

std::string refusal(const SSL* ssl) {
    const auto* const text = static_cast<const std::string*>(SSL_get_ex_data(ssl, textIndex()));
    return text != nullptr ? *text : X509_verify_cert_error_string(SSL_get_verify_result(ssl));
}

void requireVerifiedPeer(const SSL* ssl) {
    const int mode = SSL_get_verify_mode(ssl);
    if ((mode & SSL_VERIFY_PEER) == 0) return;
    if (SSL_get0_peer_certificate(ssl) == nullptr) {
        const bool isOptional = SSL_is_server(ssl) == 1 && (mode & SSL_VERIFY_FAIL_IF_NO_PEER_CERT) == 0;
        if (isOptional) return;
        throw SEKFailure("the peer showed no certificate");
    }
    if (SSL_get_verify_result(ssl) != X509_V_OK)
        throw SEKFailure("certificate verify failed: " + refusal(ssl));
}

}  // namespace SEKVerification
