// What happens while a peer's certificate is verified, and after.
//
// Purpose: the verification callbacks of the library's contexts, which remember why a certificate was refused and
//   whose it was, and the last look before a connection counts as established.
// Ownership: the remembered text belongs to the SSL object and goes with it.
// Threads: as the SSL object, one thread at a time.
// Units: none.
// Errors: the callbacks throw nothing. requireVerifiedPeer throws SEKFailure.
#pragma once

#include <openssl/ssl.h>

#include <string>

namespace SEKVerification {

// Lets pass what OpenSSL lets pass, and nothing else.
int strict(int isGood, X509_STORE_CTX* store) noexcept;

// As strict, but goes without a revocation list for an authority; the peer's own certificate needs one.
int sparing(int isGood, X509_STORE_CTX* store) noexcept;

// The reason of a failed verification and the certificate that was refused, on one printable line of bounded
// length.
std::string refusal(const SSL* ssl);

// After a handshake: where the peer has to be verified, there is a certificate, and it was found good. A server
// that only asks for certificates may have got none.
void requireVerifiedPeer(const SSL* ssl);

}  // namespace SEKVerification
