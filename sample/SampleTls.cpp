#include "SampleTls.h"

#include <openssl/err.h>

#include <array>
#include <stdexcept>

namespace {

[[noreturn]] void refuse(const std::string& what) {
    throw std::runtime_error(what + ": " + SampleTls::lastError());
}

}  // namespace

SampleTls::SampleTls(const std::string& certificateFile, const std::string& keyFile)
    : m_context(SSL_CTX_new(TLS_server_method())) {
    SSL_CTX* const context = m_context.get();
    if (context == nullptr) refuse("cannot set up TLS");
    SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
    // Commands tell their own length, so an end without the parting notice cuts nothing off unseen.
    SSL_CTX_set_options(context, SSL_OP_IGNORE_UNEXPECTED_EOF);
    SSL_CTX_set_mode(context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    if (SSL_CTX_use_certificate_chain_file(context, certificateFile.c_str()) != 1) {
        refuse("cannot use certificate " + certificateFile);
    }
    if (SSL_CTX_use_PrivateKey_file(context, keyFile.c_str(), SSL_FILETYPE_PEM) != 1) {
        refuse("cannot use key " + keyFile);
    }
    if (SSL_CTX_check_private_key(context) != 1) refuse("key " + keyFile + " is not the certificate's");
}

SampleTls::Session SampleTls::accept(int descriptor) const {
    Session session(SSL_new(m_context.get()));
    if (session == nullptr || SSL_set_fd(session.get(), descriptor) != 1) return nullptr;
    SSL_set_accept_state(session.get());
    return session;
}

std::string SampleTls::lastError() {
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    if (code == 0) return "no reason given";
    std::array<char, 256> text{};
    ERR_error_string_n(code, text.data(), text.size());
    return text.data();
}
