#include "CTLExchange.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "CTLDoorway.h"
#include "CTLExchangeNotes.h"
#include "SEK_Crypto_Interface.h"
#include "ZORChildProcess.h"
#include "ZORSockSendAction.h"

namespace {

using Clock = std::chrono::steady_clock;

std::string quoted(const std::string& text) {
    return "\"" + text + "\"";
}

const CTLStep* stepOf(const CTLExchange& exchange, const char* name) {
    const auto step = std::find_if(exchange.steps.begin(), exchange.steps.end(),
                                   [&](const CTLStep& one) { return one.name == name; });
    return step == exchange.steps.end() ? nullptr : &*step;
}

std::int64_t timeOf(const CTLExchange& exchange, const char* name) {
    const CTLStep* const step = stepOf(exchange, name);
    return step == nullptr ? 0 : step->us;
}

// The family that the service chooses, and by what: a command asks the startup configuration only when neither it nor
// its URI tells.
void noteFamily(ZORSocketCommand& command, CTLExchange& into) {
    into.family = std::strstr(command.getSessionConfigDoc(), "IPv6") != nullptr ? "IPv6" : "IPv4";
    if (command.hasAskedConfiguration()) {
        into.familyWhy = "\"networkConfiguration\" in configuration/startup.xml";
    } else if (command.getCommand() == "SHUTDOWN") {
        into.familyWhy = "the command: SHUTDOWN always goes out over IPv4";
    } else {
        into.familyWhy = "the host in the URI";
    }
}

void noteAction(ZORSockSendAction& action, CTLExchange& into) {
    ZORSocketCommand& command = action.getCommand();
    into.uri = command.getURI();
    into.timeoutSec = command.getTimeoutSec();
    into.responseSize = action.getResponseSize();
    noteFamily(command, into);
}

CTLRule ruleOfFailure(const CTLExchange& exchange) {
    const CTLStep* const send = stepOf(exchange, "send");
    return send != nullptr && send->code == SEK_Ok ? CTLRule::NoAnswer : CTLRule::NotSent;
}

CTLRule ruleOf(const CTLExchange& exchange, const ZORSockSendAction& action) {
    switch (exchange.code) {
        case ZOR_NOT_SENT:
            return ruleOfFailure(exchange);
        case ZOR_NO_SUCCESS:
            return CTLRule::NoMarker;
        case ZOR_FATAL_ANSWER:
            return CTLRule::Fatal;
        case ZOR_RETRY_ANSWER:
            return CTLRule::Retry;
        default:
            break;
    }
    if (action.getResponseSize() <= 0) return CTLRule::Sent;
    if (action.getResponseOK().empty()) return CTLRule::AnyAnswer;
    const bool isShort = exchange.code < static_cast<int>(action.getResponseOK().size());
    return isShort ? CTLRule::ShortAnswer : CTLRule::Good;
}

std::string markerOf(CTLRule rule, const ZORSockSendAction& action) {
    if (rule == CTLRule::Good) return action.getResponseOK();
    if (rule == CTLRule::Fatal) return action.getResponseFatal();
    return rule == CTLRule::Retry ? action.getResponseRetry() : std::string();
}

std::string tidied(std::string answer) {
    ZORSockSendAction::tidy(answer.data(), static_cast<int>(answer.size()));
    answer.resize(std::strlen(answer.data()));
    return answer;
}

}  // namespace

CTLExchange CTLExchange::with(ZORChildProcess& child) {
    ZORSockSendAction& action = *child.getPingAction();
    CTLExchange exchange;
    exchange.child = child.getName();
    noteAction(action, exchange);
    CTLDoorway::takeSparedMs();
    const Clock::time_point begin = Clock::now();
    {
        const CTLExchangeNotes::Taking notes(exchange);
        exchange.code = action.execute();
    }
    const Clock::duration taken = Clock::now() - begin;
    exchange.us = std::chrono::duration_cast<std::chrono::microseconds>(taken).count();
    exchange.sparedMs = CTLDoorway::takeSparedMs();
    exchange.answerUs = timeOf(exchange, "wait") + timeOf(exchange, "receive");
    exchange.tidied = ::tidied(exchange.received);
    exchange.rule = ruleOf(exchange, action);
    exchange.marker = markerOf(exchange.rule, action);
    return exchange;
}

const char* CTLExchange::word(CTLRule rule) {
    constexpr const char* kWords[] = {"not sent",      "no answer",     "sent",
                                      "any answer",    "short answer",  "responseOK",
                                      "responseFatal", "responseRetry", "no marker"};
    return kWords[static_cast<std::size_t>(rule)];
}

std::string CTLExchange::ruleText() const {
    switch (rule) {
        case CTLRule::NotSent:
            return "nothing could be sent";
        case CTLRule::NoAnswer:
            return "no answer could be read";
        case CTLRule::Sent:
            return "no \"responseSize\": it was sent, that is enough";
        case CTLRule::AnyAnswer:
            return "no \"responseOK\": every answer is good, and so is none";
        case CTLRule::ShortAnswer:
            return "shorter than \"responseOK\": such an answer is good";
        case CTLRule::Good:
            return "\"responseOK\" found: " + quoted(marker);
        case CTLRule::Fatal:
            return "\"responseFatal\" found: " + quoted(marker);
        case CTLRule::Retry:
            return "\"responseRetry\" found: " + quoted(marker);
        case CTLRule::NoMarker:
            break;
    }
    return "none of \"responseOK\", \"responseFatal\" and \"responseRetry\" found";
}

std::string CTLExchange::failure() const {
    if (code != ZOR_NOT_SENT) return {};
    if (steps.empty()) return "the security library could not be loaded";
    const CTLStep& last = steps.back();
    if (last.name == "wait" && last.code == SEK_TimedOut)
        return "wait: no answer within " + std::to_string(timeoutSec) + " s";
    const std::string why = last.details.empty() ? "code " + std::to_string(last.code) : last.details;
    return last.name + ": " + why;
}

std::string CTLExchange::consequence(int limit) const {
    if (code == ZOR_NOT_SENT) {
        return "a failed ping: " + std::to_string(limit) + " in a row, " + std::to_string(limit + 10) +
               " for a fresh child, and it is stopped and restarted";
    }
    std::string unready = "the service is not ready, nothing is restarted";
    if (code == ZOR_FATAL_ANSWER) return unready + "; a start that waits is given up";
    if (code == ZOR_NO_SUCCESS) return unready;
    if (code == ZOR_RETRY_ANSWER) return "it is well, its failed pings are forgotten; -start goes on waiting";
    return "it is well, its failed pings are forgotten";
}
