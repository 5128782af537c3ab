#include "CTLHistory.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

#include "ZORSocketCommand.h"

namespace {

constexpr const char* kService = "ZORBootstrapService";
constexpr const char* kSupervisor = "PingChildProcess";
constexpr const char* kChild = "ZORChildProcess";
constexpr const char* kAction = "ZORSockSendAction";
constexpr const char* kSocket = "ZORSocketCommand";

constexpr std::size_t kMostThreads = 4096;
constexpr int kPauseSec = ZORSocketCommand::kPauseBeforeConnectMs / 1000;
// A ping whose handshake does not come to an end says so again within this time, the next ping much later.
constexpr std::time_t kSameHandshakeSec = 8;
constexpr const char* kUnfinished = "not finished after";

std::string firstLine(const std::string& text) {
    const std::string line = text.substr(0, text.find('\n'));
    return line.substr(0, line.find_last_not_of(' ') + 1);
}

}  // namespace

const char* CTLEvent::word(Kind kind) {
    static constexpr std::array<const char*, 14> words{
        "service started", "service ready", "service stopping", "service stopped", "started",       "died",
        "restarted",       "ping answered", "ping failed",      "unresponsive",    "asked to stop", "killed",
        "stopped",         "fatal"};
    return words[static_cast<std::size_t>(kind)];
}

// clang-format off
const CTLHistory::Row CTLHistory::kRows[] = {
    {{kService, "INFO", "Starting the daemon."}, &CTLHistory::beginsCommand},
    {{kService, "INFO", "testReadyByPinging() - pinged all children successfully."}, &CTLHistory::endsCommand},
    {{kService, "INFO", "testReadyByPinging() - detected fatal errors, stop all processes."}, &CTLHistory::endsCommand},
    {{kService, "ERROR", "testReadyByPinging() - child processes not yet ready, giving up."}, &CTLHistory::endsCommand},
    {{kService, "DEBUG", "ZORBootstrapService::Run() - starting \"%s\""}, &CTLHistory::names},
    {{kService, "INFO", "Velmora Bootstrap Service running as process %d."}, &CTLHistory::runs},
    {{kService, "INFO", "ZORBootstrapService::Run() - child process(es) is/are ready."}, &CTLHistory::isReady},
    {{kService, "INFO", "Done."}, &CTLHistory::isDone},
    {{kService, "DEBUG", "test ready..."}, &CTLHistory::idles},
    {{kService, "DEBUG", "processing config for process"}, &CTLHistory::idles},
    {{kService, "DEBUG", "m_sDaemonWaitFileName is \"%s\""}, &CTLHistory::idles},
    {{kSupervisor, "DEBUG", "entering timedWait, interval = %d"}, &CTLHistory::idles},
    {{kSupervisor, "DEBUG", "end of timedWait"}, &CTLHistory::idles},
    {{kSupervisor, "DEBUG", "Pinging process %s. Ping counter: %s"}, &CTLHistory::examines},
    {{kSupervisor, "DEBUG", "Process %s is alive."}, &CTLHistory::names},
    {{kSupervisor, "DEBUG", "Process %s is not alive. Resuscitating."}, &CTLHistory::died},
    {{kSupervisor, "ERROR", "ping loop: process \"%s\" is not active, so restarting it."}, &CTLHistory::died},
    {{kSupervisor, "DEBUG", "ping loop: process \"%s\" is still active, so we will ping it."}, &CTLHistory::names},
    {{kSupervisor, "DEBUG", "ping of process %s failed. Will not begin restart sequence."}, &CTLHistory::failed},
    {{kSupervisor, "DEBUG", "ping of process %s failed. Will begin restart sequence."}, &CTLHistory::failed},
    {{kSupervisor, "DEBUG", "ping of process %s failed, fatal error happened."}, &CTLHistory::names},
    {{kSupervisor, "DEBUG", "ping of process %s failed."}, &CTLHistory::names},
    {{kSupervisor, "DEBUG", "process %s pinged successfully."}, &CTLHistory::answered},
    {{kSupervisor, "WARN", "process %s hit ping failure limit, will restart, but first make sure it is really dead."}, &CTLHistory::isUnresponsive},
    {{kSupervisor, "WARN", "process %s appears to be dead, so restarting."}, &CTLHistory::died},
    {{kSupervisor, "WARN", "process %s appears to still be alive, so stop it."}, &CTLHistory::asksToStop},
    {{kSupervisor, "DEBUG", "stopping process \"%s\""}, &CTLHistory::names},
    {{kSupervisor, "WARN", "stopAction->execute() return status = %d"}, &CTLHistory::hasAsked},
    {{kSupervisor, "DEBUG", "ping loop: unresponsive process %s requires restart, test to see if it is still active."}, &CTLHistory::names},
    {{kSupervisor, "DEBUG", "unresponsive process %s still hasn't stopped after two polls intervals, so kill it"}, &CTLHistory::names},
    {{kSupervisor, "WARN", "unresponsive process %s hasn't yet finished stopping."}, &CTLHistory::isSlow},
    {{kSupervisor, "WARN", "restarting process %s."}, &CTLHistory::restarts},
    {{kSupervisor, "INFO", "stopping child process(es)."}, &CTLHistory::leaves},
    {{kSupervisor, "DEBUG", "process \"%s\" is not alive, so don't need to stop it."}, &CTLHistory::isDead},
    {{kSupervisor, "INFO", "%d processes are still alive, but we're not going to wait any longer for them to die."}, &CTLHistory::killedRest},
    {{kSupervisor, "DEBUG", "Process \"%s\" is still active."}, &CTLHistory::names},
    {{kSupervisor, "DEBUG", "Process \"%s\", is dead."}, &CTLHistory::isDead},
    {{kChild, "DEBUG", "preparing process named %s"}, &CTLHistory::names},
    {{kChild, "DEBUG", "starting process \"%s\""}, &CTLHistory::starts},
    {{kChild, "DEBUG", "Testing if process \"%s\" is still active."}, &CTLHistory::names},
    {{kChild, "DEBUG", "Process \"%s\" is still active."}, &CTLHistory::names},
    {{kChild, "DEBUG", "Process \"%s\" has terminated (kill(0) failed)."}, &CTLHistory::names},
    {{kChild, "DEBUG", "killing process \"%s\""}, &CTLHistory::names},
    {{kChild, "DEBUG", "Process ID used is %ld"}, &CTLHistory::killed},
    {{kAction, "DEBUG", "socket send action execute, sending..."}, &CTLHistory::sends},
    {{kAction, "WARN", "did not detect success string in response."}, &CTLHistory::tellsReason},
    {{kSocket, "ERROR", "failed to create SEK handle: %s "}, &CTLHistory::tellsReason},
    {{kSocket, "ERROR", "failed to connect, SEK error: %s "}, &CTLHistory::tellsReason},
    {{kSocket, "ERROR", "failed to establish, SEK error: %s "}, &CTLHistory::tellsUnfinished},
    {{kSocket, "ERROR", "failed to send, SEK error: %s "}, &CTLHistory::tellsReason},
    {{kSocket, "ERROR", "no response,  SEK_Poll timed out."}, &CTLHistory::tellsReason},
    {{kSocket, "ERROR", "SEK_Poll failed, SEK error: %s "}, &CTLHistory::tellsReason},
    {{kSocket, "ERROR", "SEK_Poll succeeded but socket not ready for reading.  This is unexpected."}, &CTLHistory::tellsReason},
    {{kSocket, "ERROR", "SEK_recv failed, SEK error: %s "}, &CTLHistory::tellsReason},
};
// clang-format on

const std::vector<CTLHistory::Known>& CTLHistory::known() {
    static const std::vector<Known> all = [] {
        std::vector<Known> table;
        for (const Row& row : kRows)
            table.push_back({row.text, row.handler, CTLTextPattern::ofFormat(row.text.format)});
        return table;
    }();
    return all;
}

const std::vector<const CTLHistory::Known*>& CTLHistory::knownOf(const std::string& logger) {
    static const std::map<std::string, std::vector<const Known*>> byLogger = [] {
        std::map<std::string, std::vector<const Known*>> all;
        for (const Known& each : known())
            all[each.text.logger].push_back(&each);
        return all;
    }();
    static const std::vector<const Known*> none;
    const auto found = byLogger.find(logger);
    return found == byLogger.end() ? none : found->second;
}

std::vector<CTLHistory::Text> CTLHistory::texts() {
    std::vector<Text> all;
    for (const Known& each : known())
        all.push_back(each.text);
    return all;
}

std::vector<CTLEvent> CTLHistory::of(const std::vector<CTLLogLine>& lines,
                                     const std::vector<CTLPinged>& pinged) {
    CTLHistory history(pinged);
    for (const CTLLogLine& line : lines)
        history.add(line);
    return history.take();
}

std::vector<CTLEvent> CTLHistory::take() {
    return std::exchange(m_events, {});
}

void CTLHistory::add(const CTLLogLine& line) {
    Thread& thread = threadOf(line);
    m_childOfLast = thread.child;
    if (line.level == "FATAL") note(line, thread.child, CTLEvent::Kind::Fatal);
    Values values;
    for (const Known* const each : knownOf(line.logger)) {
        if (line.level != each->text.level || !each->pattern.matches(line.text, &values)) continue;
        (this->*each->handler)(line, thread, values);
        return;
    }
}

CTLHistory::Thread& CTLHistory::threadOf(const CTLLogLine& line) {
    if (m_threads.size() >= kMostThreads) m_threads.clear();
    return m_threads[line.thread];
}

void CTLHistory::note(const CTLLogLine& line, const std::string& child, CTLEvent::Kind kind) {
    m_events.push_back({line.time, child, kind, firstLine(line.text)});
}

// The one child whose port stands behind a colon; the only child there is.
std::string CTLHistory::childAt(std::string_view address) const {
    std::string child;
    for (const CTLPinged& each : m_pinged) {
        const std::string place = ":" + each.port;
        const std::size_t at = address.find(place);
        if (each.port.empty() || at == std::string_view::npos) continue;
        const std::size_t end = at + place.size();
        if (end < address.size() && std::isdigit(static_cast<unsigned char>(address[end])) != 0) continue;
        if (!child.empty()) return {};
        child = each.child;
    }
    return child.empty() && m_pinged.size() == 1 ? m_pinged.front().child : child;
}

// ---- Whom a thread is busy with ----

void CTLHistory::names(const CTLLogLine& /*line*/, Thread& thread, const Values& values) {
    m_childOfLast = values.front();
    // A command tells whom it has pinged when it is done with it.
    if (!thread.isCommand) thread.child = m_childOfLast;
}

void CTLHistory::idles(const CTLLogLine& /*line*/, Thread& thread, const Values& /*values*/) {
    thread = {};
    m_childOfLast.clear();
}

void CTLHistory::beginsCommand(const CTLLogLine& /*line*/, Thread& thread, const Values& /*values*/) {
    thread = {};
    thread.isCommand = true;
}

void CTLHistory::endsCommand(const CTLLogLine& /*line*/, Thread& thread, const Values& /*values*/) {
    thread = {};
    m_childOfLast.clear();
}

// ---- The service ----

void CTLHistory::runs(const CTLLogLine& line, Thread& thread, const Values& /*values*/) {
    thread = {};
    m_stopped.clear();
    m_childOfLast.clear();
    note(line, {}, CTLEvent::Kind::ServiceStarted);
}

void CTLHistory::isReady(const CTLLogLine& line, Thread& /*thread*/, const Values& /*values*/) {
    note(line, {}, CTLEvent::Kind::ServiceReady);
}

void CTLHistory::leaves(const CTLLogLine& line, Thread& thread, const Values& /*values*/) {
    thread = {};
    thread.isStopping = true;
    thread.isLeaving = true;
    m_childOfLast.clear();
    note(line, {}, CTLEvent::Kind::ServiceStopping);
}

void CTLHistory::isDone(const CTLLogLine& line, Thread& thread, const Values& /*values*/) {
    thread = {};
    m_restarting.clear();
    m_childOfLast.clear();
    note(line, {}, CTLEvent::Kind::ServiceStopped);
}

void CTLHistory::killedRest(const CTLLogLine& line, Thread& /*thread*/, const Values& /*values*/) {
    m_childOfLast.clear();
    note(line, {}, CTLEvent::Kind::Killed);
}

// ---- A child's process ----

void CTLHistory::starts(const CTLLogLine& line, Thread& thread, const Values& values) {
    names(line, thread, values);
    m_stopped.erase(m_childOfLast);
    if (m_restarting.erase(m_childOfLast) == 0) note(line, m_childOfLast, CTLEvent::Kind::Started);
}

void CTLHistory::died(const CTLLogLine& line, Thread& thread, const Values& values) {
    const std::string& child = values.front();
    m_childOfLast = child;
    note(line, child, CTLEvent::Kind::Died);
    note(line, child, CTLEvent::Kind::Restarted);
    m_restarting.insert(child);
    thread.slowLooks = 0;
}

void CTLHistory::isSlow(const CTLLogLine& /*line*/, Thread& thread, const Values& values) {
    m_childOfLast = values.front();
    if (thread.slow != m_childOfLast) thread.slowLooks = 0;
    thread.slow = m_childOfLast;
    ++thread.slowLooks;
}

// One that was said twice not to have finished had been killed before the second time.
void CTLHistory::restarts(const CTLLogLine& line, Thread& thread, const Values& values) {
    const std::string& child = values.front();
    m_childOfLast = child;
    const bool wasSlow = thread.slow == child && thread.slowLooks > 1;
    if (wasSlow && !thread.wasKilled) note(line, child, CTLEvent::Kind::Killed);
    note(line, child, CTLEvent::Kind::Restarted);
    m_restarting.insert(child);
    thread.slow.clear();
    thread.slowLooks = 0;
    thread.wasKilled = false;
}

void CTLHistory::killed(const CTLLogLine& line, Thread& thread, const Values& values) {
    const std::string& pid = values.front();
    if (thread.child.empty() || pid.starts_with('-') || pid == "0") return;
    note(line, thread.child, CTLEvent::Kind::Killed);
    thread.wasKilled = !thread.isLeaving;
}

void CTLHistory::isDead(const CTLLogLine& line, Thread& thread, const Values& values) {
    names(line, thread, values);
    if (m_stopped.insert(m_childOfLast).second) note(line, m_childOfLast, CTLEvent::Kind::Stopped);
}

// ---- Pings ----

void CTLHistory::examines(const CTLLogLine& line, Thread& thread, const Values& values) {
    names(line, thread, values);
    thread.isPinging = true;
    thread.reason.clear();
    thread.pingBegan = 0;
}

void CTLHistory::sends(const CTLLogLine& line, Thread& thread, const Values& /*values*/) {
    thread.pingBegan = line.time;
}

void CTLHistory::answered(const CTLLogLine& line, Thread& thread, const Values& values) {
    names(line, thread, values);
    if (!thread.isPinging || thread.pingBegan == 0) return;
    note(line, m_childOfLast, CTLEvent::Kind::PingAnswered);
    m_events.back().seconds =
        static_cast<int>(std::max<std::time_t>(line.time - thread.pingBegan - kPauseSec, 0));
    thread.isPinging = false;
}

void CTLHistory::failed(const CTLLogLine& line, Thread& thread, const Values& values) {
    names(line, thread, values);
    note(line, m_childOfLast, CTLEvent::Kind::PingFailed);
    if (!thread.reason.empty()) m_events.back().text = thread.reason;
    thread.isPinging = false;
    thread.reason.clear();
}

void CTLHistory::tellsReason(const CTLLogLine& line, Thread& thread, const Values& values) {
    if (m_childOfLast.empty()) m_childOfLast = childAt(values.empty() ? std::string_view() : values.front());
    if (thread.isPinging) thread.reason = firstLine(line.text);
    if (thread.isPinging || thread.isCommand || thread.isStopping) return;
    note(line, m_childOfLast, CTLEvent::Kind::PingFailed);
}

void CTLHistory::tellsUnfinished(const CTLLogLine& line, Thread& thread, const Values& values) {
    const bool isUnfinished = line.text.find(kUnfinished) != std::string::npos;
    const bool isTheSame =
        isUnfinished && thread.unfinished && line.time - *thread.unfinished < kSameHandshakeSec;
    if (isUnfinished) thread.unfinished = line.time;
    if (!isTheSame) tellsReason(line, thread, values);
}

void CTLHistory::isUnresponsive(const CTLLogLine& line, Thread& thread, const Values& values) {
    m_childOfLast = values.front();
    thread.slow.clear();
    thread.slowLooks = 0;
    note(line, m_childOfLast, CTLEvent::Kind::Unresponsive);
}

void CTLHistory::asksToStop(const CTLLogLine& line, Thread& thread, const Values& values) {
    m_childOfLast = values.front();
    thread.isStopping = true;
    thread.child = m_childOfLast;
    note(line, m_childOfLast, CTLEvent::Kind::AskedToStop);
}

void CTLHistory::hasAsked(const CTLLogLine& /*line*/, Thread& thread, const Values& /*values*/) {
    thread.isStopping = thread.isLeaving;
    thread.child.clear();
}
