// The command "status" before real instances.

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "ExternalProgram.h"
#include "Installation.h"
#include "JsonCheck.h"
#include "ServiceUnderTest.h"
#include "TerminalProgram.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

struct Said {
    int exitCode = -1;
    std::string words;
};

// What a user who may not do everything is called by its number; as another user the tests are one themselves.
constexpr const char* kOrdinary = "65534";

class StatusTest : public SystemTest {
  protected:
    Said status(const std::vector<std::string>& options = {}) const {
        std::vector<std::string> command{VBS_BIN "/velbootstrapctl", "--instance", service.path(), "status"};
        command.insert(command.end(), options.begin(), options.end());
        ExternalProgram program(command);
        const int exitCode = program.waitForEnd();
        return {exitCode, program.words()};
    }
    json statusJson(const std::vector<std::string>& more = {}) const {
        std::vector<std::string> options{"--json"};
        options.insert(options.end(), more.begin(), more.end());
        const Said said = status(options);
        EXPECT_EQ(jsonComplaints("velbootstrapctl-status", said.words), "") << said.words;
        json document = json::parse(said.words);
        EXPECT_EQ(document["exitCode"], said.exitCode);
        return document;
    }
    // Every file of the tree with what would change if it were written.
    std::string tree() const {
        std::map<std::string, std::string> files;
        for (const auto& entry : fs::recursive_directory_iterator(service.path())) {
            struct stat status {};
            lstat(entry.path().c_str(), &status);
            files[entry.path()] = std::to_string(status.st_ino) + " " + std::to_string(status.st_size) + " " +
                                  std::to_string(status.st_mtim.tv_sec) + "." +
                                  std::to_string(status.st_mtim.tv_nsec) + "\n";
        }
        std::string all;
        for (const auto& [file, state] : files)
            all.append(file).append(" ").append(state);
        return all;
    }
    auto filesInTemp() const { return std::distance(fs::directory_iterator(service.path("temp")), {}); }
    void pidFile(const std::string& text) const { service.write("logs/velbootstrap_service.pid", text); }
    // A daemon that looks at its children seldom enough for a test to see what it does not.
    pid_t seldomLookingDaemon() {
        BootstrapXml document;
        document.manager = "<processManager pollIntervalsec=\"1000\" checkForShutdownIntervalms=\"100\"/>";
        service.bootstrap(document);
        return runningDaemon();
    }
};

}  // namespace

TEST_F(StatusTest, ARunningServiceIsProvedAndItsChildIsToldByTheLog) {
    const pid_t daemon = runningDaemon();
    const json found = statusJson();
    EXPECT_EQ(found["exitCode"], 0);
    EXPECT_EQ(found["daemon"]["verdict"], "running");
    EXPECT_EQ(found["daemon"]["pid"], daemon);
    ASSERT_EQ(found["children"].size(), 1U);
    const json& child = found["children"][0];
    EXPECT_EQ(child["name"], "alpha");
    EXPECT_EQ(child["state"], "there");
    EXPECT_EQ(child["process"]["pid"], service.childPids().back());
    EXPECT_EQ(child["process"]["toldBy"], "log");
    EXPECT_GT(child["process"]["memoryBytes"], 100000);
    EXPECT_GE(child["process"]["descriptors"], 3);
    EXPECT_EQ(child["process"]["threads"], 1);
    EXPECT_EQ(child["restartsLastHour"], 0);
    EXPECT_TRUE(child["ping"].is_null());
    stopDaemon(daemon);
}

TEST_F(StatusTest, WithoutALogAtDebugTheCommandLineTells) {
    const pid_t daemon = runningDaemon();
    service.remove("logs/run.log");
    EXPECT_EQ(statusJson()["children"][0]["process"]["toldBy"], "command line");
    stopDaemon(daemon);
}

// The property comes from the daemon's own command line.
TEST_F(StatusTest, WhatTheDaemonWasGivenOnItsCommandLineIsHeeded) {
    BootstrapXml document;
    document.children[0].options = {"${extra}"};
    document.daemonSpawn =
        "<daemonSpawn><path>${bin_path}/velbootstrapservice</path><param>runAsDaemon</param>"
        "<param>-java_home=${java_home}</param><param>$$extra=blocked</param></daemonSpawn>";
    service.bootstrap(document);
    const pid_t daemon = runningDaemon();
    service.remove("logs/run.log");
    EXPECT_EQ(statusJson()["children"][0]["process"]["toldBy"], "command line");
    stopDaemon(daemon);
}

TEST_F(StatusTest, RestartsAreCountedFromTheLog) {
    const pid_t daemon = runningDaemon();
    for (std::size_t times = 1; times <= 2; ++times) {
        kill(service.childPids().back(), SIGKILL);
        ASSERT_TRUE(service.waitForStarts(times + 1));
    }
    // What was asked between the death and the line in the log would be counted later.
    const json child = statusJson()["children"][0];
    EXPECT_EQ(child["restartsLastHour"], 2);
    EXPECT_EQ(child["restartsLastDay"], 2);
    EXPECT_EQ(child["restarts"], 2);
    EXPECT_EQ(child["process"]["pid"], service.childPids().back());
    stopDaemon(daemon);
}

TEST_F(StatusTest, ARotatedLogIsReadAsWell) {
    const pid_t daemon = runningDaemon();
    kill(service.childPids().back(), SIGKILL);
    ASSERT_TRUE(service.waitForStarts(2));
    fs::copy_file(service.path("logs/run.log"), service.path("logs/run.log.1"));
    fs::resize_file(service.path("logs/run.log"), 0);
    EXPECT_EQ(statusJson()["children"][0]["restartsLastDay"], 1);
    stopDaemon(daemon);
}

TEST_F(StatusTest, AChildThatIsMissingHasAnExitCodeOfItsOwn) {
    const pid_t daemon = seldomLookingDaemon();
    const pid_t child = service.childPids().back();
    kill(child, SIGKILL);
    ASSERT_TRUE(service.waitFor("the end of the child", [&] { return kill(child, 0) != 0; }));
    const json found = statusJson();
    EXPECT_EQ(found["exitCode"], 150);
    EXPECT_EQ(found["children"][0]["state"], "missing");
    EXPECT_TRUE(found["children"][0]["process"].is_null());
    EXPECT_EQ(status({"--nagios"}).exitCode, 2);
    stopDaemon(daemon);
}

TEST_F(StatusTest, AFailedExchangeHasAnExitCodeOfItsOwn) {
    const ReservedPort port;
    BootstrapXml document;
    document.children[0].pinged(port);
    service.bootstrap(document);
    service.answer("READY");
    const pid_t daemon = runningDaemon();
    ASSERT_TRUE(service.waitFor("an answer", [&] { return status({"--ping"}).exitCode == 0; }));
    const json good = statusJson({"--ping"});
    EXPECT_EQ(good["children"][0]["ping"]["rule"], "responseOK");
    service.answer("WRONG");
    const json found = statusJson({"--ping"});
    EXPECT_EQ(found["exitCode"], 151);
    EXPECT_EQ(found["children"][0]["ping"]["rule"], "no marker");
    service.answer("READY");
    stopDaemon(daemon);
}

TEST_F(StatusTest, OfAServiceThatWasKilledTheChildrenAreNamed) {
    const pid_t daemon = runningDaemon();
    const pid_t child = service.childPids().back();
    kill(daemon, SIGKILL);
    ASSERT_TRUE(service.waitForEnd(daemon));
    const json found = statusJson();
    EXPECT_EQ(found["exitCode"], 1);
    EXPECT_EQ(found["daemon"]["verdict"], "stale");
    ASSERT_EQ(found["survivors"].size(), 1U);
    EXPECT_EQ(found["survivors"][0], "alpha lives on as process " + std::to_string(child));
    service.cleanUp();
}

TEST_F(StatusTest, AskingForAServiceThatDoesNotRunChangesNothing) {
    service.remove("temp");
    const std::string before = tree();
    const Said said = status();
    EXPECT_EQ(said.exitCode, 3);
    EXPECT_EQ(said.words, service.path() + "\nnot running: there is no PID file\n");
    status({"--json"});
    EXPECT_EQ(tree(), before);
}

TEST_F(StatusTest, AStrangersProcessIsNotTheService) {
    pidFile(std::to_string(getpid()) + "\n");
    const Said said = status();
    EXPECT_EQ(said.exitCode, 1);
    EXPECT_NE(said.words.find("used again: process " + std::to_string(getpid())), std::string::npos)
        << said.words;
    service.cleanUp();
}

TEST_F(StatusTest, AProcessOfAnotherUserIsNotTheService) {
    service.asOrdinaryUser();
    pidFile("1\n");
    const int given = chown(service.path("logs/velbootstrap_service.pid").c_str(), 65534, 65534);
    ASSERT_EQ(given, geteuid() == 0 ? 0 : -1);
    const Said said = status();
    EXPECT_EQ(said.exitCode, 1);
    EXPECT_NE(said.words.find("of another user: process 1"), std::string::npos) << said.words;
    service.cleanUp();
}

// The PID file belongs to the one whose process it names, who is not the one that asks.
TEST_F(StatusTest, WhatOnlyAnotherUserMaySeeIsNotProved) {
    if (geteuid() != 0) return;  // only root can write what root has not written for somebody else
    service.asOrdinaryUser();
    pidFile("1\n");
    const json found = statusJson();
    EXPECT_EQ(found["exitCode"], 4);
    EXPECT_EQ(found["daemon"]["verdict"], "not proved");
    EXPECT_EQ(found["daemon"]["userToBe"], "root");
    EXPECT_EQ(found["children"][0]["state"], "unknown");
    EXPECT_EQ(status({"--nagios"}).exitCode, 3);
    const std::string metrics = service.path("temp/x.prom");
    const Said said = status({"--prometheus", metrics});
    EXPECT_EQ(said.exitCode, 77);
    EXPECT_NE(said.words.find("give this command as root"), std::string::npos) << said.words;
    EXPECT_FALSE(fs::exists(metrics));
    service.cleanUp();
}

TEST_F(StatusTest, RootBecomesTheUserWhoseInstanceItIs) {
    if (geteuid() != 0) return;  // nobody else can become anybody
    service.asOrdinaryUser();
    const pid_t daemon = runningDaemon();
    service.remove("temp/x.prom");
    EXPECT_EQ(status().exitCode, 0);
    EXPECT_EQ(status({"--prometheus", service.path("temp/x.prom")}).exitCode, 0);
    struct stat written {};
    ASSERT_EQ(stat(service.path("temp/x.prom").c_str(), &written), 0);
    EXPECT_EQ(std::to_string(written.st_uid), kOrdinary);
    stopDaemon(daemon);
}

TEST_F(StatusTest, WithDocumentsThatTheServiceWouldNotUseItCannotBeTold) {
    const pid_t daemon = runningDaemon();
    service.write("bin/bootstrap_linuxi38632.xml", "<bootstrap><process");
    const json found = statusJson();
    EXPECT_EQ(found["exitCode"], 4);
    EXPECT_EQ(found["daemon"]["verdict"], "running");
    EXPECT_NE(found["documents"].get<std::string>().find("Error parsing bootstrap.xml file"),
              std::string::npos);
    EXPECT_EQ(status({"--nagios"}).exitCode, 3);
    stopDaemon(daemon);
}

TEST_F(StatusTest, AMonitorGetsOneLineWithFigures) {
    const Said down = status({"--nagios"});
    EXPECT_EQ(down.exitCode, 2);
    EXPECT_EQ(
        down.words,
        "VELBOOTSTRAP CRITICAL - not running: there is no PID file | children=0;1:;1:;0;1 restarts_1h=0;0;;0 "
        "restarts_1d=0;;;0\n");
    const pid_t daemon = runningDaemon();
    const Said up = status({"--nagios"});
    EXPECT_EQ(up.exitCode, 0);
    EXPECT_EQ(up.words,
              "VELBOOTSTRAP OK - 1 of 1 children, 0 restarts in the last hour | children=1;1:;1:;0;1 "
              "restarts_1h=0;0;;0 restarts_1d=0;;;0\n");
    kill(service.childPids().back(), SIGKILL);
    ASSERT_TRUE(service.waitForStarts(2));
    EXPECT_EQ(status({"--nagios"}).exitCode, 1);
    stopDaemon(daemon);
}

// ---- Metrics ----

TEST_F(StatusTest, MetricsAreAsTheirReadersWantThem) {
    const ReservedPort port;
    BootstrapXml document;
    document.children[0].pinged(port);
    service.bootstrap(document);
    service.answer("READY");
    const pid_t daemon = runningDaemon();
    const std::string file = service.path("temp/velbootstrapservice.prom");
    const Said said = status({"--prometheus", file});
    EXPECT_EQ(said.exitCode, 0) << said.words;
    EXPECT_EQ(said.words, "");
    const std::string text = service.read("temp/velbootstrapservice.prom");
    for (const char* const name :
         {"velbootstrap_up", "velbootstrap_start_time_seconds",
          "velbootstrap_log_last_line_timestamp_seconds", "velbootstrap_status_timestamp_seconds",
          "velbootstrap_child_up", "velbootstrap_child_start_time_seconds",
          "velbootstrap_child_resident_memory_bytes", "velbootstrap_child_open_fds",
          "velbootstrap_child_threads", "velbootstrap_child_restarts_total",
          "velbootstrap_child_restarts_last_hour", "velbootstrap_child_restarts_last_day"}) {
        EXPECT_NE(text.find(std::string("\n") + name + "{folder=\"" + service.path() + "\""),
                  std::string::npos)
            << name << "\n"
            << text;
    }
    EXPECT_NE(text.find("velbootstrap_up{folder=\"" + service.path() + "\"} 1\n"), std::string::npos);
    ExternalProgram promtool({"promtool", "check", "metrics"});
    ASSERT_TRUE(promtool.type(text));
    promtool.endInput();
    EXPECT_EQ(promtool.waitForEnd(), 0) << promtool.words() << text;
    EXPECT_EQ(promtool.words(), "");
    stopDaemon(daemon);
}

TEST_F(StatusTest, MetricsOfAServiceThatIsDownSayThatItIs) {
    const Said said = status({"--prometheus", "-"});
    EXPECT_EQ(said.exitCode, 0);
    EXPECT_NE(said.words.find("velbootstrap_up{folder=\"" + service.path() + "\"} 0\n"), std::string::npos);
    EXPECT_NE(said.words.find("velbootstrap_child_up{folder=\"" + service.path() + "\",child=\"alpha\"} 0\n"),
              std::string::npos)
        << said.words;
    EXPECT_EQ(said.words.find("start_time_seconds{"), std::string::npos) << said.words;
}

TEST_F(StatusTest, NamesOfChildrenCannotForgeMetrics) {
    BootstrapXml document;
    document.children = {ChildXml{.name = "a&quot;} 7&#10;evil\\{x=&quot;"}, ChildXml{}, ChildXml{}};
    document.schema = Schema::Refuses;  // two of one name
    service.bootstrap(document);
    const Said said = status({"--prometheus", "-"});
    EXPECT_NE(said.words.find("child=\"a\\\"} 7"), std::string::npos) << said.words;
    EXPECT_EQ(said.words.find("\nevil"), std::string::npos) << said.words;
    EXPECT_NE(said.words.find("child=\"alpha#2\""), std::string::npos) << said.words;
    ExternalProgram promtool({"promtool", "check", "metrics"});
    ASSERT_TRUE(promtool.type(said.words));
    promtool.endInput();
    EXPECT_EQ(promtool.waitForEnd(), 0) << promtool.words();
}

TEST_F(StatusTest, AReaderOfTheMetricsSeesTheOldFileOrTheNewOne) {
    const std::string file = service.path("temp/x.prom");
    service.write("temp/x.prom", "old");
    fs::create_hard_link(file, service.path("temp/held"));
    const auto before = filesInTemp();
    EXPECT_EQ(status({"--prometheus", file}).exitCode, 0);
    EXPECT_EQ(service.read("temp/held"), "old");
    EXPECT_NE(service.read("temp/x.prom"), "old");
    struct stat written {};
    ASSERT_EQ(stat(file.c_str(), &written), 0);
    EXPECT_EQ(written.st_mode & 07777U, 0644U);
    EXPECT_EQ(filesInTemp(), before);
}

TEST_F(StatusTest, MetricsThatCannotBeWrittenAreAnError) {
    const Said said = status({"--prometheus", service.path("nowhere/x.prom")});
    EXPECT_EQ(said.exitCode, 70);
    EXPECT_EQ(said.words,
              "velbootstrapctl: " + service.path("nowhere/x.prom") + ": No such file or directory\n");
    fs::create_directory(service.path("temp/x.prom"));
    const auto before = filesInTemp();
    EXPECT_EQ(status({"--prometheus", service.path("temp/x.prom")}).exitCode, 70);
    EXPECT_EQ(filesInTemp(), before);
}

TEST_F(StatusTest, OneOutputAtATime) {
    EXPECT_EQ(status({"--json", "--nagios"}).exitCode, 64);
    EXPECT_EQ(status({"--json", "--prometheus", "x"}).exitCode, 64);
    EXPECT_EQ(status({"--interval", "3"}).exitCode, 64);
}

// ---- Watching ----

TEST_F(StatusTest, WatchingDrawsAgainAndEndsOnCtrlCWithoutHarm) {
    const pid_t daemon = runningDaemon();
    TerminalProgram watch(
        {VBS_BIN "/velbootstrapctl", "--instance", service.path(), "status", "--watch", "--interval", "1"},
        140);
    watch.waitFor("\033[H\033[2J");
    watch.waitFor("running");
    kill(service.childPids().back(), SIGKILL);
    watch.waitFor("1 / 1");
    watch.type("\x03");
    EXPECT_EQ(watch.waitForEnd(), 0) << watch.shown();
    EXPECT_EQ(kill(daemon, 0), 0);
    stopDaemon(daemon);
}

TEST_F(StatusTest, CtrlCEndsAnExchangeThatIsNotAnswered) {
    const ReservedPort port;
    BootstrapXml document;
    document.children[0].pinged(port, "wait_time=\"0\"");
    service.bootstrap(document);
    service.write("temp/alpha/answer", "");
    TerminalProgram watch({VBS_BIN "/velbootstrapctl", "--instance", service.path(), "status", "--ping",
                           "--watch", "--interval", "86400"},
                          140);
    watch.waitFor("not running");
    watch.type("\x03");
    EXPECT_EQ(watch.waitForEnd(), 3) << watch.shown();
}

// ---- What it does and does not ----

namespace {

// From here on to this process, and to the program that it becomes: a signal to anybody, or a socket but one of the
// machine's own, ends it. Looking up a user's name may ask a daemon of the machine.
void forbidSignalsAndConnections() {
    constexpr auto number = static_cast<unsigned>(offsetof(seccomp_data, nr));
    constexpr auto first = static_cast<unsigned>(offsetof(seccomp_data, args[0]));
    const auto kills = [](unsigned call) {
        return std::vector<sock_filter>{BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1),
                                        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS)};
    };
    std::vector<sock_filter> filter{BPF_STMT(BPF_LD | BPF_W | BPF_ABS, number)};
    for (const int call : {__NR_kill, __NR_tkill, __NR_tgkill, __NR_pidfd_send_signal}) {
        const std::vector<sock_filter> rule = kills(static_cast<unsigned>(call));
        filter.insert(filter.end(), rule.begin(), rule.end());
    }
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_socket, 0, 3));
    filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, first));
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AF_UNIX, 1, 0));
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS));
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
        _exit(126);
}

struct Ended {
    int status = 0;
    double cpuMs = 0;
};

Ended run(const std::vector<std::string>& command, bool isConfined, const std::string& folder = ".") {
    const pid_t child = fork();
    if (child == 0) {
        std::vector<char*> words;
        for (const std::string& word : command)
            words.push_back(const_cast<char*>(word.c_str()));
        words.push_back(nullptr);
        if (chdir(folder.c_str()) != 0 || std::freopen("/dev/null", "w", stdout) == nullptr) _exit(126);
        if (isConfined) forbidSignalsAndConnections();
        execv(words[0], words.data());
        _exit(127);
    }
    Ended ended;
    rusage used{};
    wait4(child, &ended.status, 0, &used);
    const auto ms = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
    };
    ended.cpuMs = ms(used.ru_utime) + ms(used.ru_stime);
    return ended;
}

double leastCpuMs(const std::vector<std::string>& command, const std::string& folder) {
    double least = 1e9;
    for (int times = 0; times < 7; ++times)
        least = std::min(least, run(command, false, folder).cpuMs);
    return least;
}

}  // namespace

TEST_F(StatusTest, ItSendsNoSignalAndOpensNoConnection) {
    const ReservedPort port;
    BootstrapXml document;
    document.children[0].pinged(port);
    service.bootstrap(document);
    service.answer("READY");
    const pid_t daemon = runningDaemon();
    const std::vector<std::string> command{VBS_BIN "/velbootstrapctl", "--instance", service.path(),
                                           "status"};
    const Ended asked = run(command, true);
    EXPECT_TRUE(WIFEXITED(asked.status)) << "ended by signal " << WTERMSIG(asked.status);
    EXPECT_EQ(WEXITSTATUS(asked.status), 0);
    // The same confinement ends whoever does: the service's own question is a signal, an exchange is a connection.
    std::vector<std::string> pinging = command;
    pinging.emplace_back("--ping");
    EXPECT_TRUE(WIFSIGNALED(run(pinging, true).status));
    EXPECT_TRUE(WIFSIGNALED(run({service.path("bin/velbootstrapservice"), "-isrunning", "-java_home=/usr"},
                                true, service.path("bin"))
                                .status));
    stopDaemon(daemon);
}

// The same documents are read by both; what `status` finds out beyond that is little. The figures are processor time,
// the least of several, so that what else the machine does is not in them.
TEST_F(StatusTest, ItCostsLittleMoreThanTheServicesOwnQuestion) {
    const pid_t daemon = runningDaemon();
    const double question = leastCpuMs(
        {service.path("bin/velbootstrapservice"), "-isrunning", "-java_home=/usr"}, service.path("bin"));
    const double status =
        leastCpuMs({VBS_BIN "/velbootstrapctl", "--instance", service.path(), "status"}, service.path("bin"));
    EXPECT_LT(status, 3 * question) << "milliseconds: status " << status << ", -isrunning " << question;
    stopDaemon(daemon);
}
