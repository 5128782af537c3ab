#include "ZORSockSendAction.h"

#include <atomic>
#include <fstream>

#include "FailingOs.h"
#include "LinkSeam.h"
#include "ScriptedTransport.h"
#include "TVLThread.h"
#include "TestKit.h"
#include "VirtualOs.h"
#include "ZORBadConfigException.h"

namespace {

constexpr const char* kUri = "https://peer.example:9300/dispatch";
constexpr const char* kTarget = "URI='https://peer.example:9300/dispatch' commandString='PING' ";

LogLine debugLine(const std::string& text) {
    return {"DEBUG", "ZORSockSendAction", text, {}};
}

class ZORSockSendActionTest : public ServiceTest {
  protected:
    ~ZORSockSendActionTest() noexcept override = default;  // though the destructor of an action may throw

    void prepareElement(ZORSockSendAction& subject, const std::string& attributes) const {
        const XmlText document("<socketSend " + attributes + "/>");
        subject.prepare(document.root());
    }
    void prepare(const std::string& attributes) { prepareElement(action, kTarget + attributes); }
    // One exchange of an action of its own; `log` holds what the exchange said, not the preparation.
    int resultOf(const std::string& attributes, const std::string& answer) {
        ZORSockSendAction subject;
        prepareElement(subject, kTarget + attributes);
        sek.peer(kUri).answer = answer;
        log.clear();
        return subject.execute();
    }
    std::string lastLine() const {
        const std::vector<LogLine> lines = log.linesOf("ZORSockSendAction");
        return lines.empty() ? "" : lines.back().text;
    }

    VirtualOs os;
    ScriptedTransport transport;
    ScriptedSek& sek = ScriptedTransport::sek();
    ZORSockSendAction action;
};

// Preparing.

TEST_F(ZORSockSendActionTest, PreparationIsLoggedInItsOrder) {
    prepare(
        "sockIOTimeoutSec='5' responseSize='10' responseOK='ok' responseFatal='fatal' responseRetry='retry' "
        "wait_time='1'");
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{debugLine("preparing"),
                                    {"DEBUG", "ZORAction", "configured wait_time is 1000 ms.", {}},
                                    debugLine("URI is https://peer.example:9300/dispatch"),
                                    debugLine(R"(command string is "PING")"),
                                    debugLine("socket I/O timeout is 5"),
                                    debugLine(R"(responseSize is "10")"),
                                    debugLine(R"(responseOK is "ok")"),
                                    debugLine(R"(responseFatal is "fatal")"),
                                    debugLine(R"(responseRetry is "retry")")}));
}

TEST_F(ZORSockSendActionTest, WhatIsNotConfiguredIsNotLogged) {
    prepare("");
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{debugLine("preparing"),
                                                 debugLine("URI is https://peer.example:9300/dispatch"),
                                                 debugLine(R"(command string is "PING")")}));
}

TEST_F(ZORSockSendActionTest, AMissingURIIsABadConfiguration) {
    for (const char* const attributes : {"commandString='PING'", "URI='' commandString='PING'"}) {
        log.clear();
        try {
            prepareElement(action, attributes);
            ADD_FAILURE() << "no exception for " << attributes;
        } catch (const ZORBadConfigException& exception) {
            EXPECT_STREQ(exception.getMessage(), "ping action must have URI");
        }
        EXPECT_TRUE(log.has("ERROR", "ZORSockSendAction", "missing URI attribute"));
    }
}

TEST_F(ZORSockSendActionTest, AMissingCommandIsABadConfiguration) {
    for (const char* const attributes : {"URI='tcp://a:1'", "URI='tcp://a:1' commandString=''"}) {
        log.clear();
        try {
            prepareElement(action, attributes);
            ADD_FAILURE() << "no exception for " << attributes;
        } catch (const ZORBadConfigException& exception) {
            EXPECT_STREQ(exception.getMessage(), "ping action must have commandString attribute.");
        }
        EXPECT_TRUE(log.has("ERROR", "ZORSockSendAction", "missing commandString attribute"));
    }
}

TEST_F(ZORSockSendActionTest, URIAndCommandAreExpandedOnceAtPreparation) {
    setProperty("port", "9300");
    setProperty("word", "HELLO");
    prepareElement(action, "URI='tcp://peer.example:${port}' commandString='${word} ${port}'");
    EXPECT_TRUE(log.has("DEBUG", "ZORSockSendAction", "URI is tcp://peer.example:9300"));
    EXPECT_TRUE(log.has("DEBUG", "ZORSockSendAction", R"(command string is "HELLO 9300")"));
    setProperty("port", "1");
    EXPECT_EQ(action.execute(), 1);
    EXPECT_EQ(sek.last("SEK_Connect_Url").text, "tcp://peer.example:9300");
    EXPECT_EQ(sek.last("SEK_Send").text, "HELLO 9300");
}

TEST_F(ZORSockSendActionTest, TheAnswerIsAwaitedAsLongAsConfigured) {
    struct Case {
        const char* attribute;
        long limitMs;
    };
    for (const auto& [attribute, limitMs] :
         {Case{"", 60000}, Case{"sockIOTimeoutSec=''", 60000}, Case{"sockIOTimeoutSec='5'", 5000},
          Case{"sockIOTimeoutSec=' 7 s'", 7000}, Case{"sockIOTimeoutSec='soon'", 0}}) {
        EXPECT_EQ(resultOf(std::string("responseSize='4' ") + attribute, "OK"), 2) << attribute;
        EXPECT_EQ(sek.last("SEK_Poll").number, limitMs) << attribute;
    }
}

TEST_F(ZORSockSendActionTest, ATimeLimitWithoutANumberIsLoggedAsZero) {
    prepare("sockIOTimeoutSec='soon'");
    EXPECT_TRUE(log.has("DEBUG", "ZORSockSendAction", "socket I/O timeout is 0"));
}

TEST_F(ZORSockSendActionTest, ATimeLimitOfMinusOneNeverPolls) {
    EXPECT_EQ(resultOf("responseSize='4' sockIOTimeoutSec='-1'", "OK"), 2);
    EXPECT_EQ(sek.count("SEK_Poll"), 0U);
}

TEST_F(ZORSockSendActionTest, AMarkerLongerThanTheAnswerIsSwitchedOff) {
    prepare("responseSize='4' responseOK='12345' responseFatal='12345' responseRetry='12345'");
    EXPECT_TRUE(log.inOrder(
        {{"ERROR", "ZORSockSendAction", "configured OK response is longer that the response length.", {}},
         debugLine(R"(responseOK is "")"),
         {"ERROR", "ZORSockSendAction", "configured FATAL response is longer that the response length.", {}},
         debugLine(R"(responseFatal is "")"),
         {"ERROR", "ZORSockSendAction", "configured RETRY response is longer that the response length.", {}},
         debugLine(R"(responseRetry is "")")}));
    sek.peer(kUri).answer = "none";
    EXPECT_EQ(action.execute(), 4);
    EXPECT_EQ(lastLine(), R"(got response "none")");
}

TEST_F(ZORSockSendActionTest, AMarkerAsLongAsTheAnswerIsKept) {
    prepare("responseSize='4' responseOK='1234'");
    EXPECT_TRUE(log.has("DEBUG", "ZORSockSendAction", R"(responseOK is "1234")"));
    EXPECT_TRUE(log.linesOf("ZORSockSendAction").back().level == "DEBUG");
}

TEST_F(ZORSockSendActionTest, TheLengthOfAMarkerIsCountedInCharacters) {
    prepare("responseSize='2' responseFatal='\xc3\xa4\xc3\xb6' responseRetry='\xc3\xa4\xc3\xb6\xc3\xbc'");
    EXPECT_TRUE(log.has("DEBUG", "ZORSockSendAction", "responseFatal is \"\xc3\xa4\xc3\xb6\""));
    EXPECT_TRUE(log.has("DEBUG", "ZORSockSendAction", R"(responseRetry is "")"));
}

TEST_F(ZORSockSendActionTest, WithoutAnAnswerToReadTheMarkersAreNotRead) {
    for (const char* const size : {"", "responseSize='0' ", "responseSize='-3' ", "responseSize='many' "}) {
        sek.reset();
        EXPECT_EQ(resultOf(std::string(size) + "responseOK='OK'", "OK"), 1) << size;
        EXPECT_EQ(sek.count("SEK_Poll"), 0U) << size;
        EXPECT_EQ(sek.count("SEK_Recv"), 0U) << size;
        EXPECT_EQ(sek.openHandles(), 0) << size;
    }
    log.clear();
    prepare("responseSize='0' responseOK='OK'");
    EXPECT_EQ(lastLine(), R"(responseSize is "0")");
}

// Executing.

TEST_F(ZORSockSendActionTest, ASendWithoutAnAnswerIsLogged) {
    prepare("");
    log.clear();
    EXPECT_EQ(action.execute(), 1);
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{debugLine("socket send action execute, sending..."),
                                                 debugLine("successful send, no response to read.")}));
}

TEST_F(ZORSockSendActionTest, AFailedSendGivesMinusOneAndClosesTheHandle) {
    prepare("responseSize='4'");
    log.clear();
    sek.queue("SEK_Send", {-1, "broken"});
    EXPECT_EQ(action.execute(), ZOR_NOT_SENT);
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{debugLine("socket send action execute, sending..."),
                                    {"ERROR", "ZORSocketCommand", "failed to send, SEK error: broken ", {}},
                                    debugLine("socket send action failed")}));
    EXPECT_EQ(sek.openHandles(), 0);
    EXPECT_EQ(sek.count("SEK_Recv"), 0U);
}

TEST_F(ZORSockSendActionTest, ARefusedConnectionGivesMinusOneAndClosesTheHandle) {
    prepare("");
    sek.peer(kUri).refuses = true;
    EXPECT_EQ(action.execute(), ZOR_NOT_SENT);
    EXPECT_EQ(lastLine(), "socket send action failed");
    EXPECT_EQ(sek.openHandles(), 0);
}

TEST_F(ZORSockSendActionTest, AnAnswerIsReadUpToTheConfiguredSize) {
    prepare("responseSize='4'");
    sek.peer(kUri).answer = "longer than that";
    log.clear();
    EXPECT_EQ(action.execute(), 4);
    EXPECT_EQ(sek.last("SEK_Recv").number, 4);
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{debugLine("socket send action execute, sending..."),
                                                 debugLine("successful send, now read response..."),
                                                 debugLine(R"(got response "long")")}));
    EXPECT_EQ(sek.openHandles(), 0);
}

TEST_F(ZORSockSendActionTest, AnAnswerThatCannotBeReadGivesMinusOne) {
    prepare("responseSize='4' responseOK='OK' responseFatal='F'");
    sek.peer(kUri).silent = true;
    log.clear();
    EXPECT_EQ(action.execute(), ZOR_NOT_SENT);
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{debugLine("socket send action execute, sending..."),
                                    debugLine("successful send, now read response..."),
                                    {"ERROR", "ZORSocketCommand", "no response,  SEK_Poll timed out.", {}},
                                    debugLine("error occured while reading response.")}));
    EXPECT_EQ(sek.openHandles(), 0);
}

TEST_F(ZORSockSendActionTest, APeerThatClosesWithoutAnAnswerGivesZero) {
    EXPECT_EQ(resultOf("responseSize='4' responseOK='OK'", ""), 0);
    EXPECT_EQ(lastLine(), R"(got response "")");
}

constexpr const char* kSuccess = "successfully detected success string in response.";
constexpr const char* kFatal = "detected fatal error string in response.";
constexpr const char* kRetry = "Tomcat is not ready, retry...";
constexpr const char* kNothing = "did not detect success string in response.";

TEST_F(ZORSockSendActionTest, AnswersAreClassifiedByTheirMarkers) {
    struct Case {
        std::string answer;
        const char* markers;
        int result;
        const char* line;
    };
    constexpr const char* kAll = "responseOK='good' responseFatal='bad' responseRetry='wait'";
    const std::string zero(1, '\0');
    for (const auto& [answer, markers, result, line] : {
             Case{"all good", kAll, 8, kSuccess},
             Case{"good", kAll, 4, kSuccess},
             Case{"too bad", kAll, -3, kFatal},
             Case{"please wait", kAll, -4, kRetry},
             Case{"whatever", kAll, -2, kNothing},
             Case{"GOOD", kAll, -2, kNothing},
             Case{"bad, no: good", kAll, 13, kSuccess},
             Case{"wait: bad", kAll, -3, kFatal},
             Case{"bad", kAll, 3, R"(got response "bad")"},  // shorter than the mark of success
             Case{"bad!", kAll, -3, kFatal},
             Case{"go" + zero + "good", kAll, -2, kNothing},
             Case{"bad!" + zero + "good", kAll, -3, kFatal},
             Case{"good" + zero + "rest", kAll, 9, kSuccess},
             Case{"too bad", "responseFatal='bad'", 7, R"(got response "too bad")"},  // no mark of success
             Case{"too bad", "responseOK='good'", -2, kNothing},
             Case{"wait", "responseOK='good' responseRetry='wait'", -4, kRetry},
             Case{"go on", "responseOK='good' responseFatal='good night, fatal'", -2, kNothing},
             Case{"fail", "responseOK='xx' responseFatal='fail'", -3, kFatal},
             Case{"xx", "responseOK='yy' responseFatal='xxx'", -2, kNothing},
         }) {
        EXPECT_EQ(resultOf(std::string("responseSize='16' ") + markers, answer), result) << answer;
        EXPECT_EQ(lastLine(), line) << answer;
        EXPECT_EQ(sek.openHandles(), 0) << answer;
    }
}

TEST_F(ZORSockSendActionTest, OnlyAnAnswerWithoutAnyMarkerIsAWarning) {
    constexpr const char* kAll =
        "responseSize='16' responseOK='good' responseFatal='bad' responseRetry='wait'";
    resultOf(kAll, "whatever");
    EXPECT_TRUE(log.has("WARN", "ZORSockSendAction", kNothing));
    for (const auto& [answer, line] :
         {std::pair{"good", kSuccess}, {"too bad", kFatal}, {"please wait", kRetry}}) {
        resultOf(kAll, answer);
        EXPECT_TRUE(log.has("DEBUG", "ZORSockSendAction", line)) << answer;
        EXPECT_FALSE(log.has("WARN", "ZORSockSendAction", kNothing)) << answer;
    }
}

// The supervisor decides by these numbers, which its own tests count with.
TEST_F(ZORSockSendActionTest, TheCodesAreThoseThatTheSupervisorReads) {
    constexpr const char* kAll =
        "responseSize='16' responseOK='good' responseFatal='bad' responseRetry='wait'";
    sek.peer(kUri).refuses = true;
    EXPECT_EQ(resultOf(kAll, ""), -1);
    EXPECT_EQ(resultOf(kAll, ""), ZOR_NOT_SENT);
    sek.peer(kUri).refuses = false;
    EXPECT_EQ(resultOf(kAll, "whatever"), -2);
    EXPECT_EQ(resultOf(kAll, "whatever"), ZOR_NO_SUCCESS);
    EXPECT_EQ(resultOf(kAll, "too bad"), -3);
    EXPECT_EQ(resultOf(kAll, "too bad"), ZOR_FATAL_ANSWER);
    EXPECT_EQ(resultOf(kAll, "please wait"), -4);
    EXPECT_EQ(resultOf(kAll, "please wait"), ZOR_RETRY_ANSWER);
}

TEST_F(ZORSockSendActionTest, AnAnswerOfOneCharacterIsHeldAgainstTheMarkersToo) {
    EXPECT_EQ(resultOf("responseSize='1' responseOK='y'", "y"), 1);
    EXPECT_EQ(lastLine(), kSuccess);
    EXPECT_EQ(resultOf("responseSize='1' responseOK='y'", "n"), ZOR_NO_SUCCESS);
}

TEST_F(ZORSockSendActionTest, AnswersAreTidied) {
    EXPECT_EQ(resultOf("responseSize='32'", "a\tb\r\n\x01\x1f\x20\x7f~\x80\xc3\xa4\xff!"), 15);
    EXPECT_EQ(lastLine(), "got response \"a b     \x7f~    !\"");
    EXPECT_EQ(resultOf("responseSize='32' responseOK='all good'", "all\ngood"), 8);
    EXPECT_EQ(lastLine(), kSuccess) << "the search sees the tidied text";
}

TEST_F(ZORSockSendActionTest, EveryExecutionIsACompleteExchange) {
    prepare("responseSize='4' responseOK='OK'");
    sek.peer(kUri).answer = "OK";
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(action.execute(), 2);
    EXPECT_EQ(sek.count("SEK_Socket"), 3U);
    EXPECT_EQ(sek.count("SEK_CloseHandle"), 3U);
    EXPECT_EQ(sek.peer(kUri).commands, (std::vector<std::string>{"PING", "PING", "PING"}));
}

// Two threads.

constexpr std::size_t kStackSizeBytes = 1 << 20;

class Execution : public TVLThreadRunnable {
  public:
    Execution(ZORSockSendAction& action, int delayMs) : m_action(action), m_delayMs(delayMs) {}
    void run() override {
        TVLThread::sleep(m_delayMs);
        m_threadId.store(TVLThread::currentThreadId());
        result = m_action.execute();
        doneAtMs = TVLOs::current().nowMs();
    }
    // Whether its thread waits in the kernel for something.
    bool isBlocked() const {
        std::ifstream file("/proc/self/task/" + std::to_string(m_threadId.load()) + "/stat");
        std::string text;
        std::getline(file, text);
        const std::size_t name = text.rfind(')');
        return name != std::string::npos && text.substr(name, 3) == ") S";
    }

    int result = 0;
    std::int64_t doneAtMs = 0;

  private:
    ZORSockSendAction& m_action;
    int m_delayMs;
    std::atomic<unsigned int> m_threadId{0};
};

TEST_F(ZORSockSendActionTest, ThePauseAfterAnExecutionHoldsNobodyUp) {
    prepare("wait_time='20'");
    Execution second(action, 5000);
    TVLThread thread(&second, kStackSizeBytes);
    thread.start();
    EXPECT_EQ(action.execute(), 1);
    EXPECT_EQ(os.nowMs(), 22000);
    thread.join();
    EXPECT_EQ(second.result, 1);
    EXPECT_EQ(second.doneAtMs, 27000) << "its exchange fell into the pause of the first";
}

// Sleeps take no time, but the first one starts a second execution and lasts until that is blocked or sleeps
// as well.
class OverlapOs : public FailingOs {
  public:
    explicit OverlapOs(ZORSockSendAction& action)
        : m_second(action, 0), m_thread(&m_second, kStackSizeBytes) {}
    void sleepMs(std::int64_t /*durationMs*/) override {
        if (++m_sleeping > 1) m_overlapped = true;
        if (!m_started.exchange(true)) {
            m_thread.start();
            while (!m_overlapped && !m_second.isBlocked()) {
            }
        }
        --m_sleeping;
    }
    int joinSecond() {
        m_thread.join();
        return m_second.result;
    }
    bool overlapped() const { return m_overlapped; }

  private:
    std::atomic<bool> m_overlapped{false};
    std::atomic<int> m_sleeping{0};
    std::atomic<bool> m_started{false};
    Execution m_second;
    TVLThread m_thread;
};

TEST_F(ZORSockSendActionTest, ExecutionsOfOneActionDoNotOverlap) {
    prepare("");
    OverlapOs overlap(action);
    EXPECT_EQ(action.execute(), 1);
    EXPECT_EQ(overlap.joinSecond(), 1);
    EXPECT_FALSE(overlap.overlapped());
    EXPECT_EQ(sek.count("SEK_Socket"), 2U);
}

TEST_F(ZORSockSendActionTest, AResponseSizeBeyondTheMemoryFailsTheExchangeOnly) {
    prepare("responseSize='2147483647'");
    {
        LinkSeam seam;
        seam.failZeroedMemory();
        EXPECT_EQ(action.execute(), -1);
    }
    EXPECT_TRUE(log.has("ERROR", "ZORSockSendAction", "no memory for a response of 2147483647 bytes."));
    EXPECT_EQ(sek.openHandles(), 0);
}

}  // namespace
