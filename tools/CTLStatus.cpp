#include "CTLStatus.h"

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "CTLHistory.h"
#include "CTLInstance.h"
#include "CTLLogFiles.h"
#include "CTLPinged.h"
#include "CTLPreparation.h"
#include "PingChildProcess.h"
#include "ZORChildProcess.h"
#include "ZORSockSendAction.h"
#include "ZORSpawnAction.h"

namespace {

constexpr std::time_t kHourSec = 3600;
constexpr std::time_t kDaySec = 24 * kHourSec;
// So many children are spoken to at a time: one that is silent must not make all others wait.
constexpr std::size_t kAtATime = 16;

std::vector<std::string> argumentsOf(ZORChildProcess& child) {
    std::vector<std::string> arguments;
    for (const char* const argument : child.getStartAction()->getArguments()) {
        if (argument == nullptr) break;
        arguments.emplace_back(argument);
    }
    return arguments;
}

std::vector<ZORChildProcess*> childrenOf(CTLPreparation& preparation) {
    const auto& list = preparation.service().getChildren();
    return {list.begin(), list.end()};
}

// What the service says of documents that it does not use.
std::string firstFatal(const CTLPreparation& preparation) {
    for (const CTLLogLine& line : preparation.lines()) {
        if (line.level == "FATAL") return line.text;
    }
    return "the service does not say why";
}

// When a log without lines of the last day was written to.
std::optional<std::time_t> writtenLast(const std::filesystem::path& log) {
    struct stat status {};
    if (stat(log.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    return status.st_mtim.tv_sec;
}

std::vector<CTLWantedChild> wantedOf(const std::vector<ZORChildProcess*>& prepared) {
    std::vector<CTLWantedChild> wanted;
    wanted.reserve(prepared.size());
    for (ZORChildProcess* const child : prepared)
        wanted.push_back({child->getName(), argumentsOf(*child)});
    return wanted;
}

// Those that still live, in two ways.
std::vector<CTLFoundProcess> examine(const CTLProcesses& processes, const std::vector<pid_t>& pids,
                                     std::vector<CTLProcess>& found) {
    std::vector<CTLFoundProcess> known;
    for (const pid_t pid : pids) {
        const std::optional<CTLProcess> process = processes.find(pid);
        if (!process) continue;
        found.push_back(*process);
        known.push_back({pid, process->started, processes.argumentsOf(pid)});
    }
    return known;
}

void count(const CTLEvent& event, std::time_t now, std::time_t daemonStart, CTLChildStatus& child) {
    if (event.kind == CTLEvent::Kind::PingFailed) child.lastFailedPing = event.time;
    if (event.kind != CTLEvent::Kind::Restarted) return;
    if (event.time > now - kHourSec) ++child.restartsLastHour;
    if (event.time > now - kDaySec) ++child.restartsLastDay;
    if (event.time >= daemonStart) ++child.restarts;
}

}  // namespace

CTLStatus CTLStatus::of(const CTLInstance& instance, const CTLProcesses& processes, const CTLDaemon& daemon,
                        CTLPreparation& preparation, const CTLLogFiles& log, const Wish& wish) {
    CTLStatus status;
    status.asked = std::time(nullptr);
    status.folder = instance.folder().string();
    status.daemon = daemon;
    status.areChildrenKnown = preparation.isUsable();
    if (!status.areChildrenKnown) status.whyNot = firstFatal(preparation);
    const std::vector<ZORChildProcess*> children =
        status.areChildrenKnown ? childrenOf(preparation) : std::vector<ZORChildProcess*>();
    status.takeChildren(children);
    preparation.service().getSupervisor().readLimitOverride();
    status.failedPingLimit = preparation.service().getSupervisor().getFailedPingLimit();
    status.takeLog(log, CTLPinged::of(preparation.service()), wish);
    if (daemon.isRunning()) {
        status.takeProcesses(processes, children);
    } else {
        status.takeSurvivors(instance, processes, children);
    }
    if (wish.exchanges) status.exchangeWithAll(children);
    return status;
}

void CTLStatus::takeChildren(const std::vector<ZORChildProcess*>& prepared) {
    for (ZORChildProcess* const child : prepared) {
        CTLChildStatus status;
        status.name = child->getName();
        status.isPinged = child->getPingAction() != nullptr;
        children.push_back(status);
    }
}

void CTLStatus::takeLog(const CTLLogFiles& log, const std::vector<CTLPinged>& pinged, const Wish& wish) {
    const std::time_t daemonStart = daemon.isRunning() ? daemon.process()->started : asked;
    const std::time_t dayAgo = asked - kDaySec;
    const std::vector<CTLLogLine> lines =
        log.linesSince(wish.totals ? std::min(dayAgo, daemonStart) : dayAgo, &isLogComplete);
    lastLogLine = lines.empty() ? writtenLast(log.present()) : lines.back().time;
    m_starts = CTLChildMatch::startsIn(lines);
    std::map<std::string, CTLChildStatus*> byName;
    for (CTLChildStatus& child : children)
        byName.emplace(child.name, &child);
    for (const CTLEvent& event : CTLHistory::of(lines, pinged)) {
        const auto child = byName.find(event.child);
        if (child != byName.end()) count(event, asked, daemonStart, *child->second);
    }
}

// A process that ends while the list is made can hide others from it, so that what seems to be missing is looked for
// twice.
void CTLStatus::takeProcesses(const CTLProcesses& processes, const std::vector<ZORChildProcess*>& prepared) {
    for (int look = 0; look < 2; ++look) {
        takeProcessesOnce(processes, prepared);
        if (missing() == 0) return;
    }
}

void CTLStatus::takeProcessesOnce(const CTLProcesses& processes,
                                  const std::vector<ZORChildProcess*>& prepared) {
    std::vector<CTLProcess> found;
    const std::vector<CTLFoundProcess> known =
        examine(processes, processes.childrenOf(daemon.process()->pid), found);
    strangers = found.size();
    const std::vector<CTLChildMatch::Result> results =
        CTLChildMatch::match(wantedOf(prepared), known, m_starts);
    for (std::size_t index = 0; index < results.size(); ++index) {
        children[index].by = results[index].by;
        children[index].alike = results[index].alike;
        if (results[index].by == CTLMatch::None) continue;
        --strangers;
        children[index].process = found[results[index].process];
        children[index].descriptors = processes.descriptorsOf(children[index].process->pid);
    }
}

// Whoever kills a service leaves its children behind: they work on in bin/ with nobody to look after them.
void CTLStatus::takeSurvivors(const CTLInstance& instance, const CTLProcesses& processes,
                              const std::vector<ZORChildProcess*>& prepared) {
    std::vector<pid_t> here = processes.all();
    std::erase_if(here, [&](pid_t pid) {
        return processes.compare(pid, "cwd", instance.bin()) != CTLProcesses::Link::Same;
    });
    std::vector<CTLProcess> found;
    const std::vector<CTLFoundProcess> known = examine(processes, here, found);
    const std::vector<CTLChildMatch::Result> results = CTLChildMatch::match(wantedOf(prepared), known, {});
    for (std::size_t index = 0; index < results.size(); ++index) {
        const CTLMatch by = results[index].by;
        if (by == CTLMatch::None || by == CTLMatch::Elimination) continue;
        survivors.push_back(children[index].name + " lives on as process " +
                            std::to_string(known[results[index].process].pid));
    }
}

void CTLStatus::exchangeWithAll(const std::vector<ZORChildProcess*>& prepared) {
    std::atomic<std::size_t> next{0};
    const auto work = [&] {
        for (std::size_t index = next++; index < prepared.size(); index = next++) {
            if (children[index].isPinged) children[index].exchange = CTLExchange::with(*prepared[index]);
        }
    };
    std::vector<std::thread> threads;
    for (std::size_t count = std::min(kAtATime, prepared.size()); count > 0; --count)
        threads.emplace_back(work);
    for (std::thread& thread : threads)
        thread.join();
}

std::size_t CTLStatus::missing() const {
    const std::size_t unmatched = children.size() - there();
    return unmatched - std::min(unmatched, strangers);
}

std::size_t CTLStatus::there() const {
    return static_cast<std::size_t>(std::count_if(
        children.begin(), children.end(), [](const auto& child) { return child.process.has_value(); }));
}

std::size_t CTLStatus::failed() const {
    return static_cast<std::size_t>(
        std::count_if(children.begin(), children.end(), [](const auto& child) { return child.hasFailed(); }));
}

int CTLStatus::restartsLastHour() const {
    int sum = 0;
    for (const CTLChildStatus& child : children)
        sum += child.restartsLastHour;
    return sum;
}

int CTLStatus::restartsLastDay() const {
    int sum = 0;
    for (const CTLChildStatus& child : children)
        sum += child.restartsLastDay;
    return sum;
}

std::optional<std::time_t> CTLStatus::firstExpiry() const {
    std::optional<std::time_t> first;
    for (const CTLChildStatus& child : children) {
        const auto expiry = child.expiry();
        if (expiry && (!first || *expiry < *first)) first = expiry;
    }
    return first;
}

bool CTLStatus::hasExchanges() const {
    return std::any_of(children.begin(), children.end(),
                       [](const auto& child) { return child.exchange.has_value(); });
}

int CTLStatus::exitCode() const {
    switch (daemon.verdict()) {
        case CTLVerdict::NotRunning:
            return kNotRunning;
        case CTLVerdict::NotProved:
            return kUnknown;
        case CTLVerdict::Running:
            break;
        default:
            return kDeadWithPidFile;
    }
    if (!areChildrenKnown) return kUnknown;
    if (missing() > 0) return kChildMissing;
    if (there() < children.size()) return kUnknown;
    return failed() > 0 ? kPingFailed : kAllThere;
}
