#include "SEKRevocation.h"

#include "SEKErrors.h"
#include "SEKFile.h"
#include "SEKPem.h"

void SEKRevocation::load(const std::string& path, X509_STORE& store) const {
    const SEKPem::Lists lists = SEKPem::listsIn(SEKFile::read(path, SEKFile::materialLimit));
    if (lists.empty()) throw SEKFailure("no revocation list in it");
    for (const auto& list : lists) {
        if (X509_STORE_add_crl(&store, list.get()) <= 0) throw SEKFailure(SEKErrors::tlsReason());
    }
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
    if (X509_VERIFY_PARAM_set_flags(SSL_CTX_get0_param(&context), X509_V_FLAG_CRL_CHECK | all) != 1)
        throw SEKFailure("cannot have revocation checked: " + SEKErrors::tlsReason());
}
