// What is made of a log: events, and which child a line is about.

#include "CTLHistory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "CTLInstance.h"
#include "CTLLogFiles.h"
#include "Repository.h"
#include "ServiceUnderTest.h"
#include "SourceText.h"

namespace {

constexpr std::time_t kNoon = 1795262400;

// Lines of one thread, a second apart.
class LogText {
  public:
    LogText& say(const std::string& level, const std::string& logger, const std::string& text) {
        m_lines.push_back({m_now++, level, m_thread, logger, text});
        return *this;
    }
    LogText& supervisor(const std::string& level, const std::string& text) {
        return say(level, "PingChildProcess", text);
    }
    LogText& after(int seconds) {
        m_now += seconds - 1;
        return *this;
    }
    LogText& in(const std::string& thread) {
        m_thread = thread;
        return *this;
    }
    const std::vector<CTLLogLine>& lines() const { return m_lines; }

  private:
    std::time_t m_now = kNoon;
    std::string m_thread = "1a";
    std::vector<CTLLogLine> m_lines;
};

std::string told(const std::vector<CTLEvent>& events) {
    std::string all;
    for (const CTLEvent& event : events) {
        all += event.child + (event.child.empty() ? "" : " ") + CTLEvent::word(event.kind);
        if (event.seconds) all += " " + std::to_string(*event.seconds);
        all += "; ";
    }
    return all;
}

std::string toldOf(const LogText& log, const std::vector<CTLPinged>& pinged = {}) {
    return told(CTLHistory::of(log.lines(), pinged));
}

// ---- The texts ----

// So that a text that is changed in the service is changed here as well.
TEST(HistoryTest, EachTextThatItKnowsIsLoggedByTheService) {
    std::vector<SourceText> sources;
    for (const auto& file : repository::filesBelow("source", ".cpp"))
        sources.emplace_back(repository::read(file));
    const auto isLogged = [&](const CTLHistory::Text& text) {
        return std::any_of(sources.begin(), sources.end(), [&](const SourceText& source) {
            const auto& loggers = source.loggers();
            return std::find(loggers.begin(), loggers.end(), text.logger) != loggers.end() &&
                   std::any_of(source.literals().begin(), source.literals().end(), [&](const auto& literal) {
                       // Without a level: it reaches the log through a function of the class.
                       return literal.text == text.format &&
                              (literal.level == text.level || literal.level.empty());
                   });
        });
    };
    for (const CTLHistory::Text& text : CTLHistory::texts()) {
        EXPECT_TRUE(isLogged(text)) << text.level << " " << text.logger << " " << text.format;
    }
    EXPECT_GT(CTLHistory::texts().size(), 40U);
}

TEST(HistoryTest, TheReasonThatAHandshakeTakesLongIsGivenByTheSecurityLibrary) {
    const std::string source = repository::read(repository::root() / "transport/SEKSocket.cpp");
    EXPECT_NE(source.find("not finished after"), std::string::npos);
}

// ---- Events ----

TEST(HistoryTest, TheLifeOfTheServiceIsTold) {
    LogText log;
    log.say("INFO", "ZORBootstrapService", "Velmora Bootstrap Service running as process 77.")
        .say("INFO", "ZORBootstrapService", "ZORBootstrapService::Run() - child process(es) is/are ready.")
        .supervisor("INFO", "stopping child process(es).")
        .supervisor("INFO",
                    "2 processes are still alive, but we're not going to wait any longer for them to die.")
        .say("INFO", "ZORBootstrapService", "Done.")
        .say("FATAL", "ZORSpawnAction", "execve failed, errno=2");
    EXPECT_EQ(toldOf(log),
              "service started; service ready; service stopping; killed; service stopped; fatal; ");
}

TEST(HistoryTest, ADeathIsADeathAndARestart) {
    LogText log;
    log.supervisor("ERROR", "ping loop: process \"a b\" is not active, so restarting it.")
        .say("DEBUG", "ZORChildProcess", "starting process \"a b\"")
        .supervisor("DEBUG", "Process quiet is not alive. Resuscitating.");
    EXPECT_EQ(toldOf(log), "a b died; a b restarted; quiet died; quiet restarted; ");
}

TEST(HistoryTest, AFirstStartIsNoRestart) {
    LogText log;
    log.say("DEBUG", "ZORChildProcess", "starting process \"alpha\"");
    EXPECT_EQ(toldOf(log), "alpha started; ");
}

TEST(HistoryTest, OneThatIsGoneAfterItWasAskedToStopWasNotKilled) {
    LogText log;
    log.supervisor(
           "WARN",
           "process alpha hit ping failure limit, will restart, but first make sure it is really dead.")
        .supervisor("WARN", "process alpha appears to still be alive, so stop it.")
        .say("ERROR", "ZORSocketCommand", "failed to connect, SEK error: cannot connect to 127.0.0.1:9: no ")
        .supervisor("WARN", "stopAction->execute() return status = -1")
        .supervisor("WARN", "unresponsive process alpha hasn't yet finished stopping.")
        .supervisor("WARN", "restarting process alpha.");
    EXPECT_EQ(toldOf(log), "alpha unresponsive; alpha asked to stop; alpha restarted; ");
}

TEST(HistoryTest, OneThatHadNotFinishedTwiceWasKilled) {
    LogText log;
    log.supervisor("WARN", "unresponsive process alpha hasn't yet finished stopping.")
        .supervisor("WARN", "unresponsive process alpha hasn't yet finished stopping.")
        .supervisor("WARN", "restarting process alpha.");
    EXPECT_EQ(toldOf(log), "alpha killed; alpha restarted; ");
}

TEST(HistoryTest, AKillThatDebugLinesTellIsToldOnce) {
    LogText log;
    log.supervisor("WARN", "unresponsive process alpha hasn't yet finished stopping.")
        .supervisor("DEBUG",
                    "unresponsive process alpha still hasn't stopped after two polls intervals, so kill it")
        .say("DEBUG", "ZORChildProcess", "killing process \"alpha\"")
        .say("DEBUG", "ZORChildProcess", "Process ID used is 4711")
        .supervisor("WARN", "unresponsive process alpha hasn't yet finished stopping.")
        .supervisor("WARN", "restarting process alpha.");
    EXPECT_EQ(toldOf(log), "alpha killed; alpha restarted; ");
}

TEST(HistoryTest, WhatIsDeadAtTheEndIsNotKilledAndHasStoppedOnce) {
    LogText log;
    log.supervisor("DEBUG", "Process \"alpha\", is dead.")
        .supervisor("DEBUG", "Process \"alpha\", is dead.")
        .say("DEBUG", "ZORChildProcess", "killing process \"alpha\"")
        .say("DEBUG", "ZORChildProcess", "Process ID used is -1");
    EXPECT_EQ(toldOf(log), "alpha stopped; ");
}

// ---- Pings ----

TEST(HistoryTest, AFailedPingHasItsReasonAndAGoodOneItsTime) {
    LogText log;
    log.supervisor("DEBUG", "Pinging process alpha. Ping counter: 0")
        .say("DEBUG", "ZORSockSendAction", "socket send action execute, sending...")
        .after(7)
        .supervisor("DEBUG", "process alpha pinged successfully.")
        .supervisor("DEBUG", "Pinging process beta. Ping counter: 0")
        .say("ERROR", "ZORSocketCommand", "no response,  SEK_Poll timed out.")
        .supervisor("DEBUG", "ping of process beta failed. Will begin restart sequence.");
    const std::vector<CTLEvent> events = CTLHistory::of(log.lines());
    EXPECT_EQ(told(events), "alpha ping answered 5; beta ping failed; ");
    EXPECT_EQ(events.back().text, "no response,  SEK_Poll timed out.");
}

TEST(HistoryTest, WithoutDebugLinesThePortTellsWhoseAFailedPingWas) {
    const std::vector<CTLPinged> pinged{{"alpha", "93"}, {"beta", "9300"}};
    LogText log;
    log.say("ERROR", "ZORSocketCommand",
            "failed to connect, SEK error: cannot connect to 127.0.0.1:9300: refused ")
        .say("ERROR", "ZORSocketCommand",
             "failed to connect, SEK error: cannot connect to [::1]:93: refused ")
        .say("ERROR", "ZORSocketCommand", "no response,  SEK_Poll timed out.");
    EXPECT_EQ(toldOf(log, pinged), "beta ping failed; alpha ping failed; ping failed; ");
    EXPECT_EQ(toldOf(log, {{"only", ""}}), "only ping failed; only ping failed; only ping failed; ");
}

TEST(HistoryTest, AHandshakeThatIsToldTwiceIsOneFailedPing) {
    const std::string text =
        "failed to establish, SEK error: TLS handshake with [::1]:9 not finished after 10 s ";
    LogText log;
    log.say("ERROR", "ZORSocketCommand", text).after(2).say("ERROR", "ZORSocketCommand", text).after(15);
    log.say("ERROR", "ZORSocketCommand", text);
    EXPECT_EQ(toldOf(log), "ping failed; ping failed; ");
}

TEST(HistoryTest, ThePingsOfACommandAndTheErrorsOfAStopAreNoFailedPings) {
    const std::string text = "failed to connect, SEK error: cannot connect to 127.0.0.1:9: refused ";
    LogText log;
    log.in("c")
        .say("INFO", "ZORBootstrapService", "Starting the daemon.")
        .say("ERROR", "ZORSocketCommand", text);
    log.in("d").supervisor("INFO", "stopping child process(es).").say("ERROR", "ZORSocketCommand", text);
    log.supervisor("WARN", "stopAction->execute() return status = -1").say("ERROR", "ZORSocketCommand", text);
    log.in("e").say("ERROR", "ZORSocketCommand", text);
    EXPECT_EQ(toldOf(log), "service stopping; ping failed; ");
}

// ---- Which child a line is about ----

TEST(HistoryTest, LinesThatNameNoChildAreThoseOfTheOneThatIsBeingExamined) {
    LogText log;
    log.supervisor("DEBUG", "Pinging process alpha. Ping counter: 0")
        .say("DEBUG", "ZORSockSendAction", "got response \"READY\"")
        .supervisor("DEBUG", "entering timedWait, interval = 1000")
        .say("WARN", "Elsewhere", "of nobody");
    CTLHistory history;
    std::string children;
    for (const CTLLogLine& line : log.lines()) {
        history.add(line);
        children += history.childOfLast() + ",";
    }
    EXPECT_EQ(children, "alpha,alpha,,,");
}

// ---- A real service ----

class RealHistoryTest : public SystemTest {
  protected:
    std::vector<CTLEvent> events(const std::vector<CTLPinged>& pinged = {}) const {
        service.write("logs/velbootstrapservice.log", service.read("logs/run.log"));
        const CTLLogFiles files{CTLInstance(service.path())};
        return CTLHistory::of(files.linesSince(0), pinged);
    }
};

TEST_F(RealHistoryTest, WhatHappensToAChildIsInItsHistory) {
    const ReservedPort port;
    BootstrapXml document;
    ChildXml alpha;
    alpha.pinged(port);
    alpha.stop = "<stop type=\"spawn\"><spawn><path>/bin/true</path></spawn></stop>";
    document.children = {alpha};
    service.bootstrap(document);
    service.write("bin/zor.failedPingLimit", "-9\n");
    service.answer("READY");
    const pid_t daemon = runningInForeground();
    ASSERT_TRUE(service.waitForLog("DEBUG", "PingChildProcess", "process alpha pinged successfully."));
    ASSERT_EQ(kill(service.childPids().at(0), SIGKILL), 0);
    ASSERT_TRUE(service.waitForStarts(2));
    // It does not listen any more: one failed ping, two looks, then it is killed.
    ASSERT_EQ(kill(service.childPids().at(1), SIGSTOP), 0);
    ASSERT_TRUE(service.waitForStarts(3));
    stopDaemon(daemon);
    std::string all = told(events());
    EXPECT_EQ(all.substr(0, 30), "alpha started; service started") << all;
    for (const char* const each : {"alpha ping answered", "alpha died; alpha restarted", "alpha ping failed",
                                   "alpha unresponsive; alpha asked to stop", "alpha killed; alpha restarted",
                                   "service stopping", "service stopped"}) {
        EXPECT_NE(all.find(each), std::string::npos) << each << " is not in: " << all;
    }
}

}  // namespace
