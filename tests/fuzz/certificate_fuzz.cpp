// Any bytes as a stranger's certificate: what is told of it is safe to show.

#include <openssl/err.h>
#include <openssl/x509.h>

#include <algorithm>
#include <memory>
#include <string>

#include "FuzzTarget.h"
#include "SEKCertificate.h"

using FuzzTarget::require;

namespace {

struct CertificateFreer {
    void operator()(X509* certificate) const { X509_free(certificate); }
};

constexpr std::size_t kMostNames = 20;
constexpr std::size_t kLongestText = SEKCertificate::textLimit + 3;  // and three dots where it was cut
constexpr std::size_t kLongestSummary = 2048;

void checkText(const std::string& text, std::size_t longest) {
    require(!text.empty() || longest != kLongestText, "there is something to show");
    require(text.size() <= longest, "a text is of bounded length");
    require(std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c < '\x7f'; }),
            "a text is one printable line");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const unsigned char* bytes = data;
    const std::unique_ptr<X509, CertificateFreer> stranger(
        d2i_X509(nullptr, &bytes, static_cast<long>(size)));
    ERR_clear_error();
    if (stranger == nullptr) return 0;
    const SEKCertificate certificate(stranger.get());
    checkText(certificate.subject(), kLongestText);
    checkText(certificate.issuer(), kLongestText);
    checkText(certificate.notBefore(), kLongestText);
    checkText(certificate.notAfter(), kLongestText);
    checkText(certificate.fingerprint(), kLongestText);
    checkText(certificate.summary(), kLongestSummary);
    std::size_t omitted = 0;
    for (const SEKCertificate::Name& name : certificate.names(kMostNames, omitted)) {
        checkText(name.value, kLongestText + 1);
        require(name.value.find(',') == std::string::npos || name.kind == "directory" || name.kind == "other",
                "one name never passes for two");
    }
    require(ERR_peek_error() == 0, "no error is left for the next call to find");
    return 0;
}
