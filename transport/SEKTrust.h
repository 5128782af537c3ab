// The authorities that a context believes, taken from files, folders and the system's trust store.
//
// Purpose: puts into a store what these places hold when the settings are read, so that no file is opened during a
//   handshake. Of a folder those files count that OpenSSL would look for: HHHHHHHH.N with certificates and
//   HHHHHHHH.rN with revocation lists, the hash of the subject's or issuer's name and a number from 0 on without a
//   gap. Lists are heeded where the settings ask for a check of revocation.
// Ownership: the store and the list of sources stay the caller's.
// Threads: used by one thread at a time; no shared state.
// Units: bytes.
// Errors: SEKFailure with the reason, after the file's name in a folder; the caller names the place.
#pragma once

#include <openssl/x509_vfy.h>

#include <cstddef>
#include <string>
#include <vector>

#include "SEKFile.h"

class SEKTrust {
  public:
    // What is read leaves its stamp among the sources, also when reading fails.
    SEKTrust(X509_STORE& store, std::vector<SEKFileStamp>& sources) : m_store(store), m_sources(sources) {}

    void addFile(const std::string& path);     // PEM
    void addFolders(const std::string& list);  // as for a search path
    // False for a store that is no file or folder, and that OpenSSL must open by itself.
    bool addStore(const std::string& uri);
    // What OpenSSL holds for the system's: the places that it was built with are the administrator's, and what cannot
    // be read there adds nobody; those that the environment names instead may be missing, and nothing else.
    void addSystem();

    // The path behind the URI of a store; empty for a store that is no file.
    static std::string pathOf(const std::string& uri);

  private:
    static constexpr std::size_t folderBytesLimit = 64U << 20U;  // of all folders together
    enum class Faults { AreErrors, ArePassedOver };
    struct Series;

    void addFolder(const std::string& path, Faults faults);
    void addSeries(const Series& series, const std::vector<std::string>& names, Faults faults);
    void addHashed(const Series& series, const std::string& path);
    std::string readInFolder(const std::string& path);
    template <typename Add>
    void addHalf(const char* variable, const char* builtIn, Add&& addAt);
    bool isAbsent(const std::string& path);
    void addAnyForm(const std::string& path);
    void add(X509* certificate);
    void add(X509_CRL* list);

    X509_STORE& m_store;
    std::vector<SEKFileStamp>& m_sources;
    std::size_t m_folderBytes = 0;
};
