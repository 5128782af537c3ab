#include "VirtualLibrary.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "SEK_Crypto_Interface.h"
#include "SEK_EntryPoints.h"
#include "TVLNumber.h"
#include "VirtualMachine.h"

namespace {

using Mood = VirtualChild::Mood;
using Kind = VirtualEvent::Kind;

constexpr std::int64_t kConnectMs = 10000;  // the longest
constexpr std::int64_t kTurnMs = 2000;      // of a handshake
constexpr std::int64_t kHandshakePatienceMs = 10000;
constexpr std::int64_t kSluggishHandshakeMs = 10000;  // with a longer one there is no connection

VirtualMachine& machine() {
    return VirtualMachine::current();
}

// ---- Addresses ----

struct Address {
    std::string authority;  // host and port
    std::string shown;      // the machine that is meant, and the port
    bool isTls = false;
    std::string wrong;  // empty: nothing
};

const char* portOf(std::string_view scheme) {
    if (scheme == "https") return "443";
    return scheme == "http" ? "80" : "";
}

bool isLoopback(std::string_view host) {
    return host == "localhost" || host == "localhost." || host.ends_with(".localhost");
}

Address parsed(const std::string& uri, bool isIPv6) {
    const std::size_t slashes = uri.find("://");
    if (slashes == std::string::npos) return {{}, {}, false, "no scheme"};
    const std::string scheme = uri.substr(0, slashes);
    if (scheme != "https" && scheme != "http" && scheme != "tls" && scheme != "tcp")
        return {{}, {}, false, "unknown scheme"};
    const std::string rest = uri.substr(slashes + 3, uri.find('/', slashes + 3) - slashes - 3);
    const std::size_t colon = rest.ends_with(']') ? std::string::npos : rest.rfind(':');
    const std::string host = rest.substr(0, colon);
    const std::string port = colon == std::string::npos ? portOf(scheme) : rest.substr(colon + 1);
    if (host.empty()) return {{}, {}, false, "no host"};
    const int number = TVLNumber::parse(port.c_str());
    if (number < 1 || number > 65535) return {{}, {}, false, "bad port"};
    const std::string loopback = isIPv6 ? "[::1]" : "127.0.0.1";
    return {host + ":" + port,
            (isLoopback(host) ? loopback : host) + ":" + port,
            scheme == "https" || scheme == "tls",
            {}};
}

// ---- Handles ----

struct Connection {
    std::size_t child = VirtualMachine::kNobody;
    pid_t pid = 0;  // of the process that it leads to
    Address address{};
    std::string uri{};
    bool isConnected = false;
    bool isSecure = false;
    std::int64_t handshakeMs = -1;  // when it began
    std::int64_t sentMs = 0;
    bool isAnswered = false;  // whatever becomes of the process
    std::optional<std::string> details{};

    bool hasFailed = false;

    long fail(const std::string& text) {
        details = text;
        hasFailed = true;
        return SEK_Failed;
    }
};

Connection& connectionOf(void* handle) {
    return *static_cast<Connection*>(handle);
}

long initialize(char* /*document*/, char* /*reserved*/, char** details) {
    if (details != nullptr) *details = nullptr;
    return SEK_Ok;
}

long release(void* memory, char* /*reserved*/) {
    std::free(memory);
    return SEK_Ok;
}

long lastDetails(void* handle, char* /*reserved*/, char** details) {
    const bool has = handle != nullptr && connectionOf(handle).details.has_value();
    *details = has ? strdup(connectionOf(handle).details->c_str()) : nullptr;
    return SEK_Ok;
}

long makeHandle(void** handle, char* /*document*/, char* /*reserved*/, char** details) {
    *handle = std::make_unique<Connection>().release();
    if (details != nullptr) *details = nullptr;
    return SEK_Ok;
}

long closeHandle(void** handle, char* /*reserved*/, char** /*details*/) {
    const std::unique_ptr<Connection> connection(static_cast<Connection*>(*handle));
    *handle = nullptr;
    if (connection == nullptr || !connection->hasFailed) return SEK_Ok;
    if (connection->uri == machine().childNow(connection->child).pingUri)
        machine().tell(Kind::Failed, connection->child);
    return SEK_Ok;
}

// ---- Connecting ----

long connectNow(Connection& connection, const std::string& family) {
    connection.child = machine().childAt(connection.uri);
    const Mood mood = machine().childNow(connection.child).mood;
    if (mood == Mood::Sluggish || mood == Mood::Stuck) {
        const std::int64_t readyMs = machine().nowMs() + kConnectMs;
        while (machine().nowMs() < readyMs)
            machine().waitForChange(readyMs);
    }
    const VirtualChild child = machine().childNow(connection.child);
    if (child.moodAt(machine().nowMs()) == Mood::Refuses) {
        return connection.fail("cannot connect to " + connection.address.authority + " (" + family +
                               "): " + connection.address.shown + ": Connection refused");
    }
    connection.pid = child.pid;
    connection.isConnected = true;
    machine().tell(Kind::Connected, connection.child);
    return connection.address.isTls ? SEK_HandshakePending : SEK_Ok;
}

long connectTo(void* handle, char* url, char* document) {
    Connection& connection = connectionOf(handle);
    connection.details.reset();
    if (connection.isConnected) return connection.isSecure ? SEK_Ok : SEK_HandshakePending;
    const bool isIPv6 = document != nullptr && std::strstr(document, "IPv6") != nullptr;
    connection.uri = url;
    connection.address = parsed(url, isIPv6);
    if (!connection.address.wrong.empty())
        return connection.fail("bad address \"" + connection.uri + "\": " + connection.address.wrong);
    return connectNow(connection, isIPv6 ? "IPv6" : "IPv4");
}

// When the handshake will be finished, as things stand.
std::int64_t handshakeEndMs(const Connection& connection) {
    const Mood mood = machine().childNow(connection.child).mood;
    if (mood == Mood::Frozen || mood == Mood::Stuck) return TVLOs::kForever;
    return mood == Mood::Sluggish ? connection.handshakeMs + kSluggishHandshakeMs : connection.handshakeMs;
}

long establish(void* handle, char* /*reserved*/) {
    Connection& connection = connectionOf(handle);
    const std::int64_t beginMs = machine().nowMs();
    if (connection.handshakeMs < 0) connection.handshakeMs = beginMs;
    connection.details.reset();
    for (;;) {
        const std::int64_t nowMs = machine().nowMs();
        if (!machine().lives(connection.child, connection.pid))
            return connection.fail("the peer ended the connection during the handshake");
        const std::int64_t endMs = handshakeEndMs(connection);
        connection.isSecure = nowMs >= endMs;
        if (connection.isSecure) return SEK_Ok;
        if (nowMs >= beginMs + kTurnMs) break;
        machine().waitForChange(std::min(endMs, beginMs + kTurnMs));
    }
    if (machine().nowMs() - connection.handshakeMs >= kHandshakePatienceMs) {
        connection.fail("TLS handshake with " + connection.address.authority + " not finished after " +
                        std::to_string(kHandshakePatienceMs / 1000) + " s");
    }
    return SEK_CallAgain;
}

// ---- Commands and answers ----

long sendTo(void* handle, const void* data, long length, long /*flags*/, long* sent, char* /*reserved*/) {
    Connection& connection = connectionOf(handle);
    connection.details.reset();
    if (!machine().lives(connection.child, connection.pid))
        return connection.fail("the peer ended the connection");
    const std::string command(static_cast<const char*>(data), static_cast<std::size_t>(length));
    const VirtualChild child = machine().childNow(connection.child);
    connection.sentMs = machine().nowMs();
    if (sent != nullptr) *sent = length;
    const bool isPing = connection.uri == child.pingUri && command == child.pingCommand;
    const bool isStop = connection.uri == child.stopUri && command == child.stopCommand && !isPing;
    if (!isStop || child.mood != Mood::Answers) return SEK_Ok;
    connection.isAnswered = true;
    machine().tellToStop(connection.child);
    return SEK_Ok;
}

// When the answer comes, as things stand.
std::int64_t answerMs(const Connection& connection) {
    if (connection.isAnswered || !machine().lives(connection.child, connection.pid)) return 0;
    const VirtualChild child = machine().childNow(connection.child);
    return child.mood == Mood::Answers || child.mood == Mood::Refuses
               ? connection.sentMs + child.answersAfterMs
               : TVLOs::kForever;
}

// False when the time has passed before.
bool awaitAnswer(const Connection& connection, std::int64_t deadlineMs) {
    for (;;) {
        const std::int64_t readyMs = answerMs(connection);
        const std::int64_t nowMs = machine().nowMs();
        if (nowMs >= readyMs) return true;
        if (nowMs >= deadlineMs || machine().isOver()) return false;
        machine().waitForChange(std::min(readyMs, deadlineMs));
    }
}

long pollEntry(SEK_Pollfd* entries, long /*count*/, long limitMs, char* /*reserved*/, char** details) {
    Connection& connection = connectionOf(entries->handle);
    if (details != nullptr) *details = nullptr;
    entries->revents = 0;
    if (!awaitAnswer(connection, limitMs < 0 ? TVLOs::kForever : machine().nowMs() + limitMs)) {
        connection.hasFailed = true;
        return SEK_TimedOut;
    }
    entries->revents = SEK_Readable;
    return SEK_Ok;
}

long receive(void* handle, void* buffer, long capacity, long /*flags*/, long* received, char* /*reserved*/) {
    Connection& connection = connectionOf(handle);
    connection.details.reset();
    if (!awaitAnswer(connection, TVLOs::kForever)) return connection.fail("no data in time");
    if (!connection.isAnswered && !machine().lives(connection.child, connection.pid))
        return connection.fail("the peer ended the connection");
    const std::string answer = connection.isAnswered ? "OK" : machine().childNow(connection.child).answer;
    const std::size_t size = std::min(answer.size(), static_cast<std::size_t>(capacity));
    std::memcpy(buffer, answer.data(), size);
    *received = static_cast<long>(size);
    if (!connection.isAnswered) machine().tell(Kind::Answered, connection.child);
    return SEK_Ok;
}

// ---- The table ----

template <typename Entry>
struct NotOffered;
template <typename... Parameters>
struct NotOffered<long (*)(Parameters...)> {
    static long call(Parameters... /*unused*/) { return SEK_NotSupported; }
};

using Table = std::map<std::string_view, void*>;

template <typename Entry>
void set(Table& table, const char* name, Entry entry) {
    table[name] = reinterpret_cast<void*>(entry);
}

Table makeTable() {
    Table table;
#define VIRTUAL_NOT_OFFERED(name, parameters, arguments, details) \
    set(table, #name, &NotOffered<decltype(&::name)>::call);
    SEK_ENTRY_POINTS(VIRTUAL_NOT_OFFERED)
#undef VIRTUAL_NOT_OFFERED
#define VIRTUAL_OFFERED(name, function) set<decltype(&::name)>(table, #name, function);
    VIRTUAL_OFFERED(SEK_CryptoInitialize, initialize)
    VIRTUAL_OFFERED(SEK_CryptoTerminate, initialize)
    VIRTUAL_OFFERED(SEK_CryptoFree, release)
    VIRTUAL_OFFERED(SEK_CryptoGetLastErrorDetails, lastDetails)
    VIRTUAL_OFFERED(SEK_Socket, makeHandle)
    VIRTUAL_OFFERED(SEK_Connect_Url, connectTo)
    VIRTUAL_OFFERED(SEK_EstablishSecure, establish)
    VIRTUAL_OFFERED(SEK_Send, sendTo)
    VIRTUAL_OFFERED(SEK_Recv, receive)
    VIRTUAL_OFFERED(SEK_Poll, pollEntry)
    VIRTUAL_OFFERED(SEK_CloseHandle, closeHandle)
#undef VIRTUAL_OFFERED
    return table;
}

}  // namespace

void* VirtualLibrary::find(const char* name) {
    static const Table table = makeTable();
    const auto entry = table.find(name);
    return entry == table.end() ? nullptr : entry->second;
}
