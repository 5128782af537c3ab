#include "SEKTrust.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/store.h>
#include <openssl/ui.h>
#include <openssl/x509.h>
#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "SEKErrors.h"
#include "SEKPem.h"

namespace {

struct BioFreer {
    void operator()(BIO* bio) const { BIO_free(bio); }
};
struct StoreCloser {
    void operator()(OSSL_STORE_CTX* store) const { OSSL_STORE_close(store); }
};
struct InfoFreer {
    void operator()(OSSL_STORE_INFO* info) const { OSSL_STORE_INFO_free(info); }
};

bool beginsWith(const std::string& text, const std::string& beginning) {
    return strncasecmp(text.c_str(), beginning.c_str(), beginning.size()) == 0;
}

// The list of a search path, without its empty parts.
template <typename Work>
void forEachIn(const std::string& list, Work&& work) {
    for (std::size_t begin = 0; begin <= list.size();) {
        const std::size_t end = std::min(list.find(':', begin), list.size());
        if (end > begin) work(list.substr(begin, end - begin));
        begin = end + 1;
    }
}

void require(bool isDone) {
    if (!isDone) throw SEKFailure(SEKErrors::tlsReason());
}

unsigned long hashOfSubject(const X509* certificate) {
    int isGood = 0;
    const unsigned long hash =
        X509_NAME_hash_ex(X509_get_subject_name(certificate), nullptr, nullptr, &isGood);
    require(isGood != 0);
    return hash;
}

}  // namespace

// The files of one hash and kind in a folder.
struct SEKTrust::Series {
    std::string folder;
    std::string beginning;  // "01234567." or "01234567.r"

    bool isOfLists() const { return beginning.back() == 'r'; }
    unsigned long hash() const { return std::strtoul(beginning.c_str(), nullptr, 16); }
    // Whether the name is that of a series' first file.
    static bool begins(const std::string& name) {
        return name.size() >= 10 && name.find_first_not_of("0123456789abcdef") == 8 &&
               (name.compare(8, std::string::npos, ".0") == 0 ||
                name.compare(8, std::string::npos, ".r0") == 0);
    }
};

void SEKTrust::add(X509* certificate) {
    require(X509_STORE_add_cert(&m_store, certificate) > 0);
}

void SEKTrust::add(X509_CRL* list) {
    require(X509_STORE_add_crl(&m_store, list) > 0);
}

void SEKTrust::addFile(const std::string& path) {
    m_sources.push_back(SEKFileStamp::of(path));
    const std::string text = SEKFile::read(path, SEKFile::materialLimit);
    if (text.empty()) throw SEKFailure("the file is empty");
    const SEKPem::Certificates certificates = SEKPem::certificatesIn(text);
    const SEKPem::Lists lists = SEKPem::listsIn(text);
    if (certificates.empty() && lists.empty()) throw SEKFailure("no certificate in it");
    for (const auto& certificate : certificates)
        add(certificate.get());
    for (const auto& list : lists)
        add(list.get());
}

void SEKTrust::addFolders(const std::string& list) {
    forEachIn(list, [this](const std::string& path) { addFolder(path, Faults::AreErrors); });
}

void SEKTrust::addFolder(const std::string& path, Faults faults) {
    std::vector<std::string> names = SEKFile::namesIn(path, m_sources);
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        if (Series::begins(name)) addSeries({path, name.substr(0, name.size() - 1)}, names, faults);
    }
}

void SEKTrust::addSeries(const Series& series, const std::vector<std::string>& names, Faults faults) {
    for (int number = 0;; ++number) {
        const std::string name = series.beginning + std::to_string(number);
        if (!std::binary_search(names.begin(), names.end(), name)) return;
        m_sources.push_back(SEKFileStamp::of(series.folder + "/" + name));
        if (m_sources.back().isMissing()) return;
        try {
            addHashed(series, m_sources.back().path);
        } catch (const SEKFailure& reason) {
            if (faults == Faults::AreErrors) throw SEKFailure(name + ": " + reason.what());
        }
    }
}

// A file under a hash that is not its own is never looked for.
void SEKTrust::addHashed(const Series& series, const std::string& path) {
    const std::string text = readInFolder(path);
    if (series.isOfLists()) {
        const SEKPem::Lists lists = SEKPem::listsIn(text);
        if (lists.empty()) throw SEKFailure("no revocation list in it");
        for (const auto& list : lists)
            add(list.get());
        return;
    }
    const SEKPem::Certificates certificates = SEKPem::certificatesIn(text);
    if (certificates.empty()) throw SEKFailure("no certificate in it");
    const bool isLookedFor = std::any_of(certificates.begin(), certificates.end(), [&](const auto& one) {
        return hashOfSubject(one.get()) == series.hash();
    });
    for (const auto& certificate : certificates)
        if (isLookedFor) add(certificate.get());
}

std::string SEKTrust::readInFolder(const std::string& path) {
    std::string text = SEKFile::read(path, SEKFile::materialLimit);
    m_folderBytes += text.size();
    if (m_folderBytes > folderBytesLimit) throw SEKFailure("too much in the folders of authorities");
    return text;
}

std::string SEKTrust::pathOf(const std::string& uri) {
    if (beginsWith(uri, "file:")) {
        std::string path = uri.substr(5);
        if (beginsWith(path, "//localhost/")) path.erase(0, 11);
        if (beginsWith(path, "///")) path.erase(0, 2);
        // What follows two slashes is the name of a machine.
        if (path.rfind('/', 0) != 0 || path.rfind("//", 0) == 0)
            throw SEKFailure("a file: URI needs an absolute path");
        return path;
    }
    const bool isOther = uri.find(':') < uri.find('/') && !SEKFileStamp::of(uri).isThere;
    return isOther ? "" : uri;
}

bool SEKTrust::addStore(const std::string& uri) {
    const std::string path = pathOf(uri);
    if (path.empty()) return false;
    if (S_ISDIR(SEKFileStamp::of(path).status.st_mode))
        addFolder(path, Faults::AreErrors);
    else
        addAnyForm(path);
    return true;
}

// A store may hold what is no PEM. What would need a password adds nobody.
void SEKTrust::addAnyForm(const std::string& path) {
    m_sources.push_back(SEKFileStamp::of(path));
    const std::string content = SEKFile::read(path, SEKFile::materialLimit);
    const std::unique_ptr<BIO, BioFreer> input(
        BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
    require(input != nullptr);
    const std::unique_ptr<OSSL_STORE_CTX, StoreCloser> store(OSSL_STORE_attach(
        input.get(), "file", nullptr, nullptr, UI_null(), nullptr, nullptr, nullptr, nullptr));
    require(store != nullptr);
    bool isEmpty = true;
    while (OSSL_STORE_eof(store.get()) == 0) {
        const std::unique_ptr<OSSL_STORE_INFO, InfoFreer> info(OSSL_STORE_load(store.get()));
        if (info == nullptr) {
            require(OSSL_STORE_eof(store.get()) != 0);
            break;
        }
        X509* const certificate = OSSL_STORE_INFO_get0_CERT(info.get());
        X509_CRL* const list = OSSL_STORE_INFO_get0_CRL(info.get());
        if (certificate != nullptr) add(certificate);
        if (list != nullptr) add(list);
        isEmpty = isEmpty && certificate == nullptr && list == nullptr;
    }
    ERR_clear_error();
    if (isEmpty) throw SEKFailure("no certificate in it");
}

void SEKTrust::addSystem() {
    addHalf(X509_get_default_cert_file_env(), X509_get_default_cert_file(),
            [this](const std::string& path, Faults) {
                if (!isAbsent(path)) addFile(path);
            });
    addHalf(X509_get_default_cert_dir_env(), X509_get_default_cert_dir(),
            [this](const std::string& list, Faults faults) {
                forEachIn(list, [&](const std::string& path) {
                    if (!isAbsent(path)) addFolder(path, faults);
                });
            });
}

template <typename Add>
void SEKTrust::addHalf(const char* variable, const char* builtIn, Add&& addAt) {
    const char* const value = secure_getenv(variable);
    try {
        addAt(value != nullptr ? value : builtIn,
              value != nullptr ? Faults::AreErrors : Faults::ArePassedOver);
    } catch (const SEKFailure& reason) {
        if (value == nullptr) return;
        throw SEKFailure(std::string(variable) + " = " + value + ": " + reason.what());
    }
}

// What is missing leaves its stamp: it may come.
bool SEKTrust::isAbsent(const std::string& path) {
    const SEKFileStamp stamp = SEKFileStamp::of(path);
    if (!stamp.isThere) m_sources.push_back(stamp);
    return stamp.isMissing();
}
