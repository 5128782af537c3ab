// A whole life of the service (start, ping, restart, ping, stop) in virtual time, with a signal or a death at each of
// its moments in turn.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

#include "ServiceLife.h"

namespace {

using ServiceMomentsTest = ServiceLifeTest;

const std::string kStatusOfCommand = "WARN PingChildProcess stopAction->execute() return status = 1";
const std::string kStatusOfSignal = "WARN PingChildProcess stopAction->execute() return status = 0";

std::vector<std::string> linesOf(const Life& life, const std::string& logger) {
    std::vector<std::string> lines;
    for (const std::string& line : life.lines) {
        if (line.find(" " + logger + " ") != std::string::npos) lines.push_back(line);
    }
    return lines;
}

// What the supervisor says from the moment it leaves its loop.
std::vector<std::string> supervisorsEnd(const Life& life) {
    std::vector<std::string> lines = linesOf(life, "PingChildProcess");
    lines.erase(lines.begin(),
                std::find(lines.begin(), lines.end(), "INFO PingChildProcess stopping child process(es)."));
    return lines;
}

// Whoever lives is asked to stop. When the round in progress has asked alpha already, it has gone by then.
std::vector<std::string> orderlyEnd(const Life& life) {
    std::vector<std::string> lines{"INFO PingChildProcess stopping child process(es).", kStatusOfCommand,
                                   kStatusOfCommand, kStatusOfSignal,
                                   "INFO PingChildProcess no processes are alive."};
    const bool asked =
        life.count("WARN PingChildProcess process alpha appears to still be alive, so stop it.") != 0;
    const bool replaced = life.count("WARN PingChildProcess restarting process alpha.") != 0;
    if (asked && !replaced) lines.erase(lines.begin() + 1);
    return lines;
}

// What the main and the signal thread tell under the service's name: either the children were ready before the
// supervisor ended, or the wait for them was given up.
std::vector<std::string> servicesLines(const Life& life) {
    std::vector<std::string> lines = linesOf(life, "ZORBootstrapService");
    lines.erase(lines.begin());  // which document was read
    return lines;
}

std::vector<std::string> expectedServicesLines(bool ready) {
    const std::string service = " ZORBootstrapService ";
    return {
        "INFO" + service + "Velmora Bootstrap Service running as process " + std::to_string(getpid()) + ".",
        ready ? "INFO" + service + "ZORBootstrapService::Run() - child process(es) is/are ready."
              : "ERROR" + service + "askPCPifReady() - some child processes got fatal errors, return -1.",
        "INFO" + service + "ZORBootstrapService::Run() - returned from m_semaMainThreadWait->wait()",
        "INFO" + service + "Done."};
}

bool saysWhatItShould(const Life& life) {
    const std::vector<std::string> said = servicesLines(life);
    return supervisorsEnd(life) == orderlyEnd(life) &&
           (said == expectedServicesLines(true) || said == expectedServicesLines(false));
}

TEST_F(ServiceMomentsTest, ALifeWithoutDisturbanceIsAsAgreed) {
    const Life life = live();
    EXPECT_EQ(complaintsAbout(life), "");
    EXPECT_EQ(life.starts, kChildren + 1);
    EXPECT_EQ(life.livingBeforeTheStop, kChildren);
    EXPECT_EQ(servicesLines(life), expectedServicesLines(true));
    EXPECT_EQ(supervisorsEnd(life), orderlyEnd(life));
    EXPECT_EQ(linesOf(life, "PingChildProcess")[3], "WARN PingChildProcess restarting process alpha.");
    EXPECT_GT(life.moments, 150) << "all the rest is about them";
}

// ---- Signals ----

class SignalMomentsTest : public ServiceMomentsTest, public testing::WithParamInterface<int> {};

TEST_P(SignalMomentsTest, ASignalAtAnyMomentEndsTheServiceInOrder) {
    const int moments = momentsOfALife();
    for (int at = 1; at <= moments; ++at) {
        const Life life = live([&](StagedOs& staged, int moment) {
            if (moment == at) raise(staged, GetParam());
        });
        ASSERT_EQ(complaintsAbout(life), "") << "at moment " << at << " of " << moments;
        ASSERT_TRUE(saysWhatItShould(life)) << "at moment " << at << "\n" << joined(life.lines);
    }
}

TEST_P(SignalMomentsTest, ASignalAtAnyMomentEndsAServiceWithAStartupDelayInOrder) {
    configure("startupDelaySec='1'");
    // Beyond the first round it is as without the delay.
    for (int at = 1; at <= 60; ++at) {
        const Life life = live([&](StagedOs& staged, int moment) {
            if (moment == at) raise(staged, GetParam());
        });
        ASSERT_EQ(complaintsAbout(life), "") << "at moment " << at;
        ASSERT_TRUE(saysWhatItShould(life)) << "at moment " << at << "\n" << joined(life.lines);
    }
}

INSTANTIATE_TEST_SUITE_P(Signal, SignalMomentsTest, testing::Values(SIGHUP, SIGINT, SIGQUIT, SIGTERM),
                         [](const auto& signal) { return std::string(sigabbrev_np(signal.param)); });

// How far the second signal is from the first, in moments.
class TwoSignalsTest : public ServiceMomentsTest, public testing::WithParamInterface<int> {};

TEST_P(TwoSignalsTest, ASecondSignalAtAnyMomentChangesNothing) {
    const int moments = momentsOfALife();
    for (int at = 1; at <= moments; ++at) {
        const Life life = live([&](StagedOs& staged, int moment) {
            if (moment == at || moment == at + GetParam()) raise(staged, SIGTERM);
        });
        ASSERT_EQ(complaintsAbout(life), "") << "at moment " << at;
        ASSERT_TRUE(saysWhatItShould(life)) << "at moment " << at << "\n" << joined(life.lines);
    }
}

INSTANTIATE_TEST_SUITE_P(Distance, TwoSignalsTest, testing::Values(1, 2, 7, 23));

// Process id -> how often it was killed.
std::map<int, int> killsOf(const Life& life) {
    std::map<int, int> killed;
    for (const VirtualOs::Kill& kill : life.kills) {
        if (kill.signal == SIGKILL) ++killed[kill.pid];
    }
    return killed;
}

TEST_F(ServiceMomentsTest, ASignalAtAnyMomentKillsStubbornChildrenOnceEach) {
    m_stubborn = {"alpha", "beta", "gamma"};
    const int moments = momentsOfALife();
    for (int at = 1; at <= moments; ++at) {
        const Life life = live([&](StagedOs& staged, int moment) {
            if (moment == at) raise(staged, SIGTERM);
        });
        ASSERT_EQ(complaintsAbout(life, kLongestKillMs), "") << "at moment " << at;
        const std::map<int, int> killed = killsOf(life);
        ASSERT_EQ(static_cast<int>(killed.size()), life.starts) << "at moment " << at;
        for (const auto& [pid, times] : killed)
            ASSERT_EQ(times, 1) << "process " << pid << ", at moment " << at;
    }
}

TEST_F(ServiceMomentsTest, ASignalAtAnyMomentKillsNobodyButTheStubbornOneAndStartsNobody) {
    m_stubborn = {"beta"};
    const int moments = momentsOfALife();
    for (int at = 1; at <= moments; ++at) {
        const Life life = live([&](StagedOs& staged, int moment) {
            if (moment == at) raise(staged, SIGTERM);
        });
        ASSERT_EQ(complaintsAbout(life, kLongestKillMs), "") << "at moment " << at;
        ASSERT_EQ(killsOf(life), (std::map<int, int>{{1002, 1}})) << "at moment " << at;
        ASSERT_LE(life.starts, kChildren + 1) << "at moment " << at;
    }
}

// ---- Deaths ----

enum class Dies { First, Last, All };

void PrintTo(Dies who, std::ostream* out) {
    *out << (who == Dies::First ? "First" : who == Dies::Last ? "Last" : "All");
}

void die(StagedOs& staged, Dies who) {
    const std::vector<pid_t> living = staged.livingProcesses();
    if (living.empty()) return;
    if (who == Dies::First) staged.endProcess(living.front());
    if (who == Dies::Last) staged.endProcess(living.back());
    if (who != Dies::All) return;
    for (const pid_t pid : living)
        staged.endProcess(pid);
}

class DeathMomentsTest : public ServiceMomentsTest, public testing::WithParamInterface<Dies> {
  protected:
    // Whoever dies earlier than this before the stop has been replaced by then.
    static constexpr std::int64_t kReplacedWithinMs = 40000;
};

TEST_P(DeathMomentsTest, WhoDiesAtAnyMomentIsReplacedOrNotMissed) {
    const int moments = momentsOfALife();
    for (int at = 1; at <= moments; ++at) {
        std::int64_t diedMs = 0;
        const Life life = live([&](StagedOs& staged, int moment) {
            if (moment != at) return;
            die(staged, GetParam());
            diedMs = staged.VirtualOs::nowMs();
        });
        ASSERT_EQ(complaintsAbout(life), "") << "at moment " << at;
        if (diedMs < kEndsMs - kReplacedWithinMs) {
            ASSERT_EQ(life.livingBeforeTheStop, kChildren) << "at moment " << at;
        }
        ASSERT_LE(life.starts, 2 * kChildren + 1) << "at moment " << at;
    }
}

TEST_P(DeathMomentsTest, WhoDiesAtTheMomentOfTheSignalIsNotMissed) {
    const int moments = momentsOfALife();
    for (int at = 1; at <= moments; ++at) {
        int startsBefore = 0;
        const Life life = live([&](StagedOs& staged, int moment) {
            if (moment != at) return;
            raise(staged, SIGTERM);
            die(staged, GetParam());
            startsBefore = staged.lastPid() - 1000;
        });
        ASSERT_EQ(complaintsAbout(life), "") << "at moment " << at;
        ASSERT_LE(life.starts, std::max(startsBefore, kChildren) + kChildren)
            << "the round in progress may replace them, no later one; at moment " << at;
    }
}

INSTANTIATE_TEST_SUITE_P(Who, DeathMomentsTest, testing::Values(Dies::First, Dies::Last, Dies::All),
                         testing::PrintToStringParamName());

TEST_F(ServiceMomentsTest, ChildrenThatDieAtEveryMomentAreReplacedInEveryRoundAndNoMore) {
    const Life life = live([](StagedOs& staged, int) { die(staged, Dies::All); });
    EXPECT_EQ(complaintsAbout(life), "");
    const std::int64_t rounds = kEndsMs / 30000;
    EXPECT_GE(life.starts, 2 * kChildren);
    EXPECT_LE(life.starts, kChildren * (rounds + 1));
}

}  // namespace
