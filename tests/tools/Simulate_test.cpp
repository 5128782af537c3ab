// The command "simulate" before a copy of the sample, whose programs are not there.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include "ExternalProgram.h"
#include "JsonCheck.h"
#include "TestKit.h"

namespace fs = std::filesystem;

namespace {

struct Told {
    int exitCode = -1;
    std::string words;

    bool has(const std::string& text) const { return words.find(text) != std::string::npos; }
    // Lines of the log that hold the text, by their times.
    std::string timesOf(const std::string& text) const {
        std::istringstream lines(words);
        std::string times;
        for (std::string line; std::getline(lines, line);) {
            if (line.find(text) != std::string::npos) times += line.substr(11, 8) + " ";
        }
        return times;
    }
};

// Everything below a folder, with what a write would change.
std::string treeOf(const fs::path& root) {
    std::ostringstream tree;
    std::vector<fs::path> paths{root};
    for (const auto& entry : fs::recursive_directory_iterator(root))
        paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());
    for (const fs::path& path : paths) {
        struct stat status {};
        lstat(path.c_str(), &status);
        tree << path.string() << ' ' << status.st_mode << ' ' << status.st_size << ' ' << status.st_ino << ' '
             << status.st_ctim.tv_sec << '.' << status.st_ctim.tv_nsec << '\n';
    }
    return tree.str();
}

// Of all that have ended.
double processorSecondsOfPrograms() {
    rusage used{};
    EXPECT_EQ(getrusage(RUSAGE_CHILDREN, &used), 0);
    const auto inSeconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return inSeconds(used.ru_utime) + inSeconds(used.ru_stime);
}

class SimulateTest : public testing::Test {
  protected:
    SimulateTest() {
        setenv("JAVA_HOME", "/usr", 1);
        unsetenv("NO_COLOR");
        fs::copy(VBS_SAMPLE, folder.path(),
                 fs::copy_options::recursive | fs::copy_options::overwrite_existing);
        folder.write("bin/velbootstrapservice", "");
        fs::remove(folder.path("bin/housekeeping"));
    }

    Told simulated(const std::string& scenario, std::vector<std::string> options = {}) const {
        folder.write("day.txt", scenario);
        std::vector<std::string> command{VBS_BIN "/velbootstrapctl", "--instance", folder.path(), "simulate",
                                         folder.path("day.txt"),     "--date",     "2026-11-22"};
        command.insert(command.end(), options.begin(), options.end());
        return run(command);
    }
    static Told run(const std::vector<std::string>& command) {
        ExternalProgram program(command);
        program.endInput();
        const int exitCode = program.waitForEnd();
        return {exitCode, program.words()};
    }
    nlohmann::json summary(const std::string& scenario, std::vector<std::string> options = {}) const {
        options.insert(options.end(), {"--json", "--no-log"});
        return nlohmann::json::parse(simulated(scenario, options).words);
    }
    // In a document of the instance.
    void replace(const std::string& file, const std::string& what, const std::string& by) const {
        std::string text = folder.read(file);
        const std::size_t at = text.find(what);
        ASSERT_NE(at, std::string::npos) << what;
        folder.write(file, text.replace(at, what.size(), by));
    }
    void replace(const std::string& what, const std::string& by) const {
        replace("bin/bootstrap_linuxi38632.xml", what, by);
    }

    InstallFolder folder;
};

}  // namespace

// --- what happens ---

TEST_F(SimulateTest, TheLogIsTheServicesOwnWithTheTimesOfTheScenario) {
    const Told told = simulated("at 03:00:02 dispatcher dies\nat 05:00 service stops\n");
    EXPECT_EQ(told.exitCode, 0) << told.words;
    EXPECT_EQ(told.words.substr(0, 24), "Sun Nov 22 00:00:00 2026") << told.words;
    EXPECT_EQ(
        told.timesOf("attempt to load config from \"" + folder.path("bin/bootstrap_linuxi38632.xml") + "\""),
        "00:00:00 ");
    EXPECT_EQ(told.timesOf("child process(es) is/are ready."), "00:00:07 ") << told.words;
    EXPECT_EQ(told.timesOf("process \"dispatcher\" is not active, so restarting it."), "03:00:03 ")
        << told.words;
    EXPECT_EQ(told.timesOf("Signalled to shutdown."), "05:00:00 ");
    EXPECT_EQ(told.timesOf("no processes are alive."), "05:00:02 ");
    EXPECT_TRUE(told.has("-- the stop took 2.25 s\n")) << told.words;
    EXPECT_EQ(told.words.find("\n900\n"), std::string::npos)
        << "what goes into the PID file is no line of the log";
}

// As the operation guide has it, from the first round that meets with it on.
TEST_F(SimulateTest, ASilentChildIsAskedToStopThenKilled) {
    const Told told = simulated("at 02:00 dispatcher silent\n");
    EXPECT_EQ(told.timesOf("no response,  SEK_Poll timed out."), "02:00:06 ") << told.words;
    EXPECT_EQ(told.timesOf("appears to still be alive, so stop it."), "02:00:06 ");
    EXPECT_EQ(told.timesOf("stopAction->execute() return status = 1"), "02:00:08 ");
    EXPECT_EQ(told.timesOf("hasn't yet finished stopping."), "02:00:10 02:00:12 ");
    EXPECT_EQ(told.timesOf("restarting process dispatcher."), "02:00:12 ");
}

TEST_F(SimulateTest, AFrozenChildCostsAWholeHandshake) {
    const Told told = simulated("at 02:00 dispatcher freezes\n");
    EXPECT_EQ(told.timesOf("TLS handshake with localhost:9300 not finished after 10 s"),
              "02:00:11 02:00:13 02:00:25 02:00:27 ")
        << told.words;
    EXPECT_EQ(told.timesOf("stopAction->execute() return status = -1"), "02:00:27 ");
}

TEST_F(SimulateTest, WhatHasNoDurationEndsWithTheProcess) {
    EXPECT_EQ(summary("at 02:00 dispatcher silent\n")["children"][0]["starts"], 2);
    EXPECT_EQ(summary("at 02:00 dispatcher silent for 5 min\n")["children"][0]["starts"], 4);
}

TEST_F(SimulateTest, ABusyChildIsNeverReplaced) {
    const nlohmann::json child =
        summary("at 04:00 dispatcher answers \"STARTING\" for 1 min\n")["children"][0];
    EXPECT_EQ(child["starts"], 1);
    EXPECT_EQ(child["failedPings"], 0);
    EXPECT_EQ(child["otherAnswers"], 15);
    EXPECT_EQ(child["notWellMs"], 60000);
}

TEST_F(SimulateTest, ASlowAnswerIsGoodUpToTheTimeLimit) {
    EXPECT_EQ(summary("at 04:00 dispatcher slow by 4 s for 1 min\n")["children"][0]["failedPings"], 0);
    EXPECT_GT(summary("at 04:00 dispatcher slow by 6 s for 1 min\n")["children"][0]["failedPings"], 0);
}

TEST_F(SimulateTest, AChildThatNeedsLongToListenUsesItsGrace) {
    const Told told = simulated("at 00:00 dispatcher listens after 30 s\n", {"--until", "01:00"});
    EXPECT_EQ(told.timesOf("hit ping failure limit"), "");
    const Told longer = simulated("at 00:00 dispatcher listens after 1 min\n", {"--until", "01:00"});
    EXPECT_EQ(longer.timesOf("hit ping failure limit").substr(0, 9), "00:00:45 ") << longer.words;
}

TEST_F(SimulateTest, HowChildrenEndDecidesOnTheStop) {
    EXPECT_EQ(summary("at 01:00 dispatcher stops in 3 s\nat 02:00:02 service stops\n")["stopMs"], 5000);
    const nlohmann::json ignored = summary("at 01:00 dispatcher ignores stops\nat 02:00:02 service stops\n");
    EXPECT_EQ(ignored["stopMs"], 2000 + 41 * 250);
    EXPECT_EQ(ignored["children"][0]["kills"], 1);
}

TEST_F(SimulateTest, ASignalAsTheStopOfAPingedChildReachesTheServiceItself) {
    replace("<stop type=\"socketSend\">", "<stop type=\"signal\"><signal signal=\"15\"/>");
    const Told told = simulated("at 02:00 dispatcher silent\n");
    EXPECT_EQ(told.exitCode, 0);
    EXPECT_EQ(told.timesOf("Signalled to shutdown."), "02:00:06 ") << told.words;
    EXPECT_TRUE(
        told.has("-- signal 15 of a stop action went to the whole process group, the service included\n"));
    const nlohmann::json outcome = summary("at 02:00 dispatcher silent\nat 05:00 service stops\n");
    EXPECT_EQ(outcome["ownSignal"], 15);
    EXPECT_FALSE(outcome.contains("stopMs")) << "it has ended long before";
}

TEST_F(SimulateTest, TheSameScenarioHasTheSameOutcome) {
    const std::string scenario = "at 02:00 dispatcher freezes for 2 min\nat 04:00 service stops\n";
    EXPECT_EQ(simulated(scenario, {"--level", "DEBUG"}).words.size(),
              simulated(scenario, {"--level", "DEBUG"}).words.size());
    EXPECT_EQ(simulated(scenario).words, simulated(scenario).words);
}

TEST_F(SimulateTest, WhatTheServiceIsGivenIsGivenToItHereToo) {
    replace("bin/zorlogconfig.xml", "level=\"INFO\"", "level=\"DEBUG\"");
    const Told told = simulated("", {"--until", "00:01", "--", "$$warmUp=slow"});
    EXPECT_TRUE(told.has("\t--warm-up=5\n")) << told.words;
    EXPECT_FALSE(simulated("", {"--until", "00:01"}).has("\t--warm-up=5\n"));
}

// --- what is told ---

TEST_F(SimulateTest, TheSummaryCountsWhatHasHappened) {
    const Told told =
        simulated("at 03:00:30 dispatcher refuses for 1 min\nat 05:00 service stops\n", {"--no-log"});
    EXPECT_EQ(told.words,
              "-- 2026-11-22 00:00:00 to 2026-11-22 05:00:02 UTC, 5 h 2.25 s simulated\n"
              "-- the stop took 2.25 s\n"
              "child         starts  kills  failed pings  other answers  not well  longest unanswered\n"
              "dispatcher    3       2      12            0              1 min     1 min 6 s\n"
              "housekeeping  1       0      -             -              1 s       -\n");
}

TEST_F(SimulateTest, JsonIsAsItsSchemaHasIt) {
    const std::string scenario = "at 03:00 dispatcher refuses for 1 min\nat 05:00 service stops\n";
    const Told told = simulated(scenario, {"--json"});
    EXPECT_EQ(jsonComplaints("velbootstrapctl-simulate", told.words), "");
    const nlohmann::json json = nlohmann::json::parse(told.words);
    EXPECT_EQ(json["from"], "2026-11-22T00:00:00Z");
    EXPECT_EQ(json["stopMs"], 2250);
    EXPECT_EQ(json["log"].back()["text"], "Done.");
    EXPECT_EQ(json["log"].back()["time"], "2026-11-22T05:00:02Z");
    EXPECT_EQ(jsonComplaints("velbootstrapctl-simulate", simulated(scenario, {"--json", "--no-log"}).words),
              "");
}

TEST_F(SimulateTest, TheLevelOfTheLogCanBeAnother) {
    EXPECT_FALSE(simulated("", {"--until", "01:00"}).has("entering timedWait"));
    EXPECT_TRUE(simulated("", {"--until", "01:00", "--level", "DEBUG"}).has("entering timedWait"));
    EXPECT_FALSE(simulated("", {"--until", "01:00", "--level", "FATAL"}).has("is/are ready"));
}

TEST_F(SimulateTest, ALineForSeveralDestinationsIsShownOnce) {
    const std::string file = "<file name=\"${install_path}/logs/velbootstrapservice.log\" append=\"true\"/>";
    replace("bin/zorlogconfig.xml", file, file + "<stdout/><file name=\"../logs/other.log\"/><stderr/>");
    EXPECT_EQ(simulated("", {"--until", "01:00"}).timesOf("is/are ready."), "00:00:07 ");
}

TEST_F(SimulateTest, HelpStatesTheExitCodes) {
    const Told told = run({VBS_BIN "/velbootstrapctl", "simulate", "--help"});
    EXPECT_EQ(told.exitCode, 0);
    EXPECT_TRUE(told.has("2 the scenario is wrong")) << told.words;
}

// --- what is wrong ---

TEST_F(SimulateTest, BadLinesAreToldWithFileAndLine) {
    const Told told = simulated("at 02:00 dispatcher dies\nat 03:00 dispatcher flies\n");
    EXPECT_EQ(told.exitCode, 2);
    EXPECT_EQ(told.words.find("velbootstrapctl: " + folder.path("day.txt") + ":2: \"flies\" does not happen"),
              0U)
        << told.words;
}

TEST_F(SimulateTest, AChildThatTheServiceDoesNotHaveIsAMistake) {
    const Told told = simulated("at 02:00 dispatcher dies\nat 03:00 nobody dies\n");
    EXPECT_EQ(told.exitCode, 2);
    EXPECT_EQ(told.words, "velbootstrapctl: " + folder.path("day.txt") +
                              ":2: the service has no child named \"nobody\"\n");
}

TEST_F(SimulateTest, DocumentsThatTheServiceRefusesEndItWithTheServicesWords) {
    folder.write("bin/bootstrap_linuxi38632.xml", "<bootstrap>");
    const Told told = simulated("at 02:00 dispatcher dies\n");
    EXPECT_EQ(told.exitCode, 1);
    EXPECT_TRUE(told.has("Error parsing bootstrap.xml file")) << told.words;
    EXPECT_TRUE(told.has("-- the service does not start with these documents\n")) << told.words;
    EXPECT_EQ(jsonComplaints("velbootstrapctl-simulate", simulated("", {"--json"}).words), "");
}

TEST_F(SimulateTest, AScenarioThatIsNoFileIsNotReadForEver) {
    const std::vector<std::string> command{VBS_BIN "/velbootstrapctl", "--instance", folder.path(),
                                           "simulate"};
    for (const char* const path : {"/dev/zero", "/", "/there/is/none"}) {
        std::vector<std::string> words = command;
        words.emplace_back(path);
        const Told told = run(words);
        EXPECT_EQ(told.exitCode, 70) << path;
        EXPECT_EQ(told.words.find(std::string("velbootstrapctl: ") + path + ": "), 0U) << told.words;
    }
}

TEST_F(SimulateTest, StandardInputCanBeTheScenario) {
    ExternalProgram program(
        {VBS_BIN "/velbootstrapctl", "--instance", folder.path(), "simulate", "-", "--until", "01:00"});
    ASSERT_TRUE(program.type("at 00:30 dispatcher flies\n"));
    program.endInput();
    EXPECT_EQ(program.waitForEnd(), 2);
    EXPECT_EQ(program.words().find("velbootstrapctl: standard input:1: \"flies\""), 0U) << program.words();
}

TEST_F(SimulateTest, WrongOptionsAreErrorsOfTheCommandLine) {
    EXPECT_EQ(simulated("", {"--until", "soon"}).exitCode, 64);
    EXPECT_EQ(simulated("at 08:00 service starts\n", {"--until", "07:00"}).exitCode, 64);
    EXPECT_EQ(simulated("", {"--date", "2026-11-22x"}).exitCode, 64);
    EXPECT_EQ(simulated("", {"--level", "LOUD"}).exitCode, 64);
    EXPECT_EQ(run({VBS_BIN "/velbootstrapctl", "simulate"}).exitCode, 64);
}

// --- what never ends ---

TEST_F(SimulateTest, AServiceThatNeverStopsIsLeft) {
    replace("pollIntervalsec=\"2\"", "pollIntervalsec=\"-1\"");
    const nlohmann::json outcome = summary("at 02:00 service stops\n");
    EXPECT_FALSE(outcome.contains("stopMs")) << outcome;
    EXPECT_EQ(outcome["children"][0]["failedPings"], 0);
}

TEST_F(SimulateTest, AnAnswerThatIsAwaitedWithoutALimitIsLeft) {
    replace("sockIOTimeoutSec=\"5\"", "sockIOTimeoutSec=\"-1\"");
    const nlohmann::json outcome = summary("at 02:00 dispatcher silent\nat 03:00 service stops\n");
    EXPECT_EQ(outcome["children"][0]["starts"], 1);
    EXPECT_FALSE(outcome.contains("stopMs")) << outcome;
}

TEST_F(SimulateTest, RealTimeHasALimit) {
    const Told told = simulated("", {"--until", "8784:00", "--real-time", "1", "--no-log"});
    EXPECT_EQ(told.exitCode, 3);
    EXPECT_TRUE(told.has("-- cut short: the real time was over\n")) << told.words;
}

TEST_F(SimulateTest, ADayTakesLessThanASecondOfTheProcessor) {
    const double before = processorSecondsOfPrograms();
    EXPECT_EQ(simulated("at 12:00 dispatcher silent for 10 min\n").exitCode, 0);
    EXPECT_LT(processorSecondsOfPrograms() - before, 1.0);
}

// --- what is left alone ---

TEST_F(SimulateTest, NothingOfTheInstanceChanges) {
    fs::remove_all(folder.path("temp"));
    folder.write("bin/zor.failedPingLimit", "3\n");
    folder.write("logs/velbootstrap_service.pid", "1\n");
    folder.write("logs/zordefault.log", "old");
    folder.write("day.txt", "at 02:00 dispatcher silent\nat 05:00 service stops\n");
    const std::string before = treeOf(folder.path());
    const Told told =
        run({VBS_BIN "/velbootstrapctl", "--instance", folder.path(), "simulate", folder.path("day.txt")});
    EXPECT_EQ(told.exitCode, 0);
    EXPECT_TRUE(told.has("running as process 900.")) << told.words;
    EXPECT_TRUE(told.has("was created successfully.")) << told.words;
    EXPECT_EQ(treeOf(folder.path()), before);
}

// The program is beside the tree: where it was built not everybody may go.
TEST_F(SimulateTest, AnybodyMaySimulateATreeThatIsReadOnly) {
    const std::string program = folder.path() + ".velbootstrapctl";
    std::error_code error;
    fs::create_hard_link(VBS_BIN "/velbootstrapctl", program, error);
    if (error) fs::copy_file(VBS_BIN "/velbootstrapctl", program);
    folder.write("day.txt", "at 02:00 dispatcher silent\nat 05:00 service stops\n");
    const auto mayWrite = fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write;
    for (const auto& entry : fs::recursive_directory_iterator(folder.path()))
        fs::permissions(entry.path(), mayWrite, fs::perm_options::remove);
    fs::permissions(folder.path(), fs::perms(0555));
    std::vector<std::string> command{program, "--instance", folder.path(), "simulate",
                                     folder.path("day.txt")};
    if (geteuid() == 0) {
        const std::vector<std::string> asNobody{"setpriv", "--reuid=65534", "--regid=65534",
                                                "--clear-groups"};
        command.insert(command.begin(), asNobody.begin(), asNobody.end());
    }
    const Told told = run(command);
    fs::remove(program);
    fs::permissions(folder.path(), fs::perms(0755));
    for (const auto& entry : fs::recursive_directory_iterator(folder.path()))
        fs::permissions(entry.path(), fs::perms::owner_write, fs::perm_options::add);
    EXPECT_EQ(told.exitCode, 0) << told.words;
    EXPECT_TRUE(told.has("running as process 900.")) << told.words;
    EXPECT_FALSE(told.has("could not be")) << told.words;
}

TEST_F(SimulateTest, NobodyIsConnectedTo) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    ASSERT_EQ(bind(listener, any, length), 0);
    ASSERT_EQ(listen(listener, 5), 0);
    ASSERT_EQ(getsockname(listener, any, &length), 0);
    replace("configuration/startup.xml", "localhost:9300",
            "localhost:" + std::to_string(ntohs(address.sin_port)));
    EXPECT_EQ(simulated("at 02:00 dispatcher dies\n").exitCode, 0);
    EXPECT_EQ(accept(listener, nullptr, nullptr), -1);
    close(listener);
}
