// The peer of a connection, as the security library describes it.
//
// Purpose: takes the library's description apart: protocol, cipher, and the certificates with their names and dates.
// Ownership: a value.
// Threads: any.
// Units: seconds since the epoch.
// Errors: a description that cannot be read is a peer without anything.
#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <vector>

struct CTLCertificate {
    std::string subject;
    std::string issuer;
    std::vector<std::string> names;  // "DNS:localhost"
    std::time_t notBefore = 0;
    std::time_t notAfter = 0;
    std::string fingerprint;  // SHA-256
};

struct CTLPeer {
    std::string protocol;
    std::string cipher;
    bool isVerified = false;
    std::vector<CTLCertificate> chain;  // the peer's own first

    static CTLPeer of(const std::string& description);

    // When the first of the chain ends.
    std::optional<std::time_t> expiry() const;
};
