#include "CTLPingCommand.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <ctime>
#include <list>
#include <nlohmann/json.hpp>

#include "CTLDaemon.h"
#include "CTLDoorway.h"
#include "CTLError.h"
#include "CTLExchange.h"
#include "CTLExchangeNotes.h"
#include "CTLExchangeReport.h"
#include "CTLInstance.h"
#include "CTLPreparation.h"
#include "CTLServiceUser.h"
#include "CTLTerminal.h"
#include "CTLText.h"
#include "CTLWatch.h"
#include "ZORChildProcess.h"
#include "ZORSockSendAction.h"

namespace {

constexpr const char* kWhat = "The exchange that the service would do with its children, step by step";
constexpr const char* kExitCodes =
    "Exit codes: 0 every answer is good; 1 a ping failed; 2 an answer is fatal; 3 an answer says \"retry\"; "
    "4 there is "
    "nothing to ping; 64 usage or no such child, 70 failure, 130 interrupted before there was an answer. Of "
    "several the "
    "worst counts: 2, then 1, then 3.";
constexpr int kLongestIntervalSec = 86400;

enum PingExitCode : int { kGood = 0, kFailed = 1, kFatal = 2, kRetry = 3, kNothing = 4, kInterrupted = 130 };

// The worst first.
constexpr std::array<int, 4> kOrder{kFatal, kFailed, kRetry, kGood};

int worse(int left, int right) {
    return *std::find_if(kOrder.begin(), kOrder.end(),
                         [&](int code) { return code == left || code == right; });
}

int exitCodeOfOne(const CTLExchange& exchange) {
    if (exchange.rule == CTLRule::Fatal) return kFatal;
    if (exchange.rule == CTLRule::Retry) return kRetry;
    return exchange.isAnswered() ? kGood : kFailed;
}

[[noreturn]] void refuse(const CTLPreparation& preparation) {
    for (const CTLLogLine& line : preparation.lines()) {
        if (line.level == "FATAL") throw CTLError(CTLError::kFailed, line.text);
    }
    throw CTLError(CTLError::kFailed, "the service would not use these documents");
}

std::string namesOf(const std::list<ZORChildProcess*>& children) {
    std::string names;
    for (ZORChildProcess* const child : children)
        names += (names.empty() ? "" : ", ") + std::string(child->getName());
    return names.empty() ? "none" : names;
}

std::vector<CTLExchange> exchangesWith(const std::vector<ZORChildProcess*>& children) {
    std::vector<CTLExchange> exchanges;
    exchanges.reserve(children.size());
    for (ZORChildProcess* const child : children)
        exchanges.push_back(CTLExchange::with(*child));
    return exchanges;
}

}  // namespace

CLI::App* CTLPingCommand::declare(CLI::App& program) {
    CLI::App* const command = program.add_subcommand("ping", kWhat);
    command->footer(kExitCodes);
    command->add_option("CHILD", m_child, "The child; without it all that have a ping");
    command->add_flag("--json", m_json, "Print JSON; with --watch an object for each round");
    CLI::Option* const watch = command->add_flag(
        "--watch", m_watch, "Again and again, until Ctrl-C: how long answers take, and a time-out");
    command->add_option("--interval", m_intervalSec, "Seconds between two rounds of --watch, 2 unless given")
        ->option_text("SECONDS")
        ->check(CLI::Range(0, kLongestIntervalSec))
        ->needs(watch);
    command->add_option("--count", m_count, "End --watch after so many rounds")
        ->option_text("ROUNDS")
        ->check(CLI::PositiveNumber)
        ->needs(watch);
    return command;
}

int CTLPingCommand::exitCodeOf(const std::vector<CTLExchange>& exchanges) {
    int exitCode = kGood;
    for (const CTLExchange& exchange : exchanges)
        exitCode = worse(exitCode, exitCodeOfOne(exchange));
    return exitCode;
}

std::vector<ZORChildProcess*> CTLPingCommand::chosen(CTLPreparation& preparation) const {
    const std::list<ZORChildProcess*>& all = preparation.service().getChildren();
    std::vector<ZORChildProcess*> children;
    bool isKnown = m_child.empty();
    for (ZORChildProcess* const child : all) {
        const bool isMeant = m_child.empty() || m_child == child->getName();
        isKnown = isKnown || isMeant;
        if (isMeant && child->getPingAction() != nullptr) children.push_back(child);
    }
    if (isKnown) return children;
    throw CTLError(CTLError::kUsage, "no child is called \"" + CTLText::printable(m_child) +
                                         "\"; there are: " + CTLText::printable(namesOf(all)));
}

int CTLPingCommand::run(CTLContext& context) {
    const CTLInstance instance = CTLInstance::find(context.instance);
    CTLServiceUser::become(instance);
    const CTLDoorway doorway;
    const CTLDaemon daemon = CTLDaemon::of(instance, CTLProcesses());
    CTLPreparation preparation(instance, daemon.arguments());
    if (!preparation.isUsable()) refuse(preparation);
    const std::vector<ZORChildProcess*> children = chosen(preparation);
    if (children.empty()) {
        context.terminal.err() << "velbootstrapctl: no ping: only the existence of the process counts\n";
        return kNothing;
    }
    preparation.service().getSupervisor().readLimitOverride();
    preparation.keepNoMore();
    const CTLExchangeNotes notes;
    return rounds(context.terminal, instance, children,
                  preparation.service().getSupervisor().getFailedPingLimit());
}

int CTLPingCommand::rounds(CTLTerminal& terminal, const CTLInstance& instance,
                           const std::vector<ZORChildProcess*>& children, int limit) {
    CTLWatch watch;
    int exitCode = kInterrupted;
    for (int done = 1;; ++done) {
        std::vector<CTLExchange> exchanges;
        if (!watch.round([&] { exchanges = exchangesWith(children); })) break;
        exitCode = done == 1 ? exitCodeOf(exchanges) : worse(exitCode, exitCodeOf(exchanges));
        note(exchanges);
        show(terminal, instance, exchanges, limit);
        if (!m_watch || done == m_count || terminal.failed() || !watch.wait(m_intervalSec)) return exitCode;
    }
    CTLWatch::leave(terminal, exitCode);
}

void CTLPingCommand::note(const std::vector<CTLExchange>& exchanges) {
    for (const CTLExchange& exchange : exchanges) {
        Seen& seen = m_seen[exchange.child];
        seen.timeoutSec = exchange.timeoutSec;
        seen.last = exchange.isAnswered() ? CTLExchange::word(exchange.rule) : exchange.failure();
        if (seen.last.empty()) seen.last = exchange.ruleText();
        if (exchange.receivedBytes < 0) {
            ++seen.failed;
        } else {
            seen.answers.add(exchange.answerUs);
        }
    }
}

void CTLPingCommand::show(CTLTerminal& terminal, const CTLInstance& instance,
                          const std::vector<CTLExchange>& exchanges, int limit) const {
    if (m_json) {
        showJson(terminal, instance, exchanges, limit);
    } else if (m_watch) {
        showDistribution(terminal);
    } else {
        for (const CTLExchange& exchange : exchanges)
            CTLExchangeReport::print(terminal, exchange, limit);
    }
}

void CTLPingCommand::showJson(CTLTerminal& terminal, const CTLInstance& instance,
                              const std::vector<CTLExchange>& exchanges, int limit) const {
    nlohmann::json all = nlohmann::json::array();
    for (const CTLExchange& exchange : exchanges) {
        all.push_back(CTLExchangeReport::asJson(exchange, limit));
        if (m_watch) all.back()["distribution"] = distributionJson(m_seen.at(exchange.child));
    }
    const nlohmann::json document{{"instance", CTLText::printable(instance.folder().string())},
                                  {"time", CTLText::utc(std::time(nullptr))},
                                  {"exitCode", exitCodeOf(exchanges)},
                                  {"exchanges", all}};
    terminal.out() << document.dump(m_watch ? -1 : 2) << std::endl;
}

nlohmann::json CTLPingCommand::distributionJson(const Seen& seen) {
    const auto ms = [](std::int64_t us) { return static_cast<double>(us) / 1000; };
    return {{"answers", seen.answers.count()},
            {"failed", seen.failed},
            {"minimumMs", ms(seen.answers.minimum())},
            {"medianMs", ms(seen.answers.median())},
            {"percentile95Ms", ms(seen.answers.percentile95())},
            {"maximumMs", ms(seen.answers.maximum())},
            {"proposedTimeoutSec", seen.answers.timeoutSec()}};
}

// A picture of all that has been seen until now.
void CTLPingCommand::showDistribution(CTLTerminal& terminal) const {
    CTLWatch::beginPicture(terminal);
    for (const auto& [child, seen] : m_seen) {
        const CTLDistribution& answers = seen.answers;
        terminal.out() << terminal.painted(CTLColour::Bold, CTLText::printable(child)) << ": "
                       << answers.count() << " answers, " << seen.failed
                       << " without; last: " << CTLText::printable(seen.last) << '\n';
        if (answers.count() == 0) continue;
        terminal.out() << "  fastest " << CTLText::duration(answers.minimum()) << ", median "
                       << CTLText::duration(answers.median()) << ", 95 of 100 within "
                       << CTLText::duration(answers.percentile95()) << ", slowest "
                       << CTLText::duration(answers.maximum()) << '\n';
        terminal.out() << "  sockIOTimeoutSec is " << seen.timeoutSec << ", these answers ask for "
                       << answers.timeoutSec()
                       << (answers.count() < CTLDistribution::kEnough ? "; that is too few to rely on" : "")
                       << '\n';
    }
    terminal.out().flush();
}
