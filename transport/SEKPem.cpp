#include "SEKPem.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <utility>

#include "SEKErrors.h"

namespace {

struct BioFreer {
    void operator()(BIO* bio) const { BIO_free(bio); }
};

// The end of the text shows as a missing start line.
bool isAtEnd() {
    const unsigned long error = ERR_peek_last_error();
    return ERR_GET_LIB(error) == ERR_LIB_PEM && ERR_GET_REASON(error) == PEM_R_NO_START_LINE;
}

template <typename Many, typename Read>
Many allIn(const std::string& text, Read read) {
    ERR_clear_error();
    const std::unique_ptr<BIO, BioFreer> input(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    if (input == nullptr) throw SEKFailure(SEKErrors::tlsReason());
    Many all;
    // Owned before it is appended, which takes memory.
    while (typename Many::value_type one{read(input.get(), nullptr, nullptr, nullptr)})
        all.push_back(std::move(one));
    if (!isAtEnd()) throw SEKFailure(SEKErrors::tlsReason());
    ERR_clear_error();
    return all;
}

}  // namespace

namespace SEKPem {

Certificates certificatesIn(const std::string& text) {
    return allIn<Certificates>(text, PEM_read_bio_X509_AUX);
}

// Most texts have none, and each look for one decodes the whole text.
Lists listsIn(const std::string& text) {
    if (text.find("-----BEGIN X509 CRL-----") == std::string::npos) return {};
    return allIn<Lists>(text, PEM_read_bio_X509_CRL);
}

}  // namespace SEKPem
