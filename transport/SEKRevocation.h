// The revocation lists of the settings.
//
// Purpose: gathers what "CRLFile" (PEM; several lists in a file, several files) and "CRLCheck" say, and makes a
//   context heed it. The peer's own certificate must always be covered by a list of its issuer. "CRLCheck" says
//   how far the check goes up the chain: "leaf" no further; "chain" to the top, a list of each issuer is needed;
//   without the command each authority in the chain is checked whose issuer has a list here.
// Ownership: owns the texts; the lists belong to the context's store once applied.
// Threads: used by one thread at a time.
// Units: none.
// Errors: SEKFailure with the reason alone; the caller names the place.
#pragma once

#include <openssl/ssl.h>

#include <string>
#include <vector>

class SEKRevocation {
  public:
    enum class Extent { Available, Leaf, Chain };

    // Reads the file and takes its lists over into the store.
    void load(const std::string& path, X509_STORE& store) const;
    void setExtent(const std::string& value);
    Extent extent() const { return m_extent; }
    // Makes verification with this context look at the lists.
    void enforce(SSL_CTX& context) const;

  private:
    Extent m_extent = Extent::Available;
};
