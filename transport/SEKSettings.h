// The settings of one service in sek.cnf, turned into a TLS context.
//
// Purpose: reads ../configuration/sek.cnf (relative to the working directory) with OpenSSL's own reader and
//   applies the section named by the service's id. A section holds SSL_CONF commands ("VerifyCAFile",
//   "MinProtocol", ...), which may carry a prefix up to a dot ("RSA.Certificate") so that one can stand
//   twice. Two more are known here: "CRLFile" (PEM) switches on the revocation check of the peer's
//   certificate, and "VerifyMode = None" switches the check of the peer off. Without the file or the
//   section: TLS 1.2 or newer, servers are verified against the system's trust store, clients are not asked
//   for a certificate.
// Ownership: the context belongs to the caller, counted by OpenSSL.
// Threads: build may be called by any thread; it shares nothing.
// Units: none.
// Errors: build throws SEKFailure that names file, section, command and reason. An error in the file is
//   never replaced by a default.
#pragma once

#include <openssl/ssl.h>
#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

struct SEKContextFreer {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
using SEKContextPtr = std::unique_ptr<SSL_CTX, SEKContextFreer>;

enum class SEKRole { Client, Server };

// What a file looked like when it was read, to see later whether it changed. An absent file has a stamp, too.
struct SEKFileStamp {
    std::string path;
    timespec modified{};
    ino_t inode = 0;
    off_t size = -1;

    static SEKFileStamp of(const std::string& path);
    bool isCurrent() const;
};

struct SEKSettings {
    static constexpr const char* path = "../configuration/sek.cnf";

    SEKContextPtr context;
    std::vector<SEKFileStamp> sources;  // the file and every file it names

    static SEKSettings build(const std::string& serviceID, SEKRole role);
    bool areCurrent() const;
};
