// A machine in virtual time and the security library that it hands out.

#include "VirtualMachine.h"

#include <dlfcn.h>

#include <csignal>
#include <string>
#include <vector>

#include "SEK_EntryPoints.h"
#include "TVLCrypto.h"
#include "TestKit.h"

namespace {

using Kind = VirtualEvent::Kind;
using Mood = VirtualChild::Mood;

class VirtualMachineTest : public testing::Test {
  protected:
    VirtualMachineTest() {
        machine.askForChildren([] {
            return std::vector<VirtualChild>{{.name = "alpha",
                                              .pingUri = "tls://localhost:1",
                                              .pingCommand = "PING",
                                              .stopUri = "tcp://localhost:2",
                                              .stopCommand = "STOP"},
                                             {.name = "beta"}};
        });
        machine.listenToEvents([this](const VirtualEvent& event) {
            if (event.child == 0) kinds.push_back(event.kind);
        });
        library.SEK_Socket(&handle, nullptr, nullptr, nullptr);
    }
    ~VirtualMachineTest() override { library.SEK_CloseHandle(&handle, nullptr, nullptr); }

    void feel(Mood mood) {
        machine.with([&](std::vector<VirtualChild>& children) { children[0].mood = mood; });
    }
    long connect(std::string uri) { return library.SEK_Connect_Url(handle, uri.data(), nullptr); }
    long send(const std::string& command) {
        return library.SEK_Send(handle, command.data(), static_cast<long>(command.size()), 0, nullptr,
                                nullptr);
    }
    long poll(long limitMs) {
        SEK_Pollfd entry{handle, SEK_Readable, 0};
        return library.SEK_Poll(&entry, 1, limitMs, nullptr, nullptr);
    }
    std::string received() {
        char answer[16];
        long size = 0;
        const long code = library.SEK_Recv(handle, answer, sizeof answer, 0, &size, nullptr);
        return code < 0 ? "(failed)" : std::string(answer, static_cast<std::size_t>(size));
    }
    std::string details() {
        char* text = nullptr;
        library.SEK_CryptoGetLastErrorDetails(handle, nullptr, &text);
        const std::string told = text == nullptr ? "" : text;
        library.SEK_CryptoFree(text, nullptr);
        return told;
    }

    VirtualMachine machine;
    TVLCrypto library{"SEK_Crypto_Interface"};
    std::vector<Kind> kinds;
    void* handle = nullptr;
};

}  // namespace

TEST_F(VirtualMachineTest, ItsLibraryHasAllEntryPoints) {
    EXPECT_EQ(library.isOpen(), 1);
    EXPECT_EQ(library.SEK_GetRandomData(0, nullptr, nullptr), SEK_NotSupported);
    EXPECT_EQ(machine.dlsym(&machine, "SEK_Connect_Url") == nullptr, false) << "another library's";
}

TEST_F(VirtualMachineTest, TheFirstProcessesAreTheChildrensInTheirOrder) {
    const pid_t alpha = machine.fork();
    const pid_t beta = machine.fork();
    EXPECT_EQ(machine.childNow(0).pid, alpha);
    EXPECT_EQ(machine.childNow(1).pid, beta);
    EXPECT_EQ(kinds, (std::vector<Kind>{Kind::Started}));
}

TEST_F(VirtualMachineTest, LaterProcessesAreThoseOfTheChildThatWasLookedAt) {
    machine.fork();
    const pid_t beta = machine.fork();
    machine.end(1);
    EXPECT_EQ(machine.kill(beta, 0), -1);
    const pid_t again = machine.fork();
    EXPECT_EQ(machine.childNow(1).pid, again);
    EXPECT_TRUE(machine.childNow(1).alive);
}

TEST_F(VirtualMachineTest, AProcessBesideALivingOneTellsTheChildToStop) {
    const pid_t alpha = machine.fork();
    EXPECT_EQ(machine.kill(alpha, 0), 0);
    const pid_t stop = machine.fork();
    EXPECT_FALSE(machine.childNow(0).alive);
    EXPECT_EQ(machine.kill(stop, 0), -1);
    EXPECT_EQ(kinds, (std::vector<Kind>{Kind::Started, Kind::Looked, Kind::ToldToStop, Kind::Ended}));
}

TEST_F(VirtualMachineTest, AChildEndsInItsTimeWhenItIsTold) {
    const pid_t alpha = machine.fork();
    machine.with([](std::vector<VirtualChild>& children) { children[0].endsAfterMs = 3000; });
    machine.kill(alpha, SIGTERM);
    machine.sleepMs(2999);
    EXPECT_TRUE(machine.childNow(0).alive);
    machine.sleepMs(1);
    EXPECT_FALSE(machine.childNow(0).alive);
}

TEST_F(VirtualMachineTest, AChildThatIgnoresStopsIsKilled) {
    const pid_t alpha = machine.fork();
    machine.with([](std::vector<VirtualChild>& children) { children[0].endsAfterMs = VirtualChild::kNever; });
    machine.kill(alpha, SIGTERM);
    EXPECT_TRUE(machine.childNow(0).alive);
    machine.kill(alpha, SIGKILL);
    EXPECT_FALSE(machine.childNow(0).alive);
}

TEST_F(VirtualMachineTest, AFrozenChildHearsNoSignalButTheLast) {
    const pid_t alpha = machine.fork();
    feel(Mood::Frozen);
    machine.kill(alpha, SIGTERM);
    EXPECT_TRUE(machine.childNow(0).alive);
    machine.kill(alpha, SIGKILL);
    EXPECT_FALSE(machine.childNow(0).alive);
}

TEST_F(VirtualMachineTest, ASignalToTheGroupReachesTheServiceItself) {
    machine.fork();
    int heard = 0;
    machine.listenToGroup([&](int signal) { heard = signal; });
    EXPECT_EQ(machine.kill(0, SIGTERM), 0);
    EXPECT_EQ(heard, SIGTERM);
    EXPECT_FALSE(machine.childNow(0).alive);
    sigset_t all;
    sigfillset(&all);
    EXPECT_EQ(machine.waitForSignal(all), SIGTERM);
}

// --- connections ---

TEST_F(VirtualMachineTest, APingIsAnsweredAsUsual) {
    machine.fork();
    EXPECT_EQ(connect("tls://localhost:1"), SEK_HandshakePending);
    EXPECT_EQ(library.SEK_EstablishSecure(handle, nullptr), SEK_Ok);
    EXPECT_EQ(connect("tls://localhost:1"), SEK_Ok);
    EXPECT_EQ(send("PING"), SEK_Ok);
    EXPECT_EQ(poll(1000), SEK_Ok);
    EXPECT_EQ(received(), "OK");
    EXPECT_EQ(machine.nowMs(), 0);
}

TEST_F(VirtualMachineTest, NobodyListensForAChildThatIsNotThere) {
    EXPECT_EQ(connect("tls://localhost:1"), SEK_Failed);
    EXPECT_EQ(details(), "cannot connect to localhost:1 (IPv4): 127.0.0.1:1: Connection refused");
    machine.fork();
    machine.with([](std::vector<VirtualChild>& children) { children[0].listensAfterMs = 100; });
    EXPECT_EQ(connect("tls://localhost:1"), SEK_Failed);
    machine.sleepMs(100);
    EXPECT_EQ(connect("tls://localhost:1"), SEK_HandshakePending);
}

TEST_F(VirtualMachineTest, AddressesThatAreNoneAreRefused) {
    machine.fork();
    const std::pair<const char*, const char*> wrongs[] = {{"localhost:1", "no scheme"},
                                                          {"ftp://localhost:1", "unknown scheme"},
                                                          {"tls://:1", "no host"},
                                                          {"tls://localhost", "bad port"},
                                                          {"tls://localhost:70000", "bad port"}};
    for (const auto& [uri, why] : wrongs) {
        EXPECT_EQ(connect(uri), SEK_Failed);
        EXPECT_EQ(details(), std::string("bad address \"") + uri + "\": " + why);
    }
}

TEST_F(VirtualMachineTest, AFrozenChildKeepsAHandshakeWaitingInTurns) {
    machine.fork();
    feel(Mood::Frozen);
    EXPECT_EQ(connect("tls://localhost:1"), SEK_HandshakePending);
    for (int turn = 1; turn <= 6; ++turn) {
        EXPECT_EQ(library.SEK_EstablishSecure(handle, nullptr), SEK_CallAgain);
        EXPECT_EQ(machine.nowMs(), turn * 2000);
        EXPECT_EQ(details().empty(), turn < 5) << turn;
    }
}

TEST_F(VirtualMachineTest, ASilentChildIsAwaitedToTheTimeLimit) {
    machine.fork();
    feel(Mood::Silent);
    connect("tls://localhost:1");
    library.SEK_EstablishSecure(handle, nullptr);
    send("PING");
    EXPECT_EQ(poll(5000), SEK_TimedOut);
    EXPECT_EQ(machine.nowMs(), 5000);
}

TEST_F(VirtualMachineTest, AnAnswerComesWhenTheSilenceEnds) {
    machine.fork();
    feel(Mood::Silent);
    connect("tls://localhost:1");
    library.SEK_EstablishSecure(handle, nullptr);
    send("PING");
    machine.at(3000, [this] { feel(Mood::Answers); });
    EXPECT_EQ(poll(5000), SEK_Ok);
    EXPECT_EQ(machine.nowMs(), 3000);
    EXPECT_EQ(received(), "OK");
}

TEST_F(VirtualMachineTest, AConnectionBreaksOffWithItsProcess) {
    machine.fork();
    feel(Mood::Silent);
    connect("tls://localhost:1");
    library.SEK_EstablishSecure(handle, nullptr);
    send("PING");
    machine.at(3000, [this] { machine.end(0); });
    EXPECT_EQ(poll(5000), SEK_Ok);
    EXPECT_EQ(machine.nowMs(), 3000);
    EXPECT_EQ(received(), "(failed)");
    EXPECT_EQ(details(), "the peer ended the connection");
}

TEST_F(VirtualMachineTest, AStopCommandIsTakenByAChildThatIsWell) {
    machine.fork();
    feel(Mood::Silent);
    EXPECT_EQ(connect("tcp://localhost:2"), SEK_Ok);
    EXPECT_EQ(send("STOP"), SEK_Ok);
    EXPECT_TRUE(machine.childNow(0).alive);
    feel(Mood::Answers);
    EXPECT_EQ(send("STOP"), SEK_Ok);
    EXPECT_FALSE(machine.childNow(0).alive);
    EXPECT_EQ(poll(1000), SEK_Ok);
    EXPECT_EQ(received(), "OK");
}

TEST_F(VirtualMachineTest, ASlowChildAnswersAfterItsTime) {
    machine.fork();
    machine.with([](std::vector<VirtualChild>& children) { children[0].answersAfterMs = 4000; });
    connect("tls://localhost:1");
    library.SEK_EstablishSecure(handle, nullptr);
    send("PING");
    EXPECT_EQ(poll(3000), SEK_TimedOut);
    EXPECT_EQ(poll(3000), SEK_Ok);
    EXPECT_EQ(machine.nowMs(), 4000);
}

TEST_F(VirtualMachineTest, ASluggishPeerTakesAllTheTimeThereIs) {
    machine.fork();
    feel(Mood::Sluggish);
    EXPECT_EQ(connect("tls://localhost:1"), SEK_HandshakePending);
    EXPECT_EQ(machine.nowMs(), 10000);
    int turns = 0;
    while (library.SEK_EstablishSecure(handle, nullptr) == SEK_CallAgain)
        ++turns;
    EXPECT_EQ(turns, 4);
    EXPECT_EQ(machine.nowMs(), 20000);
}

// --- the end ---

TEST_F(VirtualMachineTest, WaitsWithoutALimitEndWhenItIsOver) {
    machine.fork();
    feel(Mood::Silent);
    connect("tls://localhost:1");
    library.SEK_EstablishSecure(handle, nullptr);
    send("PING");
    machine.at(1000, [this] { machine.giveUp(); });
    EXPECT_EQ(received(), "(failed)");
}

TEST_F(VirtualMachineTest, WhoSleepsOnForAMonthAfterTheEndIsThrownOut) {
    machine.giveUp();
    EXPECT_NO_THROW(machine.sleepMs(VirtualMachine::kEndlessMs));
    EXPECT_THROW(machine.sleepMs(1), VirtualMachine::Endless);
}

TEST_F(VirtualMachineTest, TheWallClockGoesWithTheVirtualOne) {
    machine.sleepMs(90000);
    EXPECT_EQ(machine.wallClock(), 90);
}
