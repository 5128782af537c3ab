#include "TVLCrypto.h"

#include <dlfcn.h>

#include "TVLFmDir.h"

namespace {

// The entry points in lookup order: their names, and below their places in the table.
constexpr std::array kEntryNames{"SEK_CryptoInitialize",
                                 "SEK_CryptoTerminate",
                                 "SEK_CryptoFree",
                                 "SEK_CryptoGetLastErrorDetails",
                                 "SEK_Socket",
                                 "SEK_Bind",
                                 "SEK_Bind_Url",
                                 "SEK_Listen",
                                 "SEK_Accept",
                                 "SEK_Connect",
                                 "SEK_Connect_Url",
                                 "SEK_EstablishSecure",
                                 "SEK_GetSockName",
                                 "SEK_GetPeerName",
                                 "SEK_GetSockOpt",
                                 "SEK_SetSockOpt",
                                 "SEK_Send",
                                 "SEK_Recv",
                                 "SEK_SocketSecurityOp",
                                 "SEK_Select",
                                 "SEK_Poll",
                                 "SEK_CloseHandle",
                                 "SEK_PersistentInitialize",
                                 "SEK_SetInfo",
                                 "SEK_ProtectData",
                                 "SEK_UnprotectData",
                                 "SEK_GetInfo",
                                 "SEK_ImpUsrInitialize",
                                 "SEK_ImpUsrNegotiate",
                                 "SEK_ImpUsrImpersonate",
                                 "SEK_ImpUsrRevert",
                                 "SEK_ImpUsrSerializeHandle",
                                 "SEK_ImpUsrDeserializeHandle",
                                 "SEK_GetRandomData",
                                 "SEK_EncryptCredential",
                                 "SEK_DecryptCredential",
                                 "SEK_CMDRT_DecryptPassport",
                                 "AS_DecryptText"};
static_assert(kEntryNames.size() == TVLCrypto::kEntryCount);

enum EntryIndex : std::size_t {
    kIndex_SEK_CryptoInitialize,
    kIndex_SEK_CryptoTerminate,
    kIndex_SEK_CryptoFree,
    kIndex_SEK_CryptoGetLastErrorDetails,
    kIndex_SEK_Socket,
    kIndex_SEK_Bind,
    kIndex_SEK_Bind_Url,
    kIndex_SEK_Listen,
    kIndex_SEK_Accept,
    kIndex_SEK_Connect,
    kIndex_SEK_Connect_Url,
    kIndex_SEK_EstablishSecure,
    kIndex_SEK_GetSockName,
    kIndex_SEK_GetPeerName,
    kIndex_SEK_GetSockOpt,
    kIndex_SEK_SetSockOpt,
    kIndex_SEK_Send,
    kIndex_SEK_Recv,
    kIndex_SEK_SocketSecurityOp,
    kIndex_SEK_Select,
    kIndex_SEK_Poll,
    kIndex_SEK_CloseHandle,
    kIndex_SEK_PersistentInitialize,
    kIndex_SEK_SetInfo,
    kIndex_SEK_ProtectData,
    kIndex_SEK_UnprotectData,
    kIndex_SEK_GetInfo,
    kIndex_SEK_ImpUsrInitialize,
    kIndex_SEK_ImpUsrNegotiate,
    kIndex_SEK_ImpUsrImpersonate,
    kIndex_SEK_ImpUsrRevert,
    kIndex_SEK_ImpUsrSerializeHandle,
    kIndex_SEK_ImpUsrDeserializeHandle,
    kIndex_SEK_GetRandomData,
    kIndex_SEK_EncryptCredential,
    kIndex_SEK_DecryptCredential,
    kIndex_SEK_CMDRT_DecryptPassport,
    kIndex_AS_DecryptText,
    kIndexCount
};
static_assert(kIndexCount == TVLCrypto::kEntryCount);

}  // namespace

TVLCrypto::TVLCrypto(const char* libraryName) {
    open(libraryName);
}

TVLCrypto::~TVLCrypto() = default;

int TVLCrypto::open(const char* libraryName) {
    if (m_handle == nullptr) tryOpen(libraryName);
    if (m_handle == nullptr) return 1;
    for (std::size_t entry = 0; entry < kEntryCount; ++entry) {
        m_entries[entry] = dlsym(m_handle, kEntryNames[entry]);
        if (m_entries[entry] != nullptr) continue;
        close();
        return 0;
    }
    return 1;
}

int TVLCrypto::tryOpen(const char* libraryName) {
    const std::string fileName = std::string("lib") + libraryName + ".so";
    m_handle = dlopen(TVLFmDir::resolveEffectivePath(fileName).c_str(), RTLD_LAZY);
    return isOpen();
}

int TVLCrypto::close() {
    if (m_handle == nullptr) return 0;
    const int result = dlclose(m_handle);
    m_handle = nullptr;
    return result;
}

template <typename EntryPoint, typename... Arguments>
long TVLCrypto::call(std::size_t entry, Arguments... arguments) const {
    if (!has(entry)) return -1;
    return reinterpret_cast<EntryPoint*>(m_entries[entry])(arguments...);
}

long TVLCrypto::withoutDetails(char** details) {
    static char empty[] = "";
    if (details != nullptr) *details = empty;
    return -1;
}

long TVLCrypto::SEK_CryptoInitialize(char* document, char* reserved, char** details) {
    if (!has(kIndex_SEK_CryptoInitialize)) return withoutDetails(details);
    return call<decltype(::SEK_CryptoInitialize)>(kIndex_SEK_CryptoInitialize, document, reserved, details);
}

long TVLCrypto::SEK_CryptoTerminate(char* document, char* reserved, char** details) {
    if (!has(kIndex_SEK_CryptoTerminate)) return withoutDetails(details);
    return call<decltype(::SEK_CryptoTerminate)>(kIndex_SEK_CryptoTerminate, document, reserved, details);
}

long TVLCrypto::SEK_CryptoFree(void* memory, char* reserved) {
    return call<decltype(::SEK_CryptoFree)>(kIndex_SEK_CryptoFree, memory, reserved);
}

long TVLCrypto::SEK_CryptoGetLastErrorDetails(void* handle, char* reserved, char** details) {
    if (!has(kIndex_SEK_CryptoGetLastErrorDetails)) return withoutDetails(details);
    return call<decltype(::SEK_CryptoGetLastErrorDetails)>(kIndex_SEK_CryptoGetLastErrorDetails, handle,
                                                           reserved, details);
}

long TVLCrypto::SEK_Socket(void** handle, char* sessionDocument, char* reserved, char** details) {
    if (!has(kIndex_SEK_Socket)) return withoutDetails(details);
    return call<decltype(::SEK_Socket)>(kIndex_SEK_Socket, handle, sessionDocument, reserved, details);
}

long TVLCrypto::SEK_Bind(void* handle, sockaddr_storage* address, long length, char* reserved) {
    return call<decltype(::SEK_Bind)>(kIndex_SEK_Bind, handle, address, length, reserved);
}

long TVLCrypto::SEK_Bind_Url(void* handle, char* url, char* reserved) {
    return call<decltype(::SEK_Bind_Url)>(kIndex_SEK_Bind_Url, handle, url, reserved);
}

long TVLCrypto::SEK_Listen(void* handle, long backlog, char* reserved) {
    return call<decltype(::SEK_Listen)>(kIndex_SEK_Listen, handle, backlog, reserved);
}

long TVLCrypto::SEK_Accept(void* handle, void** accepted, sockaddr_storage* peer, long* length,
                           char* reserved) {
    return call<decltype(::SEK_Accept)>(kIndex_SEK_Accept, handle, accepted, peer, length, reserved);
}

long TVLCrypto::SEK_Connect(void* handle, sockaddr_storage* address, long length, char* reserved) {
    return call<decltype(::SEK_Connect)>(kIndex_SEK_Connect, handle, address, length, reserved);
}

long TVLCrypto::SEK_Connect_Url(void* handle, char* url, char* sessionDocument) {
    return call<decltype(::SEK_Connect_Url)>(kIndex_SEK_Connect_Url, handle, url, sessionDocument);
}

long TVLCrypto::SEK_EstablishSecure(void* handle, char* reserved) {
    return call<decltype(::SEK_EstablishSecure)>(kIndex_SEK_EstablishSecure, handle, reserved);
}

long TVLCrypto::SEK_GetSockName(void* handle, sockaddr_storage* address, long* length, char* reserved) {
    return call<decltype(::SEK_GetSockName)>(kIndex_SEK_GetSockName, handle, address, length, reserved);
}

long TVLCrypto::SEK_GetPeerName(void* handle, sockaddr_storage* address, long* length, char* reserved) {
    return call<decltype(::SEK_GetPeerName)>(kIndex_SEK_GetPeerName, handle, address, length, reserved);
}

long TVLCrypto::SEK_GetSockOpt(void* handle, long option, void* value, long* length, char* reserved) {
    return call<decltype(::SEK_GetSockOpt)>(kIndex_SEK_GetSockOpt, handle, option, value, length, reserved);
}

long TVLCrypto::SEK_SetSockOpt(void* handle, long option, const void* value, long length, char* reserved) {
    return call<decltype(::SEK_SetSockOpt)>(kIndex_SEK_SetSockOpt, handle, option, value, length, reserved);
}

long TVLCrypto::SEK_Send(void* handle, const void* data, long length, long flags, long* sent,
                         char* reserved) {
    return call<decltype(::SEK_Send)>(kIndex_SEK_Send, handle, data, length, flags, sent, reserved);
}

long TVLCrypto::SEK_Recv(void* handle, void* buffer, long capacity, long flags, long* received,
                         char* reserved) {
    return call<decltype(::SEK_Recv)>(kIndex_SEK_Recv, handle, buffer, capacity, flags, received, reserved);
}

long TVLCrypto::SEK_SocketSecurityOp(void* handle, char* operation, char** result, char* reserved) {
    return call<decltype(::SEK_SocketSecurityOp)>(kIndex_SEK_SocketSecurityOp, handle, operation, result,
                                                  reserved);
}

long TVLCrypto::SEK_Select(SEK_Handle_Set* readSet, SEK_Handle_Set* writeSet, SEK_Handle_Set* exceptSet,
                           const timeval* timeLimit, long* ready, char* reserved, char** details) {
    if (!has(kIndex_SEK_Select)) return withoutDetails(details);
    return call<decltype(::SEK_Select)>(kIndex_SEK_Select, readSet, writeSet, exceptSet, timeLimit, ready,
                                        reserved, details);
}

long TVLCrypto::SEK_Poll(SEK_Pollfd* entries, long count, long timeLimitMs, char* reserved, char** details) {
    if (!has(kIndex_SEK_Poll)) return withoutDetails(details);
    return call<decltype(::SEK_Poll)>(kIndex_SEK_Poll, entries, count, timeLimitMs, reserved, details);
}

long TVLCrypto::SEK_CloseHandle(void** handle, char* reserved, char** details) {
    if (!has(kIndex_SEK_CloseHandle)) return withoutDetails(details);
    return call<decltype(::SEK_CloseHandle)>(kIndex_SEK_CloseHandle, handle, reserved, details);
}

long TVLCrypto::SEK_PersistentInitialize(void** handle, char* document, char* reserved, char** details) {
    if (!has(kIndex_SEK_PersistentInitialize)) return withoutDetails(details);
    return call<decltype(::SEK_PersistentInitialize)>(kIndex_SEK_PersistentInitialize, handle, document,
                                                      reserved, details);
}

long TVLCrypto::SEK_SetInfo(void* handle, char* document, char* reserved) {
    return call<decltype(::SEK_SetInfo)>(kIndex_SEK_SetInfo, handle, document, reserved);
}

long TVLCrypto::SEK_ProtectData(void* handle, void* data, unsigned long length, void** result,
                                unsigned long* resultLength, char* reserved) {
    return call<decltype(::SEK_ProtectData)>(kIndex_SEK_ProtectData, handle, data, length, result,
                                             resultLength, reserved);
}

long TVLCrypto::SEK_UnprotectData(void* handle, void* data, unsigned long length, void** result,
                                  unsigned long* resultLength, char* reserved) {
    return call<decltype(::SEK_UnprotectData)>(kIndex_SEK_UnprotectData, handle, data, length, result,
                                               resultLength, reserved);
}

long TVLCrypto::SEK_GetInfo(void* handle, char* query, char** result, char* reserved) {
    return call<decltype(::SEK_GetInfo)>(kIndex_SEK_GetInfo, handle, query, result, reserved);
}

long TVLCrypto::SEK_ImpUsrInitialize(void** handle, char* document, char* reserved, char** details) {
    if (!has(kIndex_SEK_ImpUsrInitialize)) return withoutDetails(details);
    return call<decltype(::SEK_ImpUsrInitialize)>(kIndex_SEK_ImpUsrInitialize, handle, document, reserved,
                                                  details);
}

long TVLCrypto::SEK_ImpUsrNegotiate(void* handle, char* token, char** reply, char* reserved) {
    return call<decltype(::SEK_ImpUsrNegotiate)>(kIndex_SEK_ImpUsrNegotiate, handle, token, reply, reserved);
}

long TVLCrypto::SEK_ImpUsrImpersonate(void* handle, char* reserved) {
    return call<decltype(::SEK_ImpUsrImpersonate)>(kIndex_SEK_ImpUsrImpersonate, handle, reserved);
}

long TVLCrypto::SEK_ImpUsrRevert(void* handle, char* reserved) {
    return call<decltype(::SEK_ImpUsrRevert)>(kIndex_SEK_ImpUsrRevert, handle, reserved);
}

long TVLCrypto::SEK_ImpUsrSerializeHandle(void* handle, char** text, char* reserved) {
    return call<decltype(::SEK_ImpUsrSerializeHandle)>(kIndex_SEK_ImpUsrSerializeHandle, handle, text,
                                                       reserved);
}

long TVLCrypto::SEK_ImpUsrDeserializeHandle(char* text, void** handle, char** details, char* reserved) {
    return call<decltype(::SEK_ImpUsrDeserializeHandle)>(kIndex_SEK_ImpUsrDeserializeHandle, text, handle,
                                                         details, reserved);
}

long TVLCrypto::SEK_GetRandomData(unsigned long length, void* buffer, char* reserved) {
    return call<decltype(::SEK_GetRandomData)>(kIndex_SEK_GetRandomData, length, buffer, reserved);
}

long TVLCrypto::SEK_EncryptCredential(void* handle, unsigned long kind, void* data, unsigned long length,
                                      unsigned long flags, void** result, unsigned long* resultLength,
                                      char* reserved) {
    return call<decltype(::SEK_EncryptCredential)>(kIndex_SEK_EncryptCredential, handle, kind, data, length,
                                                   flags, result, resultLength, reserved);
}

long TVLCrypto::SEK_DecryptCredential(void* handle, unsigned long kind, void* data, unsigned long length,
                                      void** result, unsigned long* resultLength, char* reserved) {
    return call<decltype(::SEK_DecryptCredential)>(kIndex_SEK_DecryptCredential, handle, kind, data, length,
                                                   result, resultLength, reserved);
}

long TVLCrypto::SEK_CMDRT_DecryptPassport(void* passport, unsigned long length, void** result,
                                          unsigned long* resultLength, char* reserved) {
    return call<decltype(::SEK_CMDRT_DecryptPassport)>(kIndex_SEK_CMDRT_DecryptPassport, passport, length,
                                                       result, resultLength, reserved);
}

long TVLCrypto::AS_DecryptText(long kind, unsigned long flags, int length, const char* text,
                               int* resultLength, char* result) {
    return call<decltype(::AS_DecryptText)>(kIndex_AS_DecryptText, kind, flags, length, text, resultLength,
                                            result);
}
