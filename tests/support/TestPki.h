// A throw-away certificate authority for tests.
//
// Purpose: makes keys, certificates and revocation lists on the spot, as PEM files in a folder of the test.
// Ownership: owns its authority's key and certificate; the files belong to the folder and go with it.
// Threads: used by one thread.
// Units: seconds, relative to now.
// Errors: every member throws std::runtime_error when OpenSSL or the file system refuses.
#pragma once

#include <openssl/x509.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

class TestPki {
  public:
    enum class Key { Ecdsa, EcdsaP224, EcdsaP192, Rsa, Rsa1024, Rsa512 };
    enum class Purpose { Server, Client, Unsaid };
    using Extensions = std::vector<std::string>;  // "keyUsage=critical,digitalSignature"

    struct Request {
        std::string name;  // of the files, and the certificate's common name unless that is given
        std::vector<std::string> alternatives = {};  // "DNS:localhost", "IP:127.0.0.1"
        Key key = Key::Ecdsa;
        Purpose purpose = Purpose::Server;
        long notBeforeSec = -3600;
        long notAfterSec = 3600;
        std::string commonName = {};
        std::string password = {};   // encrypts the key file when not empty
        Extensions extensions = {};  // beside the names and the purpose
        const char* digest = "SHA256";
        bool isSelfSigned = false;
    };
    // What an authority's own certificate is like.
    struct Traits {
        Key key = Key::Ecdsa;
        Extensions extensions = {"basicConstraints=critical,CA:TRUE",
                                 "keyUsage=critical,keyCertSign,cRLSign"};
        const char* digest = "SHA256";
        long notBeforeSec = -7200;
        long notAfterSec = 7200;
    };
    struct Issued {
        std::filesystem::path certificate;
        std::filesystem::path key;  // readable by the owner only
    };

    // The name tells several authorities in one folder apart.
    explicit TestPki(const std::filesystem::path& folder, const std::string& name = "authority");
    TestPki(const std::filesystem::path& folder, const std::string& name, const Traits& traits);
    // An authority below another one, which signs its certificate.
    TestPki(const std::filesystem::path& folder, const std::string& name, const TestPki& issuer);
    TestPki(const std::filesystem::path& folder, const std::string& name, const TestPki& issuer,
            const Traits& traits);
    ~TestPki();
    TestPki(const TestPki&) = delete;
    TestPki& operator=(const TestPki&) = delete;

    const std::filesystem::path& authorityFile() const { return m_authorityFile; }
    // What readers of a folder of authorities look for: the first part of a file's name.
    std::string nameHash() const;
    Issued issue(const Request& request);
    // A certificate for "localhost", 127.0.0.1 and ::1.
    Issued issueForLocalhost(const std::string& name = "server");
    // A client's certificate.
    Issued issueForClient(const std::string& name = "client");
    // A revocation list of the authority with that certificate on it; nothing on it when the path is empty.
    std::filesystem::path revocationList(const std::filesystem::path& revokedCertificate,
                                         long nextUpdateSec = 3600, long lastUpdateSec = -7200);

  private:
    void writeAuthority(const TestPki& issuer, const Traits& traits);
    struct KeyFreer {
        void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    };
    struct CertificateFreer {
        void operator()(X509* certificate) const { X509_free(certificate); }
    };
    using KeyPtr = std::unique_ptr<EVP_PKEY, KeyFreer>;
    using CertificatePtr = std::unique_ptr<X509, CertificateFreer>;

    static KeyPtr makeKey(Key kind);
    static CertificatePtr makeCertificate(const std::string& commonName, EVP_PKEY* key, long notBeforeSec,
                                          long notAfterSec, long serial);
    void addExtension(X509* certificate, int nid, const std::string& value) const;
    void addExtensions(X509* certificate, const Extensions& extensions) const;

    std::filesystem::path m_folder;
    std::string m_name;
    std::filesystem::path m_authorityFile;
    KeyPtr m_key;
    CertificatePtr m_certificate;
    long m_nextSerial = 2;
};
