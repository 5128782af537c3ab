// The commands that control a daemon, with something happening to it at each moment of the command in turn: nothing
// locks, so it may end, or another may take its place, whenever it likes.
#include <sys/types.h>

#include <csignal>
#include <filesystem>

#include "StagedOs.h"
#include "TestWorld.h"
#include "ZORCmdLine.h"

namespace {

constexpr const char* kPidFile = "logs/velbootstrap_service.pid";
constexpr pid_t kDaemon = 6001;
constexpr pid_t kAnother = 6002;

// Twenty tries, six seconds apart, with the pings of two children and the first wait.
constexpr std::int64_t kLongestCommandMs = 20 * (6000 + 2 * 2000) + 1;

struct Outcome {
    int result = -1;
    int moments = 0;
    std::int64_t tookMs = 0;
    int spawned = 0;  // processes that the command has made
    std::vector<std::string> wrongs;
    std::vector<VirtualOs::Kill> kills;
    std::string pidFile;  // its content afterwards
    int handlesKept = 0;
};

class CommandMomentsTest : public WorldTest {
  protected:
    using Event = std::function<void(StagedOs&)>;

    CommandMomentsTest() {
        setProperty("install_path", folder.path().c_str());
        setProperty("bin_path", folder.path("bin").c_str());
        setProperty("temp", folder.path("temp").c_str());
        folder.write("bin/bootstrap_linuxi38632.xml",
                     documentText({ChildXml{"alpha"}, ChildXml{"beta"}}, ""));
    }

    // Runs the command; `prepare` comes first, `event` at the given moment.
    Outcome command(const std::string& mode, const Event& prepare, int at = 0, const Event& event = {}) {
        Outcome outcome;
        sek.reset();
        log.clear();
        for (const char* const name : {"alpha", "beta"})
            answers(name, "READY");
        StagedOs staged;
        ZORBootstrapService controlled;
        prepare(staged);
        staged.watch([&](int moment) {
            if (moment == at) event(staged);
        });
        outcome.result = carryOut(controlled, mode);
        staged.watchNoMore();
        outcome.moments = staged.moments();
        outcome.tookMs = staged.nowMs();
        outcome.spawned = staged.lastPid() - 1000;
        outcome.wrongs = staged.wrongs();
        outcome.kills = staged.kills();
        outcome.pidFile = folder.read(kPidFile);
        outcome.handlesKept = sek.openHandles();
        return outcome;
    }

    static int carryOut(ZORBootstrapService& controlled, const std::string& mode) {
        std::string program = "velbootstrapservice";
        std::string argument = mode;
        char* words[] = {program.data(), argument.data()};
        ZORCmdLine line(2, words);
        return mode == "-stop" ? controlled.stopRunningUnix(line) : controlled.startDaemon(line);
    }

    // What holds for every command, whatever has happened meanwhile.
    static std::string complaintsAbout(const Outcome& outcome) {
        std::string text;
        // A PID file that is left behind is asked after again at every try.
        for (const std::string& wrong : outcome.wrongs)
            text += wrong.rfind("signal 0 ", 0) == 0 ? "" : wrong + "\n";
        if (outcome.tookMs > kLongestCommandMs) text += "it took " + std::to_string(outcome.tookMs) + " ms\n";
        if (outcome.kills.size() > 1) text += "more than one signal was sent\n";
        for (const VirtualOs::Kill& kill : outcome.kills) {
            if (kill.signal != SIGTERM) text += "signal " + std::to_string(kill.signal) + "\n";
        }
        if (outcome.handlesKept != 0) text += "a connection is kept\n";
        return text;
    }

    void writePid(pid_t pid) const { folder.write(kPidFile, std::to_string(pid) + "\n"); }

    // A daemon that takes its time to stop.
    Event runningDaemon() {
        return [this](StagedOs& staged) {
            writePid(kDaemon);
            staged.process(kDaemon).ignoresTerm = true;
            staged.at(50000, [&staged] { staged.endProcess(kDaemon); });
        };
    }
    // None, until one that was spawned writes its PID file.
    Event daemonToCome() {
        return [this](StagedOs& staged) {
            std::filesystem::remove(folder.path(kPidFile));
            staged.process(kDaemon);
            staged.at(10000, [this] { writePid(kDaemon); });
        };
    }
    static void dies(StagedOs& staged) { staged.endProcess(kDaemon); }
    void endsInOrder(StagedOs& staged) const {
        staged.endProcess(kDaemon);
        std::filesystem::remove(folder.path(kPidFile));
    }
    void makesRoomForAnother(StagedOs& staged) const {
        staged.endProcess(kDaemon);
        staged.process(kAnother);
        writePid(kAnother);
    }
};

TEST_F(CommandMomentsTest, AStopSucceedsAtWhicheverMomentTheDaemonDies) {
    const int moments = command("-stop", runningDaemon()).moments;
    EXPECT_GT(moments, 10);
    for (int at = 1; at <= moments; ++at) {
        const Outcome outcome = command("-stop", runningDaemon(), at, dies);
        ASSERT_EQ(complaintsAbout(outcome), "") << "at moment " << at;
        ASSERT_EQ(outcome.result, 1) << "at moment " << at;
        ASSERT_EQ(outcome.pidFile, std::to_string(kDaemon) + "\n") << "it is not the command's";
    }
}

TEST_F(CommandMomentsTest, AStopSucceedsAtWhicheverMomentTheDaemonEndsInOrder) {
    const int moments = command("-stop", runningDaemon()).moments;
    for (int at = 1; at <= moments; ++at) {
        const Outcome outcome =
            command("-stop", runningDaemon(), at, [this](StagedOs& staged) { endsInOrder(staged); });
        ASSERT_EQ(complaintsAbout(outcome), "") << "at moment " << at;
        ASSERT_EQ(outcome.result, 1) << "at moment " << at;
    }
}

// Whom the PID file names when the command looks is the daemon: it may have signalled one, and wait for another's end.
TEST_F(CommandMomentsTest, AStopIsBoundedAtWhicheverMomentAnotherDaemonTakesThePlace) {
    const int moments = command("-stop", runningDaemon()).moments;
    for (int at = 1; at <= moments; ++at) {
        const Outcome outcome =
            command("-stop", runningDaemon(), at, [this](StagedOs& staged) { makesRoomForAnother(staged); });
        ASSERT_EQ(complaintsAbout(outcome), "") << "at moment " << at;
        const bool stoppedTheOther = !outcome.kills.empty() && outcome.kills.front().pid == kAnother;
        const bool lookedAgain = outcome.tookMs >= 20 * 6000;
        ASSERT_EQ(outcome.result == 1, stoppedTheOther || !lookedAgain) << "at moment " << at;
        ASSERT_EQ(outcome.pidFile, std::to_string(kAnother) + "\n") << "it is the other's";
    }
}

TEST_F(CommandMomentsTest, AStartIsBoundedAtWhicheverMomentTheDaemonDies) {
    const Outcome undisturbed = command("-start", daemonToCome());
    EXPECT_EQ(undisturbed.result, 1);
    EXPECT_EQ(undisturbed.spawned, 1);
    for (int at = 1; at <= undisturbed.moments; ++at) {
        const Outcome outcome = command("-start", daemonToCome(), at, dies);
        ASSERT_EQ(complaintsAbout(outcome), "") << "at moment " << at;
        ASSERT_TRUE(outcome.kills.empty()) << "at moment " << at;
        ASSERT_EQ(outcome.spawned, 1) << "it is not started again; at moment " << at;
        ASSERT_EQ(outcome.pidFile, std::to_string(kDaemon) + "\n") << "it is not the command's";
        // One that was seen alive and whose children answer after all has started.
        ASSERT_EQ(outcome.result, sek.peer("tcp://beta.ping:1").connects > 0 ? 1 : 0) << "at moment " << at;
    }
}

TEST_F(CommandMomentsTest, AStartThatIsStoppedMeanwhileGivesUpAtItsTime) {
    const int moments = command("-start", daemonToCome()).moments;
    for (int at = 1; at <= moments; ++at) {
        const Outcome outcome =
            command("-start", daemonToCome(), at, [this](StagedOs& staged) { endsInOrder(staged); });
        ASSERT_EQ(complaintsAbout(outcome), "") << "at moment " << at;
        ASSERT_TRUE(outcome.kills.empty()) << "at moment " << at;
        if (outcome.result == 0) {
            ASSERT_GE(outcome.tookMs, 20 * 6000) << "at moment " << at;
        }
    }
}

TEST_F(CommandMomentsTest, AStartThatFindsAnotherDaemonPingsItsChildrenAndLeavesItAlone) {
    const Outcome undisturbed = command("-start", daemonToCome());
    for (int at = 1; at <= undisturbed.moments; ++at) {
        const Outcome outcome =
            command("-start", daemonToCome(), at, [this](StagedOs& staged) { makesRoomForAnother(staged); });
        ASSERT_EQ(complaintsAbout(outcome), "") << "at moment " << at;
        ASSERT_TRUE(outcome.kills.empty()) << "at moment " << at;
        // Unless the one that has gone has written its id over the other's in its last moment.
        const bool namesTheOther = outcome.pidFile == std::to_string(kAnother) + "\n";
        if (namesTheOther) {
            ASSERT_EQ(outcome.result, 1) << "at moment " << at;
        }
    }
}

TEST_F(CommandMomentsTest, AStartAfterAFatalAnswerSignalsOnceAtWhicheverMomentTheDaemonDies) {
    const auto broken = [this](StagedOs& staged) {
        daemonToCome()(staged);
        answers("beta", "it is BROKEN");
        staged.process(kDaemon).ignoresTerm = true;
        staged.at(40000, [&staged] { staged.endProcess(kDaemon); });
    };
    const Outcome undisturbed = command("-start", broken);
    EXPECT_EQ(undisturbed.kills.size(), 1U);
    for (int at = 1; at <= undisturbed.moments; ++at) {
        const Outcome outcome = command("-start", broken, at, dies);
        ASSERT_EQ(complaintsAbout(outcome), "") << "at moment " << at;
        ASSERT_EQ(outcome.result, 0) << "at moment " << at;
    }
}

}  // namespace
