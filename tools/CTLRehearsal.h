// A stretch of the service's life in virtual time, with what a scenario says.
//
// Purpose: runs the service as its command line would, from the documents of an instance on, while its children do what
//   the scenario says, and counts what came of it. The lines that it would log are handed on as they are written, with
//   their times. Nothing of the instance is changed, no process is made and no connection opened.
// Ownership: references to what it is given; the simulation lives as long as run() takes.
// Threads: the main thread; the service's own, which have ended when run() returns. Lines come from any of them, one at a
//   time. One in a process, because the service's properties and its log are the process's.
// Units: milliseconds since 00:00 of the day, as the scenario has them; the day in seconds since the epoch.
// Errors: CTLError when the folder cannot be entered, or the scenario names a child that the service does not have.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CTLScenario.h"
#include "CTLSimulation.h"

class CTLInstance;

// What came of a child.
struct CTLRehearsedChild {
    std::string name{};
    bool isPinged = false;
    int starts = 0;
    int kills = 0;
    int failedPings = 0;
    int otherAnswers = 0;  // than the usual one
    // It was not able to give its usual answer at once, or, without a ping, not there.
    std::int64_t downMs = 0;
    std::int64_t longestUnansweredMs = 0;  // between two usual answers
};

struct CTLRehearsed {
    bool started = false;  // the service went on with its documents
    std::int64_t startMs = 0;
    std::int64_t endMs = 0;
    std::optional<std::int64_t> stopMs{};  // what the stop took; none when it was not stopped
    std::optional<int> ownSignal{};        // that it sent to itself with its whole group
    bool cutShort = false;                 // the real time was over
    std::vector<CTLRehearsedChild> children{};
};

class CTLRehearsal {
  public:
    struct Plan {
        std::time_t day = 0;                    // its beginning
        std::optional<std::int64_t> untilMs{};  // none: a day, or an hour after the last step
        std::vector<std::string> arguments{};   // further ones of the service's command line
        std::chrono::seconds realTime{60};      // at most
    };

    CTLRehearsal(const CTLScenario& scenario, const Plan& plan, std::function<void(std::string_view)> onLine);

    CTLRehearsed run(const CTLInstance& instance);

  private:
    // What is counted of a child while time passes.
    struct Tally {
        CTLRehearsedChild child;
        int fault = 0;  // the latest, so that the end of an earlier one ends nothing
        bool isUp = true;
        std::int64_t changedMs = 0;
        std::int64_t answeredMs = 0;
    };

    void stage();
    void runService();
    void meet(const std::vector<VirtualChild>& children);
    void schedule(const CTLScenarioStep& step, std::size_t child);
    void apply(const CTLScenarioStep& step, std::size_t child);
    void change(std::size_t child, const std::function<void(VirtualChild&)>& to);
    void note(const VirtualEvent& event);
    void noteAnswer(Tally& tally, const VirtualEvent& event);
    void lookAt(std::size_t child);
    void show(std::string_view line);
    void flush();
    void tellToStop();
    void closeTallies();
    void endNow();
    void checkRealTime();
    CTLRehearsed outcome(std::int64_t endedMs);

    const CTLScenario& m_scenario;
    const Plan& m_plan;
    std::function<void(std::string_view)> m_onLine;
    CTLSimulation m_simulation;
    std::vector<Tally> m_tallies;
    std::string m_held;  // lines, until the children are known
    std::string m_complaints;
    bool m_childrenAreKnown = false;
    bool m_isClosed = false;  // nobody's time is counted any more
    std::atomic<bool> m_isOver{false};
    CTLRehearsed m_outcome;
    std::int64_t m_overMs = 0;
    std::chrono::steady_clock::time_point m_deadline;
    unsigned m_waits = 0;
};
