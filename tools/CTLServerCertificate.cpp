#include "CTLServerCertificate.h"

#include <fcntl.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <system_error>
#include <vector>

#include "SEKCertificate.h"
#include "SEKErrors.h"
#include "SEKFile.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kMostNames = 10;

struct Freer {
    void operator()(BIO* bio) const { BIO_free(bio); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(X509_STORE_CTX* context) const { X509_STORE_CTX_free(context); }
    void operator()(STACK_OF(X509) * chain) const { sk_X509_free(chain); }
};

int refusePassphrase(char* /*buffer*/, int /*size*/, int /*purpose*/, void* /*user*/) {
    return -1;
}

// The same words as the library has for a key of its own.
std::string complaintOfMode(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return std::strerror(errno);
    if ((status.st_mode & S_IRWXO) != 0) return "the private key can be read by others: chmod 600 it";
    if (faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) != 0)
        return std::string("the private key cannot be read: ") + std::strerror(errno);
    return {};
}

std::string complaintOfMatch(X509* certificate, const std::string& text) {
    const std::unique_ptr<BIO, Freer> input(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    const std::unique_ptr<EVP_PKEY, Freer> key(
        PEM_read_bio_PrivateKey(input.get(), nullptr, refusePassphrase, nullptr));
    if (key == nullptr) return "there is no private key in it: " + SEKErrors::tlsReason();
    if (X509_check_private_key(certificate, key.get()) == 1) return {};
    ERR_clear_error();
    return "the private key is not that of the certificate beside it";
}

// Dates are told by themselves.
int passDates(int isGood, X509_STORE_CTX* context) {
    const int error = X509_STORE_CTX_get_error(context);
    const bool isDate = error == X509_V_ERR_CERT_HAS_EXPIRED || error == X509_V_ERR_CERT_NOT_YET_VALID;
    if (isGood == 0 && isDate) X509_STORE_CTX_set_error(context, X509_V_OK);
    return isGood != 0 || isDate ? 1 : 0;
}

// Read without complaint or not at all: most files in the folder are something else.
SEKPem::Certificates certificatesOf(const fs::path& file) {
    try {
        return SEKPem::certificatesIn(SEKFile::read(file.string(), SEKFile::materialLimit));
    } catch (const SEKFailure&) {
        return {};
    }
}

}  // namespace

CTLServerCertificate::CTLServerCertificate(const fs::path& file) : m_file(file) {
    std::error_code error;
    const bool isOurs = file.filename() == "dispatcher.pem";
    if (file.extension() != ".pem" || (!isOurs && !fs::exists(keyFile(), error))) return;
    m_certificates = certificatesOf(file);
    // An authority's key beside it is another matter.
    if (isOne() && X509_check_ca(m_certificates.front().get()) != 0) m_certificates.clear();
}

bool CTLServerCertificate::isOwnOf(const SSL_CTX* context) const {
    const X509* const own = context == nullptr ? nullptr : SSL_CTX_get0_certificate(context);
    return own != nullptr && X509_cmp(own, certificate()) == 0;
}

std::string CTLServerCertificate::complaintOfKey() const {
    std::string mode = complaintOfMode(keyFile());
    if (!mode.empty()) return mode;
    try {
        return complaintOfMatch(m_certificates.front().get(),
                                SEKFile::read(keyFile(), SEKFile::materialLimit));
    } catch (const SEKFailure& failure) {
        return failure.what();
    }
}

std::string CTLServerCertificate::complaintOfAuthority(const SSL_CTX& context) const {
    X509_STORE* store = nullptr;
    auto* const settings =
        const_cast<SSL_CTX*>(&context);  // the library's calls do not say that they only look
    SSL_CTX_get0_verify_cert_store(settings, &store);
    if (store == nullptr) store = SSL_CTX_get_cert_store(settings);
    const std::unique_ptr<X509_STORE_CTX, Freer> verification(X509_STORE_CTX_new());
    const std::unique_ptr<STACK_OF(X509), Freer> chain(sk_X509_new_null());
    for (const auto& certificate : m_certificates)
        sk_X509_push(chain.get(), certificate.get());
    X509_STORE_CTX_init(verification.get(), store, m_certificates.front().get(), chain.get());
    X509_STORE_CTX_set_default(verification.get(), "ssl_server");
    X509_STORE_CTX_set_verify_cb(verification.get(), passDates);
    const bool isBelieved = X509_verify_cert(verification.get()) == 1;
    ERR_clear_error();
    if (isBelieved) return {};
    return std::string("the service will not believe a child that shows this certificate: ") +
           X509_verify_cert_error_string(X509_STORE_CTX_get_error(verification.get())) + ", issued by " +
           SEKCertificate(certificate()).issuer();
}

bool CTLServerCertificate::isGoodFor(const std::string& host) const {
    X509* const own = m_certificates.front().get();
    if (X509_check_ip_asc(own, host.c_str(), 0) == 1) return true;
    return X509_check_host(own, host.c_str(), host.size(),
                           X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS | X509_CHECK_FLAG_NEVER_CHECK_SUBJECT,
                           nullptr) == 1;
}

std::string CTLServerCertificate::names() const {
    std::size_t omitted = 0;
    std::string text;
    for (const SEKCertificate::Name& name : SEKCertificate(certificate()).names(kMostNames, omitted))
        text += (text.empty() ? "" : ", ") + name.kind + ":" + name.value;
    return text.empty() ? "no names" : text;
}
