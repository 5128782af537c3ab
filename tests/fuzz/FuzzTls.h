// What the targets of TLS share: both ends of a connection in one thread, random numbers that are always the same, and
// contexts around a throw-away authority.
//
// Purpose: a stream of the library at one end of a pair of sockets, and at the other whatever a target sends.
// Ownership: a connection owns both ends; contexts live as long as the process.
// Threads: as the targets, one thread.
// Units: bytes.
// Errors: broken promises end the process.
#pragma once

#include <openssl/ssl.h>

#include <cstddef>
#include <string>

#include "SEKDescriptor.h"
#include "SEKSettings.h"
#include "SEKTlsStream.h"

namespace FuzzTls {

// Begins the same row of random numbers anew; call it before anything else of a run.
void beginRandom();

// The library's context for that side, as sek.cnf gives it: a client that trusts the authority, a server with a
// certificate for "localhost". Certificates are good at any time.
SSL_CTX* context(SEKRole role);

// Promises that a failure has one printable line to tell.
void checkReason(const std::string& reason);

// Two ends that wait for nothing.
class Connection {
  public:
    Connection();

    int here() const { return m_here.get(); }
    SEKDescriptor releaseHere() { return std::move(m_here); }
    // To the end that is here, as much as it holds.
    void send(const std::string& bytes) const;
    void sendEnd() const;
    std::string takeSent() const;  // what came from here and was not taken yet

  private:
    SEKDescriptor m_here;
    SEKDescriptor m_there;
};

}  // namespace FuzzTls
