#include "CTLChildCheck.h"

#include <algorithm>
#include <array>
#include <set>

#include "CTLCondition.h"
#include "CTLExecutable.h"
#include "CTLNearest.h"
#include "SEKErrors.h"
#include "SEKUri.h"
#include "TVLConfigurationFactory.h"
#include "TVLIDOM_Helper.h"
#include "TVLNumber.h"
#include "ZORChildProcess.h"
#include "ZORCmdLine.h"
#include "ZORHelpers.h"
#include "ZORModes.h"
#include "ZORPropertyInserter.h"
#include "ZORSignalAction.h"
#include "ZORSockSendAction.h"
#include "ZORSpawnAction.h"

using Severity = CTLFinding::Severity;

namespace {

constexpr std::array kNumbers{"checkForShutdownIntervalms",
                              "pingRetries",
                              "pingRetryIntervalSec",
                              "pollIntervalsec",
                              "responseSize",
                              "sockIOTimeoutSec",
                              "startupDelaySec",
                              "sync",
                              "wait_time"};
constexpr std::array kMarkers{"responseOK", "responseFatal", "responseRetry"};

std::string quoted(const std::string& text) {
    return "\"" + text + "\"";
}

std::string attributeOf(const TVLIDOM_Element& element, const char* name) {
    return element.getAttribute(name).str();
}

std::string expanded(const std::string& text) {
    return ZORPropertyInserter::expanded(text.c_str());
}

TVLIDOM_Element below(const TVLIDOM_Element& element, const char* name) {
    return TVLIDOM_Helper::findFirstElementWithName(element, name);
}

// A plain decimal number: the service reads it as it is written.
bool isPlain(const std::string& text) {
    const std::size_t digits = text.find_first_not_of("+-");
    return digits < 2 && text.find_first_not_of("0123456789", digits) == std::string::npos;
}

// The arguments as the daemon would get them.
ZORCmdLine commandLineOf(const ZORSpawnAction& spawn) {
    std::vector<char*> words;
    for (char* const word : spawn.getArguments()) {
        if (word != nullptr) words.push_back(word);
    }
    return {static_cast<int>(words.size()), words.data()};
}

std::set<std::string> installedComponents() {
    std::set<std::string> names;
    const TVLIDOM_NodeList all =
        TVLConfigurationFactory::getInstance()->getElement("components").getElementsByTagName("component");
    for (std::size_t i = 0; i < all.getLength(); ++i)
        names.insert(TVLIDOM_Element(all.item(i)).getAttribute("name").str());
    return names;
}

// The answer has its control characters and its bytes beyond ASCII replaced by blanks before it is searched.
bool canBeInAnswer(const std::string& marker) {
    return std::all_of(marker.begin(), marker.end(),
                       [](char c) { return static_cast<signed char>(c) >= 32; });
}

}  // namespace

void CTLChildCheck::add(Severity severity, const char* rule, const TVLIDOM_Element& element,
                        const std::string& attribute, const std::string& text) {
    m_findings.add(m_document.at(severity, rule, element, attribute, text));
}

// ---- The document alone ----

void CTLChildCheck::checkTexts() {
    for (const CTLDocument::Element& element : m_document.elements()) {
        checkNumbers(element.handle);
        checkReferences(element.handle);
        const bool isText = element.handle.hasNodeName("param") || element.handle.hasNodeName("path");
        if (isText) checkWholeText(element.handle);
        if (element.handle.hasNodeName("param")) checkCondition(element.handle);
    }
}

void CTLChildCheck::checkNumbers(const TVLIDOM_Element& element) {
    for (const char* const name : kNumbers) {
        const std::string text = attributeOf(element, name);
        if (text.empty()) continue;
        const int number = TVLNumber::parse(text.c_str());
        if (!isPlain(text)) {
            add(Severity::Error, "number", element, name,
                std::string(name) + "=" + quoted(text) + " is " + std::to_string(number) + " to the service");
        }
        if (std::string(name) == "pollIntervalsec" && number < 0) {
            add(Severity::Error, "poll-interval", element, name,
                "with a negative poll interval nobody watches the children, and only SIGKILL ends the "
                "daemon");
        }
    }
}

void CTLChildCheck::checkReferences(const TVLIDOM_Element& element) {
    for (const char* const name : {"URI", "signal"})
        checkReferencesIn(element, name, attributeOf(element, name), Severity::Error);
    checkReferencesIn(element, "commandString", attributeOf(element, "commandString"), Severity::Warning);
    const bool isPath = element.hasNodeName("path");
    if (!isPath && !element.hasNodeName("param")) return;
    I18NString text;
    ZORHelpers::getElemText(element, text);
    checkReferencesIn(element, "", text.str(), isPath ? Severity::Error : Severity::Warning);
}

void CTLChildCheck::checkReferencesIn(const TVLIDOM_Element& element, const std::string& attribute,
                                      const std::string& text, Severity severity) {
    if (text.find("${") == std::string::npos) return;
    for (const std::string& name : m_references.unknownIn(text))
        add(severity, "reference", element, attribute,
            m_findings.isFull() ? name : m_references.complaint(name));
}

void CTLChildCheck::checkWholeText(const TVLIDOM_Element& element) {
    I18NString taken;
    ZORHelpers::getElemText(element, taken);
    if (taken == element.getTextContent()) return;
    add(Severity::Warning, "text", element, "",
        "of this text the service takes " + quoted(taken.str()) +
            " only: a CDATA section is no text, and of pieces between comments the last one counts");
}

// A name that nobody defines may come from a command line, unless it is nearly one of the service's.
void CTLChildCheck::checkCondition(const TVLIDOM_Element& param) {
    const std::string name = attributeOf(param, "condName");
    const std::string value = attributeOf(param, "condValue");
    if (name.empty() != value.empty()) {
        add(Severity::Warning, "condition", param, name.empty() ? "condValue" : "condName",
            "condName and condValue say something together only: this parameter is always passed");
    }
    for (const std::string& unknown : m_references.unknownIn(name)) {
        if (m_references.isSlip(unknown))
            add(Severity::Error, "reference", param, "condName", m_references.complaint(unknown));
    }
    if (name.empty() || value.empty() || CTLCondition::canHold(name, value)) return;
    add(Severity::Error, "condition", param, "condName",
        quoted(name) + " can never be " + quoted(value) + ", so the condition never holds");
}

// ---- Children ----

void CTLChildCheck::checkChild(const TVLIDOM_Element& process, ZORChildProcess& child) {
    const bool isPinged = child.getPingAction() != nullptr;
    checkProgram(below(below(process, "start"), "spawn"), child.getStartAction()->getPath());
    const TVLIDOM_Element stop = below(process, "stop");
    if (const auto* const spawn = dynamic_cast<const ZORSpawnAction*>(&child.getStopAction()))
        checkProgram(below(stop, "spawn"), spawn->getPath());
    if (dynamic_cast<const ZORSockSendAction*>(&child.getStopAction()) != nullptr) {
        checkAddress(below(stop, "socketSend"));
        checkMarkers(below(stop, "socketSend"));
    }
    if (dynamic_cast<const ZORSignalAction*>(&child.getStopAction()) != nullptr) checkSignal(stop, isPinged);
    checkPing(process, isPinged);
}

void CTLChildCheck::checkProgram(const TVLIDOM_Element& spawn, const std::string& path) {
    if (path.find("${") != std::string::npos) return;  // told as a reference
    const std::string complaint = CTLExecutable::complaint(path);
    if (complaint.empty()) return;
    const TVLIDOM_Element element = below(spawn, "path");
    add(Severity::Error, "program", element, "", complaint);
}

void CTLChildCheck::checkSignal(const TVLIDOM_Element& stop, bool isPinged) {
    const TVLIDOM_Element signal = below(stop, "signal");
    const std::string number = expanded(attributeOf(signal, "signal"));
    if (TVLNumber::parse(number.c_str()) == 0) {
        add(Severity::Error, "number", signal, "signal",
            "signal " + quoted(number) + " is 0 to the service, which stops nobody: it wants the number");
    }
    if (!isPinged) return;
    add(Severity::Error, "signal-stop", stop, "type",
        "a child with a ping must not be stopped by a signal: when it is to be restarted, the signal reaches "
        "the "
        "whole process group, the service included");
}

void CTLChildCheck::checkPing(const TVLIDOM_Element& process, bool isPinged) {
    const TVLIDOM_Element ping = below(process, "ping");
    const TVLIDOM_Element socketSend = below(ping, "socketSend");
    if (ping.isNull() || socketSend.isNull()) return;
    if (!isPinged) return checkDependency(socketSend);
    checkAddress(socketSend);
    checkMarkers(socketSend);
}

void CTLChildCheck::checkDependency(const TVLIDOM_Element& socketSend) {
    const std::string name = attributeOf(socketSend, "dependency");
    add(Severity::Error, "dependency", socketSend, "dependency",
        "the service never pings this child: the startup configuration has no component " + quoted(name) +
            " with a version" + CTLNearest::question(name, installedComponents()));
}

void CTLChildCheck::checkAddress(const TVLIDOM_Element& socketSend) {
    const std::string uri = expanded(attributeOf(socketSend, "URI"));
    if (uri.find("${") != std::string::npos) return;  // told as a reference
    try {
        static_cast<void>(SEKUri::parse(uri));
        m_addresses.push_back({socketSend, uri, expanded(attributeOf(socketSend, "commandString"))});
    } catch (const SEKFailure& failure) {
        add(Severity::Error, "address", socketSend, "URI", failure.what());
    }
}

// ---- Markers ----

void CTLChildCheck::checkMarkers(const TVLIDOM_Element& socketSend) {
    const int size = TVLNumber::parse(attributeOf(socketSend, "responseSize").c_str());
    for (const char* const name : kMarkers)
        checkMarker(socketSend, name, size);
}

// One that is longer than the answer the service tells of by itself.
void CTLChildCheck::checkMarker(const TVLIDOM_Element& socketSend, const char* name, int size) {
    const std::string marker = attributeOf(socketSend, name);
    const std::string good = attributeOf(socketSend, "responseOK");
    if (marker.empty()) return;
    const auto warn = [&](const std::string& text) {
        add(Severity::Warning, "marker", socketSend, name, text);
    };
    if (size <= 0)
        return warn(std::string(name) + " is never looked for: without a responseSize no answer is read");
    if (!canBeInAnswer(marker))
        return warn(std::string(name) + " is in no answer: only plain ASCII is compared");
    if (good.empty()) return warn(std::string(name) + " is never looked for, because there is no responseOK");
    if (std::string(name) == "responseOK" || marker.find(good) == std::string::npos) return;
    add(Severity::Error, "marker", socketSend, name,
        std::string(name) + " holds " + quoted(good) +
            ", which is responseOK and is looked for first: it counts as "
            "a good answer");
}

// ---- How the daemon is started ----

void CTLChildCheck::checkDaemonSpawn(const ZORSpawnAction* daemonSpawn) {
    if (daemonSpawn == nullptr || daemonSpawn->getPath().empty()) return;  // told by the service
    const TVLIDOM_Element element(m_document.root().getElementsByTagName("daemonSpawn").item(0));
    checkProgram(element, daemonSpawn->getPath());
    if (ZORModes::modeOf(commandLineOf(*daemonSpawn)) == ZORMode::Daemon) return;
    add(Severity::Error, "daemon-spawn", element, "",
        "without <param>runAsDaemon</param> \"-start\" starts no daemon: the program prints its usage and "
        "ends");
}
