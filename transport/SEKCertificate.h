// A certificate in words.
//
// Purpose: reads a certificate, which may be a stranger's, into texts that are safe to show: ASCII on one line,
//   other bytes written as a backslash and two hexadecimal digits, each text cut at a bounded length.
// Ownership: refers to the caller's certificate, which must outlive it.
// Threads: used by one thread at a time.
// Units: times are UTC, "2026-01-31T12:00:00Z".
// Errors: a part that cannot be read shows as "unreadable"; std::bad_alloc apart, nothing is thrown.
#pragma once

#include <openssl/x509.h>

#include <cstddef>
#include <string>
#include <vector>

class SEKCertificate {
  public:
    static constexpr std::size_t textLimit = 256;  // of one name

    struct Name {
        std::string kind;  // "DNS", "IP", "email", "URI", "directory" or "other"
        std::string value;
    };

    explicit SEKCertificate(const X509* certificate) : m_certificate(certificate) {}

    std::string subject() const;
    std::string issuer() const;
    // At most so many alternative names; `omitted` counts the others.
    std::vector<Name> names(std::size_t limit, std::size_t& omitted) const;
    std::string notBefore() const;
    std::string notAfter() const;
    std::string fingerprint() const;  // SHA-256, "AB:CD:…"

    // Whose it is, its names, its dates and its issuer, in about a thousand characters at most.
    std::string summary() const;

  private:
    const X509* m_certificate;
};
