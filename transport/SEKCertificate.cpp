#include "SEKCertificate.h"

#include <arpa/inet.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <memory>

namespace {

constexpr const char* unreadable = "unreadable";
constexpr std::size_t summaryNames = 10;
constexpr std::size_t summaryNameLength = 400;  // of all names together

struct BioFreer {
    void operator()(BIO* bio) const { BIO_free(bio); }
};
using NamesPtr = std::unique_ptr<GENERAL_NAMES, void (*)(GENERAL_NAMES*)>;

std::string cut(std::string text) {
    if (text.size() <= SEKCertificate::textLimit) return text;
    return text.substr(0, SEKCertificate::textLimit) + "...";
}

std::string hexadecimal(unsigned char byte) {
    constexpr const char* digits = "0123456789ABCDEF";
    return {digits[byte >> 4U], digits[byte & 0xFU]};
}

// A comma would let one name pass for two.
std::string escaped(const unsigned char* bytes, std::size_t length) {
    std::string text;
    for (std::size_t i = 0; i < length && text.size() <= SEKCertificate::textLimit; ++i) {
        const unsigned char byte = bytes[i];
        const bool isPlain = byte > ' ' && byte < 0x7F && byte != ',' && byte != '\\';
        if (isPlain)
            text += static_cast<char>(byte);
        else
            text.append("\\").append(hexadecimal(byte));
    }
    return cut(text);
}

std::string printed(const X509_NAME* name, unsigned long flags) {
    const std::unique_ptr<BIO, BioFreer> output(BIO_new(BIO_s_mem()));
    if (output == nullptr || X509_NAME_print_ex(output.get(), name, 0, flags) < 0) return unreadable;
    const char* bytes = nullptr;
    const long length = BIO_get_mem_data(output.get(), &bytes);
    return length > 0 ? std::string(bytes, static_cast<std::size_t>(length)) : "";
}

std::string textOf(const X509_NAME* name) {
    std::string text = printed(name, XN_FLAG_RFC2253);
    // Parts that are no text of the kind they claim to be are shown byte by byte.
    if (text == unreadable) text = printed(name, XN_FLAG_RFC2253 & ~ASN1_STRFLGS_UTF8_CONVERT);
    ERR_clear_error();
    return text.empty() ? "nobody" : cut(text);
}

std::string textOf(const ASN1_TIME* time) {
    std::tm parts{};
    if (ASN1_TIME_to_tm(time, &parts) != 1) return unreadable;
    std::array<char, 32> text{};
    return std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts) > 0 ? text.data()
                                                                                     : unreadable;
}

std::string addressText(const ASN1_OCTET_STRING* address) {
    const int length = ASN1_STRING_length(address);
    if (length != 4 && length != 16) return unreadable;
    std::array<char, INET6_ADDRSTRLEN> text{};
    const int family = length == 4 ? AF_INET : AF_INET6;
    return inet_ntop(family, ASN1_STRING_get0_data(address), text.data(), text.size()) != nullptr
               ? text.data()
               : unreadable;
}

std::string stringText(const ASN1_STRING* string) {
    return escaped(ASN1_STRING_get0_data(string), static_cast<std::size_t>(ASN1_STRING_length(string)));
}

SEKCertificate::Name nameOf(const GENERAL_NAME* name) {
    int type = 0;
    const void* const value = GENERAL_NAME_get0_value(name, &type);
    switch (type) {
        case GEN_DNS:
            return {"DNS", stringText(static_cast<const ASN1_STRING*>(value))};
        case GEN_EMAIL:
            return {"email", stringText(static_cast<const ASN1_STRING*>(value))};
        case GEN_URI:
            return {"URI", stringText(static_cast<const ASN1_STRING*>(value))};
        case GEN_IPADD:
            return {"IP", addressText(static_cast<const ASN1_OCTET_STRING*>(value))};
        case GEN_DIRNAME:
            return {"directory", textOf(static_cast<const X509_NAME*>(value))};
        default:
            return {"other", "of a kind not shown"};
    }
}

}  // namespace

std::string SEKCertificate::subject() const {
    return textOf(X509_get_subject_name(m_certificate));
}

std::string SEKCertificate::issuer() const {
    return textOf(X509_get_issuer_name(m_certificate));
}

std::vector<SEKCertificate::Name> SEKCertificate::names(std::size_t limit, std::size_t& omitted) const {
    const NamesPtr all(
        static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(m_certificate, NID_subject_alt_name, nullptr, nullptr)),
        GENERAL_NAMES_free);
    ERR_clear_error();
    const auto count = static_cast<std::size_t>(std::max(0, sk_GENERAL_NAME_num(all.get())));
    std::vector<Name> shown;
    for (std::size_t i = 0; i < std::min(count, limit); ++i)
        shown.push_back(nameOf(sk_GENERAL_NAME_value(all.get(), static_cast<int>(i))));
    omitted = count - shown.size();
    return shown;
}

std::string SEKCertificate::notBefore() const {
    return textOf(X509_get0_notBefore(m_certificate));
}

std::string SEKCertificate::notAfter() const {
    return textOf(X509_get0_notAfter(m_certificate));
}

std::string SEKCertificate::fingerprint() const {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned length = 0;
    if (X509_digest(m_certificate, EVP_sha256(), digest.data(), &length) != 1) return unreadable;
    std::string text;
    for (unsigned i = 0; i < length; ++i)
        text.append(i == 0 ? "" : ":").append(hexadecimal(digest[i]));
    return text;
}

std::string SEKCertificate::summary() const {
    std::size_t omitted = 0;
    std::string list;
    for (const Name& name : names(summaryNames, omitted)) {
        if (list.size() > summaryNameLength)
            ++omitted;
        else
            list += (list.empty() ? "" : ", ") + name.kind + ":" + name.value;
    }
    if (omitted > 0) list += " and " + std::to_string(omitted) + " more";
    return "certificate of " + subject() + ", " + (list.empty() ? "no names" : "names " + list) +
           ", good from " + notBefore() + " to " + notAfter() + ", issued by " + issuer();
}
