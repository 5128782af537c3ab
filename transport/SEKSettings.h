// The settings of one service in sek.cnf, turned into a TLS context.
//
// Purpose: reads ../configuration/sek.cnf (relative to the working directory) with OpenSSL's own reader and
//   applies the section named by the service's id. A section holds SSL_CONF commands ("VerifyCAFile",
//   "MinProtocol", ...), which may carry a prefix up to a dot ("RSA.Certificate") so that one can stand
//   twice. Three are known here: "CRLFile" and "CRLCheck" (see SEKRevocation), and "VerifyMode = None", which
//   switches the check of the peer off and is the only thing that does. Of several VerifyMode lines the last
//   counts. Without the file: TLS 1.2 or newer, servers are verified against the system's trust store, clients
//   are not asked for a certificate. A file without the section is an error.
// Ownership: the context belongs to the caller, counted by OpenSSL.
// Threads: build may be called by any thread; it shares nothing.
// Units: none.
// Errors: build throws SEKFailure that names file, section, command and reason. An error in the file is
//   never replaced by a default. renew throws nothing of that kind: what was good stays in force.
#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>
#include <vector>

#include "SEKFile.h"

struct SEKContextFreer {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
using SEKContextPtr = std::unique_ptr<SSL_CTX, SEKContextFreer>;

enum class SEKRole { Client, Server };

struct SEKSettings {
    static constexpr const char* path = "../configuration/sek.cnf";

    SEKContextPtr context;
    std::vector<SEKFileStamp> sources;  // the file, those it includes, and every file and folder it names
    bool hasFile = false;

    static SEKSettings build(const std::string& serviceID, SEKRole role);
    bool areCurrent() const;
    // Reads everything anew. When that fails, or the file has gone, these settings stay as they are.
    void renew(const std::string& serviceID, SEKRole role);
};
