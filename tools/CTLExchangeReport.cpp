#include "CTLExchangeReport.h"

#include <nlohmann/json.hpp>
#include <ostream>

#include "CTLExchange.h"
#include "CTLTerminal.h"
#include "CTLText.h"

using nlohmann::json;

namespace {

constexpr double kUsInMs = 1000.0;
constexpr std::time_t kSecondsInDay = 86400;

void line(CTLTerminal& terminal, const std::string& name, const std::string& text) {
    std::string padded = name;
    padded.resize(12, ' ');
    terminal.out() << "  " << terminal.painted(CTLColour::Faint, padded) << text << '\n';
}

CTLColour colourOf(const CTLExchange& exchange) {
    if (exchange.rule == CTLRule::Retry) return CTLColour::Warning;
    return exchange.isAnswered() ? CTLColour::Good : CTLColour::Bad;
}

void printCertificate(CTLTerminal& terminal, const CTLCertificate& certificate) {
    std::string names;
    for (const std::string& name : certificate.names)
        names += (names.empty() ? "" : ", ") + name;
    line(terminal, "certificate", certificate.subject + (names.empty() ? "" : " (" + names + ")"));
    line(terminal, "", "by " + certificate.issuer);
    const auto days = (certificate.notAfter - std::time(nullptr)) / kSecondsInDay;
    line(terminal, "",
         "from " + CTLText::utc(certificate.notBefore) + " to " + CTLText::utc(certificate.notAfter) + ", " +
             std::to_string(days) + " days left");
}

void printPeer(CTLTerminal& terminal, const CTLPeer& peer) {
    if (peer.protocol.empty()) return;
    line(terminal, "protocol",
         peer.protocol + ", " + peer.cipher + (peer.isVerified ? ", verified" : ", NOT verified"));
    for (const CTLCertificate& certificate : peer.chain)
        printCertificate(terminal, certificate);
}

void printStep(CTLTerminal& terminal, const CTLStep& step) {
    std::string text = CTLText::duration(step.us);
    if (step.calls > 1) text += " in " + std::to_string(step.calls) + " calls";
    if (!step.details.empty()) text += ": " + CTLText::printable(step.details);
    line(terminal, step.name, text);
}

void printAnswer(CTLTerminal& terminal, const CTLExchange& exchange) {
    if (!exchange.sent.empty())
        line(terminal, "sent",
             "\"" + CTLText::escaped(exchange.sent) + "\", " + std::to_string(exchange.sent.size()) +
                 " bytes");
    if (exchange.receivedBytes < 0) return;
    line(terminal, "received",
         "\"" + CTLText::escaped(exchange.received) + "\", " + std::to_string(exchange.receivedBytes) +
             " of at most " + std::to_string(exchange.responseSize) + " bytes");
    line(terminal, "read as", "\"" + CTLText::printable(exchange.tidied) + "\"");
}

json certificateJson(const CTLCertificate& certificate) {
    return {{"subject", CTLText::printable(certificate.subject)},
            {"issuer", CTLText::printable(certificate.issuer)},
            {"names", certificate.names},
            {"notBefore", CTLText::utc(certificate.notBefore)},
            {"notAfter", CTLText::utc(certificate.notAfter)},
            {"fingerprint", certificate.fingerprint}};
}

json peerJson(const CTLPeer& peer) {
    if (peer.protocol.empty()) return nullptr;
    json chain = json::array();
    for (const CTLCertificate& certificate : peer.chain)
        chain.push_back(certificateJson(certificate));
    return {{"protocol", peer.protocol},
            {"cipher", peer.cipher},
            {"verified", peer.isVerified},
            {"chain", chain}};
}

json stepsJson(const CTLExchange& exchange) {
    json steps = json::array();
    for (const CTLStep& step : exchange.steps) {
        steps.push_back({{"step", step.name},
                         {"ms", static_cast<double>(step.us) / kUsInMs},
                         {"calls", step.calls},
                         {"code", step.code},
                         {"details", CTLText::printable(step.details)}});
    }
    return steps;
}

json receivedJson(const CTLExchange& exchange) {
    if (exchange.receivedBytes < 0) return nullptr;
    return {{"bytes", exchange.receivedBytes},
            {"text", CTLText::escaped(exchange.received)},
            {"hex", CTLText::hexadecimal(exchange.received)},
            {"tidied", CTLText::printable(exchange.tidied)}};
}

}  // namespace

namespace CTLExchangeReport {

void print(CTLTerminal& terminal, const CTLExchange& exchange, int limit) {
    terminal.out() << terminal.painted(CTLColour::Bold, CTLText::printable(exchange.child)) << '\n';
    line(terminal, "URI", CTLText::printable(exchange.uri));
    line(terminal, "family", exchange.family + ", decided by " + exchange.familyWhy);
    if (!exchange.address.empty()) line(terminal, "address", exchange.address);
    if (exchange.sparedMs > 0)
        line(terminal, "pause", std::to_string(exchange.sparedMs) + " ms, left out; the service makes it");
    for (const CTLStep& step : exchange.steps)
        printStep(terminal, step);
    printPeer(terminal, exchange.peer);
    printAnswer(terminal, exchange);
    if (!exchange.failure().empty()) line(terminal, "failure", CTLText::printable(exchange.failure()));
    line(terminal, "rule", CTLText::printable(exchange.ruleText()));
    line(terminal, "code",
         terminal.painted(colourOf(exchange), std::to_string(exchange.code)) + " after " +
             CTLText::duration(exchange.us));
    line(terminal, "supervisor", exchange.consequence(limit));
}

json asJson(const CTLExchange& exchange, int limit) {
    return {{"child", CTLText::printable(exchange.child)},
            {"uri", CTLText::printable(exchange.uri)},
            {"family", exchange.family},
            {"familyDecidedBy", exchange.familyWhy},
            {"address", exchange.address},
            {"timeoutSec", exchange.timeoutSec},
            {"sparedPauseMs", exchange.sparedMs},
            {"steps", stepsJson(exchange)},
            {"peer", peerJson(exchange.peer)},
            {"sent", CTLText::escaped(exchange.sent)},
            {"received", receivedJson(exchange)},
            {"failure", CTLText::printable(exchange.failure())},
            {"rule", CTLExchange::word(exchange.rule)},
            {"marker", CTLText::printable(exchange.marker)},
            {"code", exchange.code},
            {"ms", static_cast<double>(exchange.us) / kUsInMs},
            {"answerMs", static_cast<double>(exchange.answerUs) / kUsInMs},
            {"failedPingLimit", limit},
            {"supervisor", exchange.consequence(limit)}};
}

}  // namespace CTLExchangeReport
