#include "CTLStatusReport.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <ostream>

#include "CTLExchangeReport.h"
#include "CTLStatus.h"
#include "CTLTerminal.h"
#include "CTLText.h"

using nlohmann::json;

namespace {

constexpr std::time_t kDaySec = 86400;
constexpr std::time_t kWarnDays = 30;
constexpr std::time_t kCriticalDays = 7;

using Row = std::vector<std::string>;

std::string optionalTime(const std::optional<std::time_t>& time) {
    return time ? CTLText::localTime(*time) : "-";
}

std::string processCell(const CTLStatus& status, const CTLChildStatus& child) {
    if (!child.process) return status.isMissing(child) ? "missing" : "?";
    std::string cell = std::to_string(child.process->pid);
    if (child.alike > 1) cell += " (one of " + std::to_string(child.alike) + ")";
    return cell;
}

std::string pingCell(const CTLChildStatus& child) {
    if (!child.isPinged) return "no ping";
    if (!child.exchange) return "-";
    const std::string time = CTLText::duration(child.exchange->answerUs);
    return child.exchange->isAnswered() ? time : CTLExchange::word(child.exchange->rule);
}

std::string certificateCell(const CTLStatus& status, const CTLChildStatus& child) {
    const auto expiry = child.expiry();
    return expiry ? std::to_string((*expiry - status.asked) / kDaySec) + " days" : "-";
}

Row rowOf(const CTLStatus& status, const CTLChildStatus& child) {
    const auto& process = child.process;
    return {CTLText::printable(child.name),
            processCell(status, child),
            process ? CTLText::age(status.asked - process->started) : "-",
            process ? CTLText::size(process->memoryBytes) : "-",
            child.descriptors ? std::to_string(*child.descriptors) : "-",
            process ? std::to_string(process->threads) : "-",
            std::to_string(child.restartsLastHour) + " / " + std::to_string(child.restartsLastDay),
            optionalTime(child.lastFailedPing),
            pingCell(child),
            certificateCell(status, child)};
}

void printRow(CTLTerminal& terminal, const Row& row, const std::vector<std::size_t>& widths,
              CTLColour colour) {
    std::string line;
    for (std::size_t column = 0; column < row.size(); ++column) {
        std::string cell = row[column];
        if (column + 1 < row.size()) cell.resize(std::max(cell.size(), widths[column] + 2), ' ');
        line += cell;
    }
    terminal.out() << terminal.painted(colour, line) << '\n';
}

CTLColour colourOf(const CTLStatus& status, const CTLChildStatus& child) {
    if (status.isMissing(child) || child.hasFailed()) return CTLColour::Bad;
    return !child.process || child.restartsLastHour > 0 ? CTLColour::Warning : CTLColour::Plain;
}

void printChildren(CTLTerminal& terminal, const CTLStatus& status) {
    std::vector<Row> rows{{"child", "process", "age", "memory", "files", "threads", "restarts 1 h / 1 d",
                           "last failed ping", "answer", "certificate"}};
    for (const CTLChildStatus& child : status.children)
        rows.push_back(rowOf(status, child));
    std::vector<std::size_t> widths(rows[0].size());
    for (const Row& row : rows) {
        for (std::size_t column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], row[column].size());
    }
    printRow(terminal, rows[0], widths, CTLColour::Faint);
    for (std::size_t row = 1; row < rows.size(); ++row)
        printRow(terminal, rows[row], widths, colourOf(status, status.children[row - 1]));
}

void printNotes(CTLTerminal& terminal, const CTLStatus& status) {
    const auto note = [&](const std::string& text) {
        terminal.out() << "note: " << CTLText::printable(text) << '\n';
    };
    for (const std::string& text : status.daemon.notes())
        note(text);
    if (!status.daemon.userToBe().empty()) note("to know more, be " + status.daemon.userToBe());
    for (const std::string& survivor : status.survivors)
        note(survivor + ", with no service to look after it");
    if (!status.areChildrenKnown) note("the service would not use its documents: " + status.whyNot);
    if (status.strangers > 0)
        note(std::to_string(status.strangers) +
             " processes of the service's are no child of the document that could "
             "be told");
    for (const CTLChildStatus& child : status.children) {
        if (child.hasFailed())
            note(child.name + ": " + child.exchange->failure() + " (" + child.exchange->ruleText() + ")");
    }
    if (!status.isLogComplete)
        note("the log was too long to be read back to a day ago: there may be more restarts");
}

json daemonJson(const CTLStatus& status) {
    const CTLDaemon& daemon = status.daemon;
    json result{{"verdict", daemon.word()},
                {"reason", CTLText::printable(daemon.reason())},
                {"notes", json::array()}};
    for (const std::string& note : daemon.notes())
        result["notes"].push_back(CTLText::printable(note));
    if (!daemon.userToBe().empty()) result["userToBe"] = daemon.userToBe();
    if (!daemon.process()) return result;
    result["pid"] = daemon.process()->pid;
    result["user"] = CTLDaemon::nameOf(daemon.process()->user);
    result["program"] = CTLText::printable(daemon.process()->name);
    result["started"] = CTLText::utc(daemon.process()->started);
    return result;
}

json processJson(const CTLChildStatus& child) {
    if (!child.process) return nullptr;
    json process{{"pid", child.process->pid},
                 {"toldBy", CTLChildMatch::word(child.by)},
                 {"oneOf", child.alike},
                 {"started", CTLText::utc(child.process->started)},
                 {"memoryBytes", child.process->memoryBytes},
                 {"threads", child.process->threads}};
    process["descriptors"] = child.descriptors ? json(*child.descriptors) : json();
    return process;
}

json childJson(const CTLStatus& status, const CTLChildStatus& child) {
    const auto time = [](const std::optional<std::time_t>& value) {
        return value ? json(CTLText::utc(*value)) : json();
    };
    const char* const state = child.process ? "there" : status.isMissing(child) ? "missing" : "unknown";
    return {{"name", CTLText::printable(child.name)},
            {"state", state},
            {"process", processJson(child)},
            {"restartsLastHour", child.restartsLastHour},
            {"restartsLastDay", child.restartsLastDay},
            {"restarts", child.restarts},
            {"lastFailedPing", time(child.lastFailedPing)},
            {"hasPing", child.isPinged},
            {"certificateExpiry", time(child.expiry())},
            {"ping",
             child.exchange ? CTLExchangeReport::asJson(*child.exchange, status.failedPingLimit) : json()}};
}

// Text that a monitor takes for nothing else.
std::string plain(std::string text) {
    std::replace(text.begin(), text.end(), '|', '/');
    return CTLText::printable(text);
}

std::string daysLeft(const CTLStatus& status) {
    const auto expiry = status.firstExpiry();
    return expiry ? std::to_string((*expiry - status.asked) / kDaySec) : "";
}

std::string sentence(const CTLStatus& status) {
    if (!status.daemon.isRunning()) {
        std::string text = std::string(status.daemon.word()) + ": " + status.daemon.reason();
        for (const std::string& survivor : status.survivors)
            text += ", " + survivor;
        return text;
    }
    if (!status.areChildrenKnown) return "running, but the documents are wrong: " + status.whyNot;
    std::string text = std::to_string(status.there()) + " of " + std::to_string(status.children.size()) +
                       " children, " + std::to_string(status.restartsLastHour()) +
                       " restarts in the last hour";
    for (const CTLChildStatus& child : status.children) {
        if (!child.process)
            text += ", " + child.name + (status.isMissing(child) ? " is missing" : " cannot be told");
        if (child.hasFailed()) text += ", " + child.name + " fails its ping";
    }
    const std::string days = daysLeft(status);
    return days.empty() ? text : text + ", a certificate ends in " + days + " days";
}

}  // namespace

namespace CTLStatusReport {

void print(CTLTerminal& terminal, const CTLStatus& status) {
    const CTLDaemon& daemon = status.daemon;
    const CTLColour colour = daemon.isRunning() ? CTLColour::Good : CTLColour::Bad;
    terminal.out() << terminal.painted(CTLColour::Bold, status.folder) << '\n'
                   << terminal.painted(colour, daemon.word());
    if (daemon.isRunning()) {
        terminal.out() << " as process " << daemon.process()->pid << " of "
                       << CTLDaemon::nameOf(daemon.process()->user) << " for "
                       << CTLText::age(status.asked - daemon.process()->started);
    }
    terminal.out() << ": " << CTLText::printable(daemon.reason()) << '\n';
    if (status.daemon.isRunning() || status.hasExchanges()) printChildren(terminal, status);
    printNotes(terminal, status);
}

json asJson(const CTLStatus& status) {
    json children = json::array();
    for (const CTLChildStatus& child : status.children)
        children.push_back(childJson(status, child));
    return {{"instance", CTLText::printable(status.folder)},
            {"time", CTLText::utc(status.asked)},
            {"exitCode", status.exitCode()},
            {"daemon", daemonJson(status)},
            {"documents", status.areChildrenKnown ? "" : CTLText::printable(status.whyNot)},
            {"children", children},
            {"strangers", status.strangers},
            {"survivors", status.survivors},
            {"lastLogLine", status.lastLogLine ? json(CTLText::utc(*status.lastLogLine)) : json()},
            {"logIsComplete", status.isLogComplete}};
}

Health healthOf(const CTLStatus& status) {
    const auto expiry = status.firstExpiry();
    const std::time_t left = expiry ? *expiry - status.asked : kWarnDays * kDaySec;
    switch (status.exitCode()) {
        case CTLStatus::kUnknown:
            return Health::Unknown;
        case CTLStatus::kAllThere:
            break;
        default:
            return Health::Critical;
    }
    if (left < kCriticalDays * kDaySec) return Health::Critical;
    return left < kWarnDays * kDaySec || status.restartsLastHour() > 0 ? Health::Warning : Health::Ok;
}

void printForMonitor(CTLTerminal& terminal, const CTLStatus& status) {
    constexpr const char* kWords[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
    const std::string all = std::to_string(status.children.size());
    terminal.out() << "VELBOOTSTRAP " << kWords[static_cast<std::size_t>(healthOf(status))] << " - "
                   << plain(sentence(status)) << " | children=" << status.there() << ";" << all << ":;" << all
                   << ":;0;" << all << " restarts_1h=" << status.restartsLastHour() << ";0;;0"
                   << " restarts_1d=" << status.restartsLastDay() << ";;;0";
    if (status.firstExpiry())
        terminal.out() << " certificate_days=" << daysLeft(status) << ";" << kWarnDays << ":;"
                       << kCriticalDays << ":";
    terminal.out() << '\n';
}

}  // namespace CTLStatusReport
