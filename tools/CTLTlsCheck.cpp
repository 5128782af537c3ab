#include "CTLTlsCheck.h"

#include <openssl/ssl.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <system_error>
#include <utility>

#include "CTLNearest.h"
#include "CTLServerCertificate.h"
#include "SEKCertificate.h"
#include "SEKErrors.h"
#include "SEKFile.h"
#include "SEKPem.h"
#include "SEKSession.h"
#include "SEKUri.h"
#include "ZORSocketCommand.h"

namespace fs = std::filesystem;
using Severity = CTLFinding::Severity;

namespace {

constexpr const char* kFolder = "../configuration";
constexpr std::time_t kDaySec = 86400;

std::string fullPath(const std::string& path) {
    return fs::absolute(path).lexically_normal().string();
}

std::string trimmed(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(" \t\r");
    if (begin == std::string::npos) return {};
    return text.substr(begin, text.find_last_not_of(" \t\r") + 1 - begin);
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(trimmed(text.substr(at, end - at)));
        at = end + 1;
    }
    return lines;
}

std::string sectionIn(const std::string& line) {
    const bool isHead = line.starts_with("[") && line.find(']') != std::string::npos;
    return isHead ? trimmed(line.substr(1, line.find(']') - 1)) : std::string();
}

std::set<std::string> sectionsIn(const std::string& text) {
    std::set<std::string> sections;
    for (const std::string& line : linesOf(text))
        sections.insert(sectionIn(line));
    sections.erase("");
    return sections;
}

// Where a command of a section stands; its head when the command is none of its lines.
std::size_t lineOf(const std::string& text, const std::string& section, const std::string& command) {
    const std::vector<std::string> lines = linesOf(text);
    std::size_t head = 0;
    bool isInside = false;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string here = sectionIn(lines[i]);
        if (!here.empty()) isInside = here == section;
        if (!here.empty() && isInside) head = i + 1;
        const bool isCommand = !command.empty() && lines[i].starts_with(command);
        if (isInside && isCommand) return i + 1;
    }
    return head;
}

// The command that a failure is about: "FILE [SECTION] COMMAND = VALUE: reason" or "FILE [SECTION] COMMAND: reason".
std::string commandIn(const std::string& words) {
    const std::size_t begin = words.find("] ");
    if (begin == std::string::npos) return {};
    return words.substr(begin + 2, words.find_first_of(" :", begin + 2) - begin - 2);
}

std::size_t lineIn(const std::string& words) {
    const std::size_t at = words.find(" line ");
    return at == std::string::npos ? 0 : std::strtoul(words.c_str() + at + 6, nullptr, 10);
}

// Which section of sek.cnf counts is said by the document that the service hands to the library.
std::string serviceId(const CTLChildCheck::Address& address) {
    ZORSocketCommand command(address.uri.c_str(), address.command.c_str(), 0);
    return SEKSession::parse(command.getSessionConfigDoc()).serviceID;
}

bool isOver(const ASN1_TIME* time, int days) {
    std::time_t when = std::time(nullptr) + days * kDaySec;
    return X509_cmp_time(time, &when) < 0;
}

}  // namespace

CTLTlsCheck::CTLTlsCheck(const CTLDocument& bootstrap, const std::vector<CTLChildCheck::Address>& addresses,
                         CTLFindings& findings)
    : m_document(bootstrap), m_findings(findings) {
    for (const CTLChildCheck::Address& address : addresses) {
        if (SEKUri::parse(address.uri).isSecure()) m_addresses.push_back(address);
    }
}

void CTLTlsCheck::add(Severity severity, const char* rule, const std::string& file, const CTLPlace& place,
                      const std::string& text) {
    m_findings.add({severity, rule, fullPath(file), place, "", text});
}

// Without an encrypted connection the service never looks at any of it.
void CTLTlsCheck::check() {
    if (m_addresses.empty()) return;
    try {
        m_text = SEKFile::read(SEKSettings::path, SEKFile::configurationLimit);
    } catch (const SEKFailure&) {
        m_text.clear();  // why, the library says below
    }
    const std::string id = serviceId(m_addresses.front());
    checkSection(id, SEKRole::Client);
    for (const std::string& section : sectionsIn(m_text)) {
        if (section != id && lineOf(m_text, section, "Certificate") != lineOf(m_text, section, ""))
            checkSection(section, SEKRole::Server);
    }
    checkServers();
}

void CTLTlsCheck::checkSection(const std::string& section, SEKRole role) {
    try {
        SEKSettings settings = SEKSettings::build(section, role);
        checkFilesOf(settings);
        if (role == SEKRole::Client) m_settings = std::move(settings);
    } catch (const SEKFailure& failure) {
        addFailure(failure.what(), section);
    }
}

void CTLTlsCheck::addFailure(const std::string& words, const std::string& section) {
    const bool isMissing = words.ends_with("no such section");
    const std::string meant = isMissing ? CTLNearest::to(section, sectionsIn(m_text)) : std::string();
    const std::string hint = meant.empty() ? meant : ": is it [" + meant + "] that is meant?";
    std::size_t line = lineIn(words);
    if (line == 0) line = lineOf(m_text, isMissing ? meant : section, commandIn(words));
    // A text without the section has no line of it.
    if (line == 0 && !m_text.empty()) line = 1;
    add(Severity::Error, "settings", SEKSettings::path, {line, line == 0 ? 0U : 1U}, words + hint);
}

// Of the system's own list of authorities nobody here can renew one.
void CTLTlsCheck::checkFilesOf(const SEKSettings& settings) {
    X509_STORE* given = nullptr;
    const bool isGiven =
        SSL_CTX_get0_verify_cert_store(settings.context.get(), &given) > 0 && given != nullptr;
    for (const SEKFileStamp& source : settings.sources) {
        const bool isOurs = isGiven || fullPath(source.path).starts_with(fullPath(kFolder) + "/");
        if (!isOurs || !S_ISREG(source.status.st_mode) || !m_looked.insert(source.path).second) continue;
        const std::string text = SEKFile::read(source.path, SEKFile::materialLimit);
        for (const auto& certificate : SEKPem::certificatesIn(text))
            checkDates(source.path, certificate.get());
        checkLists(source.path, text);
    }
}

void CTLTlsCheck::checkDates(const std::string& file, const X509* certificate) {
    const SEKCertificate words(certificate);
    const std::string whose = "the certificate of " + words.subject();
    if (isOver(X509_get0_notAfter(certificate), 0)) {
        add(Severity::Error, "certificate", file, {},
            whose + " has expired: it was good until " + words.notAfter());
    } else if (isOver(X509_get0_notAfter(certificate), kSoonDays)) {
        add(Severity::Warning, "certificate", file, {},
            whose + " is good until " + words.notAfter() + " only");
    }
    if (!isOver(X509_get0_notBefore(certificate), 0))
        add(Severity::Error, "certificate", file, {}, whose + " is not good before " + words.notBefore());
}

void CTLTlsCheck::checkLists(const std::string& file, const std::string& text) {
    for (const auto& list : SEKPem::listsIn(text)) {
        const ASN1_TIME* const next = X509_CRL_get0_nextUpdate(list.get());
        if (next != nullptr && isOver(next, 0))
            add(Severity::Error, "certificate", file, {},
                "a revocation list in it is out of date, so that nobody is believed");
    }
}

// What children show is theirs to say, but for the certificates that lie with their keys beside the settings.
void CTLTlsCheck::checkServers() {
    std::vector<CTLServerCertificate> servers;
    std::error_code error;
    for (fs::directory_iterator entry(kFolder, error), end; !error && entry != end; entry.increment(error)) {
        CTLServerCertificate server(entry->path());
        if (server.isOne() && !server.isOwnOf(m_settings.context.get())) servers.push_back(std::move(server));
    }
    for (const CTLServerCertificate& server : servers) {
        if (m_looked.insert(server.file()).second) checkDates(server.file(), server.certificate());
        if (const std::string why = server.complaintOfKey(); !why.empty())
            add(Severity::Error, "key", server.keyFile(), {}, why);
        if (m_settings.context == nullptr) continue;
        if (const std::string why = server.complaintOfAuthority(*m_settings.context); !why.empty())
            add(Severity::Error, "certificate", server.file(), {}, why);
    }
    checkNames(servers);
}

// One that is good for the host is enough.
void CTLTlsCheck::checkNames(const std::vector<CTLServerCertificate>& servers) {
    for (const CTLChildCheck::Address& address : m_addresses) {
        const std::string host = SEKUri::parse(address.uri).host();
        bool isGood = servers.empty();
        for (const CTLServerCertificate& server : servers)
            isGood = isGood || server.isGoodFor(host);
        if (isGood) continue;
        CTLFinding finding = m_document.at(Severity::Error, "certificate", address.element, "URI", "");
        finding.text = "no certificate beside the settings is good for \"" + host + "\":";
        for (const CTLServerCertificate& server : servers)
            finding.text += " " + fullPath(server.file()) + " has " + server.names();
        m_findings.add(finding);
    }
}
