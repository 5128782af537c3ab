#include "CTLServiceWords.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "TVLIDOM_Helper.h"

using Severity = CTLFinding::Severity;

namespace {

// What an administrator may well have meant, and what is looked at elsewhere: the folder for temporary files.
constexpr std::array<std::string_view, 6> kChoices{"no ping element in config.",
                                                   "The attribute \"dependency\" is missing.",
                                                   "no procManager element in config",
                                                   "Failed to find parameter ",
                                                   "Temp directory ",
                                                   "Failed to create temp directory "};

// What is said about an attribute.
struct About {
    std::string_view words;
    const char* attribute;
};
constexpr std::array<About, 5> kAbouts{{{"configured OK response", "responseOK"},
                                        {"configured FATAL response", "responseFatal"},
                                        {"configured RETRY response", "responseRetry"},
                                        {"unexpected type for stop command", "type"},
                                        {"poll interval", "pollIntervalsec"}}};

bool isSevere(const CTLLogLine& line) {
    return line.level == "WARN" || line.level == "ERROR" || line.level == "FATAL";
}

std::string attributeOf(const std::string& text) {
    const auto* const about = std::find_if(kAbouts.begin(), kAbouts.end(), [&](const About& each) {
        return text.find(each.words) != std::string::npos;
    });
    return about == kAbouts.end() ? "" : about->attribute;
}

std::string trimmed(const std::string& text) {
    const std::size_t last = text.find_last_not_of(" \n");
    return last == std::string::npos ? std::string() : text.substr(0, last + 1);
}

}  // namespace

CTLServiceWords::CTLServiceWords(const CTLDocument& bootstrap, const CTLDocument& startup,
                                 CTLFindings& findings)
    : m_bootstrap(bootstrap),
      m_startup(startup),
      m_findings(findings),
      m_elements(bootstrap.root().getElementsByTagName("process")) {}

void CTLServiceWords::read(const std::vector<CTLLogLine>& lines) {
    for (const CTLLogLine& line : lines) {
        follow(line);
        if (isSevere(line)) tell(line);
    }
}

// The steps that the service takes through the document.
void CTLServiceWords::follow(const CTLLogLine& line) {
    const auto begins = [&](const char* words) { return line.text.starts_with(words); };
    if (line.logger == "ZORBootstrapService" && begins("processing config for process"))
        return beginProcess();
    // A text of the document, which is logged as it stands, could begin like a line of the service's.
    if (m_processes.empty()) return;
    if (line.logger == "ZORChildProcess" && begins("processing stop command")) return beginStop();
    if (line.logger == "ZORChildProcess" && begins("processing ping command")) {
        m_at = TVLIDOM_Helper::findFirstElementWithName(
            TVLIDOM_Helper::findFirstElementWithName(m_processes.back().element, "ping"), "socketSend");
        return;
    }
    if (line.logger != "ZORSpawnAction" || !begins("preparing")) return;
    // One more than the process has: how the daemon is started.
    if (m_spawnsToCome-- > 0) return;
    m_at = TVLIDOM_Element(m_bootstrap.root().getElementsByTagName("daemonSpawn").item(0));
}

void CTLServiceWords::beginProcess() {
    m_processes.push_back({TVLIDOM_Element(m_elements.item(m_processes.size()))});
    m_at = m_processes.back().element;
    m_spawnsToCome = 1;
    m_reason.clear();
}

void CTLServiceWords::beginStop() {
    const TVLIDOM_Element stop = TVLIDOM_Helper::findFirstElementWithName(m_processes.back().element, "stop");
    const I18NString type = stop.getAttribute("type");
    const TVLIDOM_Element inside = TVLIDOM_Helper::findFirstElementWithName(stop, type);
    m_at = inside.isNull() ? stop : inside;
    if (type == "spawn") ++m_spawnsToCome;
}

void CTLServiceWords::endProcess(const std::string& reason) {
    m_processes.back().isTaken = false;
    m_spawnsToCome = 0;
    m_findings.add(m_bootstrap.at(Severity::Error, "left-out", m_processes.back().element, "",
                                  "the service leaves this child out: " + reason));
    m_at = TVLIDOM_Element();
}

void CTLServiceWords::tell(const CTLLogLine& line) {
    const std::string text = trimmed(line.text);
    const auto isSaid = [&](std::string_view words) { return text.starts_with(words); };
    if (std::any_of(kChoices.begin(), kChoices.end(), isSaid)) return;
    if (isSaid("exception while processing configuration") && !m_processes.empty()) {
        return endProcess(m_reason.empty() ? text : m_reason);
    }
    m_reason = text;
    // Told with its place already, and what comes after a line that has said why.
    if (isSaid("Error parsing bootstrap.xml") && !m_bootstrap.isParsed()) return;
    if (isSaid("Error processing bootstrap.xml")) return;
    const Severity severity = line.level == "WARN" ? Severity::Warning : Severity::Error;
    if (line.logger == "ZORCryptoHelper") {
        return m_findings.add({severity, "library", "libSEK_Crypto_Interface.so", {}, "", text});
    }
    if (isOfStartup(text)) return tellOfStartup(severity, text);
    tellOfBootstrap(severity, text);
}

void CTLServiceWords::tellOfBootstrap(Severity severity, const std::string& text) {
    if (!m_bootstrap.isParsed())
        return m_findings.add({severity, "service", m_bootstrap.file(), {}, "", text});
    const std::string attribute = attributeOf(text);
    TVLIDOM_Element element = m_at.isNull() ? m_bootstrap.root() : m_at;
    if (attribute == "type") element = TVLIDOM_Helper::findFirstElementWithName(element, "stop");
    if (attribute == "pollIntervalsec")
        element = TVLIDOM_Helper::findFirstElementWithName(element, "processManager");
    const std::string what = attribute.empty() ? attribute : attribute + ": ";
    m_findings.add(m_bootstrap.at(severity, "service", element, attribute, what + text));
}

bool CTLServiceWords::isOfStartup(const std::string& text) const {
    return text.find("startup config") != std::string::npos || text.find("via CFGAPI") != std::string::npos ||
           text.starts_with("Failed to find value of type");
}

void CTLServiceWords::tellOfStartup(Severity severity, const std::string& text) {
    // Told with its place already.
    if (!m_startup.isParsed()) return;
    const std::size_t named = text.find("for parameter named \"");
    const std::string name =
        named == std::string::npos ? "" : text.substr(named + 21, text.find('"', named + 21) - named - 21);
    const TVLIDOM_Element parameter =
        TVLIDOM_Helper::findFirstElementWithAttribute(m_startup.root(), "vrx:parameter", "name", name);
    const TVLIDOM_Element value = TVLIDOM_Helper::findFirstElementWithName(parameter, "vrx:value");
    m_findings.add(m_startup.at(severity, "service", value, "xsi:type", text));
}
