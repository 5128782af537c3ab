#include "CTLLife.h"

#include <fcntl.h>

#include <algorithm>
#include <csignal>
#include <utility>

#include "ZORCmdLine.h"
#include "ZORPropertyInserter.h"

namespace {

using Kind = VirtualEvent::Kind;
using Mood = VirtualChild::Mood;

constexpr const char* kStopTried = "PingChildProcess stopAction->execute() return status";

Mood moodOf(CTLLife::Trouble trouble) {
    switch (trouble) {
        case CTLLife::Trouble::Refusal:
            return Mood::Refuses;
        case CTLLife::Trouble::Silence:
            return Mood::Silent;
        case CTLLife::Trouble::Freeze:
            return Mood::Frozen;
        case CTLLife::Trouble::Death:
            break;
    }
    return Mood::Answers;
}

void setMoods(std::vector<VirtualChild>& children, Mood mood) {
    for (VirtualChild& child : children)
        child.mood = mood;
}

std::string pidFile() {
    return ZORPropertyInserter::expanded("${install_path}/logs/velbootstrap_service.pid");
}

std::size_t lastPinged(const std::vector<VirtualChild>& children) {
    for (std::size_t child = children.size(); child-- > 0;) {
        if (!children[child].pingUri.empty()) return child;
    }
    return 0;
}

void noteFirst(std::optional<std::int64_t>& time, std::int64_t atMs) {
    if (!time) time = atMs;
}

// None as soon as one has none.
void takeLater(std::optional<std::int64_t>& time, const std::optional<std::int64_t>& other) {
    if (time) time = other ? std::optional(std::max(*time, *other)) : std::nullopt;
}

void take(CTLCourse& all, const CTLCourse& one) {
    takeLater(all.noticed, one.noticed);
    takeLater(all.stopped, one.stopped);
    takeLater(all.killed, one.killed);
    takeLater(all.started, one.started);
    takeLater(all.answered, one.answered);
}

// The courses of the children that are in trouble.
class Courses {
  public:
    Courses(const std::vector<VirtualChild>& children, std::size_t child, bool byDeath) : m_byDeath(byDeath) {
        for (std::size_t each = 0; each < children.size(); ++each) {
            m_isPinged.push_back(!children[each].pingUri.empty());
            if (child == each || (child == CTLLife::kAll && (byDeath || m_isPinged[each])))
                m_courses.emplace_back(each, CTLCourse{});
        }
    }

    void begin(std::int64_t atMs) { m_beginMs = atMs; }
    bool haveBegun() const { return m_beginMs >= 0; }

    void note(const VirtualEvent& event) {
        CTLCourse* const course = of(event.child);
        if (course == nullptr) return;
        const std::int64_t ms = event.atMs - m_beginMs;
        if (event.kind == (m_byDeath ? Kind::FoundGone : Kind::Failed)) noteFirst(course->noticed, ms);
        if (event.kind == Kind::Killed) noteFirst(course->killed, ms);
        if (event.kind == Kind::Started) noteFirst(course->started, ms);
        const Kind back = m_isPinged[event.child] ? Kind::Answered : Kind::Started;
        if (event.kind == back && course->started) noteFirst(course->answered, ms);
    }
    void noteStop(std::size_t child, std::int64_t atMs) {
        if (CTLCourse* const course = of(child); course != nullptr)
            noteFirst(course->stopped, atMs - m_beginMs);
    }

    // All that can be seen has been seen.
    bool areComplete() const {
        return std::all_of(m_courses.begin(), m_courses.end(),
                           [](const auto& entry) { return entry.second.answered.has_value(); });
    }
    CTLCourse together() const {
        if (m_courses.empty()) return {};
        CTLCourse all = m_courses.front().second;
        for (const auto& [child, course] : m_courses)
            take(all, course);
        return all;
    }

  private:
    CTLCourse* of(std::size_t child) {
        const auto found = std::find_if(m_courses.begin(), m_courses.end(),
                                        [&](const auto& entry) { return entry.first == child; });
        return found == m_courses.end() || !haveBegun() ? nullptr : &found->second;
    }

    bool m_byDeath;
    std::int64_t m_beginMs = -1;
    std::vector<bool> m_isPinged;
    std::vector<std::pair<std::size_t, CTLCourse>> m_courses;
};

}  // namespace

// What is done in a life. Each is called while time stands still.
struct CTLLife::Watch {
    std::function<void(std::vector<VirtualChild>&)> onChildren{};
    std::function<void(const VirtualEvent&)> onEvent{};
    std::function<void(std::size_t child, std::int64_t atMs)> onStopTried{};
    std::function<void()> onWait{};
    std::int64_t mostMs = kDayMs;
    std::size_t lookedAt = 0;
    bool isOver = false;
    std::int64_t endedMs = 0;
};

void CTLLife::begin(Watch& watch, ZORBootstrapService& service) {
    VirtualMachine& machine = m_simulation.machine();
    machine.askForChildren([&] {
        auto children = CTLSimulation::childrenOf(service);
        if (watch.onChildren) watch.onChildren(children);
        return children;
    });
    machine.listenToEvents([&](const VirtualEvent& event) {
        if (event.kind == Kind::Looked) watch.lookedAt = event.child;
        if (watch.onEvent && !watch.isOver) watch.onEvent(event);
    });
    machine.listen([&](std::string_view line) {
        const bool isStop =
            watch.onStopTried && !watch.isOver && line.find(kStopTried) != std::string_view::npos;
        if (isStop) watch.onStopTried(watch.lookedAt, machine.nowMs());
    });
    machine.listenToWaits([&] {
        if (watch.onWait && !watch.isOver) watch.onWait();
    });
    machine.at(watch.mostMs, [&] { conclude(watch); });
    // Whether a start waits for ever is another question, and each look at the marker would keep it open.
    machine.unlinkat(AT_FDCWD, ZORPropertyInserter::expanded("${temp}/zordaemonwait").c_str(), 0);
}

void CTLLife::conclude(Watch& watch) {
    if (watch.isOver) return;
    watch.isOver = true;
    m_simulation.conclude();
}

void CTLLife::live(Watch& watch) {
    m_simulation.begin();
    ZORBootstrapService service;
    begin(watch, service);
    if (service.OnInit() == 0) return;
    try {
        service.Run();
    } catch (const VirtualMachine::Endless&) {
        // It has been told to end long ago.
    }
    watch.endedMs = m_simulation.machine().nowMs();
}

// ---- Trouble ----

CTLCourse CTLLife::afterTrouble(Trouble trouble, std::size_t child, VirtualEvent::Kind moment) {
    std::optional<Courses> courses;
    std::size_t observed = child;
    int seen = 0;
    Watch watch;
    watch.onChildren = [&](const std::vector<VirtualChild>& children) {
        courses.emplace(children, child, trouble == Trouble::Death);
        if (child == kAll) observed = lastPinged(children);
    };
    watch.onEvent = [&](const VirtualEvent& event) {
        courses->note(event);
        if (courses->haveBegun()) {
            if (courses->areComplete()) conclude(watch);
        } else if (event.child == observed && event.kind == moment && ++seen == 2) {
            courses->begin(event.atMs);
            bring(trouble, child);
        }
    };
    watch.onStopTried = [&](std::size_t stopped, std::int64_t atMs) { courses->noteStop(stopped, atMs); };
    live(watch);
    return courses ? courses->together() : CTLCourse{};
}

void CTLLife::bring(Trouble trouble, std::size_t child) {
    std::size_t count = 0;
    m_simulation.machine().with([&](std::vector<VirtualChild>& children) {
        count = children.size();
        for (std::size_t each = 0; each < count; ++each) {
            if (child != each && child != kAll) continue;
            children[each].mood = moodOf(trouble);
            children[each].endsWithProcess = true;
        }
    });
    for (std::size_t each = 0; trouble == Trouble::Death && each < count; ++each) {
        if (child == each || child == kAll) m_simulation.machine().end(each);
    }
}

CTLCourse CTLLife::neverListening(std::size_t child) {
    std::optional<Courses> courses;
    Watch watch;
    watch.onChildren = [&](std::vector<VirtualChild>& children) {
        courses.emplace(children, child, false);
        children[child].listensAfterMs = VirtualChild::kNever;
    };
    watch.onWait = [&] {
        if (!courses->haveBegun()) courses->begin(m_simulation.machine().nowMs());
    };
    watch.onEvent = [&](const VirtualEvent& event) {
        courses->note(event);
        if (courses->haveBegun() && event.kind == Kind::Started && event.child == child) conclude(watch);
    };
    watch.onStopTried = [&](std::size_t stopped, std::int64_t atMs) { courses->noteStop(stopped, atMs); };
    live(watch);
    return courses ? courses->together() : CTLCourse{};
}

// ---- Stops ----

std::optional<std::int64_t> CTLLife::stop(Mood mood, bool atOnce, int round, std::int64_t beforeMs) {
    std::int64_t signalledMs = -1;
    int waits = 0;
    const int first = atOnce ? 0 : 1;  // rounds before the trouble
    VirtualMachine* machine = nullptr;
    Watch watch;
    const auto signal = [&](std::int64_t nowMs) {
        if (signalledMs >= 0) return;
        signalledMs = nowMs;
        machine->raiseSignal(SIGTERM);
    };
    watch.onChildren = [&](std::vector<VirtualChild>& children) {
        machine = &m_simulation.machine();
        if (atOnce) setMoods(children, mood);
        machine->at(beforeMs, [&] {
            if (signalledMs < 0) conclude(watch);
        });
    };
    watch.onWait = [&] {
        if (++waits == first + 1 && !atOnce)
            machine->with([&](std::vector<VirtualChild>& children) { setMoods(children, mood); });
    };
    watch.onEvent = [&](const VirtualEvent& event) {
        if (round == 0 ? event.kind == Kind::Started : waits == first + round) signal(event.atMs);
    };
    live(watch);
    if (watch.isOver || signalledMs < 0) return std::nullopt;
    return watch.endedMs - signalledMs;
}

int CTLLife::roundOfRestart(Mood mood) {
    int waits = 0;
    int round = 1;
    Watch watch;
    watch.onWait = [&] {
        if (++waits == 2)
            m_simulation.machine().with(
                [&](std::vector<VirtualChild>& children) { setMoods(children, mood); });
    };
    watch.onStopTried = [&](std::size_t /*child*/, std::int64_t /*atMs*/) {
        round = waits - 1;
        conclude(watch);
    };
    live(watch);
    return round;
}

// ---- Commands ----

std::optional<std::int64_t> CTLLife::command(
    Watch& watch, const std::vector<std::string>& options,
    const std::function<void(ZORBootstrapService&, ZORCmdLine&)>& given) {
    ZORBootstrapService service;
    begin(watch, service);
    std::vector<std::string> texts{"velbootstrapservice"};
    texts.insert(texts.end(), options.begin(), options.end());
    std::vector<char*> arguments;
    arguments.reserve(texts.size());
    for (std::string& text : texts)
        arguments.push_back(text.data());
    ZORCmdLine cmdLine(static_cast<int>(arguments.size()), arguments.data());
    try {
        given(service, cmdLine);
    } catch (const VirtualMachine::Endless&) {
        return std::nullopt;
    }
    return watch.isOver ? std::nullopt : std::optional(m_simulation.machine().nowMs());
}

std::optional<std::int64_t> CTLLife::startCommand(Mood mood, const std::vector<std::string>& options) {
    Watch watch;
    watch.onChildren = [&](std::vector<VirtualChild>& children) { setMoods(children, mood); };
    m_simulation.begin().beDaemon(pidFile());
    return command(watch, options,
                   [](ZORBootstrapService& service, ZORCmdLine& cmdLine) { service.startDaemon(cmdLine); });
}

std::optional<std::int64_t> CTLLife::stopCommand(const std::vector<std::string>& options) {
    Watch watch;
    VirtualMachine& machine = m_simulation.begin();
    machine.place(pidFile(), std::to_string(machine.VirtualOs::fork()) + "\n");
    return command(watch, options, [](ZORBootstrapService& service, ZORCmdLine& cmdLine) {
        service.stopRunningUnix(cmdLine);
    });
}
