#include "CTLRehearsalReport.h"

#include <algorithm>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>
#include <vector>

#include "CTLRehearsal.h"

namespace {

std::time_t timeAt(std::time_t day, std::int64_t ms) {
    return day + static_cast<std::time_t>(ms / 1000);
}

std::string formatted(std::time_t time, const char* format) {
    std::tm utc{};
    if (gmtime_r(&time, &utc) == nullptr) return {};
    std::ostringstream text;
    text << std::put_time(&utc, format);
    return text.str();
}

std::string secondsText(std::int64_t ms) {
    std::string text = std::to_string(ms / 1000);
    std::string rest = std::to_string(1000 + ms % 1000).substr(1);
    rest.erase(rest.find_last_not_of('0') + 1);
    return text + (rest.empty() ? "" : "." + rest) + " s";
}

using Table = std::vector<std::vector<std::string>>;

Table tableOf(const CTLRehearsed& rehearsed) {
    Table table{
        {"child", "starts", "kills", "failed pings", "other answers", "not well", "longest unanswered"}};
    for (const CTLRehearsedChild& child : rehearsed.children) {
        const auto ofPing = [&](std::string text) {
            return child.isPinged ? std::move(text) : std::string("-");
        };
        table.push_back({child.name, std::to_string(child.starts), std::to_string(child.kills),
                         ofPing(std::to_string(child.failedPings)),
                         ofPing(std::to_string(child.otherAnswers)),
                         CTLRehearsalReport::durationText(child.downMs),
                         ofPing(CTLRehearsalReport::durationText(child.longestUnansweredMs))});
    }
    return table;
}

void printTable(const Table& table, std::ostream& out) {
    std::vector<std::size_t> widths(table.front().size());
    for (const auto& row : table) {
        for (std::size_t column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], row[column].size());
    }
    for (const auto& row : table) {
        for (std::size_t column = 0; column + 1 < row.size(); ++column)
            out << std::left << std::setw(static_cast<int>(widths[column]) + 2) << row[column];
        out << row.back() << '\n';
    }
}

}  // namespace

std::string CTLRehearsalReport::durationText(std::int64_t ms) {
    constexpr std::pair<std::int64_t, const char*> kUnits[] = {
        {86400000, " d "}, {3600000, " h "}, {60000, " min "}};
    std::string text;
    for (const auto& [unit, name] : kUnits) {
        if (ms >= unit) text += std::to_string(ms / unit) + name;
        ms %= unit;
    }
    if (ms != 0 || text.empty()) return text + secondsText(ms);
    text.pop_back();
    return text;
}

std::string CTLRehearsalReport::timeText(std::time_t time) {
    return formatted(time, "%Y-%m-%d %H:%M:%S");
}

std::string CTLRehearsalReport::machineTimeText(std::time_t time) {
    return formatted(time, "%Y-%m-%dT%H:%M:%SZ");
}

void CTLRehearsalReport::print(const CTLRehearsed& rehearsed, std::time_t day, std::ostream& out) {
    out << "-- " << timeText(timeAt(day, rehearsed.startMs)) << " to "
        << timeText(timeAt(day, rehearsed.endMs)) << " UTC, "
        << durationText(rehearsed.endMs - rehearsed.startMs) << " simulated\n";
    if (!rehearsed.started) out << "-- the service does not start with these documents\n";
    if (rehearsed.ownSignal) {
        out << "-- signal " << *rehearsed.ownSignal
            << " of a stop action went to the whole process group, the service included\n";
    }
    if (rehearsed.stopMs) out << "-- the stop took " << durationText(*rehearsed.stopMs) << '\n';
    if (rehearsed.cutShort) out << "-- cut short: the real time was over\n";
    if (!rehearsed.children.empty()) printTable(tableOf(rehearsed), out);
}

nlohmann::json CTLRehearsalReport::json(const CTLRehearsed& rehearsed, std::time_t day) {
    nlohmann::json children = nlohmann::json::array();
    for (const CTLRehearsedChild& child : rehearsed.children) {
        nlohmann::json one{{"name", child.name},
                           {"pinged", child.isPinged},
                           {"starts", child.starts},
                           {"kills", child.kills},
                           {"notWellMs", child.downMs}};
        if (child.isPinged) {
            one["failedPings"] = child.failedPings;
            one["otherAnswers"] = child.otherAnswers;
            one["longestUnansweredMs"] = child.longestUnansweredMs;
        }
        children.push_back(std::move(one));
    }
    nlohmann::json all{{"from", machineTimeText(timeAt(day, rehearsed.startMs))},
                       {"to", machineTimeText(timeAt(day, rehearsed.endMs))},
                       {"simulatedMs", rehearsed.endMs - rehearsed.startMs},
                       {"started", rehearsed.started},
                       {"cutShort", rehearsed.cutShort},
                       {"children", std::move(children)}};
    if (rehearsed.stopMs) all["stopMs"] = *rehearsed.stopMs;
    if (rehearsed.ownSignal) all["ownSignal"] = *rehearsed.ownSignal;
    return all;
}
