#include "ZORSocketCommand.h"

#include <array>
#include <limits>

#include "FailingOs.h"
#include "ScriptedTransport.h"
#include "TestKit.h"
#include "VirtualOs.h"

namespace {

std::string sessionDocument(const std::string& family) {
    return R"(<?xml version="1.0" encoding="UTF-8"?>)"
           R"(<sessionConfigDocument xmlns="http://schemas.velmora.example/sek/crypto/1/")"
           R"( xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance")"
           R"( xsi:schemaLocation="http://schemas.velmora.example/sek/crypto/1/crypto.xsd">)"
           "<serviceID>gateway</serviceID><protocolFamily>" +
           family + "</protocolFamily></sessionConfigDocument>";
}

constexpr const char* kUri = "https://peer.example:9300/dispatch";

class ZORSocketCommandTest : public ServiceTest {
  protected:
    // The texts that the command's logger wrote, each of which must be an error.
    std::vector<std::string> errors() const {
        std::vector<std::string> texts;
        for (const LogLine& line : log.linesOf("ZORSocketCommand")) {
            EXPECT_EQ(line.level, "ERROR");
            texts.push_back(line.text);
        }
        return texts;
    }
    // Every text that the library handed out has come back, once.
    void expectFreed(std::size_t details) {
        EXPECT_EQ(sek.count("SEK_CryptoFree"), details);
        EXPECT_EQ(sek.unfreedDetails(), 0);
    }
    static std::string family(const std::string& uri, const std::string& command = "PING") {
        ZORSocketCommand socketCommand(uri.c_str(), command.c_str(), 60);
        std::string document = socketCommand.getSessionConfigDoc();
        for (const char* const family : {"IPv4", "IPv6"}) {
            if (document == sessionDocument(family)) return family;
        }
        return document;
    }
    void configureFamily(const std::string& value) const {
        writeStartup("<networkConfiguration>" + value + "</networkConfiguration>");
    }

    VirtualOs os;
    ScriptedTransport transport;
    ScriptedSek& sek = ScriptedTransport::sek();
};

using Texts = std::vector<std::string>;

// Choosing the session document.

TEST_F(ZORSocketCommandTest, ALiteralIPv6AddressSelectsIPv6) {
    configureFamily("IPv4");
    for (const char* const uri :
         {"https://[fe80::1]:8443/path", "https://[::1]:80", "https://[::1]/path", "https://fe80::1:80"}) {
        EXPECT_EQ(family(uri), "IPv6") << uri;
    }
}

TEST_F(ZORSocketCommandTest, TheConfiguredFamilyIsAskedForOnce) {
    configureFamily("IPv6");
    ZORSocketCommand command("https://localhost:80", "PING", 60);
    const std::string first = command.getSessionConfigDoc();
    EXPECT_EQ(first, sessionDocument("IPv6"));
    configureFamily("IPv4");
    EXPECT_EQ(command.getSessionConfigDoc(), first) << "no ping walks through the document";
    EXPECT_EQ(family("https://localhost:80"), "IPv4") << "another command asks for itself";
}

TEST_F(ZORSocketCommandTest, ADottedHostSelectsIPv4WhateverIsConfigured) {
    configureFamily("IPv6");
    for (const char* const uri : {"https://host.example:80/path", "https://10.0.0.1:80",
                                  "https://host.example/path", "https://host.example", "tcp://a.b"}) {
        EXPECT_EQ(family(uri), "IPv4") << uri;
    }
}

TEST_F(ZORSocketCommandTest, TheConfigurationDecidesForASingleLabel) {
    configureFamily("IPv6");
    for (const char* const uri :
         {"https://localhost:8443/path", "https://localhost:8443", "https://localhost/a.b",
          "https://localhost", "https://:80", "https://", ""}) {
        EXPECT_EQ(family(uri), "IPv6") << uri;
    }
}

TEST_F(ZORSocketCommandTest, OnlyTheExactWordInTheConfigurationSelectsIPv6) {
    for (const char* const value : {"ipv6", "IPV6", " IPv6", "IPv6 ", "IPv4", "both", ""}) {
        configureFamily(value);
        EXPECT_EQ(family("https://localhost:8443"), "IPv4") << value;
    }
}

TEST_F(ZORSocketCommandTest, WithoutAConfigurationASingleLabelSelectsIPv4) {
    EXPECT_EQ(family("https://localhost:8443"), "IPv4");
}

TEST_F(ZORSocketCommandTest, AConfigurationThatCannotBeReadSelectsIPv4AndIsReported) {
    folder.write("configuration/startup.xml", "<startupConfiguration>");
    EXPECT_EQ(family("https://localhost:8443"), "IPv4");
    ASSERT_EQ(errors().size(), 1U);
    EXPECT_NE(errors()[0].find("startup.xml"), std::string::npos);
}

TEST_F(ZORSocketCommandTest, AColonInThePathSelectsIPv6) {
    EXPECT_EQ(family("https://localhost:80/a:b"), "IPv6");
    EXPECT_EQ(family("https://host.example:80/a:b"), "IPv6");
    EXPECT_EQ(family("https://host.example/a:b"), "IPv4") << "no colon before the last one";
}

TEST_F(ZORSocketCommandTest, WithoutDoubleSlashesTheHostStartsAtTheSecondCharacter) {
    configureFamily("IPv6");
    EXPECT_EQ(family(".localhost:80"), "IPv6") << "the dot is not looked at";
    EXPECT_EQ(family("a.localhost:80"), "IPv4");
    EXPECT_EQ(family(":localhost.example"), "IPv4") << "the colon stands before the host";
    EXPECT_EQ(family("https:/localhost:80"), "IPv6");
    EXPECT_EQ(family("x:80"), "IPv6") << "an empty host";
}

TEST_F(ZORSocketCommandTest, ShutdownGoesOutOverIPv4WhateverTheURISays) {
    configureFamily("IPv6");
    for (const char* const uri :
         {"https://[fe80::1]:8443", "https://localhost:8443", "https://host.example"}) {
        EXPECT_EQ(family(uri, "SHUTDOWN"), "IPv4") << uri;
    }
    for (const char* const command : {"shutdown", "SHUTDOWN ", "SHUTDOW"}) {
        EXPECT_EQ(family("https://[fe80::1]:8443", command), "IPv6") << command;
    }
}

// Connecting.

TEST_F(ZORSocketCommandTest, EveryConnectionIsPrecededByAPause) {
    ZORSocketCommand command(kUri, "PING", 60);
    os.at(1999, [&] { EXPECT_TRUE(sek.calls().empty()); });
    EXPECT_EQ(command.connect(), 0);
    command.close();
    EXPECT_EQ(command.connect(), 0);
    EXPECT_EQ(os.sleeps(), (std::vector<std::int64_t>{2000, 2000}));
}

TEST_F(ZORSocketCommandTest, TheSessionDocumentGoesToTheSocketAndToTheConnect) {
    ZORSocketCommand command("https://[::1]:9300", "PING", 60);
    EXPECT_EQ(command.connect(), 0);
    EXPECT_EQ(sek.last("SEK_Socket").text, sessionDocument("IPv6"));
    EXPECT_EQ(sek.last("SEK_Connect_Url").text, "https://[::1]:9300");
    EXPECT_EQ(sek.last("SEK_Connect_Url").document, sessionDocument("IPv6"));
    EXPECT_EQ(errors(), Texts{});
}

TEST_F(ZORSocketCommandTest, ASocketThatCannotBeMadeIsReportedWithItsDetails) {
    sek.queue("SEK_Socket", {-9, "no memory"});
    ZORSocketCommand command(kUri, "PING", 60);
    EXPECT_EQ(command.connect(), -1);
    EXPECT_EQ(errors(), Texts{"failed to create SEK handle: no memory "});
    expectFreed(1);
    EXPECT_EQ(sek.count("SEK_Connect_Url"), 0U);
}

TEST_F(ZORSocketCommandTest, ASocketThatCannotBeMadeWithoutDetailsIsNotReported) {
    sek.queue("SEK_Socket", {-9, {}});
    ZORSocketCommand command(kUri, "PING", 60);
    EXPECT_EQ(command.connect(), -1);
    EXPECT_EQ(errors(), Texts{});
    expectFreed(0);
}

TEST_F(ZORSocketCommandTest, APositiveResultOfTheSocketIsASuccess) {
    sek.queue("SEK_Socket", {4, {}});
    ZORSocketCommand command(kUri, "PING", 60);
    EXPECT_EQ(command.connect(), 0);
}

// What the library answers to each connect and each establish, and what comes of it.
struct Handshake {
    std::vector<long> connects;
    std::vector<long> establishes;
    int result;
    std::size_t connectsMade;
    std::size_t establishesMade;
};

const std::vector<Handshake>& handshakes() {
    static const std::vector<Handshake> all{
        // Without a handshake.
        {{0}, {}, 0, 1, 0},
        {{-1}, {}, -1, 1, 0},
        {{-23}, {}, -1, 1, 0},
        {{1}, {}, -1, 1, 0},
        {{15}, {}, -1, 1, 0},
        // One establish.
        {{-15, 0}, {0}, 0, 2, 1},
        {{-15, -1}, {0}, -1, 2, 1},
        {{-15, -23}, {0}, -1, 2, 1},
        {{-15, 2}, {0}, -1, 2, 1},
        {{-15, 0}, {-1}, -1, 1, 1},
        {{-15, 0}, {-15}, -1, 1, 1},
        {{-15, 0}, {3}, -1, 1, 1},
        // Repeated establishes.
        {{-15, 0}, {-23, 0}, 0, 2, 2},
        {{-15, 0}, {-23, -1}, -1, 1, 2},
        {{-15, 0}, {-23, -15}, -1, 1, 2},
        {{-15, 0}, {-23, -23, -23, -23, 0}, 0, 2, 5},
        {{-15, 0}, {-23, -23, -23, -23, -23, 0}, -1, 1, 6},  // established, but nothing left to connect again
        {{-15, 0}, {-23, -23, -23, -23, -23, -23, 0}, -1, 1, 6},
        // Repeated connects.
        {{-15, -15, 0}, {0, 0}, 0, 3, 2},
        {{-15, -15, -15, -15, -15, 0}, {0, 0, 0, 0, 0}, 0, 6, 5},
        {{-15, -15, -15, -15, -15, -1}, {0, 0, 0, 0, 0}, -1, 6, 5},
        {{-15, -15, -15, -15, -15, -15, 0}, {0, 0, 0, 0, 0, 0}, -1, 6, 6},
        {{-15, -15, -15, -15, -15, -15, 0}, {0, 0, 0, 0, 0, -23, 0}, -1, 6, 6},
        {{-15, -15, -15, -15, -15, -15, 0}, {0, 0, 0, 0, 0, -1}, -1, 6, 6},
        // One budget for both.
        {{-15, -15, 0}, {-23, -23, 0, -23, 0}, 0, 3, 5},
        {{-15, -15, -15, 0}, {-23, -23, 0, -23, 0, 0}, -1, 3, 6},
        {{-15, -15, 0}, {0, -23, -23, -23, -23, 0}, -1, 2, 6},
        {{-15, -15, 0}, {0, -23, -23, -23, 0}, 0, 3, 5},
    };
    return all;
}

class HandshakeTest : public ZORSocketCommandTest, public testing::WithParamInterface<Handshake> {
  protected:
    static std::string words(const std::string& entry, std::size_t index) {
        return entry + " " + std::to_string(index);
    }
    void queueAll(const std::string& entry, const std::vector<long>& codes, bool withDetails) {
        for (std::size_t i = 0; i < codes.size(); ++i) {
            ScriptedSek::Answer answer{codes[i], {}};
            if (withDetails && codes[i] != 0) answer.details = words(entry, i);
            sek.queue(entry, answer);
        }
    }
    void queueAnswers(bool withDetails) {
        queueAll("SEK_Connect_Url", GetParam().connects, withDetails);
        queueAll("SEK_EstablishSecure", GetParam().establishes, withDetails);
    }
    void expectCalls() {
        EXPECT_EQ(sek.count("SEK_Connect_Url"), GetParam().connectsMade);
        EXPECT_EQ(sek.count("SEK_EstablishSecure"), GetParam().establishesMade);
    }
    // The lines in the order of the calls that failed.
    Texts expectedErrors() {
        std::size_t connects = 0;
        std::size_t establishes = 0;
        Texts texts;
        for (const ScriptedSek::Call& call : sek.calls()) {
            if (call.entry == "SEK_Connect_Url" && GetParam().connects[connects++] != 0) {
                texts.push_back("failed to connect, SEK error: " + words(call.entry, connects - 1) + " ");
            }
            if (call.entry == "SEK_EstablishSecure" && GetParam().establishes[establishes++] != 0) {
                texts.push_back("failed to establish, SEK error: " + words(call.entry, establishes - 1) +
                                " ");
            }
        }
        return texts;
    }
};

TEST_P(HandshakeTest, SpendsTheRetryBudgetAndReportsEveryFailure) {
    queueAnswers(true);
    ZORSocketCommand command(kUri, "PING", 60);
    EXPECT_EQ(command.connect(), GetParam().result);
    expectCalls();
    const Texts expected = expectedErrors();
    EXPECT_EQ(errors(), expected);
    EXPECT_EQ(sek.count("SEK_CryptoGetLastErrorDetails"), expected.size());
    expectFreed(expected.size());
    EXPECT_EQ(os.sleeps().size(), 1U) << "repetitions are not paused";
    EXPECT_EQ(sek.count("SEK_Socket"), 1U);
}

TEST_P(HandshakeTest, SaysNothingWhereTheLibraryHasNoDetails) {
    queueAnswers(false);
    ZORSocketCommand command(kUri, "PING", 60);
    EXPECT_EQ(command.connect(), GetParam().result);
    expectCalls();
    EXPECT_EQ(errors(), Texts{});
    EXPECT_EQ(sek.count("SEK_CryptoGetLastErrorDetails"), expectedErrors().size());
    expectFreed(0);
}

INSTANTIATE_TEST_SUITE_P(EveryCodeAtEveryStep, HandshakeTest, testing::ValuesIn(handshakes()));

// Sending.

TEST_F(ZORSocketCommandTest, SendsTheBytesOfTheCommandAndNothingElse) {
    ZORSocketCommand command(kUri, "PING\n", 60);
    EXPECT_EQ(command.sendCommand(), 1);
    EXPECT_EQ(sek.count("SEK_Send"), 1U);
    EXPECT_EQ(sek.last("SEK_Send").text, "PING\n");
    EXPECT_EQ(sek.last("SEK_Send").number, 5);
    EXPECT_EQ(sek.last("SEK_Send").flags, 0);
    EXPECT_EQ(errors(), Texts{});
}

TEST_F(ZORSocketCommandTest, AnEmptyCommandIsSentAsZeroBytes) {
    ZORSocketCommand command(kUri, "", 60);
    EXPECT_EQ(command.sendCommand(), 1);
    EXPECT_EQ(sek.count("SEK_Send"), 1U);
    EXPECT_EQ(sek.last("SEK_Send").number, 0);
}

TEST_F(ZORSocketCommandTest, KeepsCopiesOfWhatItWasBuiltFrom) {
    std::string uri = kUri;
    std::string text = "PING";
    ZORSocketCommand command(uri.c_str(), text.c_str(), 60);
    uri[0] = 'X';
    text[0] = 'X';
    EXPECT_EQ(command.sendCommand(), 1);
    EXPECT_EQ(sek.last("SEK_Connect_Url").text, kUri);
    EXPECT_EQ(sek.last("SEK_Send").text, "PING");
}

TEST_F(ZORSocketCommandTest, WithoutAConnectionNothingIsSent) {
    sek.queue("SEK_Connect_Url", {-1, "refused"});
    ZORSocketCommand command(kUri, "PING", 60);
    EXPECT_EQ(command.sendCommand(), -1);
    EXPECT_EQ(sek.count("SEK_Send"), 0U);
    EXPECT_EQ(errors(), Texts{"failed to connect, SEK error: refused "});
}

TEST_F(ZORSocketCommandTest, AnyResultOfTheSendButZeroIsAFailure) {
    for (const long code : {-1L, -15L, -23L, 1L, 4L}) {
        ZORSocketCommand command(kUri, "PING", 60);
        sek.queue("SEK_Send", {code, "broken"});
        EXPECT_EQ(command.sendCommand(), -1) << code;
    }
    EXPECT_EQ(errors(), Texts(5, "failed to send, SEK error: broken "));
    expectFreed(5);
}

TEST_F(ZORSocketCommandTest, AFailedSendWithoutDetailsIsNotReported) {
    sek.queue("SEK_Send", {-1, {}});
    ZORSocketCommand command(kUri, "PING", 60);
    EXPECT_EQ(command.sendCommand(), -1);
    EXPECT_EQ(errors(), Texts{});
    expectFreed(0);
}

// Receiving.

TEST_F(ZORSocketCommandTest, PollsForTheConfiguredTimeThenReadsOneBlock) {
    sek.peer(kUri).answer = "ready and more";
    ZORSocketCommand command(kUri, "PING", 60);
    ASSERT_EQ(command.sendCommand(), 1);
    std::array<char, 8> buffer{};
    buffer.fill('#');
    EXPECT_EQ(command.getResponse(5, buffer.data()), 5);
    EXPECT_EQ(std::string(buffer.data(), buffer.size()), "ready###") << "not terminated";
    EXPECT_EQ(sek.count("SEK_Poll"), 1U);
    EXPECT_EQ(sek.last("SEK_Poll").text, "1");
    EXPECT_EQ(sek.last("SEK_Poll").flags, 1);
    EXPECT_EQ(sek.last("SEK_Poll").number, 60000);
    EXPECT_EQ(sek.count("SEK_Recv"), 1U);
    EXPECT_EQ(sek.last("SEK_Recv").number, 5);
    EXPECT_EQ(sek.last("SEK_Recv").flags, 0);
    EXPECT_EQ(errors(), Texts{});
}

TEST_F(ZORSocketCommandTest, AnAnswerInPiecesIsSeenUpToTheFirst) {
    sek.peer(kUri).answer = "O";
    ZORSocketCommand command(kUri, "PING", 60);
    ASSERT_EQ(command.sendCommand(), 1);
    std::array<char, 2> buffer{};
    EXPECT_EQ(command.getResponse(2, buffer.data()), 1);
    EXPECT_EQ(sek.count("SEK_Recv"), 1U);
}

TEST_F(ZORSocketCommandTest, TheTimeLimitIsInSecondsAndMinusOneNeverPolls) {
    constexpr int kMost = std::numeric_limits<std::int32_t>::max();
    for (const auto& [timeoutSec, limitMs] : {std::pair{0, 0}, {1, 1000}, {-2, -2000}, {kMost, kMost}}) {
        ZORSocketCommand command(kUri, "PING", timeoutSec);
        ASSERT_EQ(command.sendCommand(), 1);
        std::array<char, 2> buffer{};
        EXPECT_EQ(command.getResponse(2, buffer.data()), 2);
        EXPECT_EQ(sek.last("SEK_Poll").number, limitMs);
    }
    sek.reset();
    sek.peer(kUri).silent = true;
    ZORSocketCommand command(kUri, "PING", -1);
    ASSERT_EQ(command.sendCommand(), 1);
    std::array<char, 2> buffer{};
    EXPECT_EQ(command.getResponse(2, buffer.data()), 2);
    EXPECT_EQ(sek.count("SEK_Poll"), 0U);
    EXPECT_EQ(errors(), Texts{});
}

constexpr const char* kTimedOut = "no response,  SEK_Poll timed out.";
constexpr const char* kNotReady = "SEK_Poll succeeded but socket not ready for reading.  This is unexpected.";

TEST_F(ZORSocketCommandTest, EveryOutcomeOfThePollHasItsLine) {
    struct Case {
        long code;
        std::uint16_t bits;
        std::optional<std::string> details;
        int result;
        Texts lines;
    };
    for (const auto& [code, bits, details, result, lines] : {
             Case{2, 0, {}, -1, {kTimedOut}},
             Case{2, 2, {}, -1, {kTimedOut}},
             Case{2, 1, {}, 2, {}},
             Case{-1, 0, "reset", -1, {"SEK_Poll failed, SEK error: reset "}},
             Case{-1, 1, "reset", -1, {"SEK_Poll failed, SEK error: reset "}},
             Case{-23, 0, {}, -1, {}},
             Case{0, 0, {}, -1, {kNotReady}},
             Case{0, 2, {}, -1, {kNotReady}},
             Case{1, 0, {}, -1, {kNotReady}},
             Case{3, 0xfffe, {}, -1, {kNotReady}},
             Case{0, 1, {}, 2, {}},
             Case{1, 3, {}, 2, {}},
         }) {
        sek.reset();
        log.clear();
        ZORSocketCommand command(kUri, "PING", 60);
        ASSERT_EQ(command.sendCommand(), 1);
        sek.queue("SEK_Poll", {code, details});
        sek.setPollBits(bits);
        std::array<char, 2> buffer{};
        EXPECT_EQ(command.getResponse(2, buffer.data()), result) << code << ", bits " << bits;
        EXPECT_EQ(errors(), lines) << code << ", bits " << bits;
        EXPECT_EQ(sek.count("SEK_Recv"), result == 2 ? 1U : 0U) << code << ", bits " << bits;
        expectFreed(details ? 1 : 0);
        command.close();
    }
}

TEST_F(ZORSocketCommandTest, ASilentPeerTimesOut) {
    sek.peer(kUri).silent = true;
    ZORSocketCommand command(kUri, "PING", 60);
    ASSERT_EQ(command.sendCommand(), 1);
    std::array<char, 2> buffer{};
    EXPECT_EQ(command.getResponse(2, buffer.data()), -1);
    EXPECT_EQ(errors(), Texts{kTimedOut});
}

TEST_F(ZORSocketCommandTest, AReadOfZeroOrMoreGivesTheBytesReceived) {
    for (const long code : {0L, 2L, 7L}) {
        ZORSocketCommand command(kUri, "PING", 60);
        ASSERT_EQ(command.sendCommand(), 1);
        sek.queue("SEK_Recv", {code, {}});
        std::array<char, 4> buffer{};
        EXPECT_EQ(command.getResponse(4, buffer.data()), 2) << code;
    }
    sek.peer(kUri).answer = "";
    ZORSocketCommand command(kUri, "PING", 60);
    ASSERT_EQ(command.sendCommand(), 1);
    std::array<char, 4> buffer{};
    EXPECT_EQ(command.getResponse(4, buffer.data()), 0) << "the peer has closed";
    EXPECT_EQ(errors(), Texts{});
}

TEST_F(ZORSocketCommandTest, AFailedReadIsReportedWhereThereAreDetails) {
    ZORSocketCommand command(kUri, "PING", -1);
    std::array<char, 4> buffer{};
    ASSERT_EQ(command.sendCommand(), 1);
    sek.queue("SEK_Recv", {-1, "reset"});
    EXPECT_EQ(command.getResponse(4, buffer.data()), -1);
    EXPECT_EQ(errors(), Texts{"SEK_recv failed, SEK error: reset "});
    expectFreed(1);
    sek.queue("SEK_Recv", {-23, {}});
    EXPECT_EQ(command.getResponse(4, buffer.data()), -1);
    EXPECT_EQ(errors().size(), 1U);
    expectFreed(1);
}

// Closing.

TEST_F(ZORSocketCommandTest, CloseReleasesTheHandleOnce) {
    ZORSocketCommand command(kUri, "PING", 60);
    command.close();
    EXPECT_EQ(sek.count("SEK_CloseHandle"), 0U) << "nothing was open";
    ASSERT_EQ(command.sendCommand(), 1);
    EXPECT_EQ(sek.openHandles(), 1);
    command.close();
    command.close();
    EXPECT_EQ(sek.count("SEK_CloseHandle"), 1U);
    EXPECT_EQ(sek.openHandles(), 0);
}

TEST_F(ZORSocketCommandTest, EachExchangeHasAHandleOfItsOwn) {
    ZORSocketCommand command(kUri, "PING", 60);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(command.sendCommand(), 1);
        command.close();
    }
    EXPECT_EQ(sek.count("SEK_Socket"), 3U);
    EXPECT_EQ(sek.count("SEK_CloseHandle"), 3U);
    EXPECT_EQ(sek.openHandles(), 0);
}

TEST_F(ZORSocketCommandTest, TheDestructorClosesWhatIsOpen) {
    {
        ZORSocketCommand command(kUri, "PING", 60);
        ASSERT_EQ(command.sendCommand(), 1);
    }
    EXPECT_EQ(sek.openHandles(), 0);
}

TEST_F(ZORSocketCommandTest, AFailedExchangeLeavesItsHandleToClose) {
    sek.queue("SEK_Connect_Url", {-1, {}});
    ZORSocketCommand command(kUri, "PING", 60);
    EXPECT_EQ(command.sendCommand(), -1);
    EXPECT_EQ(sek.openHandles(), 1);
    command.close();
    EXPECT_EQ(sek.openHandles(), 0);
}

TEST_F(ZORSocketCommandTest, SendingAgainDoesNotReleaseTheHandleBefore) {
    ZORSocketCommand command(kUri, "PING", 60);
    ASSERT_EQ(command.sendCommand(), 1);
    ASSERT_EQ(command.sendCommand(), 1);
    EXPECT_EQ(sek.openHandles(), 2);
    EXPECT_EQ(sek.count("SEK_CloseHandle"), 0U);
}

// Without a library.

TEST_F(ZORSocketCommandTest, AHandleThatTheLibraryKeepsIsForgottenBeforeTheLibraryGoes) {
    auto command = std::make_unique<ZORSocketCommand>(kUri, "PING", 60);
    EXPECT_EQ(command->sendCommand(), 1);
    sek.queue("SEK_CloseHandle", {-1, {}});
    command->close();
    const std::size_t closes = sek.count("SEK_CloseHandle");
    EXPECT_EQ(closes, 1U);
    EXPECT_EQ(sek.openHandles(), 1);
    // Without a handle of its own the next exchange has nothing to close.
    sek.queue("SEK_Socket", {-1, {}});
    EXPECT_EQ(command->sendCommand(), -1);
    command->close();
    EXPECT_EQ(sek.count("SEK_CloseHandle"), closes);
    command.reset();
    EXPECT_EQ(sek.count("SEK_CloseHandle"), closes);
}

class ZORSocketCommandWithoutLibraryTest : public ServiceTest {
  protected:
    ZORSocketCommandWithoutLibraryTest() {
        failing.failFrom(OsKind::LoadLibrary, 1, ENOENT);
        ZORCryptoHelper::InitializeCrypto();
    }
    ~ZORSocketCommandWithoutLibraryTest() override { ZORCryptoHelper::TerminateCrypto(); }

    VirtualOs os;
    FailingOs failing;
};

TEST_F(ZORSocketCommandWithoutLibraryTest, SendingFailsAtTheSocketWithEmptyDetails) {
    ZORSocketCommand command(kUri, "PING", 60);
    EXPECT_EQ(command.sendCommand(), -1);
    EXPECT_EQ(log.linesOf("ZORSocketCommand"),
              (std::vector<LogLine>{{"ERROR", "ZORSocketCommand", "failed to create SEK handle:  ", {}}}));
    command.close();
}

}  // namespace
