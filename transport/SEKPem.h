// Certificates and revocation lists in PEM form.
//
// Purpose: takes them out of a text that has been read already, so that OpenSSL opens no file for them. Blocks of
//   another kind between them are passed over.
// Ownership: the caller owns what is handed out.
// Threads: no shared state.
// Units: none.
// Errors: SEKFailure with OpenSSL's reason when a block of the kind asked for is damaged; none at all is no error.
#pragma once

#include <openssl/x509.h>

#include <memory>
#include <string>
#include <vector>

namespace SEKPem {

struct CertificateFreer {
    void operator()(X509* certificate) const { X509_free(certificate); }
};
struct ListFreer {
    void operator()(X509_CRL* list) const { X509_CRL_free(list); }
};
using Certificates = std::vector<std::unique_ptr<X509, CertificateFreer>>;
using Lists = std::vector<std::unique_ptr<X509_CRL, ListFreer>>;

// Also those that carry what they are trusted for.
Certificates certificatesIn(const std::string& text);
Lists listsIn(const std::string& text);

}  // namespace SEKPem
