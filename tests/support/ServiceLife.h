// A whole life of the service (start, ping, restart, ping, stop) in virtual time, and what holds for each.
//
// Purpose: a fixture for tests that disturb such a life, at any of its moments or by refusing calls: alpha falls silent,
//   is asked to stop and started again; in the end a signal comes.
// Threads: a life has the service's own.
// Units: milliseconds of virtual time.
#pragma once

#include <algorithm>
#include <atomic>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "FailingOs.h"
#include "StagedOs.h"
#include "TestWorld.h"

inline constexpr std::int64_t kFallsSilentMs = 40000;
inline constexpr std::int64_t kEndsMs = 150000;

// From a signal to the end of the run, at the longest: the round in progress with two pings, a stop action and a start
// pause; two stop actions, the looks at what still runs, and the main thread's next question for readiness.
inline constexpr std::int64_t kLongestStopMs = 3 * 2000 + 3000 + 2 * 2000 + 500 + 6000 + 1;
// A signal that comes before the supervisor first waits is noticed at the end of that wait.
inline constexpr std::int64_t kIntervalMs = 30000;
// With children that have to be killed.
inline constexpr std::int64_t kLongestKillMs = kLongestStopMs + 3000;

inline constexpr int kChildren = 3;

// What a life has come to.
struct Life {
    bool initialized = false;
    bool thrown = false;  // it was left by an exception for want of memory
    int result = 0;
    int moments = 0;
    std::int64_t signalledMs = -1;  // when the first signal was raised
    std::int64_t endedMs = 0;
    bool supervised = false;         // the supervisor was at work when it was told to stop
    std::vector<std::string> lines;  // "LEVEL LOGGER text" of everything above DEBUG
    std::vector<std::string> wrongs;
    std::vector<VirtualOs::Kill> kills;
    std::vector<pid_t> left;      // processes that still run
    int starts = 0;               // processes that were made
    int livingBeforeTheStop = 0;  // right before the signal that ends every life
    bool pidFileDuringTheStop = true;
    bool pidFileLeft = false;
    std::size_t descriptorsKept = 0;
    int handlesKept = 0;
    int detailsKept = 0;
    int threadsKept = 0;

    std::size_t count(const std::string& line) const {
        return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
    }
};

std::string joined(const std::vector<std::string>& lines);

class ServiceLifeTest : public WorldTest {
  protected:
    using Action = std::function<void(StagedOs&, int moment)>;

    ServiceLifeTest();

    void configure(const std::string& rootAttributes);

    // Alpha falls silent, is asked to stop and started again; in the end a signal comes.
    Life live(const Action& action = {});

    void raise(StagedOs& staged, int signal);

    // How many moments an undisturbed life has; threads that run at the same time may make it a few more or fewer.
    int momentsOfALife() { return live().moments + 5; }

    static std::string complaintsAboutLines(const Life& life);

    // What holds for every life, whatever has happened in it; empty when it does.
    static std::string complaintsAbout(const Life& life, std::int64_t longestStopMs = kLongestStopMs);

    std::set<std::string> m_stubborn;  // children that do not end before they are killed
    std::atomic<std::int64_t> m_signalledMs{-1};
    // Called before a life begins, and when it has ended.
    std::function<void(FailingOs&)> m_refuse;
    std::function<void(FailingOs&)> m_look;
    // Called before the service's own code begins to run, and when it has ended, however it has.
    std::function<void()> m_enter;
    std::function<void()> m_leave;

  private:
    void run(StagedOs& staged, ZORBootstrapService& lived, Life& life, const Action& action);

    // False when it has thrown what there is no memory for.
    bool carryOut(const std::function<void()>& step) const;

    void prepare(StagedOs& staged, ZORBootstrapService& lived, Life& life);

    void takeStop(StagedOs& staged, ZORBootstrapService& lived, Life& life, const std::string& name);

    void note(StagedOs& staged, Life& life);
};
