#include "TestPki.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <array>
#include <cstdio>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

void require(bool condition, const char* what) {
    if (!condition) throw std::runtime_error(std::string("test authority: ") + what);
}

FilePtr open(const fs::path& path, const char* mode) {
    FilePtr file(std::fopen(path.c_str(), mode));
    require(file != nullptr, path.c_str());
    return file;
}

void writeCertificate(const fs::path& path, X509* certificate) {
    require(PEM_write_X509(open(path, "we").get(), certificate) == 1, "write certificate");
}

void writeKey(const fs::path& path, EVP_PKEY* key, std::string password) {
    const FilePtr file = open(path, "we");
    fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write);
    const EVP_CIPHER* cipher = password.empty() ? nullptr : EVP_aes_128_cbc();
    require(PEM_write_PKCS8PrivateKey(file.get(), key, cipher, password.data(),
                                      static_cast<int>(password.size()), nullptr, nullptr) == 1,
            "write key");
}

void setName(X509_NAME* name, const std::string& commonName) {
    std::vector<unsigned char> bytes(commonName.begin(), commonName.end());
    require(X509_NAME_add_entry_by_NID(name, NID_commonName, MBSTRING_UTF8, bytes.data(),
                                       static_cast<int>(bytes.size()), -1, 0) == 1,
            "set name");
}

}  // namespace

TestPki::TestPki(const fs::path& folder, const std::string& name) : TestPki(folder, name, Traits()) {}

TestPki::TestPki(const fs::path& folder, const std::string& name, const Traits& traits)
    : m_folder(folder),
      m_name(name),
      m_authorityFile(folder / (name + ".pem")),
      m_key(makeKey(traits.key)),
      m_certificate(makeCertificate(name, m_key.get(), traits.notBeforeSec, traits.notAfterSec, 1)) {
    writeAuthority(*this, traits);
}

TestPki::TestPki(const fs::path& folder, const std::string& name, const TestPki& issuer)
    : TestPki(folder, name, issuer, Traits()) {}

TestPki::TestPki(const fs::path& folder, const std::string& name, const TestPki& issuer, const Traits& traits)
    : m_folder(folder),
      m_name(name),
      m_authorityFile(folder / (name + ".pem")),
      m_key(makeKey(traits.key)),
      m_certificate(makeCertificate(name, m_key.get(), traits.notBeforeSec, traits.notAfterSec, 1000)) {
    writeAuthority(issuer, traits);
}

void TestPki::writeAuthority(const TestPki& issuer, const Traits& traits) {
    X509_set_issuer_name(m_certificate.get(), X509_get_subject_name(issuer.m_certificate.get()));
    addExtensions(m_certificate.get(), traits.extensions);
    addExtension(m_certificate.get(), NID_subject_key_identifier, "hash");
    require(X509_sign(m_certificate.get(), issuer.m_key.get(), EVP_get_digestbyname(traits.digest)) > 0,
            "sign authority");
    writeCertificate(m_authorityFile, m_certificate.get());
}

TestPki::~TestPki() = default;

TestPki::KeyPtr TestPki::makeKey(Key kind) {
    const auto curve = [](const char* name) { return EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", name); };
    const auto rsa = [](std::size_t bits) { return EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", bits); };
    KeyPtr key;
    switch (kind) {
        case Key::Ecdsa:
            key.reset(curve("P-256"));
            break;
        case Key::EcdsaP224:
            key.reset(curve("P-224"));
            break;
        case Key::EcdsaP192:
            key.reset(curve("P-192"));
            break;
        case Key::Rsa:
            key.reset(rsa(2048));
            break;
        case Key::Rsa1024:
            key.reset(rsa(1024));
            break;
        case Key::Rsa512:
            key.reset(rsa(512));
            break;
    }
    require(key != nullptr, "make key");
    return key;
}

TestPki::CertificatePtr TestPki::makeCertificate(const std::string& commonName, EVP_PKEY* key,
                                                 long notBeforeSec, long notAfterSec, long serial) {
    CertificatePtr certificate(X509_new());
    require(certificate != nullptr, "make certificate");
    X509_set_version(certificate.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), serial);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), notBeforeSec);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), notAfterSec);
    setName(X509_get_subject_name(certificate.get()), commonName);
    X509_set_pubkey(certificate.get(), key);
    return certificate;
}

void TestPki::addExtension(X509* certificate, int nid, const std::string& value) const {
    X509V3_CTX context{};
    X509V3_set_ctx(&context, m_certificate.get(), certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str());
    require(extension != nullptr, value.c_str());
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

void TestPki::addExtensions(X509* certificate, const Extensions& extensions) const {
    for (const std::string& extension : extensions) {
        const std::size_t end = extension.find('=');
        addExtension(certificate, OBJ_txt2nid(extension.substr(0, end).c_str()), extension.substr(end + 1));
    }
}

TestPki::Issued TestPki::issue(const Request& request) {
    const KeyPtr key = makeKey(request.key);
    const CertificatePtr certificate =
        makeCertificate(request.commonName.empty() ? request.name : request.commonName, key.get(),
                        request.notBeforeSec, request.notAfterSec, m_nextSerial++);
    X509_set_issuer_name(
        certificate.get(),
        X509_get_subject_name(request.isSelfSigned ? certificate.get() : m_certificate.get()));
    std::string names;
    for (const std::string& name : request.alternatives)
        names += (names.empty() ? "" : ",") + name;
    if (!names.empty()) addExtension(certificate.get(), NID_subject_alt_name, names);
    if (request.purpose != Purpose::Unsaid)
        addExtension(certificate.get(), NID_ext_key_usage,
                     request.purpose == Purpose::Server ? "serverAuth" : "clientAuth");
    addExtensions(certificate.get(), request.extensions);
    require(X509_sign(certificate.get(), request.isSelfSigned ? key.get() : m_key.get(),
                      EVP_get_digestbyname(request.digest)) > 0,
            "sign certificate");
    Issued issued{m_folder / (request.name + ".pem"), m_folder / (request.name + ".key")};
    writeCertificate(issued.certificate, certificate.get());
    writeKey(issued.key, key.get(), request.password);
    return issued;
}

std::string TestPki::nameHash() const {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%08lx", X509_subject_name_hash(m_certificate.get()));
    return text.data();
}

TestPki::Issued TestPki::issueForLocalhost(const std::string& name) {
    Request request;
    request.name = name;
    request.alternatives = {"DNS:localhost", "IP:127.0.0.1", "IP:::1"};
    return issue(request);
}

TestPki::Issued TestPki::issueForClient(const std::string& name) {
    Request request;
    request.name = name;
    request.purpose = Purpose::Client;
    return issue(request);
}

fs::path TestPki::revocationList(const fs::path& revokedCertificate, long nextUpdateSec, long lastUpdateSec) {
    const std::unique_ptr<X509_CRL, decltype(&X509_CRL_free)> list(X509_CRL_new(), X509_CRL_free);
    const std::unique_ptr<ASN1_TIME, decltype(&ASN1_TIME_free)> time(ASN1_TIME_new(), ASN1_TIME_free);
    X509_CRL_set_version(list.get(), 1);
    X509_CRL_set_issuer_name(list.get(), X509_get_subject_name(m_certificate.get()));
    X509_gmtime_adj(time.get(), lastUpdateSec);
    X509_CRL_set1_lastUpdate(list.get(), time.get());
    if (!revokedCertificate.empty()) {
        const CertificatePtr revoked(
            PEM_read_X509(open(revokedCertificate, "re").get(), nullptr, nullptr, nullptr));
        require(revoked != nullptr, "read certificate");
        X509_REVOKED* entry = X509_REVOKED_new();
        X509_REVOKED_set_serialNumber(entry, X509_get_serialNumber(revoked.get()));
        X509_REVOKED_set_revocationDate(entry, time.get());
        X509_CRL_add0_revoked(list.get(), entry);
    }
    X509_gmtime_adj(time.get(), nextUpdateSec);
    X509_CRL_set1_nextUpdate(list.get(), time.get());
    require(X509_CRL_sign(list.get(), m_key.get(), EVP_sha256()) > 0, "sign revocation list");
    fs::path path = m_folder / (m_name + ".crl");
    require(PEM_write_X509_CRL(open(path, "we").get(), list.get()) == 1, "write revocation list");
    return path;
}
