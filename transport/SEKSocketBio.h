// The way of TLS records to and from a socket.
//
// Purpose: an OpenSSL BIO over a non-blocking socket that never raises SIGPIPE, which OpenSSL's own socket
//   BIO does when the peer has gone. It also bounds what a peer can make OpenSSL read. OpenSSL goes on reading
//   within one call as long as it gets records that mean nothing; here a step gets stepLimitBytes and is then told
//   to come back later, so that its caller sees the time, and fruitlessLimitBytes that neither finish the
//   handshake nor carry data of the application are the end of the stream.
// Ownership: the BIO belongs to the caller (to the SSL it is given to); the descriptor stays the socket's.
// Threads: one BIO is used by one thread at a time.
// Units: bytes.
// Errors: create throws SEKFailure when there is no memory. A failed transfer leaves its errno for lastError.
#pragma once

#include <openssl/bio.h>

#include <cstddef>

namespace SEKSocketBio {

constexpr std::size_t stepLimitBytes = 64U << 10U;
// Far above what the largest chain of certificates needs.
constexpr std::size_t fruitlessLimitBytes = 1U << 20U;

BIO* create(int descriptor);

// Before each call of OpenSSL: it may read its share anew.
void beginStep(BIO* bio);
// What was read so far has led to something.
void noteProgress(BIO* bio);
// True once reading has failed because the peer sent too much that led to nothing.
bool isOverfed(BIO* bio);

// The errno of the last transfer that failed for good; 0 when none has.
int lastError(BIO* bio);

}  // namespace SEKSocketBio
