#include "SEKAddress.h"

#include <netdb.h>
#include <netinet/in.h>
#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <future>
#include <memory>
#include <string_view>
#include <system_error>
#include <thread>

#include "SEKErrors.h"

namespace {

struct LookupResult {
    int code = 0;
    int systemError = 0;
    std::vector<SEKAddress> addresses;
};

struct AddressListFreer {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};

LookupResult lookUp(const std::string& host, std::uint16_t port, int family, int flags) {
    addrinfo hints{};
    hints.ai_family = family;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    hints.ai_flags = flags | AI_NUMERICSERV;
    addrinfo* list = nullptr;
    LookupResult result;
    const char* const name = host == "*" && (flags & AI_PASSIVE) != 0 ? nullptr : host.c_str();
    result.code = getaddrinfo(name, std::to_string(port).c_str(), &hints, &list);
    result.systemError = errno;
    if (result.code != 0) return result;
    const std::unique_ptr<addrinfo, AddressListFreer> owner(list);
    for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next)
        result.addresses.emplace_back(entry->ai_addr, entry->ai_addrlen);
    return result;
}

[[noreturn]] void refuse(const std::string& host, int family, const std::string& reason) {
    throw SEKFailure("cannot resolve " + host + " (" + SEKAddress::familyName(family) + "): " + reason);
}

// getaddrinfo knows no time limit, so a look-up that may ask a name server runs on a thread of its own. The
// thread shares nothing with the caller but the future's state, which outlives whoever gives up first.
LookupResult lookUpUntil(const SEKDeadline& deadline, const std::string& host, std::uint16_t port, int family,
                         int flags) {
    std::packaged_task<LookupResult()> task([=] { return lookUp(host, port, family, flags); });
    std::future<LookupResult> answer = task.get_future();
    try {
        std::thread(std::move(task)).detach();
    } catch (const std::system_error& error) {
        refuse(host, family, "cannot start a thread: " + SEKErrors::systemReason(error.code().value()));
    }
    const int remainingMs = deadline.remainingMs();
    if (remainingMs < 0) return answer.get();
    if (answer.wait_for(std::chrono::milliseconds(remainingMs)) == std::future_status::ready)
        return answer.get();
    refuse(host, family, "no answer in time");
}

// "localhost" and the names below it, with or without the final dot.
bool isLocalhost(const std::string& host) {
    static constexpr std::string_view name = "localhost";
    std::string_view rest = host;
    if (!rest.empty() && rest.back() == '.') rest.remove_suffix(1);
    if (rest.size() < name.size()) return false;
    const std::size_t start = rest.size() - name.size();
    return strncasecmp(rest.data() + start, name.data(), name.size()) == 0 &&
           (start == 0 || rest[start - 1] == '.');
}

bool isUnknownName(int code) {
    return code == EAI_NONAME || code == EAI_ADDRFAMILY || code == EAI_NODATA;
}

}  // namespace

const char* SEKAddress::familyName(int family) {
    return family == AF_INET6 ? "IPv6" : "IPv4";
}

SEKAddress::SEKAddress(const sockaddr* address, socklen_t length)
    : m_length(std::min<socklen_t>(length, sizeof m_storage)) {
    std::memcpy(&m_storage, address, m_length);
}

SEKAddress SEKAddress::checked(const sockaddr_storage* address, long length, int family) {
    const std::size_t needed = family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    if (address == nullptr) throw SEKFailure("no address given");
    if (length < 0 || static_cast<unsigned long>(length) < needed) throw SEKFailure("address too short");
    if (address->ss_family != family)
        throw SEKFailure(std::string("address is not of the session's family ") + familyName(family));
    SEKAddress result;
    std::memcpy(&result.m_storage, address, needed);
    result.m_length = static_cast<socklen_t>(needed);
    return result;
}

std::vector<SEKAddress> SEKAddress::resolve(const std::string& host, std::uint16_t port, int family, Use use,
                                            const SEKDeadline& deadline) {
    const int flags = use == Use::Bind ? AI_PASSIVE : 0;
    // Deliberate: "localhost", like every name below it, is this machine, as every resolver is to treat it, whatever a name server would
    // say; see SEKAddressTest.LocalhostIsThisMachineWithoutALookUp.
    const std::string figures = isLocalhost(host) ? (family == AF_INET6 ? "::1" : "127.0.0.1") : host;
    const bool isAny = host == "*" && use == Use::Bind;
    // An address in figures, the common case, needs neither a name server nor a thread.
    LookupResult result = lookUp(figures, port, family, flags | (isAny ? 0 : AI_NUMERICHOST));
    if (isUnknownName(result.code)) result = lookUpUntil(deadline, host, port, family, flags);
    if (result.code == 0 && !result.addresses.empty()) return result.addresses;
    const std::string reason =
        result.code == EAI_SYSTEM ? SEKErrors::systemReason(result.systemError) : gai_strerror(result.code);
    refuse(host, family, reason);
}

const sockaddr* SEKAddress::get() const {
    // sockaddr_storage is made to be read through the general type.
    return reinterpret_cast<const sockaddr*>(&m_storage);
}

sockaddr* SEKAddress::buffer() {
    return reinterpret_cast<sockaddr*>(&m_storage);
}

std::string SEKAddress::hostText() const {
    char host[NI_MAXHOST] = "";
    if (getnameinfo(get(), m_length, host, sizeof host, nullptr, 0, NI_NUMERICHOST) != 0) return "?";
    return host;
}

std::string SEKAddress::text() const {
    char port[NI_MAXSERV] = "";
    if (getnameinfo(get(), m_length, nullptr, 0, port, sizeof port, NI_NUMERICSERV) != 0) return "?";
    const std::string host = hostText();
    return (m_storage.ss_family == AF_INET6 ? "[" + host + "]" : host) + ":" + port;
}

void SEKAddress::copyTo(sockaddr_storage* address, long* length) const {
    if (address == nullptr || length == nullptr) throw SEKFailure("no room for the address given");
    const std::size_t room = *length < 0 ? 0 : static_cast<std::size_t>(*length);
    std::memcpy(address, &m_storage, std::min<std::size_t>({room, m_length, sizeof m_storage}));
    *length = static_cast<long>(m_length);
}
