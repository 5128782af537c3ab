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

#include "StagedOs.h"
#include "TestWorld.h"

namespace {

constexpr std::int64_t kFallsSilentMs = 40000;
constexpr std::int64_t kEndsMs = 150000;

// From a signal to the end of the run, at the longest: the round in progress with two pings, a stop action and a start
// pause; two stop actions, the looks at what still runs, and the main thread's next question for readiness.
constexpr std::int64_t kLongestStopMs = 3 * 2000 + 3000 + 2 * 2000 + 500 + 6000 + 1;
// A signal that comes before the supervisor first waits is noticed at the end of that wait.
constexpr std::int64_t kIntervalMs = 30000;
// With children that have to be killed.
constexpr std::int64_t kLongestKillMs = kLongestStopMs + 3000;

constexpr int kChildren = 3;

std::size_t openDescriptors() {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                                                  std::filesystem::directory_iterator()));
}

// What a life has come to.
struct Life {
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

// Cheaper than taking all lines apart: nearly all are DEBUG.
std::vector<std::string> linesAboveDebug(const std::string& log) {
    constexpr std::size_t kLevelAt = 26;
    std::vector<std::string> lines;
    std::istringstream text(log);
    for (std::string line; std::getline(text, line);) {
        if (line.size() <= kLevelAt || line.compare(kLevelAt, 5, "DEBUG") == 0) continue;
        const std::size_t rest = line.find("] ", kLevelAt);
        if (rest == std::string::npos) continue;
        const std::string level = line.substr(kLevelAt, line.find(' ', kLevelAt) - kLevelAt);
        lines.push_back(level + " " + line.substr(rest + 2));
    }
    return lines;
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

using Action = std::function<void(StagedOs&, int moment)>;

class ServiceMomentsTest : public WorldTest {
  protected:
    ServiceMomentsTest() {
        setProperty("install_path", folder.path().c_str());
        setProperty("bin_path", folder.path("bin").c_str());
        setProperty("temp", folder.path("temp").c_str());
        setProperty("dispatcherPingTimeout", "30");
        setProperty("dispatcherStopWaitTime", "3");
        configure("");
    }

    void configure(const std::string& rootAttributes) {
        ChildXml alpha{"alpha"};
        alpha.spawnAttributes = "sync='3'";  // a pause after the start
        const ChildXml gamma{.name = "gamma", .ping = false, .stopType = "signal"};
        folder.write("bin/bootstrap_linuxi38632.xml",
                     documentText({alpha, ChildXml{"beta"}, gamma}, "<processManager pollIntervalsec='30'/>",
                                  rootAttributes));
    }

    // Alpha falls silent, is asked to stop and started again; in the end a signal comes.
    Life live(const Action& action = {}) {
        Life life;
        sek.reset();
        log.clear();
        m_signalledMs = -1;
        const std::size_t descriptors = openDescriptors();
        {
            StagedOs staged;
            ZORBootstrapService lived;
            EXPECT_EQ(lived.OnInit(), 1);
            prepare(staged, lived, life);
            staged.watch([&](int moment) {
                if (action) action(staged, moment);
            });
            life.result = lived.Run();
            staged.watchNoMore();
            note(staged, life);
        }
        life.descriptorsKept = openDescriptors() - descriptors;
        return life;
    }

    void raise(StagedOs& staged, int signal) {
        std::int64_t none = -1;
        m_signalledMs.compare_exchange_strong(none, staged.VirtualOs::nowMs());
        staged.raiseSignal(signal);
    }

    // How many moments an undisturbed life has; threads that run at the same time may make it a few more or fewer.
    int momentsOfALife() { return live().moments + 5; }

    static std::string complaintsAboutLines(const Life& life) {
        std::ostringstream text;
        for (const char* const once :
             {"INFO ZORSignalHandlerThread Signalled to shutdown.",
              "INFO PingChildProcess Child process supervisor has been told to stop",
              "INFO PingChildProcess stopping child process(es).", "INFO ZORBootstrapService Done."}) {
            if (life.count(once) != 1) text << life.count(once) << " times: " << once << "\n";
        }
        if (life.lines.empty() || life.lines.back() != "INFO ZORBootstrapService Done.")
            text << "the last line is another\n";
        return text.str();
    }

    // What holds for every life, whatever has happened in it; empty when it does.
    std::string complaintsAbout(const Life& life, std::int64_t longestStopMs = kLongestStopMs) const {
        std::ostringstream text;
        if (life.result != 1) text << "the run returned " << life.result << "\n";
        const std::int64_t unnoticedMs = life.supervised ? 0 : kIntervalMs;
        if (life.endedMs - life.signalledMs > unnoticedMs + longestStopMs)
            text << "signalled at " << life.signalledMs << ", ended at " << life.endedMs << "\n";
        for (const pid_t pid : life.left)
            text << "process " << pid << " is left\n";
        for (const std::string& wrong : life.wrongs)
            text << wrong << "\n";
        if (!life.pidFileDuringTheStop) text << "the PID file went before the children\n";
        if (life.pidFileLeft) text << "the PID file is left\n";
        if (life.descriptorsKept != 0) text << life.descriptorsKept << " descriptors kept\n";
        if (life.threadsKept != 0) text << life.threadsKept << " threads kept\n";
        if (life.handlesKept != 0) text << life.handlesKept << " connections kept\n";
        if (life.detailsKept != 0) text << life.detailsKept << " detail texts kept\n";
        text << complaintsAboutLines(life);
        if (text.str().empty()) return "";
        return text.str() + "--- log\n" + joined(life.lines);
    }

    std::set<std::string> m_stubborn;  // children that do not end before they are killed
    std::atomic<std::int64_t> m_signalledMs{-1};

  private:
    void prepare(StagedOs& staged, ZORBootstrapService& lived, Life& life) {
        staged.allowProcesses(kChildren);
        staged.mustEndBefore(10 * kEndsMs);
        // The first connection needs a handshake in two turns.
        sek.queue("SEK_Connect_Url", {-15, {}});
        sek.queue("SEK_EstablishSecure", {-23, {}});
        for (const char* const name : {"alpha", "beta"}) {
            answers(name, "READY");
            stopPeer(name).onCommand = [this, &staged, &lived, &life, name](const std::string&) {
                takeStop(staged, lived, life, name);
            };
        }
        staged.at(kFallsSilentMs, [this] { fallsSilent("alpha"); });
        staged.at(kEndsMs, [this, &staged, &life] {
            life.livingBeforeTheStop = static_cast<int>(staged.livingProcesses().size());
            raise(staged, SIGTERM);
        });
        if (m_stubborn.count("gamma") != 0) staged.refuseTerm();
    }

    void takeStop(StagedOs& staged, ZORBootstrapService& lived, Life& life, const std::string& name) {
        if (!folder.exists("logs/velbootstrap_service.pid")) life.pidFileDuringTheStop = false;
        pingPeer(name).silent = false;
        if (m_stubborn.count(name) != 0) return;
        for (ZORChildProcess* const each : lived.getChildren()) {
            if (each->getName() == name) staged.endProcess(each->getProcessHandle());
        }
    }

    void note(StagedOs& staged, Life& life) {
        life.moments = staged.moments();
        life.endedMs = staged.nowMs();
        life.signalledMs = m_signalledMs;
        const std::string raw = log.raw();
        life.supervised = raw.find("entering timedWait") < raw.find("has been told to stop");
        life.lines = linesAboveDebug(raw);
        life.wrongs = staged.wrongs();
        life.threadsKept = staged.threads();
        life.kills = staged.kills();
        life.left = staged.livingProcesses();
        life.starts = staged.lastPid() - 1000;
        life.pidFileLeft = folder.exists("logs/velbootstrap_service.pid");
        life.handlesKept = sek.openHandles();
        life.detailsKept = sek.unfreedDetails();
    }
};

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
