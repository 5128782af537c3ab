// What is told before, and what happens: the time budget of an installation against real runs of it, row by row.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "CTLBudget.h"
#include "CTLInstance.h"
#include "CTLLife.h"
#include "CTLPreparation.h"
#include "ServiceUnderTest.h"

namespace {

using Clock = std::chrono::steady_clock;
using Mood = VirtualChild::Mood;

constexpr double kToleranceSec = 1.0;

double secondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

// Who answers for the child, in a thread of the test.
class Peer {
  public:
    explicit Peer(int port, Mood mood) : m_port(port), m_mood(mood), m_thread([this] { serve(); }) {}
    ~Peer() {
        m_ends = true;
        wake();
        m_thread.join();
        close(m_wakeup);
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    void become(Mood mood) {
        m_mood = mood;
        wake();
        // The port is closed, or open again, when this returns.
        for (Mood shown = m_shown; shown != mood; shown = m_shown)
            m_shown.wait(shown);
    }

  private:
    static constexpr int kLongestCommandMs = 5000;

    void wake() const { EXPECT_EQ(eventfd_write(m_wakeup, 1), 0); }
    // True when somebody connects; false when the mood may have changed, or all is over.
    bool isAsked(int listener) const {
        pollfd entries[]{{m_wakeup, POLLIN, 0}, {listener, POLLIN, 0}};  // a listener of -1 is passed over
        if (poll(entries, 2, -1) < 0) return false;
        eventfd_t ignored = 0;
        if (entries[0].revents != 0) eventfd_read(m_wakeup, &ignored);
        return entries[0].revents == 0 && entries[1].revents != 0;
    }
    void serve() {
        std::vector<int> silenced;
        while (!m_ends) {
            const Mood mood = m_mood;
            if (mood == Mood::Refuses && m_listener >= 0) stopListening();
            if (mood != Mood::Refuses && m_listener < 0) listen();
            m_shown = mood;
            m_shown.notify_all();
            if (!isAsked(mood == Mood::Frozen ? -1 : m_listener)) continue;
            const int connection = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (mood == Mood::Answers) {
                answer(connection);
            } else {
                silenced.push_back(connection);
            }
        }
        for (const int connection : silenced)
            close(connection);
        stopListening();
    }
    static void answer(int connection) {
        char command[16];
        pollfd entry{connection, POLLIN, 0};
        if (poll(&entry, 1, kLongestCommandMs) == 1 && recv(connection, command, sizeof command, 0) > 0)
            send(connection, "READY", 5, MSG_NOSIGNAL);
        close(connection);
    }
    void listen() {
        m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int yes = 1;
        setsockopt(m_listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<std::uint16_t>(m_port));
        const bool listens = bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
                             ::listen(m_listener, 16) == 0;
        EXPECT_TRUE(listens) << "port " << m_port;
        if (!listens) stopListening();
    }
    void stopListening() {
        if (m_listener >= 0) close(m_listener);
        m_listener = -1;
    }

    int m_port;
    int m_listener = -1;
    int m_wakeup = eventfd(0, EFD_CLOEXEC);
    std::atomic<Mood> m_mood;
    std::atomic<Mood> m_shown{Mood::Stuck};
    std::atomic<bool> m_ends{false};
    std::thread m_thread;
};

// The child's process and its peer are two, so that each can be in trouble alone.
void configure(ServiceUnderTest& service, const ReservedPort& port) {
    const std::string uri = "tcp://127.0.0.1:" + port.str();
    ChildXml alpha;
    alpha.startAttributes = "sync=\"1\"";
    alpha.stop =
        "<stop type=\"socketSend\"><socketSend URI=\"" + uri + "\" commandString=\"SHUTDOWN\"/></stop>";
    alpha.ping =
        "<ping><socketSend URI=\"" + uri +
        "\" commandString=\"PING\" sockIOTimeoutSec=\"1\" responseSize=\"16\" responseOK=\"READY\"/></ping>";
    BootstrapXml document;
    document.children = {alpha};
    document.daemonSpawn =
        "<daemonSpawn sync=\"3\"><path>${bin_path}/velbootstrapservice</path><param>runAsDaemon</param>"
        "<param>-java_home=${java_home}</param></daemonSpawn>";
    service.bootstrap(document);
    service.startup(
        "<ZOR><vrx:parameter name=\"dispatcherPingTimeout\"><vrx:value xsi:type=\"xsd:unsignedShort\">2"
        "</vrx:value></vrx:parameter><vrx:parameter name=\"dispatcherStopWaitTime\"><vrx:value "
        "xsi:type=\"xsd:unsignedShort\">1</vrx:value></vrx:parameter></ZOR><temp>../temp</temp>"
        "<internalDispatcher>https://localhost:9300/dispatch</internalDispatcher>");
}

// The lines that have come to a log since the last look.
class Tail {
  public:
    explicit Tail(std::string path) : m_path(std::move(path)) {}

    std::vector<std::string> news() {
        if (!m_file.is_open()) m_file.open(m_path);
        m_file.clear();
        std::vector<std::string> lines;
        for (std::string part; std::getline(m_file, part);) {
            m_begun += part;
            if (m_file.eof()) break;
            lines.push_back(std::move(m_begun));
            m_begun.clear();
        }
        return lines;
    }

  private:
    std::string m_path;
    std::ifstream m_file;
    std::string m_begun;
};

bool holds(const std::string& line, const char* words) {
    return line.find(words) != std::string::npos;
}

constexpr const char* kPinged = "process alpha pinged successfully.";
constexpr const char* kSeenAlive = "process \"alpha\" is still active, so we will ping it.";

// A service whose child gets into trouble once, and when what happened.
class RealRun {
  public:
    RealRun(std::string name, Mood mood) : m_name(std::move(name)), m_mood(mood) {
        configure(m_service, m_port);
        m_peer =
            std::make_unique<Peer>(std::stoi(m_port.str()), isFreshStart() ? Mood::Refuses : Mood::Answers);
        m_tail = std::make_unique<Tail>(m_service.path("logs/run.log"));
        m_service.begin({.arguments = {"-d"}});
    }

    ServiceUnderTest& service() { return m_service; }
    const std::string& name() const { return m_name; }
    // In seconds, by row.
    const std::map<std::string, double>& rows() const { return m_rows; }
    bool isComplete() const { return m_isComplete; }

    void look() {
        for (const std::string& line : m_tail->news()) {
            if (!m_begun) {
                waitForTheMoment(line);
            } else {
                note(line);
            }
        }
        if (m_begun && !m_isReplaced && m_service.childPids().size() > 1) {
            m_isReplaced = true;
            m_peer->become(Mood::Answers);
            m_isComplete = m_isComplete || isFreshStart();
        }
    }
    void end() { m_service.cleanUp(); }

  private:
    bool isDeath() const { return m_name == "death"; }
    bool isFreshStart() const { return m_name == "fresh start"; }

    void waitForTheMoment(const std::string& line) {
        if (isFreshStart() ? holds(line, "entering timedWait") : isItsMoment(line)) begin();
    }
    // Of the second round. A death comes at its worst between the look and the ping, all else after a good ping.
    bool isItsMoment(const std::string& line) {
        return holds(line, isDeath() ? kSeenAlive : kPinged) && ++m_seen == 2;
    }
    void begin() {
        if (!isFreshStart()) m_peer->become(m_mood);
        if (isDeath()) kill(m_service.childPids().front(), SIGKILL);
        m_begun = Clock::now();
    }
    void note(const std::string& line) {
        const bool isGone =
            holds(line, "is not active, so restarting it.") || holds(line, "appears to be dead");
        if (isDeath() ? isGone : holds(line, "ping of process alpha failed.")) noteRow("noticed");
        if (holds(line, "stopAction->execute() return status")) noteRow("told to stop");
        if (holds(line, "so kill it")) noteRow("killed");
        if (m_isReplaced && holds(line, kPinged)) {
            noteRow("answers again");
            m_isComplete = true;
        }
    }
    void noteRow(const char* what) { m_rows.try_emplace(m_name + ": " + what, secondsSince(*m_begun)); }

    std::string m_name;
    Mood m_mood;
    ReservedPort m_port;
    ServiceUnderTest m_service;
    std::unique_ptr<Peer> m_peer;
    std::unique_ptr<Tail> m_tail;
    std::optional<Clock::time_point> m_begun;
    int m_seen = 0;
    bool m_isReplaced = false;
    bool m_isComplete = false;
    std::map<std::string, double> m_rows;
};

std::map<std::string, double> told(const std::vector<CTLBudgetRow>& budget, const std::string& child) {
    std::map<std::string, double> rows;
    for (const CTLBudgetRow& row : budget) {
        if (row.child == child && row.ms) rows[row.what] = static_cast<double>(*row.ms) / 1000;
    }
    return rows;
}

// A preparation goes into the installation's bin/, and whoever works there belongs to the installation and ends with it.
struct WayBack {
    ~WayBack() { std::filesystem::current_path("/"); }
};

}  // namespace

TEST(BudgetRunTest, EachRowOfAChildHappensWithinASecondOfWhatIsTold) {
    std::vector<std::unique_ptr<RealRun>> runs;
    runs.push_back(std::make_unique<RealRun>("fresh start", Mood::Refuses));
    runs.push_back(std::make_unique<RealRun>("death", Mood::Refuses));
    runs.push_back(std::make_unique<RealRun>("refusal", Mood::Refuses));
    runs.push_back(std::make_unique<RealRun>("silence", Mood::Silent));
    runs.push_back(std::make_unique<RealRun>("freeze", Mood::Frozen));
    EXPECT_TRUE(runs.front()->service().waitFor(
        "all rows",
        [&] {
            bool complete = true;
            for (const auto& run : runs) {
                run->look();
                complete = complete && run->isComplete();
            }
            return complete;
        },
        120));
    std::map<std::string, double> happened;
    for (const auto& run : runs) {
        EXPECT_TRUE(run->isComplete()) << run->name();
        happened.insert(run->rows().begin(), run->rows().end());
        run->end();
    }
    const WayBack wayBack;
    CTLPreparation preparation{CTLInstance(runs.front()->service().path())};
    const std::map<std::string, double> budget = told(CTLBudget::of(preparation), "alpha");
    EXPECT_EQ(budget.size(), 16U);
    for (const auto& [what, sec] : budget) {
        ASSERT_EQ(happened.count(what), 1U) << what;
        EXPECT_NEAR(happened.at(what), sec, kToleranceSec) << what;
    }
}

TEST(BudgetRunTest, AStopOfSilentChildrenTakesWhatIsTold) {
    ServiceUnderTest service;
    const ReservedPort port;
    configure(service, port);
    Peer peer(std::stoi(port.str()), Mood::Answers);
    Tail tail(service.path("logs/run.log"));
    const pid_t pid = service.begin({.arguments = {"-d"}});
    int rounds = 0;
    std::optional<Clock::time_point> begun;
    EXPECT_TRUE(service.waitFor(
        "the second look",
        [&] {
            for (const std::string& line : tail.news()) {
                if (holds(line, kPinged)) peer.become(Mood::Silent);
                if (!holds(line, kSeenAlive) || ++rounds != 2) continue;
                kill(pid, SIGTERM);
                begun = Clock::now();
            }
            return begun.has_value();
        },
        40));
    ASSERT_TRUE(begun);
    EXPECT_EQ(service.finish(pid).exitCode, 0);
    const double took = secondsSince(*begun);
    service.cleanUp();
    const WayBack wayBack;
    CTLPreparation preparation{CTLInstance(service.path())};
    CTLSimulation simulation;
    const auto ms = CTLLife(simulation).stop(Mood::Silent, false, 1, CTLLife::kDayMs);
    ASSERT_TRUE(ms);
    EXPECT_NEAR(took, static_cast<double>(*ms) / 1000, kToleranceSec);
}

TEST(BudgetRunTest, CommandsTakeWhatIsTold) {
    const std::vector<std::string> patience{"-testReadyTries=3", "-testReadyInterval=1", "-testDeadTries=3",
                                            "-testDeadInterval=1"};
    ServiceUnderTest service;
    const ReservedPort port;
    configure(service, port);
    Peer peer(std::stoi(port.str()), Mood::Silent);
    std::vector<std::string> start{"-start"};
    std::vector<std::string> stop{"-stop"};
    start.insert(start.end(), patience.begin(), patience.end());
    stop.insert(stop.end(), patience.begin(), patience.end());
    const auto startBegin = Clock::now();
    EXPECT_EQ(service.run(start).exitCode, 1);
    const double startTook = secondsSince(startBegin);
    // A daemon that does not end.
    kill(service.daemonPid(), SIGSTOP);
    const auto stopBegin = Clock::now();
    EXPECT_EQ(service.run(stop).exitCode, 1);
    const double stopTook = secondsSince(stopBegin);
    service.cleanUp();
    const WayBack wayBack;
    CTLPreparation preparation{CTLInstance(service.path())};
    CTLSimulation simulation;
    CTLLife life(simulation);
    EXPECT_NEAR(startTook, static_cast<double>(life.startCommand(Mood::Silent, start).value_or(0)) / 1000,
                kToleranceSec);
    EXPECT_NEAR(stopTook, static_cast<double>(life.stopCommand(stop).value_or(0)) / 1000, kToleranceSec);
}
