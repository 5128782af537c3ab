#include "World.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>

namespace {

constexpr std::int64_t kScriptMs = 1500;  // how long a program that stops a child runs

std::int64_t after(std::int64_t nowMs, std::int64_t delayMs) {
    return delayMs == kNever ? kNever : nowMs + delayMs;
}

const Outage* outageAt(const std::vector<Outage>& outages, std::int64_t nowMs) {
    const auto found = std::find_if(outages.begin(), outages.end(), [nowMs](const Outage& outage) {
        return outage.fromMs <= nowMs && nowMs < outage.toMs;
    });
    return found == outages.end() ? nullptr : &*found;
}

// The last element that is due.
template <typename Timed>
const Timed* lastBy(const std::vector<Timed>& list, std::int64_t nowMs) {
    const Timed* last = nullptr;
    for (const Timed& each : list) {
        if (each.fromMs <= nowMs) last = &each;
    }
    return last;
}

const Reply& next(const std::vector<Reply>& replies, std::size_t& given) {
    return replies[std::min(given++, replies.size() - 1)];
}

}  // namespace

World::World(const Scenario& scenario) : m_scenario(scenario) {}

int World::fork(std::int64_t nowMs, const std::string& path, int& error) {
    if (const Outage* const outage = outageAt(m_scenario.forks, nowMs)) {
        error = outage->code;
        return -1;
    }
    const int pid = ++m_lastPid;
    for (const ChildText& child : m_scenario.children) {
        if (path == child.start.path) {
            m_processes[pid] = started(nowMs, child);
            m_newest[child.name] = pid;
            return pid;
        }
        if (path == child.stop.path) {
            stopNewest(nowMs, child.name);
            m_processes[pid].endsAtMs = nowMs + kScriptMs;
            return pid;
        }
    }
    throw std::logic_error("nobody configured the program \"" + path + '"');
}

World::Process World::started(std::int64_t nowMs, const ChildText& child) {
    Process process;
    process.life = child.lives[m_starts[child.name]++ % child.lives.size()];
    process.endsAtMs = after(nowMs, process.life.endsAfterMs);
    for (const std::int64_t atMs : child.deaths) {
        if (atMs > nowMs) process.endsAtMs = std::min(process.endsAtMs, atMs);
    }
    return process;
}

void World::stopNewest(std::int64_t nowMs, const std::string& child) {
    const auto newest = m_newest.find(child);
    if (newest == m_newest.end()) return;
    Process& process = m_processes[newest->second];
    process.endsAtMs = std::min(process.endsAtMs, after(nowMs, process.life.afterStopMs));
}

void World::tell(Process& process, std::int64_t nowMs, int signal) {
    if (process.life.foreign || signal == 0) return;
    const std::int64_t delayMs = signal == 9 ? process.life.afterKillMs : process.life.afterTermMs;
    process.endsAtMs = std::min(process.endsAtMs, after(nowMs, delayMs));
}

int World::kill(std::int64_t nowMs, int pid, int signal, int& error) {
    if (pid == 0) {
        for (auto& [id, process] : m_processes)
            tell(process, nowMs, signal);
        if (endsService(signal) && m_ownSignal.first == kNever) m_ownSignal = {nowMs, signal};
        return 0;
    }
    const auto found = m_processes.find(pid);
    const bool lives = found != m_processes.end() && nowMs < found->second.endsAtMs;
    if (!lives || found->second.life.foreign) {
        error = lives ? EPERM : ESRCH;
        return -1;
    }
    tell(found->second, nowMs, signal);
    return 0;
}

std::vector<int> World::alive(std::int64_t nowMs) const {
    std::vector<int> result;
    for (const auto& [pid, process] : m_processes) {
        if (nowMs < process.endsAtMs) result.push_back(pid);
    }
    return result;
}

const Exchange& World::behaviour(std::int64_t nowMs, const std::string& uri) const {
    static const Exchange good;
    for (const ChildText& child : m_scenario.children) {
        const Mood* mood = nullptr;
        if (child.ping && expanded(child.ping->uri) == uri) mood = lastBy(child.pingMoods, nowMs);
        if (expanded(child.stop.uri) == uri) mood = lastBy(child.stopMoods, nowMs);
        if (mood != nullptr) return mood->exchange;
    }
    return good;
}

Reply World::handle(std::int64_t nowMs) {
    m_exchange = nullptr;
    m_connects = 0;
    m_establishes = 0;
    const Outage* const outage = outageAt(m_scenario.sockets, nowMs);
    return outage == nullptr ? Reply{} : Reply{outage->code, outage->details, 0};
}

Reply World::connect(std::int64_t nowMs, const std::string& uri) {
    if (m_exchange == nullptr) m_exchange = &behaviour(nowMs, uri);
    m_uri = uri;
    return next(m_exchange->connects, m_connects);
}

Reply World::establish() {
    return next(exchange().establishes, m_establishes);
}

const Exchange& World::exchange() const {
    if (m_exchange == nullptr) throw std::logic_error("nobody has tried to connect");
    return *m_exchange;
}

void World::sent(std::int64_t nowMs) {
    for (const ChildText& child : m_scenario.children) {
        if (expanded(child.stop.uri) == m_uri) stopNewest(nowMs, child.name);
    }
}

Reply World::poll(std::int64_t limitMs) const {
    Reply reply = exchange().poll;
    reply.latencyMs = std::min(reply.latencyMs, limitMs);
    return reply;
}

const LimitFile* World::limitFile(std::int64_t nowMs) const {
    return lastBy(m_scenario.limitFiles, nowMs);
}
