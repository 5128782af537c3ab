// The server side of TLS.
//
// Purpose: loads certificate and key, and gives each connection its own state machine, which never blocks.
// Ownership: owns OpenSSL's context; sessions own theirs and share the context.
// Threads: one.
// Errors: the constructor throws std::runtime_error with the file and OpenSSL's reason.
#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>

struct SampleSslFree {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    void operator()(SSL* session) const { SSL_free(session); }
};

class SampleTls {
  public:
    using Session = std::unique_ptr<SSL, SampleSslFree>;

    SampleTls(const std::string& certificateFile, const std::string& keyFile);

    // A session on a connected, non-blocking descriptor, which stays the caller's; null when memory is short.
    Session accept(int descriptor) const;

    // OpenSSL's oldest queued error as text; the queue is empty afterwards.
    static std::string lastError();

  private:
    std::unique_ptr<SSL_CTX, SampleSslFree> m_context;
};
