// Each call through the doorway fails once in its turn, and from there on, while a command is carried out. What holds
// then is in docs/faults.md.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

#include "FailingOs.h"
#include "ResultTable.h"
#include "StagedOs.h"
#include "TVLThrowable.h"
#include "TestWorld.h"
#include "ZORCmdLine.h"

namespace {

constexpr const char* kPidFile = "logs/velbootstrap_service.pid";
constexpr const char* kLog = "logs/all.log";
constexpr pid_t kDaemon = 6001;
constexpr std::int64_t kComesMs = 10000;
constexpr std::int64_t kGoesMs = 50000;

// Twenty tries, six seconds apart, with the pings of two children; waiting for an end takes as long once more.
constexpr std::int64_t kLongestCommandMs = 2LL * 20 * (6000 + 2 * 2000);

// In place of an exit code: the want of memory has left the command-line step, for main() to tell.
constexpr int kThrown = -1;

int errorOf(OsKind kind) {
    switch (kind) {
        case OsKind::Open:
            return EMFILE;
        case OsKind::WriteStream:
            return ENOSPC;
        case OsKind::Fork:
            return EAGAIN;
        case OsKind::SetVariable:
            return ENOMEM;
        case OsKind::Signal:
        case OsKind::TestProcess:
            return EPERM;
        default:
            return EIO;
    }
}

// What a command may end with when a call of the kind is refused.
std::set<int> exitCodesOf(OsKind kind) {
    switch (kind) {
        case OsKind::WriteStream:
            return {0};
        case OsKind::Fork:
        case OsKind::Signal:
            return {1};
        case OsKind::SetVariable:
            return {kThrown};
        default:
            return {0, 1};
    }
}

std::size_t openDescriptors() {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

struct Outcome {
    int exitCode = -1;
    std::int64_t tookMs = 0;
    int spawned = 0;
    std::vector<VirtualOs::Kill> kills;
    bool daemonLives = false;
    std::string pidFile;
    std::set<std::string> words;  // of the log, and on standard error
    bool isLogged = false;
    std::size_t descriptorsKept = 0;
    int handlesKept = 0;
    int detailsKept = 0;

    bool endsAs(const Outcome& other) const {
        return exitCode == other.exitCode && daemonLives == other.daemonLives && spawned == other.spawned;
    }
};

void tell(const std::string& command, OsKind kind, int uses, const std::map<std::string, int>& outcomes) {
    if (uses == 0) return;
    std::string words;
    for (const auto& [outcome, times] : outcomes)
        words += (words.empty() ? "" : ", ") + outcome + " (" + std::to_string(times) + ")";
    ResultTable("faults", {"kind", "uses in a life", "failed once", "failed from there on", "outcomes"})
        .add({std::string(nameOf(kind)) + ", " + command, std::to_string(uses), std::to_string(uses),
              std::to_string(uses), words});
}

class RefusedCommandTest : public WorldTest, public testing::WithParamInterface<std::string> {
  protected:
    using Plan = std::function<void(FailingOs&)>;

    RefusedCommandTest() {
        folder.write("bin/bootstrap_linuxi38632.xml",
                     documentText({ChildXml{"alpha"}, ChildXml{"beta"}}, ""));
        folder.write("configuration/zorEnvironmentVars.ini", "VBS_TEST_FAULTS=seen\n");
        const std::string file = "<file name='" + folder.path(kLog) + "' append='true'/>";
        folder.write("bin/zorlogconfig.xml", "<config><default><logging level='DEBUG'><logFiles>" + file +
                                                 "</logFiles></logging></default></config>");
    }

    Outcome command(const Plan& refuse = {}, const Plan& look = {}) {
        beginAnew();
        Outcome outcome;
        const std::size_t descriptors = openDescriptors();
        {
            StagedOs staged;
            staged.mustEndBefore(10 * kLongestCommandMs);
            prepareDaemon(staged);
            FailingOs failing(staged);
            if (refuse) refuse(failing);
            carryOut(outcome);
            if (look) look(failing);
            note(staged, outcome);
        }
        outcome.descriptorsKept = openDescriptors() - descriptors;
        return outcome;
    }

    // What holds whatever was refused.
    static std::string complaintsAbout(const Outcome& outcome) {
        const bool isStart = GetParam() == "-start";
        const bool isStop = GetParam() == "-stop";
        std::ostringstream text;
        if (outcome.tookMs > kLongestCommandMs) text << "it took " << outcome.tookMs << " ms\n";
        if (outcome.spawned > (isStart ? 1 : 0)) text << outcome.spawned << " processes made\n";
        if (outcome.kills.size() > (isStop ? 1U : 0U)) text << outcome.kills.size() << " signals\n";
        for (const VirtualOs::Kill& kill : outcome.kills) {
            if (kill.signal != SIGTERM || kill.pid != kDaemon)
                text << "signal " << kill.signal << " to " << kill.pid << "\n";
        }
        const bool isNotThereYet = isStart && outcome.tookMs < kComesMs;
        if (outcome.pidFile != (isNotThereYet ? "" : pidText()))
            text << "the PID file holds \"" << outcome.pidFile << "\"\n";
        if (outcome.descriptorsKept != 0) text << outcome.descriptorsKept << " descriptors kept\n";
        if (outcome.handlesKept != 0) text << outcome.handlesKept << " connections kept\n";
        if (outcome.detailsKept != 0) text << outcome.detailsKept << " detail texts kept\n";
        return text.str();
    }

    // Who is told another outcome is told why, where there is a log.
    static std::string complaintsAbout(const Outcome& outcome, const Outcome& undisturbed, OsKind kind) {
        std::string text = complaintsAbout(outcome);
        if (exitCodesOf(kind).count(outcome.exitCode) == 0)
            text += "exit code " + std::to_string(outcome.exitCode) + "\n";
        const bool saysWhy = !std::includes(undisturbed.words.begin(), undisturbed.words.end(),
                                            outcome.words.begin(), outcome.words.end());
        if (outcome.exitCode != kThrown && outcome.isLogged && !outcome.endsAs(undisturbed) && !saysWhy)
            text += "it says nothing of it\n";
        return text;
    }

    static std::string pidText() { return std::to_string(kDaemon) + "\n"; }

    // How it has ended, in a few words.
    static std::string wordsOf(const Outcome& outcome, const Outcome& undisturbed) {
        if (outcome.exitCode == kThrown) return "no memory";
        const std::string code = "exit code " + std::to_string(outcome.exitCode);
        return outcome.endsAs(undisturbed) ? "as ever" : code;
    }

  private:
    // As when a process begins.
    void beginAnew() {
        sek.reset();
        for (const char* const name : {"alpha", "beta"})
            answers(name, "READY");
        TestAccess::renewProperties();
        writeStartup("<ZOR/>");
        std::filesystem::remove(folder.path(kPidFile));
        std::filesystem::remove(folder.path(kLog));
    }

    // One that is there, and takes its time when it is told to stop; to a start, one that comes.
    void prepareDaemon(StagedOs& staged) const {
        VirtualOs::Process& daemon = staged.process(kDaemon);
        daemon.ignoresTerm = true;
        if (GetParam() == "-start") {
            staged.at(kComesMs, [this] { folder.write(kPidFile, pidText()); });
            return;
        }
        folder.write(kPidFile, pidText());
        staged.at(kGoesMs, [&] {
            if (!daemon.signals.empty()) staged.endProcess(kDaemon);
        });
    }

    static void carryOut(Outcome& outcome) {
        std::vector<std::string> words{"velbootstrapservice", GetParam(), "-java_home=/java"};
        std::vector<char*> arguments;
        for (std::string& word : words)
            arguments.push_back(word.data());
        char* environment[] = {nullptr};
        ZORBootstrapService controlled;
        ZORCmdLine line(static_cast<int>(arguments.size()), arguments.data());
        testing::internal::CaptureStderr();
        try {
            controlled.ParseStandardArgs(line, environment);
            outcome.exitCode = controlled.getExitCode();
        } catch (const TVLOutOfMemoryError&) {
            outcome.exitCode = kThrown;
        }
        outcome.words.insert(testing::internal::GetCapturedStderr());
        ZORLoggerFactory::getInstance()->reset();
    }

    void note(StagedOs& staged, Outcome& outcome) const {
        outcome.tookMs = staged.nowMs();
        outcome.spawned = staged.lastPid() - 1000;
        outcome.kills = staged.kills();
        outcome.daemonLives = staged.process(kDaemon).alive;
        outcome.pidFile = folder.read(kPidFile);
        outcome.handlesKept = sek.openHandles();
        outcome.detailsKept = sek.unfreedDetails();
        std::istringstream written(folder.read(kLog));
        for (std::string line; std::getline(written, line);) {
            outcome.isLogged = true;
            // Without the time and the ids, which come before.
            outcome.words.insert(line.substr(std::min(line.size(), line.find("] ") + 1)));
        }
    }
};

TEST_P(RefusedCommandTest, TheCommandEndsInItsTimeKeepsNothingAndSaysHowItWent) {
    std::map<OsKind, int> uses;
    const Outcome undisturbed = command({}, [&](FailingOs& failing) {
        for (const OsKind kind : kOsKinds)
            uses[kind] = failing.uses(kind);
    });
    EXPECT_EQ(complaintsAbout(undisturbed), "");
    EXPECT_EQ(undisturbed.exitCode, 0);
    for (const auto& [kind, count] : uses) {
        const auto refused = [&, kind = kind](int first, bool fromThere) {
            return command([&](FailingOs& failing) {
                if (fromThere)
                    failing.failFrom(kind, first, errorOf(kind));
                else
                    failing.failNth(kind, first, errorOf(kind));
            });
        };
        std::map<std::string, int> outcomes;
        for (int number = 1; number <= count; ++number) {
            for (const bool fromThere : {false, true}) {
                const Outcome outcome = refused(number, fromThere);
                EXPECT_EQ(complaintsAbout(outcome, undisturbed, kind), "")
                    << nameOf(kind) << " " << number << (fromThere ? " and all after it" : "");
                ++outcomes[wordsOf(outcome, undisturbed)];
            }
        }
        tell(GetParam(), kind, count, outcomes);
    }
    EXPECT_TRUE(command().endsAs(undisturbed)) << "the next is as ever";
}

INSTANTIATE_TEST_SUITE_P(Commands, RefusedCommandTest, testing::Values("-start", "-stop", "-isrunning"),
                         [](const auto& mode) { return mode.param.substr(1); });

}  // namespace
