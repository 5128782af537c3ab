// The way of TLS records to and from a socket.
//
// Purpose: an OpenSSL BIO over a non-blocking socket that never raises SIGPIPE, which OpenSSL's own socket
//   BIO does when the peer has gone.
// Ownership: the BIO belongs to the caller (to the SSL it is given to); the descriptor stays the socket's.
// Threads: one BIO is used by one thread at a time.
// Units: none.
// Errors: create throws SEKFailure when there is no memory. A failed transfer leaves its errno for lastError.
#pragma once

#include <openssl/bio.h>

namespace SEKSocketBio {

BIO* create(int descriptor);

// The errno of the last transfer that failed for good; 0 when none has.
int lastError(BIO* bio);

}  // namespace SEKSocketBio
