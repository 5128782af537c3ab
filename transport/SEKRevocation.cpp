#include "SEKRevocation.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <memory>

#include "SEKErrors.h"
#include "SEKFile.h"

namespace {

struct BioFreer {
    void operator()(BIO* bio) const { BIO_free(bio); }
};
struct ListFreer {
    void operator()(X509_CRL* list) const { X509_CRL_free(list); }
};

// The end of the text shows as a missing start line.
bool isAtEnd() {
    const unsigned long error = ERR_peek_last_error();
    return ERR_GET_LIB(error) == ERR_LIB_PEM && ERR_GET_REASON(error) == PEM_R_NO_START_LINE;
}

}  // namespace

void SEKRevocation::load(const std::string& path, X509_STORE& store) const {
    const std::string content = SEKFile::read(path, SEKFile::materialLimit);
    const std::unique_ptr<BIO, BioFreer> input(
        BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
    if (input == nullptr) throw SEKFailure(SEKErrors::tlsReason());
    std::size_t count = 0;
    while (true) {
        const std::unique_ptr<X509_CRL, ListFreer> list(
            PEM_read_bio_X509_CRL(input.get(), nullptr, nullptr, nullptr));
        if (list == nullptr && count > 0 && isAtEnd()) break;
        if (list == nullptr || X509_STORE_add_crl(&store, list.get()) <= 0)
            throw SEKFailure(SEKErrors::tlsReason());
        ++count;
    }
    ERR_clear_error();
}

void SEKRevocation::setExtent(const std::string& value) {
    if (value == "leaf")
        m_extent = Extent::Leaf;
    else if (value == "chain")
        m_extent = Extent::Chain;
    else
        throw SEKFailure("neither leaf nor chain");
}

void SEKRevocation::enforce(SSL_CTX& context) const {
    const unsigned long all = m_extent == Extent::Leaf ? 0 : X509_V_FLAG_CRL_CHECK_ALL;
    X509_VERIFY_PARAM_set_flags(SSL_CTX_get0_param(&context), X509_V_FLAG_CRL_CHECK | all);
}
