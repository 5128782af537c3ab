// A certificate that lies beside the service's settings together with its key, for a child to show.
//
// Purpose: says whether a child that shows it will be believed: by its key, its issuer and its names.
// Ownership: owns what it has read.
// Threads: one thread at a time.
// Units: none.
// Errors: a file that is no such certificate is not one of them; complaints are texts, empty when there is none.
#pragma once

#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <filesystem>
#include <string>

#include "SEKPem.h"

class CTLServerCertificate {
  public:
    // NAME.pem, beside which there is a NAME.key. The key of what "make-certificates" makes must be there.
    explicit CTLServerCertificate(const std::filesystem::path& file);

    bool isOne() const { return !m_certificates.empty(); }
    std::string file() const { return m_file.string(); }
    std::string keyFile() const { return std::filesystem::path(m_file).replace_extension(".key").string(); }
    const X509* certificate() const { return m_certificates.front().get(); }

    // Whether the context shows it by itself; null is no context.
    bool isOwnOf(const SSL_CTX* context) const;
    std::string complaintOfKey() const;
    std::string complaintOfAuthority(const SSL_CTX& context) const;
    bool isGoodFor(const std::string& host) const;
    // The names that it has, for a person.
    std::string names() const;

  private:
    std::filesystem::path m_file;
    SEKPem::Certificates m_certificates;  // its own first
};
