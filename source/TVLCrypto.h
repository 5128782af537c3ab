// The security library, loaded at run time.
//
// Purpose: finds libSEK_Crypto_Interface.so, looks its entry points up into a table, and forwards to them
//   under their own names.
// Ownership: holds the library while it is open. The destructor does not unload it: code of the library may
//   still be on its way out.
// Threads: opened and closed on the main thread; the forwarding members may be called from any thread.
// Units: as SEK_Crypto_Interface.h has them.
// Errors: a forwarding member without its entry point returns -1, and empty error details where it has them.
#pragma once

#include <array>
#include <cstddef>
#include <string>

#include "SEK_Crypto_Interface.h"

class TVLCrypto {
  public:
    static constexpr std::size_t kEntryCount = 38;

    explicit TVLCrypto(const char* libraryName);  // opens; ask isOpen() for the outcome
    TVLCrypto(const TVLCrypto&) = delete;
    TVLCrypto& operator=(const TVLCrypto&) = delete;
    virtual ~TVLCrypto();

    // 0 when the library lacks an entry point (it is unloaded again), otherwise 1. Deliberate: a library that
    // is not there gives 1 as well; see TVLCryptoTest.AMissingLibraryIsNoErrorOfOpen.
    int open(const char* libraryName);
    int tryOpen(const char* libraryName);  // one attempt to load "lib<name>.so"; 1 when it is loaded
    int isOpen() const { return m_handle != nullptr ? 1 : 0; }
    int close();  // what dlclose returns; 0 when nothing was open

    long SEK_CryptoInitialize(char* document, char* reserved, char** details);
    long SEK_CryptoTerminate(char* document, char* reserved, char** details);
    long SEK_CryptoFree(void* memory, char* reserved);
    long SEK_CryptoGetLastErrorDetails(void* handle, char* reserved, char** details);
    long SEK_Socket(void** handle, char* sessionDocument, char* reserved, char** details);
    long SEK_Bind(void* handle, sockaddr_storage* address, long length, char* reserved);
    long SEK_Bind_Url(void* handle, char* url, char* reserved);
    long SEK_Listen(void* handle, long backlog, char* reserved);
    long SEK_Accept(void* handle, void** accepted, sockaddr_storage* peer, long* length, char* reserved);
    long SEK_Connect(void* handle, sockaddr_storage* address, long length, char* reserved);
    long SEK_Connect_Url(void* handle, char* url, char* sessionDocument);
    long SEK_EstablishSecure(void* handle, char* reserved);
    long SEK_GetSockName(void* handle, sockaddr_storage* address, long* length, char* reserved);
    long SEK_GetPeerName(void* handle, sockaddr_storage* address, long* length, char* reserved);
    long SEK_GetSockOpt(void* handle, long option, void* value, long* length, char* reserved);
    long SEK_SetSockOpt(void* handle, long option, const void* value, long length, char* reserved);
    long SEK_Send(void* handle, const void* data, long length, long flags, long* sent, char* reserved);
    long SEK_Recv(void* handle, void* buffer, long capacity, long flags, long* received, char* reserved);
    long SEK_SocketSecurityOp(void* handle, char* operation, char** result, char* reserved);
    long SEK_Select(SEK_Handle_Set* readSet, SEK_Handle_Set* writeSet, SEK_Handle_Set* exceptSet,
                    const timeval* timeLimit, long* ready, char* reserved, char** details);
    long SEK_Poll(SEK_Pollfd* entries, long count, long timeLimitMs, char* reserved, char** details);
    long SEK_CloseHandle(void** handle, char* reserved, char** details);
    long SEK_PersistentInitialize(void** handle, char* document, char* reserved, char** details);
    long SEK_SetInfo(void* handle, char* document, char* reserved);
    long SEK_ProtectData(void* handle, void* data, unsigned long length, void** result,
                         unsigned long* resultLength, char* reserved);
    long SEK_UnprotectData(void* handle, void* data, unsigned long length, void** result,
                           unsigned long* resultLength, char* reserved);
    long SEK_GetInfo(void* handle, char* query, char** result, char* reserved);
    long SEK_ImpUsrInitialize(void** handle, char* document, char* reserved, char** details);
    long SEK_ImpUsrNegotiate(void* handle, char* token, char** reply, char* reserved);
    long SEK_ImpUsrImpersonate(void* handle, char* reserved);
    long SEK_ImpUsrRevert(void* handle, char* reserved);
    long SEK_ImpUsrSerializeHandle(void* handle, char** text, char* reserved);
    long SEK_ImpUsrDeserializeHandle(char* text, void** handle, char** details, char* reserved);
    long SEK_GetRandomData(unsigned long length, void* buffer, char* reserved);
    long SEK_EncryptCredential(void* handle, unsigned long kind, void* data, unsigned long length,
                               unsigned long flags, void** result, unsigned long* resultLength,
                               char* reserved);
    long SEK_DecryptCredential(void* handle, unsigned long kind, void* data, unsigned long length,
                               void** result, unsigned long* resultLength, char* reserved);
    long SEK_CMDRT_DecryptPassport(void* passport, unsigned long length, void** result,
                                   unsigned long* resultLength, char* reserved);
    long AS_DecryptText(long kind, unsigned long flags, int length, const char* text, int* resultLength,
                        char* result);

  private:
    bool has(std::size_t entry) const { return m_handle != nullptr && m_entries[entry] != nullptr; }
    template <typename EntryPoint, typename... Arguments>
    long call(std::size_t entry, Arguments... arguments) const;
    static long withoutDetails(char** details);

    void* m_handle = nullptr;
    std::array<void*, kEntryCount> m_entries{};  // in the order of the table of names
};
