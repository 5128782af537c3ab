// Each call through the doorway fails once in its turn, and from there on, through a whole life of the service. What
// holds then is in docs/faults.md.
#include <algorithm>
#include <cerrno>
#include <map>
#include <sstream>

#include "ChosenUses.h"
#include "ResultTable.h"
#include "ServiceLife.h"

namespace {

// How a kind's refusal shows beyond what holds for all.
struct Effect {
    int error = EIO;
    bool leavesProcesses = false;  // children cannot be ended, or cannot be known to live
    bool leavesPidFile = false;
    bool losesLines = false;
    int spared = 0;         // of the last uses
    bool isForEver = true;  // a run in which it fails from some use on comes to an end by itself
};

Effect effectOf(OsKind kind) {
    switch (kind) {
        case OsKind::Signal:
            return {.error = EPERM, .leavesProcesses = true};
        case OsKind::TestProcess:
            // Who cannot be looked at counts as gone, and gets a successor.
            return {.error = EPERM, .leavesProcesses = true};
        case OsKind::Fork:
            return {.error = EAGAIN};
        case OsKind::StartThread:
            return {.error = EAGAIN};
        case OsKind::Remove:
            return {.error = EBUSY, .leavesPidFile = true};
        case OsKind::Open:
            return {.error = EMFILE, .leavesPidFile = true};
        // Whoever is asked to wait for a signal and is not let wait asks again: there is nothing else to do.
        case OsKind::WaitForSignal:
            return {.isForEver = false};
        // Whose the PID file is cannot be told.
        case OsKind::Status:
            return {.leavesPidFile = true};
        case OsKind::WriteStream:
            return {.error = ENOSPC, .losesLines = true};
        // The last are those for the ends of the two threads. Where they are refused the system's own join is the wait,
        // which virtual time cannot see.
        case OsKind::Wait:
            return {.error = EINVAL, .spared = 2, .isForEver = false};
        default:
            return {};
    }
}

class RefusedServiceTest : public ServiceLifeTest, public testing::WithParamInterface<OsKind> {
  protected:
    struct Tally {
        int once = 0;
        int fromThere = 0;
        std::map<std::string, int> outcomes;
    };

    int usesInALife() {
        int uses = 0;
        m_refuse = nullptr;
        m_look = [&](FailingOs& failing) { uses = failing.uses(GetParam()); };
        EXPECT_EQ(complaintsAbout(live()), "");
        return uses;
    }

    Life liveRefusing(int number, bool fromThere) {
        const int error = effectOf(GetParam()).error;
        m_refuse = [=](FailingOs& failing) {
            if (fromThere)
                failing.failFrom(GetParam(), number, error);
            else
                failing.failNth(GetParam(), number, error);
        };
        m_look = nullptr;
        return live();
    }

    // What holds whatever was refused.
    static std::string complaints(const Life& life, const Effect& effect) {
        std::ostringstream text;
        if (life.descriptorsKept != 0) text << life.descriptorsKept << " descriptors kept\n";
        if (life.threadsKept != 0) text << life.threadsKept << " threads kept\n";
        if (life.handlesKept != 0) text << life.handlesKept << " connections kept\n";
        if (life.detailsKept != 0) text << life.detailsKept << " detail texts kept\n";
        if (!life.left.empty() && !effect.leavesProcesses) text << life.left.size() << " processes left\n";
        if (life.pidFileLeft && !effect.leavesPidFile) text << "the PID file is left\n";
        const bool isSignalled = life.signalledMs >= 0;
        if (isSignalled && life.endedMs - life.signalledMs > kIntervalMs + kLongestKillMs)
            text << "signalled at " << life.signalledMs << ", ended at " << life.endedMs << "\n";
        if (life.initialized && isSignalled && !effect.losesLines &&
            life.count("INFO ZORBootstrapService Done.") != 1)
            text << "it has not said that it is done\n";
        if (text.str().empty()) return "";
        return text.str() + "--- log\n" + joined(life.lines);
    }

    static std::string outcomeOf(const Life& life) {
        if (!life.initialized) return "not initialised";
        if (life.signalledMs < 0) return "ended before the signal";
        return complaintsAbout(life, kIntervalMs + kLongestKillMs).empty() ? "as ever"
                                                                           : "served, and stopped";
    }

    void expectHarmless(int number, bool fromThere, Tally& tally) {
        const Life life = liveRefusing(number, fromThere);
        ++tally.outcomes[outcomeOf(life)];
        ++(fromThere ? tally.fromThere : tally.once);
        EXPECT_EQ(complaints(life, effectOf(GetParam())), "")
            << nameOf(GetParam()) << " " << number << (fromThere ? " and all after it" : "");
    }
};

TEST_P(RefusedServiceTest, TheServiceEndsInOrderAndKeepsNothing) {
    const int uses = usesInALife();
    EXPECT_GT(uses, 0) << "no life uses it";
    Tally tally;
    for (const int number : chosenUses(std::max(0, uses - effectOf(GetParam()).spared), 12))
        expectHarmless(number, false, tally);
    if (effectOf(GetParam()).isForEver) {
        for (const int number : chosenUses(uses, 6))
            expectHarmless(number, true, tally);
    }
    std::string outcomes;
    for (const auto& [outcome, times] : tally.outcomes)
        outcomes += (outcomes.empty() ? "" : ", ") + outcome + " (" + std::to_string(times) + ")";
    ResultTable("faults", {"kind", "uses in a life", "failed once", "failed from there on", "outcomes"})
        .add({nameOf(GetParam()), std::to_string(uses), std::to_string(tally.once),
              std::to_string(tally.fromThere), outcomes});
    EXPECT_EQ(complaintsAbout(liveRefusing(0, false)), "") << "the next life is as ever";
}

// Those that such a life uses; RefusedCalls_test.cpp has the others.
INSTANTIATE_TEST_SUITE_P(Kinds, RefusedServiceTest,
                         testing::Values(OsKind::Open, OsKind::OpenStream, OsKind::Read, OsKind::WriteStream,
                                         OsKind::Status, OsKind::NamedStatus, OsKind::Truncate,
                                         OsKind::ChangeMode, OsKind::Remove, OsKind::Fork, OsKind::Signal,
                                         OsKind::TestProcess, OsKind::StartThread, OsKind::WaitForSignal,
                                         OsKind::Wait),
                         [](const auto& kind) { return std::string(nameOf(kind.param)); });

}  // namespace
