#include "CTLBudget.h"

#include <algorithm>
#include <array>
#include <map>
#include <utility>

#include "CTLLife.h"
#include "CTLPreparation.h"
#include "ZORLogger.h"

namespace {

using Time = std::optional<std::int64_t>;
using Kind = VirtualEvent::Kind;
using Mood = VirtualChild::Mood;
using Trouble = CTLLife::Trouble;

struct NamedTrouble {
    Trouble trouble;
    const char* name;
};
constexpr std::array kTroubles{
    NamedTrouble{Trouble::Death, "death"}, NamedTrouble{Trouble::Refusal, "refusal"},
    NamedTrouble{Trouble::Silence, "silence"}, NamedTrouble{Trouble::Freeze, "freeze"}};

struct NamedMoment {
    Kind moment;
    const char* words;
};
constexpr std::array kMoments{NamedMoment{Kind::Answered, "right after a good ping"},
                              NamedMoment{Kind::Looked, "right after it was seen alive"},
                              NamedMoment{Kind::Connected, "in the midst of a ping"}};

constexpr const char* kNotWithinADay = "not within a day";
constexpr const char* kSilent = "the children are silent";
constexpr const char* kFrozen = "the children are frozen";
constexpr const char* kSluggish = "each step takes as long as it may";

// The readiness of the children is asked for so long; a stop in that time is noticed later.
constexpr std::int64_t kGettingReadyMs = 300000;
constexpr int kMostRounds = 40;

// What the lives say is heard by nobody but who watches them.
class Quiet {
  public:
    Quiet() : m_level(ZORLoggerFactory::getInstance()->getLevel()) {
        ZORLoggerFactory::getInstance()->setLevel(ZOR_WARN);
    }
    ~Quiet() { ZORLoggerFactory::getInstance()->setLevel(m_level); }
    Quiet(const Quiet&) = delete;
    Quiet& operator=(const Quiet&) = delete;

  private:
    int m_level;
};

// The longest time of a row, and what it comes from.
class Worst {
  public:
    void take(Time time, const char* why) {
        const bool isWorse = !m_isTaken || (m_time && (!time || *time > *m_time));
        if (isWorse) {
            m_time = time;
            m_why = time ? why : kNotWithinADay;
        }
        m_isTaken = true;
    }
    void take(const Worst& other) {
        if (other.m_isTaken) take(other.m_time, other.m_why.c_str());
    }
    bool isWorseThan(const Worst& other) const {
        return !m_time || (other.m_time && *m_time > *other.m_time);
    }
    CTLBudgetRow row(const std::string& child, const std::string& what) const {
        return {child, what, m_time, m_why};
    }

  private:
    bool m_isTaken = false;
    Time m_time;
    std::string m_why;
};

class Rows {
  public:
    explicit Rows(CTLSimulation& simulation) : m_life(simulation) {}

    void addChild(std::size_t index, const VirtualChild& child) {
        const bool isPinged = !child.pingUri.empty();
        for (const NamedTrouble& each : kTroubles) {
            if (isPinged || each.trouble == Trouble::Death) {
                addTrouble(each, index, child.name, isPinged);
            } else {
                m_rows.push_back({child.name, std::string(each.name) + ": noticed", {}, "it has no ping"});
            }
        }
        if (isPinged) addFreshStart(index, child.name);
    }

    void addAll(const std::vector<VirtualChild>& children) {
        const bool anyPinged = std::any_of(children.begin(), children.end(),
                                           [](const auto& child) { return !child.pingUri.empty(); });
        for (const NamedTrouble& each : kTroubles) {
            if (anyPinged || each.trouble == Trouble::Death) addTrouble(each, CTLLife::kAll, {}, anyPinged);
        }
        addCommands();
        addStops();
    }

    std::vector<CTLBudgetRow> take() { return std::move(m_rows); }

  private:
    void addTrouble(const NamedTrouble& named, std::size_t child, const std::string& name, bool isPinged) {
        Worst noticed;
        Worst stopped;
        Worst killed;
        Worst again;
        for (const NamedMoment& each : kMoments) {
            if (!isPinged && each.moment != Kind::Looked) continue;
            const CTLCourse course = m_life.afterTrouble(named.trouble, child, each.moment);
            noticed.take(course.noticed, each.words);
            stopped.take(course.stopped, each.words);
            killed.take(course.killed, each.words);
            again.take(course.answered, each.words);
        }
        const std::string prefix = std::string(named.name) + ": ";
        add(noticed, name, prefix + "noticed");
        if (named.trouble != Trouble::Death) {
            add(stopped, name, prefix + "told to stop");
            add(killed, name, prefix + "killed");
        }
        add(again, name, prefix + (isPinged ? "answers again" : "started again"));
    }

    // What is told of all is never less than what is told of one.
    void add(Worst time, const std::string& name, const std::string& what) {
        Worst& known = m_known[what];
        if (name.empty()) {
            time.take(known);
        } else {
            known.take(time);
        }
        m_rows.push_back(time.row(name, what));
    }

    void addFreshStart(std::size_t index, const std::string& name) {
        const CTLCourse course = m_life.neverListening(index);
        Worst stopped;
        Worst killed;
        stopped.take(course.stopped, "never listens, from the first wait of the service on");
        killed.take(course.killed, "never listens, from the first wait of the service on");
        m_rows.push_back(stopped.row(name, "fresh start: told to stop"));
        m_rows.push_back(killed.row(name, "fresh start: killed"));
    }

    void addCommands() {
        Worst start;
        start.take(m_life.startCommand(Mood::Refuses), "20 checks, 6 s apart; the children refuse");
        start.take(m_life.startCommand(Mood::Silent), "20 checks, 6 s apart; the children are silent");
        start.take(m_life.startCommand(Mood::Frozen), "20 checks, 6 s apart; the children are frozen");
        m_rows.push_back(start.row({}, "-start: at the longest"));
        Worst stop;
        stop.take(m_life.stopCommand(), "20 checks, 6 s apart; the service does not end");
        m_rows.push_back(stop.row({}, "-stop: at the longest"));
        start.take(m_life.startCommand(Mood::Sluggish), kSluggish);
        start.take(m_life.startCommand(Mood::Stuck), kSluggish);
        m_rows.push_back(start.row({}, "TimeoutStartSec"));
    }

    void addStops() {
        Worst stop;
        stop.take(m_life.stop(Mood::Silent, true, 0, CTLLife::kDayMs), "told while the children are started");
        Worst frozen;
        takeLaterStops(frozen, Mood::Frozen, kFrozen);
        takeLaterStops(stop, Mood::Silent, kSilent);
        const bool isFrozenWorse = frozen.isWorseThan(stop);
        stop.take(frozen);
        takeEarlyStops(stop, isFrozenWorse ? Mood::Frozen : Mood::Silent, isFrozenWorse ? kFrozen : kSilent);
        m_rows.push_back(stop.row({}, "stop"));
        for (const Mood mood : {Mood::Sluggish, Mood::Stuck}) {
            takeLaterStops(stop, mood, kSluggish);
            takeEarlyStops(stop, mood, kSluggish);
        }
        m_rows.push_back(stop.row({}, "TimeoutStopSec"));
    }

    // Told in a round of a service whose children had been well: in the first after that, and in those of a restart.
    void takeLaterStops(Worst& stop, Mood mood, const char* words) {
        const int restart = m_life.roundOfRestart(mood);
        for (const int round : {1, restart, restart + 1, restart + 2}) {
            const Time time = m_life.stop(mood, false, round, CTLLife::kDayMs);
            if (time) stop.take(time, words);
        }
    }

    // Told in each round while children that never get ready are still waited for.
    void takeEarlyStops(Worst& stop, Mood mood, const char* words) {
        for (int round = 1; round <= kMostRounds; ++round) {
            const Time time = m_life.stop(mood, true, round, kGettingReadyMs);
            if (!time) break;
            stop.take(time, words);
        }
    }

    CTLLife m_life;
    std::map<std::string, Worst> m_known;  // of the children, by row
    std::vector<CTLBudgetRow> m_rows;
};

}  // namespace

std::vector<CTLBudgetRow> CTLBudget::of(CTLPreparation& preparation) {
    if (!preparation.isUsable()) return {};
    const Quiet quiet;
    CTLSimulation simulation;
    Rows rows(simulation);
    const std::vector<VirtualChild> children = CTLSimulation::childrenOf(preparation.service());
    for (std::size_t child = 0; child < children.size(); ++child)
        rows.addChild(child, children[child]);
    rows.addAll(children);
    return rows.take();
}
