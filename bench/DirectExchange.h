// One exchange with a peer written by hand on sockets and OpenSSL: what the security library is measured against.
//
// Purpose: does with the same care what the library does: resolves, connects without blocking and within a time
//   limit, verifies the peer for the host, waits for the answer, says goodbye and waits for the peer's own end.
// Ownership: refers to the context, which must outlive it; owns what one run opens.
// Threads: one.
// Units: milliseconds inside.
// Errors: run() throws std::runtime_error.
#pragma once

#include <openssl/ssl.h>

#include <cstdint>
#include <string>

class DirectExchange {
  public:
    // A null context: plain.
    DirectExchange(std::string host, std::uint16_t port, SSL_CTX* context);

    // Sends the command and returns the first block of the answer.
    std::string run(const std::string& command) const;

  private:
    std::string m_host;
    std::string m_port;
    SSL_CTX* m_context;
};
