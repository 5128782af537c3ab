#include "CTLRehearsal.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <filesystem>
#include <system_error>
#include <utility>

#include "CTLError.h"
#include "CTLInstance.h"
#include "TVLIDOM_Document.h"
#include "ZORCmdLine.h"
#include "ZORCryptoHelper.h"
#include "ZORLogger.h"

namespace {

using Kind = VirtualEvent::Kind;
using Mood = VirtualChild::Mood;
using Step = CTLScenarioStep;

constexpr std::int64_t kHourMs = 3600000;
constexpr std::int64_t kDayMs = 24 * kHourMs;
constexpr std::int64_t kLongestStopMs = kDayMs;
constexpr unsigned kWaitsBetweenLooks = 64;

std::int64_t untilOf(const CTLScenario& scenario, const CTLRehearsal::Plan& plan) {
    if (plan.untilMs) return *plan.untilMs;
    if (scenario.stopMs()) return *scenario.stopMs() + kLongestStopMs;
    return std::max(scenario.startMs() + kDayMs, scenario.endMs() + kHourMs);
}

void setFault(VirtualChild& child, const Step& step) {
    child.recover();
    child.endsWithProcess = !step.untilMs;
    if (step.kind == Step::Kind::Silent) child.mood = Mood::Silent;
    if (step.kind == Step::Kind::Refuses) child.mood = Mood::Refuses;
    if (step.kind == Step::Kind::Freezes) child.mood = Mood::Frozen;
    if (step.kind == Step::Kind::Slow) child.answersAfterMs = step.ms.value_or(0);
    if (step.kind == Step::Kind::Answers && !step.text.empty()) child.answer = step.text;
}

bool isUsual(const VirtualChild& child) {
    return child.answer == child.usualAnswer;
}

// Its usual answer would come at once; without a ping, it is there.
bool isUp(const VirtualChild& child, std::int64_t nowMs) {
    if (child.pingUri.empty()) return child.alive;
    return child.moodAt(nowMs) == Mood::Answers && isUsual(child) && child.answersAfterMs == 0;
}

}  // namespace

CTLRehearsal::CTLRehearsal(const CTLScenario& scenario, const Plan& plan,
                           std::function<void(std::string_view)> onLine)
    : m_scenario(scenario), m_plan(plan), m_onLine(std::move(onLine)) {}

CTLRehearsed CTLRehearsal::run(const CTLInstance& instance) {
    std::error_code error;
    std::filesystem::current_path(instance.bin(), error);
    if (error) throw CTLError(CTLError::kFailed, instance.bin().string() + ": " + error.message());
    m_deadline = std::chrono::steady_clock::now() + m_plan.realTime;
    m_simulation.begin(m_plan.day + static_cast<std::time_t>(m_scenario.startMs() / 1000));
    stage();
    runService();
    const std::int64_t endedMs = m_simulation.machine().nowMs();
    flush();
    if (!m_complaints.empty()) throw CTLError(CTLScenario::kBadScenario, m_complaints);
    return outcome(endedMs);
}

void CTLRehearsal::stage() {
    VirtualMachine& machine = m_simulation.machine();
    machine.listen([this](std::string_view line) { show(line); });
    machine.listenToEvents([this](const VirtualEvent& event) { note(event); });
    machine.listenToWaits([this] { checkRealTime(); });
    machine.onSupervision([this] { m_outcome.started = true; });
    machine.listenToGroup([this](int signal) {
        m_outcome.ownSignal = signal;
        const bool isHandled = signal == SIGTERM || signal == SIGINT || signal == SIGQUIT || signal == SIGHUP;
        if (!isHandled) endNow();
    });
    if (m_scenario.stopMs()) {
        machine.at(*m_scenario.stopMs() - m_scenario.startMs(), [this] { tellToStop(); });
    }
    machine.at(untilOf(m_scenario, m_plan) - m_scenario.startMs(), [this] { endNow(); });
}

// As the service's own process entry does.
void CTLRehearsal::runService() {
    std::vector<std::string> texts{"velbootstrapservice", "-d"};
    texts.insert(texts.end(), m_plan.arguments.begin(), m_plan.arguments.end());
    std::vector<char*> arguments;
    arguments.reserve(texts.size());
    for (std::string& text : texts)
        arguments.push_back(text.data());
    TVLIDOM_DOMImplementation::initialize();
    ZORLoggerFactory::getInstance()->simplePrepare(ZOR_FATAL, "../logs/zordefault.log");
    ZORCmdLine cmdLine(static_cast<int>(arguments.size()), arguments.data());
    {
        ZORBootstrapService service;
        m_simulation.machine().askForChildren([&] {
            auto children = CTLSimulation::childrenOf(service);
            meet(children);
            return children;
        });
        try {
            service.ParseStandardArgs(cmdLine, environ);
        } catch (const VirtualMachine::Endless&) {
            // It was told to end, and went on without an end.
        }
    }
    ZORCryptoHelper::TerminateCrypto();
    ZORLoggerFactory::getInstance()->reset();
}

// ---- The children ----

void CTLRehearsal::meet(const std::vector<VirtualChild>& children) {
    m_childrenAreKnown = true;
    for (const VirtualChild& child : children) {
        Tally tally;
        tally.child.name = child.name;
        tally.child.isPinged = !child.pingUri.empty();
        tally.isUp = false;
        m_tallies.push_back(tally);
    }
    for (const Step& step : m_scenario.steps()) {
        const auto child = std::find_if(children.begin(), children.end(),
                                        [&](const VirtualChild& each) { return each.name == step.child; });
        if (child != children.end()) {
            schedule(step, static_cast<std::size_t>(child - children.begin()));
            continue;
        }
        m_complaints += (m_complaints.empty() ? "" : "\n") + m_scenario.name() + ":" +
                        std::to_string(step.line) + ": the service has no child named \"" + step.child + "\"";
    }
    if (m_complaints.empty()) {
        flush();
    } else {
        m_held.clear();
        m_isOver = true;
        m_simulation.conclude();
    }
}

void CTLRehearsal::schedule(const Step& step, std::size_t child) {
    m_simulation.machine().at(step.atMs - m_scenario.startMs(), [this, &step, child] { apply(step, child); });
}

void CTLRehearsal::change(std::size_t child, const std::function<void(VirtualChild&)>& to) {
    m_simulation.machine().with([&](std::vector<VirtualChild>& children) { to(children[child]); });
    lookAt(child);
}

void CTLRehearsal::apply(const Step& step, std::size_t child) {
    if (m_isOver) return;
    const std::int64_t ms = step.ms.value_or(VirtualChild::kNever);
    if (step.kind == Step::Kind::Dies) return m_simulation.machine().end(child);
    if (step.kind == Step::Kind::ListensAfter)
        return change(child, [&](VirtualChild& one) { one.listensAfterMs = ms; });
    if (step.kind == Step::Kind::StopsIn)
        return change(child, [&](VirtualChild& one) { one.endsAfterMs = ms; });
    const int fault = ++m_tallies[child].fault;
    change(child, [&](VirtualChild& one) { setFault(one, step); });
    if (!step.untilMs) return;
    m_simulation.machine().at(*step.untilMs - m_scenario.startMs(), [this, child, fault] {
        if (m_tallies[child].fault == fault) change(child, [](VirtualChild& one) { one.recover(); });
    });
}

// ---- Counting ----

void CTLRehearsal::note(const VirtualEvent& event) {
    if (m_isOver || event.child >= m_tallies.size()) return;
    Tally& tally = m_tallies[event.child];
    if (event.kind == Kind::Killed) ++tally.child.kills;
    if (event.kind == Kind::Failed) ++tally.child.failedPings;
    if (event.kind == Kind::Answered) noteAnswer(tally, event);
    if (event.kind == Kind::Ended) lookAt(event.child);
    if (event.kind != Kind::Started) return;
    ++tally.child.starts;
    lookAt(event.child);
    const std::int64_t listensMs = m_simulation.machine().childNow(event.child).listensAfterMs;
    if (listensMs > 0)
        m_simulation.machine().at(event.atMs + listensMs, [this, event] { lookAt(event.child); });
}

void CTLRehearsal::noteAnswer(Tally& tally, const VirtualEvent& event) {
    if (!isUsual(m_simulation.machine().childNow(event.child))) {
        ++tally.child.otherAnswers;
        return;
    }
    if (m_isClosed) return;
    tally.child.longestUnansweredMs =
        std::max(tally.child.longestUnansweredMs, event.atMs - tally.answeredMs);
    tally.answeredMs = event.atMs;
}

void CTLRehearsal::lookAt(std::size_t child) {
    if (m_isClosed) return;
    const std::int64_t nowMs = m_simulation.machine().nowMs();
    Tally& tally = m_tallies[child];
    const bool wasUp = std::exchange(tally.isUp, isUp(m_simulation.machine().childNow(child), nowMs));
    if (!wasUp) tally.child.downMs += nowMs - tally.changedMs;
    tally.changedMs = nowMs;
}

// ---- Lines ----

// Lines of the log begin with the day of the week, what goes into a PID file with a digit.
void CTLRehearsal::show(std::string_view line) {
    if (m_isOver || line.empty() || std::isalpha(static_cast<unsigned char>(line.front())) == 0) return;
    if (m_childrenAreKnown) {
        m_onLine(line);
    } else {
        m_held += line;
    }
}

void CTLRehearsal::flush() {
    if (!m_held.empty()) m_onLine(m_held);
    m_held.clear();
}

// ---- The end ----

// From here on no child is missed.
void CTLRehearsal::tellToStop() {
    closeTallies();
    m_simulation.machine().raiseSignal(SIGTERM);
}

void CTLRehearsal::closeTallies() {
    if (m_isClosed) return;
    const std::int64_t nowMs = m_simulation.machine().nowMs();
    for (std::size_t child = 0; child < m_tallies.size(); ++child) {
        lookAt(child);
        CTLRehearsedChild& counted = m_tallies[child].child;
        const std::int64_t unansweredMs = nowMs - m_tallies[child].answeredMs;
        if (counted.isPinged)
            counted.longestUnansweredMs = std::max(counted.longestUnansweredMs, unansweredMs);
    }
    m_isClosed = true;
}

// What follows is only to bring the service's run to its end.
void CTLRehearsal::endNow() {
    if (m_isOver) return;
    closeTallies();
    m_overMs = m_simulation.machine().nowMs();
    m_isOver = true;
    m_simulation.conclude();
}

void CTLRehearsal::checkRealTime() {
    if (++m_waits % kWaitsBetweenLooks != 0 || m_isOver || std::chrono::steady_clock::now() < m_deadline)
        return;
    m_outcome.cutShort = true;
    endNow();
}

CTLRehearsed CTLRehearsal::outcome(std::int64_t endedMs) {
    const bool byItself = !m_isOver;
    if (byItself) endNow();
    m_outcome.startMs = m_scenario.startMs();
    m_outcome.endMs = m_outcome.startMs + (byItself ? endedMs : m_overMs);
    const bool wasTold = m_scenario.stopMs() && *m_scenario.stopMs() <= m_outcome.endMs;
    if (byItself && wasTold && m_outcome.started) m_outcome.stopMs = m_outcome.endMs - *m_scenario.stopMs();
    for (const Tally& tally : m_tallies)
        m_outcome.children.push_back(tally.child);
    return m_outcome;
}
