#include "CTLRecord.h"

#include <algorithm>

CTLRecord CTLRecord::of(const std::vector<CTLEvent>& events, const std::vector<std::string>& names,
                        std::time_t from, std::time_t until) {
    CTLRecord record;
    record.from = from;
    record.until = until;
    record.events = events;
    for (const std::string& name : names)
        record.childOf(name);
    for (const CTLEvent& event : events) {
        record.count(event);
        record.countRun(event);
    }
    if (!record.runs.empty() && record.runs.back().isOpen) record.runs.back().until = until;
    return record;
}

CTLChildRecord& CTLRecord::childOf(const std::string& name) {
    const auto known =
        std::find_if(children.begin(), children.end(), [&](const auto& child) { return child.name == name; });
    if (known != children.end()) return *known;
    children.emplace_back();
    children.back().name = name;
    return children.back();
}

void CTLRecord::count(const CTLEvent& event) {
    using Kind = CTLEvent::Kind;
    const bool isOfAChild =
        event.kind == Kind::PingFailed || event.kind == Kind::Killed || !event.child.empty();
    if (!isOfAChild) return;
    CTLChildRecord& child = childOf(event.child);
    if (event.kind == Kind::Died) ++child.deaths;
    if (event.kind == Kind::Killed) ++child.killed;
    if (event.kind == Kind::Restarted) {
        ++child.restarts;
        child.lastRestart = event.time;
    }
    if (event.kind == Kind::PingFailed) {
        ++child.failedPings;
        child.lastFailedPing = event.time;
    }
    if (!event.seconds) return;
    hasAnswerTimes = true;
    const double before = child.meanSec.value_or(0) * child.answeredPings;
    ++child.answeredPings;
    child.meanSec = (before + *event.seconds) / child.answeredPings;
    child.longestSec = std::max(child.longestSec.value_or(0), *event.seconds);
}

// One whose end the log does not tell ended at the latest when the next began.
void CTLRecord::countRun(const CTLEvent& event) {
    const bool isOpen = !runs.empty() && runs.back().isOpen;
    if (event.kind == CTLEvent::Kind::ServiceStarted) {
        if (isOpen) runs.back().until = event.time;
        runs.push_back({event.time, event.time, true});
    } else if (event.kind == CTLEvent::Kind::ServiceStopped) {
        if (!isOpen) runs.push_back({from, event.time, true});  // it began before
        runs.back().until = event.time;
        runs.back().isOpen = false;
    }
}
