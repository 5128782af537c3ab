// The peer of an established TLS connection as an XML text.
//
// Purpose: tells a caller with whom, and how, a connection speaks: protocol, cipher, whether the peer was
//   verified, and its certificates, its own first. After a verification these are the verified chain up to the
//   trusted authority, otherwise what the peer sent.
// Ownership: returns a value.
// Threads: as the SSL object, one thread at a time.
// Units: times are UTC, ISO 8601.
// Errors: none of its own. The text is well-formed and ASCII whatever the certificates hold, and bounded: at most
//   chainLimit certificates with nameLimit names each; attributes say how many were left out.
#pragma once

#include <openssl/ssl.h>

#include <cstddef>
#include <string>

namespace SEKPeerDescription {

constexpr std::size_t chainLimit = 16;
constexpr std::size_t nameLimit = 100;

std::string of(const SSL* ssl);

}  // namespace SEKPeerDescription
