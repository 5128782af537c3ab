#include "CTLExchangeNotes.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>

#include "CTLExchange.h"
#include "SEK_Crypto_Interface.h"
#include "SEK_EntryPoints.h"
#include "TVLCrypto.h"
#include "ZORCryptoHelper.h"

namespace {

#define CTL_INDEX(name, parameters, arguments, details) kIndex_##name,
enum EntryIndex : std::size_t { SEK_ENTRY_POINTS(CTL_INDEX) };
#undef CTL_INDEX

thread_local CTLExchange* noted = nullptr;

// The library's own functions, by the names of their entry points.
struct Library {
    decltype(&::SEK_Socket) socket = nullptr;
    decltype(&::SEK_Connect_Url) connectUrl = nullptr;
    decltype(&::SEK_EstablishSecure) establish = nullptr;
    decltype(&::SEK_Send) send = nullptr;
    decltype(&::SEK_Poll) poll = nullptr;
    decltype(&::SEK_Recv) receive = nullptr;
    decltype(&::SEK_CryptoGetLastErrorDetails) lastDetails = nullptr;
};
Library library;

std::int64_t nowUs() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// The step of that name: the last one while it goes on.
CTLStep& stepOf(CTLExchange& exchange, const char* name) {
    if (exchange.steps.empty() || exchange.steps.back().name != name)
        exchange.steps.push_back({name, 0, 0, 0, {}});
    return exchange.steps.back();
}

// Calls, and notes how long it took and what it gave.
template <typename Call>
long timed(const char* name, Call call) {
    const std::int64_t begin = nowUs();
    const long code = call();
    if (noted == nullptr) return code;
    CTLStep& step = stepOf(*noted, name);
    step.us += nowUs() - begin;
    step.details.clear();
    step.code = code;
    ++step.calls;
    return code;
}

void noteDetails(char* const* details) {
    if (noted == nullptr || noted->steps.empty() || details == nullptr || *details == nullptr) return;
    noted->steps.back().details = *details;
}

std::string addressText(const sockaddr_storage& address) {
    std::array<char, INET6_ADDRSTRLEN> host{};
    if (address.ss_family == AF_INET6) {
        sockaddr_in6 v6{};
        std::memcpy(&v6, &address, sizeof v6);
        inet_ntop(AF_INET6, &v6.sin6_addr, host.data(), host.size());
        return std::string("[") + host.data() + "]:" + std::to_string(ntohs(v6.sin6_port));
    }
    sockaddr_in v4{};
    std::memcpy(&v4, &address, sizeof v4);
    inet_ntop(AF_INET, &v4.sin_addr, host.data(), host.size());
    return std::string(host.data()) + ":" + std::to_string(ntohs(v4.sin_port));
}

void noteAddress(void* handle) {
    sockaddr_storage address{};
    long length = sizeof address;
    TVLCrypto* const crypto = ZORCryptoHelper::GetCrypto();
    if (crypto->SEK_GetPeerName(handle, &address, &length, nullptr) == SEK_Ok)
        noted->address = addressText(address);
}

void notePeer(void* handle) {
    char operation[] = "describePeer";
    char* description = nullptr;
    TVLCrypto* const crypto = ZORCryptoHelper::GetCrypto();
    if (crypto->SEK_SocketSecurityOp(handle, operation, &description, nullptr) != SEK_Ok) return;
    if (description != nullptr) noted->peer = CTLPeer::of(description);
    crypto->SEK_CryptoFree(description, nullptr);
}

long notedSocket(void** handle, char* document, char* reserved, char** details) {
    const long code = timed("prepare", [&] { return library.socket(handle, document, reserved, details); });
    noteDetails(details);
    return code;
}

long notedConnect(void* handle, char* url, char* document) {
    // After the handshake it only says that the connection is there.
    const bool isAgain = noted != nullptr && noted->steps.size() > 1;
    if (isAgain) return library.connectUrl(handle, url, document);
    const long code = timed("connect", [&] { return library.connectUrl(handle, url, document); });
    if (noted != nullptr && (code == SEK_Ok || code == SEK_HandshakePending)) noteAddress(handle);
    return code;
}

long notedEstablish(void* handle, char* reserved) {
    return timed("handshake", [&] { return library.establish(handle, reserved); });
}

long notedSend(void* handle, const void* data, long length, long flags, long* sent, char* reserved) {
    if (noted != nullptr) {
        noted->sent.assign(static_cast<const char*>(data), static_cast<std::size_t>(length));
        notePeer(handle);
    }
    return timed("send", [&] { return library.send(handle, data, length, flags, sent, reserved); });
}

long notedPoll(SEK_Pollfd* entries, long count, long timeLimitMs, char* reserved, char** details) {
    const long code =
        timed("wait", [&] { return library.poll(entries, count, timeLimitMs, reserved, details); });
    noteDetails(details);
    return code;
}

void noteReceived(const void* buffer, long length) {
    if (noted == nullptr) return;
    noted->receivedBytes = length;
    const auto shown = std::min(static_cast<std::size_t>(length), CTLExchange::kMostShown);
    noted->received.assign(static_cast<const char*>(buffer), shown);
}

long notedReceive(void* handle, void* buffer, long capacity, long flags, long* received, char* reserved) {
    const long code = timed(
        "receive", [&] { return library.receive(handle, buffer, capacity, flags, received, reserved); });
    if (code >= 0 && received != nullptr) noteReceived(buffer, *received);
    return code;
}

long notedDetails(void* handle, char* reserved, char** details) {
    const long code = library.lastDetails(handle, reserved, details);
    noteDetails(details);
    return code;
}

bool hasLibrary() {
    TVLCrypto* const crypto = ZORCryptoHelper::GetCrypto();
    return crypto != nullptr && crypto->isOpen() != 0;
}

template <typename Function>
void standBefore(std::size_t entry, Function mine, Function& original) {
    TVLCrypto* const crypto = ZORCryptoHelper::GetCrypto();
    void* const before = crypto->replaceEntry(entry, reinterpret_cast<void*>(mine));
    original = reinterpret_cast<Function>(before);
}

template <typename Function>
void stepAside(std::size_t entry, Function original) {
    ZORCryptoHelper::GetCrypto()->replaceEntry(entry, reinterpret_cast<void*>(original));
}

}  // namespace

CTLExchangeNotes::Taking::Taking(CTLExchange& exchange) {
    noted = &exchange;
}

CTLExchangeNotes::Taking::~Taking() {
    noted = nullptr;
}

CTLExchangeNotes::CTLExchangeNotes() {
    if (!hasLibrary()) return;
    standBefore(kIndex_SEK_Socket, &notedSocket, library.socket);
    standBefore(kIndex_SEK_Connect_Url, &notedConnect, library.connectUrl);
    standBefore(kIndex_SEK_EstablishSecure, &notedEstablish, library.establish);
    standBefore(kIndex_SEK_Send, &notedSend, library.send);
    standBefore(kIndex_SEK_Poll, &notedPoll, library.poll);
    standBefore(kIndex_SEK_Recv, &notedReceive, library.receive);
    standBefore(kIndex_SEK_CryptoGetLastErrorDetails, &notedDetails, library.lastDetails);
}

CTLExchangeNotes::~CTLExchangeNotes() {
    if (!hasLibrary()) return;
    stepAside(kIndex_SEK_Socket, library.socket);
    stepAside(kIndex_SEK_Connect_Url, library.connectUrl);
    stepAside(kIndex_SEK_EstablishSecure, library.establish);
    stepAside(kIndex_SEK_Send, library.send);
    stepAside(kIndex_SEK_Poll, library.poll);
    stepAside(kIndex_SEK_Recv, library.receive);
    stepAside(kIndex_SEK_CryptoGetLastErrorDetails, library.lastDetails);
}
