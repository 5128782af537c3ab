// Settings of the security library, certificates and keys.
//
// Purpose: reads sek.cnf as the library would at the first connection, and looks at what it names: whether it can be read,
//   how long it is good, and, where a certificate that a child shows lies beside it, whether the service will believe it
//   for the host that it pings.
// Ownership: findings stay the caller's.
// Threads: one thread at a time; the working folder is the instance's bin/.
// Units: days.
// Errors: none; all mistakes are findings.
#pragma once

#include <openssl/x509.h>

#include <set>
#include <string>
#include <vector>

#include "CTLChildCheck.h"
#include "CTLDocument.h"
#include "CTLFindings.h"
#include "SEKSettings.h"

class CTLServerCertificate;

class CTLTlsCheck {
  public:
    // A certificate that ends within so many is worth a warning.
    static constexpr int kSoonDays = 30;

    // The addresses are those of the document.
    CTLTlsCheck(const CTLDocument& bootstrap, const std::vector<CTLChildCheck::Address>& addresses,
                CTLFindings& findings);

    void check();

  private:
    void checkSection(const std::string& section, SEKRole role);
    void checkFilesOf(const SEKSettings& settings);
    void checkDates(const std::string& file, const X509* certificate);
    void checkLists(const std::string& file, const std::string& text);
    void checkServers();
    void checkNames(const std::vector<CTLServerCertificate>& servers);
    void add(CTLFinding::Severity severity, const char* rule, const std::string& file, const CTLPlace& place,
             const std::string& text);
    void addFailure(const std::string& words, const std::string& section);

    const CTLDocument& m_document;
    CTLFindings& m_findings;
    std::vector<CTLChildCheck::Address> m_addresses;  // the encrypted ones
    std::set<std::string> m_looked;                   // files whose dates have been looked at
    std::string m_text;                               // of sek.cnf, for the places of lines
    SEKSettings m_settings;  // of the service; without a context until they could be read
};
