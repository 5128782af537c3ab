#include "SampleSocket.h"

#include <netdb.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "SEK_Crypto_Interface.h"

namespace {

constexpr std::size_t kBlockBytes = 4096;

std::string element(const std::string& name, const std::string& content) {
    return "<" + name + ">" + content + "</" + name + ">";
}

std::string serviceElement(const std::string& service) {
    return element("serviceID", service);
}

// A detail text of the library; empty when it has none.
std::string takeOver(char* details) {
    std::string text = details != nullptr ? details : "";
    SEK_CryptoFree(details, nullptr);
    return text;
}

[[noreturn]] void refuse(const std::string& reason) {
    throw SampleSocketError(reason.empty() ? "the security library gives no reason" : reason);
}

using NameFunction = long (*)(void*, sockaddr_storage*, long*, char*);

std::string nameFrom(NameFunction nameOf, void* handle) {
    sockaddr_storage address{};
    long length = sizeof address;
    if (nameOf(handle, &address, &length, nullptr) != SEK_Ok) return "(gone)";
    std::array<char, NI_MAXHOST> host{};
    std::array<char, NI_MAXSERV> port{};
    const int error =
        getnameinfo(reinterpret_cast<const sockaddr*>(&address), static_cast<socklen_t>(length), host.data(),
                    host.size(), port.data(), port.size(), NI_NUMERICHOST | NI_NUMERICSERV);
    if (error != 0) return gai_strerror(error);
    const std::string hostText = host.data();
    return (address.ss_family == AF_INET6 ? "[" + hostText + "]" : hostText) + ":" + port.data();
}

// True when one of them has input.
bool poll(std::vector<SEK_Pollfd>& entries, int timeoutMs) {
    char* details = nullptr;
    const long result =
        SEK_Poll(entries.data(), static_cast<long>(entries.size()), timeoutMs, nullptr, &details);
    const std::string reason = takeOver(details);
    if (result != SEK_Ok && result != SEK_TimedOut) refuse(reason);
    return result == SEK_Ok;
}

}  // namespace

// The library tells the system's reason in the system's words, at the end.
bool SampleSocketError::isAddressInUse() const {
    const std::string text = what();
    return text.ends_with(std::strerror(EADDRINUSE));
}

SampleLibrary::SampleLibrary(const std::string& service) : m_service(service) {
    std::string document = element("initializeDocument", serviceElement(service));
    char* details = nullptr;
    const long result = SEK_CryptoInitialize(document.data(), nullptr, &details);
    const std::string reason = takeOver(details);
    if (result != SEK_Ok) refuse(reason);
}

SampleLibrary::~SampleLibrary() {
    std::string document = element("terminateDocument", serviceElement(m_service));
    SEK_CryptoTerminate(document.data(), nullptr, nullptr);
}

SampleSocket::SampleSocket(const std::string& service, const std::string& family) {
    std::string document =
        element("sessionConfigDocument", serviceElement(service) + element("protocolFamily", family));
    char* details = nullptr;
    const long result = SEK_Socket(&m_handle, document.data(), nullptr, &details);
    const std::string reason = takeOver(details);
    if (result != SEK_Ok) refuse(reason);
}

SampleSocket::~SampleSocket() {
    if (m_handle != nullptr) SEK_CloseHandle(&m_handle, nullptr, nullptr);
}

void SampleSocket::check(long result) const {
    if (result == SEK_Ok) return;
    char* details = nullptr;
    SEK_CryptoGetLastErrorDetails(m_handle, nullptr, &details);
    refuse(takeOver(details));
}

void SampleSocket::limit(int option, int limitMs) {
    timeval time{};
    time.tv_sec = limitMs / 1000;
    time.tv_usec = decltype(time.tv_usec){limitMs % 1000} * 1000;
    check(SEK_SetSockOpt(m_handle, option, &time, sizeof time, nullptr));
}

void SampleSocket::listenOn(const std::string& uri, int acceptLimitMs) {
    limit(SO_RCVTIMEO, acceptLimitMs);
    std::string copy = uri;
    check(SEK_Bind_Url(m_handle, copy.data(), nullptr));
    check(SEK_Listen(m_handle, SOMAXCONN, nullptr));
}

SampleSocket SampleSocket::accept() {
    void* accepted = nullptr;
    check(SEK_Accept(m_handle, &accepted, nullptr, nullptr, nullptr));
    return SampleSocket(accepted);
}

std::string SampleSocket::localName() const {
    return nameFrom(SEK_GetSockName, m_handle);
}

std::string SampleSocket::peerName() const {
    return nameFrom(SEK_GetPeerName, m_handle);
}

bool SampleSocket::establish() {
    const long result = SEK_EstablishSecure(m_handle, nullptr);
    if (result == SEK_CallAgain) return false;
    check(result);
    return true;
}

bool SampleSocket::hasInput(int timeoutMs) {
    std::vector<SEK_Pollfd> entry{{m_handle, SEK_Readable, 0}};
    return poll(entry, timeoutMs);
}

std::string SampleSocket::receive() {
    std::array<char, kBlockBytes> block{};
    long count = 0;
    check(SEK_Recv(m_handle, block.data(), static_cast<long>(block.size()), 0, &count, nullptr));
    return {block.data(), static_cast<std::size_t>(count)};
}

void SampleSocket::limitSending(int limitMs) {
    limit(SO_SNDTIMEO, limitMs);
}

void SampleSocket::send(const std::string& text) {
    check(SEK_Send(m_handle, text.data(), static_cast<long>(text.size()), 0, nullptr, nullptr));
}

std::vector<SampleSocket*> SampleSocket::withInput(const std::vector<SampleSocket*>& sockets, int timeoutMs) {
    std::vector<SEK_Pollfd> entries;
    entries.reserve(sockets.size());
    for (const SampleSocket* const socket : sockets)
        entries.push_back({socket->m_handle, SEK_Readable, 0});
    std::vector<SampleSocket*> found;
    if (!poll(entries, timeoutMs)) return found;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (entries[i].revents != 0) found.push_back(sockets[i]);
    }
    return found;
}
