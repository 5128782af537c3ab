// Every phase of a connection before peers that flood, drip, stall and tear: how each call ends, and when.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <future>
#include <ostream>
#include <string>
#include <thread>
#include <utility>

#include "ResultTable.h"
#include "TransportTest.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

std::shared_future<void> endOfSilence;

using Resolver = int (*)(const char*, const char*, const addrinfo*, addrinfo**);

Resolver systemResolver() {
    static const auto resolver = reinterpret_cast<Resolver>(dlsym(RTLD_NEXT, "getaddrinfo"));
    return resolver;
}

int resolveToMany(const char* service, const addrinfo* hints, addrinfo** result) {
    addrinfo** end = result;
    for (int i = 0; i < 1000; ++i) {
        const int failure = systemResolver()("127.0.0.1", service, hints, end);
        if (failure != 0) return failure;
        end = &(*end)->ai_next;
    }
    return 0;
}

}  // namespace

// Stands before the system's function in this program, for the library, too.
extern "C" int getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** result) {
    const std::string name = host == nullptr || (hints->ai_flags & AI_NUMERICHOST) != 0 ? "" : host;
    if (name == "many.example") return resolveToMany(service, hints, result);
    if (name == "silent.example") {
        const std::shared_future<void> untilThen = endOfSilence;
        untilThen.wait();
        return EAI_AGAIN;
    }
    return systemResolver()(host, service, hints, result);
}

namespace {

// A peer that a broken limit would wait for gives up by itself, so that the test fails and does not hang.
constexpr milliseconds patienceOfPeers{20'000};
// What a busy machine may add.
constexpr std::int64_t slackMs = 2'000;
constexpr std::int64_t cpuLimitMs = 1'000;

constexpr long callLimitMs = 300;      // set with SO_RCVTIMEO and SO_SNDTIMEO, and given to the poll
constexpr long floodLimitMs = 10'000;  // time enough for a flood to be noticed
constexpr long dripSendLimitMs = 2'000;
constexpr std::size_t dripSendBytes = 64U << 10U;

std::int64_t msSince(steady_clock::time_point start) {
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - start).count();
}

std::int64_t cpuOfThreadMs() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
}

std::string record(char type, const std::string& body) {
    const std::size_t size = body.size();
    return std::string{type, '\x03', '\x03', static_cast<char>(size >> 8U), static_cast<char>(size & 0xffU)} +
           body;
}

// Messages of the type 0 and the length 0: requests to begin, which a client that has begun passes over.
std::string helloRequests(std::size_t bytes) {
    return record('\x16', std::string(bytes, '\0'));
}

enum class Phase { LookUp, Connect, Accept, Handshake, ServerHandshake, Send, Poll, Receive, Close };
enum class Manner { Flood, Drip, Stall, Tear };

struct Row {
    const char* name;
    Phase phase;
    Manner manner;
    const char* scheme;
    long outcome;
    std::int64_t leastMs;  // it must not end before
    std::int64_t limitMs;
    const char* words;  // part of the detail text
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}

// What was measured of the call that the row is about.
struct Outcome {
    long result = 0;
    std::int64_t tookMs = 0;
    std::int64_t cpuMs = 0;
    std::string words;
};

class LimitsTest : public TlsTest, public testing::WithParamInterface<Row> {
  protected:
    Outcome meet() {
        switch (GetParam().phase) {
            case Phase::LookUp:
            case Phase::Connect:
                return meetConnect();
            case Phase::Accept:
                return meetAccept();
            case Phase::Handshake:
                return meetHandshake();
            case Phase::ServerHandshake:
                return meetServerHandshake();
            case Phase::Send:
            case Phase::Poll:
            case Phase::Receive:
            case Phase::Close:
                return meetEstablished();
        }
        return {};
    }

  private:
    bool isSecure() const { return std::string(GetParam().scheme) == "https"; }
    bool mayGoOn() const { return !m_isOver && steady_clock::now() - m_start < patienceOfPeers; }
    // Until the other end has gone, or the time has passed.
    bool pause(PeerConnection& peer, int ms) const {
        pollfd entry{peer.descriptor(), POLLRDHUP, 0};
        return ::poll(&entry, 1, ms) == 0 && mayGoOn();
    }
    void waitUntilOver(PeerConnection& peer) const {
        while (pause(peer, 50))
            continue;
    }

    // A peer before the handshake: `block` is what it floods, `drop` what it drips.
    void misbehave(PeerConnection& peer, const std::string& block, const std::string& drop) const {
        switch (GetParam().manner) {
            case Manner::Flood:
                while (mayGoOn() && peer.write(block))
                    continue;
                break;
            case Manner::Drip:
                while (pause(peer, 20) && peer.write(drop))
                    continue;
                break;
            case Manner::Stall:
                waitUntilOver(peer);
                break;
            case Manner::Tear:
                peer.reset();
                break;
        }
    }

    // One record that carries no data of the application. A flood takes the larger kind.
    static bool sendKeyUpdate(PeerConnection& peer) {
        return SSL_key_update(peer.tls(), SSL_KEY_UPDATE_NOT_REQUESTED) == 1 &&
               SSL_do_handshake(peer.tls()) == 1;
    }
    static bool sendTicket(PeerConnection& peer) {
        return SSL_new_session_ticket(peer.tls()) == 1 && SSL_do_handshake(peer.tls()) == 1;
    }
    static bool sendIdleRecord(PeerConnection& peer) {
        return GetParam().manner == Manner::Flood ? sendTicket(peer) : sendKeyUpdate(peer);
    }

    // A peer that an established connection is to: floods and drips what never becomes data, except at the close.
    void misbehaveLater(PeerConnection& peer) const {
        const bool withData = GetParam().phase == Phase::Close || !isSecure();
        const auto sendOne = [&] { return withData ? peer.write("x") : sendIdleRecord(peer); };
        switch (GetParam().manner) {
            case Manner::Flood:
                while (mayGoOn() && sendOne())
                    continue;
                break;
            case Manner::Drip:
                if (GetParam().phase == Phase::Send) return readSlowly(peer);
                while (mayGoOn() && sendOne() && pause(peer, 20))
                    continue;
                break;
            case Manner::Stall:
                // The other end may have sent its farewell; this one says nothing all the same.
                while (mayGoOn())
                    ::poll(nullptr, 0, 20);
                break;
            case Manner::Tear:
                peer.reset();
                break;
        }
    }

    void readSlowly(PeerConnection& peer) const {
        char bytes[128];
        while (mayGoOn() && recv(peer.descriptor(), bytes, sizeof bytes, 0) > 0)
            ::poll(nullptr, 0, 20);
    }

    template <typename Call>
    static Outcome measure(Call&& call) {
        Outcome outcome;
        const auto start = steady_clock::now();
        const std::int64_t cpu = cpuOfThreadMs();
        outcome.result = call();
        outcome.cpuMs = cpuOfThreadMs() - cpu;
        outcome.tookMs = msSince(start);
        return outcome;
    }

    template <typename Call>
    static Outcome measure(SekHandle& handle, Call&& call) {
        Outcome outcome = measure(std::forward<Call>(call));
        outcome.words = handle.details();
        return outcome;
    }

    // The listener's queue is full where the peer stalls; behind many names stalls each address.
    Outcome meetConnect() {
        std::promise<void> silence;
        endOfSilence = silence.get_future().share();
        const int listener = listenOnLoopback(AF_INET, 0);
        PeerConnection keeper(listener);
        PeerConnection first(connectPlain(portOf(listener)));
        const bool isLookUp = GetParam().phase == Phase::LookUp;
        const bool isFlood = GetParam().manner == Manner::Flood;
        const std::string host = !isLookUp ? "127.0.0.1" : isFlood ? "many.example" : "silent.example";
        SekHandle handle;
        const Outcome outcome = measure(handle, [&] {
            return handle.connectUrl("tcp://" + host + ":" + std::to_string(portOf(listener)));
        });
        silence.set_value();
        return outcome;
    }

    Outcome meetAccept() {
        SekHandle listener;
        const std::uint16_t port = listener.listen("tcp");
        listener.limit(SO_RCVTIMEO, callLimitMs);
        if (GetParam().manner == Manner::Tear) PeerConnection(connectPlain(port)).reset();
        void* accepted = nullptr;
        const Outcome outcome = measure(
            listener, [&] { return SEK_Accept(listener.get(), &accepted, nullptr, nullptr, nullptr); });
        SekHandle owner(accepted);
        return outcome;
    }

    Outcome meetHandshake() {
        TestPeer peer([&](PeerConnection& connection) {
            connection.read();
            misbehave(connection, floodOfHandshake(), helloRequests(4));
        });
        SekHandle handle;
        EXPECT_EQ(handle.connectUrl(peer.url("https")), SEK_HandshakePending);
        const Outcome outcome = measure(handle, [&] { return handle.establish(); });
        m_isOver = true;
        handle.close();
        return outcome;
    }

    std::string floodOfHandshake() const {
        const std::string name = GetParam().name;
        if (name.find("SmallRecords") != std::string::npos) {
            std::string records;
            while (records.size() < 16'000)
                records += helloRequests(4);
            return records;
        }
        if (name.find("CipherChanges") != std::string::npos) return record('\x14', "\x01");
        if (name.find("Warnings") != std::string::npos) return record('\x15', std::string("\x01\x5a", 2));
        return helloRequests(16'384);
    }

    Outcome meetServerHandshake() {
        writeSettings("[gateway]\nCertificate = " + identity().certificate.string() +
                      "\nPrivateKey = " + identity().key.string() + "\nVerifyMode = None\n");
        SekHandle listener;
        const std::uint16_t port = listener.listen("https");
        std::thread client([&, port] {
            PeerConnection connection(connectPlain(port));
            // A record that promises more than comes.
            if (GetParam().manner == Manner::Drip) connection.write(std::string("\x16\x03\x01\x40\x00", 5));
            misbehave(connection, helloRequests(16'384), "x");
        });
        SekHandle handle(listener.accept());
        const Outcome outcome = measure(handle, [&] { return handle.establish(); });
        m_isOver = true;
        handle.close();
        client.join();
        return outcome;
    }

    Outcome meetEstablished() {
        std::promise<void> connected;
        const int buffer = GetParam().phase == Phase::Send ? 2'048 : 0;
        TestPeer peer(
            [&, context = server()](PeerConnection& connection) {
                if (isSecure() && !connection.acceptTls(context)) return;
                connected.get_future().wait();
                misbehaveLater(connection);
            },
            1, AF_INET, buffer);
        SekHandle handle;
        EXPECT_EQ(handle.open(peer.url(GetParam().scheme)), SEK_Ok) << handle.details();
        connected.set_value();
        const Outcome outcome = measureEstablished(handle);
        m_isOver = true;
        handle.close();
        return outcome;
    }

    Outcome measureEstablished(SekHandle& handle) const {
        if (GetParam().manner == Manner::Tear) handle.poll(10'000);
        const long limitMs = GetParam().manner == Manner::Flood ? floodLimitMs : callLimitMs;
        switch (GetParam().phase) {
            case Phase::Send:
                return measureSend(handle);
            case Phase::Poll:
                return measure([&] { return handle.poll(limitMs).result; });
            case Phase::Receive:
                handle.limit(SO_RCVTIMEO, limitMs);
                return measure(handle, [&] { return handle.receive().result; });
            default:
                return measure([&] { return handle.close(); });
        }
    }

    static Outcome measureSend(SekHandle& handle) {
        const bool isDrip = GetParam().manner == Manner::Drip;
        const int buffer = 4'096;
        EXPECT_EQ(SEK_SetSockOpt(handle.get(), SO_SNDBUF, &buffer, sizeof buffer, nullptr), SEK_Ok);
        handle.limit(SO_SNDTIMEO, isDrip ? dripSendLimitMs : callLimitMs);
        const std::string data(isDrip ? dripSendBytes : 16U << 20U, 'x');
        return measure(handle, [&] { return handle.send(data); });
    }

    std::atomic<bool> m_isOver{false};
    const steady_clock::time_point m_start = steady_clock::now();
};

TEST_P(LimitsTest, TheCallEndsInTime) {
    const Row& row = GetParam();
    const Outcome outcome = meet();
    ResultTable("limits", {"peer", "result", "took, ms", "limit, ms", "processor time, ms", "text"})
        .add({row.name, std::to_string(outcome.result), std::to_string(outcome.tookMs),
              std::to_string(row.limitMs), std::to_string(outcome.cpuMs), outcome.words});
    EXPECT_EQ(outcome.result, row.outcome) << outcome.words;
    EXPECT_NE(outcome.words.find(row.words), std::string::npos) << outcome.words;
    EXPECT_LE(outcome.words.size(), 1'000U);
    EXPECT_GE(outcome.tookMs, row.leastMs);
    EXPECT_LE(outcome.tookMs, row.limitMs + slackMs);
    EXPECT_LE(outcome.cpuMs, cpuLimitMs);
}

constexpr std::int64_t dripSendTotalMs = dripSendLimitMs + static_cast<std::int64_t>(dripSendBytes / 16);

const Row rows[] = {
    {"LookUpStall", Phase::LookUp, Manner::Stall, "tcp", -1, 10'000, 10'000, "no answer in time"},
    {"LookUpFlood", Phase::LookUp, Manner::Flood, "tcp", -1, 9'000, 10'000, "no answer in time"},
    {"ConnectStall", Phase::Connect, Manner::Stall, "tcp", -1, 10'000, 10'000, "no answer in time"},
    {"AcceptStall", Phase::Accept, Manner::Stall, "tcp", -1, callLimitMs, callLimitMs,
     "no connection in time"},
    {"AcceptTear", Phase::Accept, Manner::Tear, "tcp", 0, 0, callLimitMs, ""},
    {"HandshakeFlood", Phase::Handshake, Manner::Flood, "https", -1, 0, 2'000,
     "sent 1 MiB that do not finish"},
    {"HandshakeFloodOfSmallRecords", Phase::Handshake, Manner::Flood, "https", -1, 0, 2'000, "sent 1 MiB"},
    {"HandshakeFloodOfCipherChanges", Phase::Handshake, Manner::Flood, "https", -1, 0, 2'000, " failed: "},
    {"HandshakeFloodOfWarnings", Phase::Handshake, Manner::Flood, "https", -1, 0, 2'000, " failed: "},
    {"HandshakeDrip", Phase::Handshake, Manner::Drip, "https", -23, 2'000, 2'000, ""},
    {"HandshakeStall", Phase::Handshake, Manner::Stall, "https", -23, 2'000, 2'000, ""},
    {"HandshakeTear", Phase::Handshake, Manner::Tear, "https", -1, 0, 2'000, "Connection reset by peer"},
    {"ServerHandshakeFlood", Phase::ServerHandshake, Manner::Flood, "https", -1, 0, 2'000, " failed: "},
    {"ServerHandshakeDrip", Phase::ServerHandshake, Manner::Drip, "https", -23, 2'000, 2'000, ""},
    {"ServerHandshakeStall", Phase::ServerHandshake, Manner::Stall, "https", -23, 2'000, 2'000, ""},
    {"ServerHandshakeTear", Phase::ServerHandshake, Manner::Tear, "https", -1, 0, 2'000, " failed: "},
    {"SendFlood", Phase::Send, Manner::Flood, "https", -1, callLimitMs, callLimitMs, "takes no data"},
    {"SendDrip", Phase::Send, Manner::Drip, "https", -1, dripSendTotalMs, dripSendTotalMs, "too slowly"},
    {"SendStall", Phase::Send, Manner::Stall, "https", -1, callLimitMs, callLimitMs, "takes no data"},
    {"SendTear", Phase::Send, Manner::Tear, "https", -1, 0, callLimitMs, "cannot send to "},
    {"PlainSendFlood", Phase::Send, Manner::Flood, "tcp", -1, callLimitMs, callLimitMs, "takes no data"},
    {"PlainSendDrip", Phase::Send, Manner::Drip, "tcp", -1, dripSendTotalMs, dripSendTotalMs, "too slowly"},
    {"PlainSendStall", Phase::Send, Manner::Stall, "tcp", -1, callLimitMs, callLimitMs, "takes no data"},
    // Readable: what follows tells the failure.
    {"PollFlood", Phase::Poll, Manner::Flood, "https", 0, 0, floodLimitMs, ""},
    {"PollDrip", Phase::Poll, Manner::Drip, "https", 2, callLimitMs, callLimitMs, ""},
    {"PollStall", Phase::Poll, Manner::Stall, "https", 2, callLimitMs, callLimitMs, ""},
    {"PollTear", Phase::Poll, Manner::Tear, "https", 0, 0, callLimitMs, ""},
    {"PlainPollStall", Phase::Poll, Manner::Stall, "tcp", 2, callLimitMs, callLimitMs, ""},
    {"ReceiveFlood", Phase::Receive, Manner::Flood, "https", -1, 0, floodLimitMs,
     "sent 1 MiB of records without data"},
    {"ReceiveDrip", Phase::Receive, Manner::Drip, "https", -1, callLimitMs, callLimitMs, "no data in time"},
    {"ReceiveStall", Phase::Receive, Manner::Stall, "https", -1, callLimitMs, callLimitMs, "no data in time"},
    {"ReceiveTear", Phase::Receive, Manner::Tear, "https", -1, 0, callLimitMs, "Connection reset by peer"},
    {"PlainReceiveStall", Phase::Receive, Manner::Stall, "tcp", -1, callLimitMs, callLimitMs,
     "no data in time"},
    {"CloseFlood", Phase::Close, Manner::Flood, "https", 0, 0, 100, ""},
    {"CloseDrip", Phase::Close, Manner::Drip, "https", 0, 0, 100, ""},
    {"CloseStall", Phase::Close, Manner::Stall, "https", 0, 90, 100, ""},
    {"CloseTear", Phase::Close, Manner::Tear, "https", 0, 0, 100, ""},
    {"PlainCloseFlood", Phase::Close, Manner::Flood, "tcp", 0, 0, 100, ""},
    {"PlainCloseDrip", Phase::Close, Manner::Drip, "tcp", 0, 0, 100, ""},
    {"PlainCloseStall", Phase::Close, Manner::Stall, "tcp", 0, 90, 100, ""},
};

INSTANTIATE_TEST_SUITE_P(Peers, LimitsTest, testing::ValuesIn(rows),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
