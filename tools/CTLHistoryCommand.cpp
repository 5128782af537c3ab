#include "CTLHistoryCommand.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <ostream>

#include "CTLDoorway.h"
#include "CTLError.h"
#include "CTLHistoryPage.h"
#include "CTLInstance.h"
#include "CTLLogFiles.h"
#include "CTLNewFile.h"
#include "CTLPinged.h"
#include "CTLPreparation.h"
#include "CTLRecord.h"
#include "CTLServiceUser.h"
#include "CTLTerminal.h"
#include "CTLText.h"
#include "CTLTime.h"
#include "ZORChildProcess.h"

using nlohmann::ordered_json;

namespace {

// What the log says may be read by whoever may read the log, its owner and group.
constexpr mode_t kPageRights = 0640;

std::string timeOr(const std::optional<std::time_t>& time, const char* otherwise) {
    return time ? CTLText::localTime(*time) : otherwise;
}

// When the service ran belongs to the history of each child.
bool isOfAnother(const CTLEvent& event, const std::string& child) {
    if (!event.child.empty()) return event.child != child;
    return event.kind == CTLEvent::Kind::PingFailed || event.kind == CTLEvent::Kind::Killed;
}

std::string secondsOf(const CTLChildRecord& child) {
    if (!child.meanSec) return "-";
    const auto tenths = std::lround(*child.meanSec * 10);
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " / " +
           std::to_string(child.longestSec.value_or(0)) + " s";
}

std::vector<std::string> rowOf(const CTLChildRecord& child) {
    return {child.name.empty() ? "(not named)" : CTLText::printable(child.name),
            std::to_string(child.restarts),
            std::to_string(child.deaths),
            std::to_string(child.killed),
            std::to_string(child.failedPings),
            secondsOf(child),
            timeOr(child.lastRestart, "-"),
            timeOr(child.lastFailedPing, "-")};
}

void showTable(CTLTerminal& terminal, const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> widths(rows.front().size());
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], row[i].size());
    }
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i)
            line += row[i] + std::string(widths[i] - row[i].size() + 2, ' ');
        line.erase(line.find_last_not_of(' ') + 1);
        terminal.out() << terminal.painted(&row == &rows.front() ? CTLColour::Bold : CTLColour::Plain, line)
                       << '\n';
    }
}

ordered_json timeIn(const std::optional<std::time_t>& time) {
    return time ? ordered_json(CTLText::utc(*time)) : ordered_json(nullptr);
}

template <typename Number>
ordered_json numberIn(const std::optional<Number>& number) {
    return number ? ordered_json(*number) : ordered_json(nullptr);
}

ordered_json nameIn(const std::string& name) {
    return name.empty() ? ordered_json(nullptr) : ordered_json(name);
}

ordered_json childIn(const CTLChildRecord& child) {
    return {{"name", nameIn(child.name)},
            {"restarts", child.restarts},
            {"deaths", child.deaths},
            {"killed", child.killed},
            {"failedPings", child.failedPings},
            {"answeredPings", child.answeredPings},
            {"meanPingSeconds", numberIn(child.meanSec)},
            {"longestPingSeconds", numberIn(child.longestSec)},
            {"lastRestart", timeIn(child.lastRestart)},
            {"lastFailedPing", timeIn(child.lastFailedPing)}};
}

}  // namespace

CLI::App* CTLHistoryCommand::declare(CLI::App& program) {
    CLI::App* const command = program.add_subcommand(
        "history",
        "Restarts, failed pings and how long pings took, per child, from the log and its rotated files.");
    command->footer("Exit codes: 0 shown, 1 the log has nothing of that time, 64 usage, 70 failure.");
    command->add_option("--since", m_since, "Not older; as for the command log")->option_text("WHEN");
    command->add_option("--child", m_child, "This child only")->option_text("NAME");
    CLI::Option* const events = command->add_flag("--events", m_events, "Each event in a line of its own");
    CLI::Option* const json = command->add_flag("--json", m_json, "Print JSON, times in UTC");
    command->add_option("--html", m_html, "Write a page for a browser into FILE, \"-\" for standard output")
        ->option_text("FILE")
        ->excludes(json)
        ->excludes(events);
    json->excludes(events);
    return command;
}

int CTLHistoryCommand::run(CTLContext& context) {
    const std::time_t now = std::time(nullptr);
    const std::optional<std::time_t> since = m_since.empty() ? 0 : CTLTime::parse(m_since, now);
    if (!since)
        throw CTLError(CTLError::kUsage, "--since: \"" + m_since + "\" is no time; log --help has examples");
    const CTLInstance instance = CTLInstance::find(context.instance);
    if (!m_html.empty() && m_html != "-") m_html = std::filesystem::absolute(m_html);
    CTLServiceUser::becomeAsRoot(instance);
    const CTLDoorway doorway;
    CTLPreparation preparation(instance);
    bool isComplete = true;
    const std::vector<CTLLogLine> lines = CTLLogFiles(instance).linesSince(*since, &isComplete);
    if (lines.empty()) {
        context.terminal.err() << "velbootstrapctl: the log has nothing of that time\n";
        return 1;
    }
    const std::time_t from = *since > 0 ? *since : lines.front().time;
    const CTLRecord record = recordOf(preparation.service(), lines, from, std::max(now, lines.back().time));
    if (!m_html.empty()) {
        writePage(context.terminal, record, instance.folder().string(), isComplete);
    } else if (m_json) {
        showJson(context.terminal, record, instance.folder().string(), isComplete);
    } else {
        show(context.terminal, record);
        if (!isComplete)
            context.terminal.err() << "velbootstrapctl: the log is too long, its beginning is left out\n";
    }
    return 0;
}

CTLRecord CTLHistoryCommand::recordOf(ZORBootstrapService& service, const std::vector<CTLLogLine>& lines,
                                      std::time_t from, std::time_t until) const {
    std::vector<CTLEvent> events = CTLHistory::of(lines, CTLPinged::of(service));
    std::vector<std::string> names;
    for (ZORChildProcess* const child : service.getChildren())
        names.emplace_back(child->getName());
    if (!m_child.empty()) {
        names = {m_child};
        std::erase_if(events, [&](const CTLEvent& event) { return isOfAnother(event, m_child); });
    }
    return CTLRecord::of(events, names, from, until);
}

void CTLHistoryCommand::show(CTLTerminal& terminal, const CTLRecord& record) const {
    if (m_events) {
        showEvents(terminal, record);
        return;
    }
    terminal.out() << CTLText::localTime(record.from) << " to " << CTLText::localTime(record.until) << ", "
                   << record.runs.size() << (record.runs.size() == 1 ? " run" : " runs")
                   << " of the service\n";
    std::vector<std::vector<std::string>> rows{{"child", "restarts", "died", "killed", "failed pings",
                                                "ping mean / longest", "last restart", "last failed ping"}};
    for (const CTLChildRecord& child : record.children)
        rows.push_back(rowOf(child));
    showTable(terminal, rows);
    if (!record.hasAnswerTimes)
        terminal.out()
            << "How long pings took the log does not tell: good pings are logged at level DEBUG only.\n";
}

void CTLHistoryCommand::showEvents(CTLTerminal& terminal, const CTLRecord& record) {
    for (const CTLEvent& event : record.events) {
        terminal.out() << CTLText::localTime(event.time) << ' '
                       << (event.child.empty() ? "-" : CTLText::printable(event.child)) << ' '
                       << CTLEvent::word(event.kind);
        if (event.seconds) terminal.out() << ' ' << *event.seconds << " s";
        if (!event.seconds) terminal.out() << ": " << CTLText::printable(event.text);
        terminal.out() << '\n';
    }
}

void CTLHistoryCommand::showJson(CTLTerminal& terminal, const CTLRecord& record, const std::string& folder,
                                 bool isComplete) {
    ordered_json all{{"instance", folder},
                     {"from", CTLText::utc(record.from)},
                     {"until", CTLText::utc(record.until)},
                     {"complete", isComplete},
                     {"runs", ordered_json::array()},
                     {"children", ordered_json::array()},
                     {"events", ordered_json::array()}};
    for (const CTLRun& run : record.runs) {
        all["runs"].push_back(
            {{"from", CTLText::utc(run.from)},
             {"until", run.isOpen ? ordered_json(nullptr) : ordered_json(CTLText::utc(run.until))}});
    }
    for (const CTLChildRecord& child : record.children)
        all["children"].push_back(childIn(child));
    for (const CTLEvent& event : record.events) {
        all["events"].push_back({{"time", CTLText::utc(event.time)},
                                 {"child", nameIn(event.child)},
                                 {"kind", CTLEvent::word(event.kind)},
                                 {"seconds", numberIn(event.seconds)},
                                 {"text", event.text}});
    }
    terminal.out() << all.dump(2, ' ', false, ordered_json::error_handler_t::replace) << '\n';
}

void CTLHistoryCommand::writePage(CTLTerminal& terminal, const CTLRecord& record, const std::string& title,
                                  bool isComplete) const {
    const std::string page = CTLHistoryPage::of(record, title, isComplete);
    if (m_html == "-") {
        terminal.out() << page;
        return;
    }
    CTLNewFile file(m_html);
    file.write(page);
    file.take(kPageRights);
    terminal.out() << "Written to " << m_html << '\n';
}
