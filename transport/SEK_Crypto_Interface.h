// The interface of libSEK_Crypto_Interface.so: sockets, plain or TLS, behind a C function table.
//
// Purpose: the one description of the 38 entry points, for the library that defines them and for the programs
//   that load it. A program looks them up by name at run time; nothing links against the library.
// Ownership: a handle belongs to the caller until SEK_CloseHandle. Text and memory that the library hands out
//   (details, protected data) is heap memory of the library, released with SEK_CryptoFree.
// Threads: every entry may be called from any thread; one handle is used by one thread at a time.
// Units: time limits are milliseconds (-1: none); lengths are bytes.
// Errors: 0 is success; any other value is an error code. SEK_HandshakePending and SEK_CallAgain ask the
// caller
//   to go on and are not failures: they leave no detail text. Every failure leaves one.
#pragma once

#include <sys/socket.h>
#include <sys/time.h>
#include <cstdint>

extern "C" {

// Results that callers act on.
enum SEK_Result : int {
    SEK_Ok = 0,
    SEK_TimedOut = 2,            // SEK_Poll: nothing happened within the time limit
    SEK_Failed = -1,             // see the detail text
    SEK_HandshakePending = -15,  // SEK_Connect_Url: connected, now SEK_EstablishSecure, then connect again
    SEK_CallAgain = -23,         // SEK_EstablishSecure: the handshake goes on, call again
    SEK_NotSupported = -95       // this library does not offer the operation
};

// Bits of SEK_Pollfd::events and revents.
enum SEK_PollEvent : std::uint16_t { SEK_Readable = 1, SEK_Writable = 2 };

struct SEK_Pollfd {
    void* handle;           // a socket handle
    std::uint16_t events;   // asked for
    std::uint16_t revents;  // happened; set by SEK_Poll
};

struct SEK_Handle_Set;  // see SEK_HandleSet.h

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
                           unsigned long flags, void** result, unsigned long* resultLength, char* reserved);
long SEK_DecryptCredential(void* handle, unsigned long kind, void* data, unsigned long length, void** result,
                           unsigned long* resultLength, char* reserved);
long SEK_CMDRT_DecryptPassport(void* passport, unsigned long length, void** result,
                               unsigned long* resultLength, char* reserved);
long AS_DecryptText(long kind, unsigned long flags, int length, const char* text, int* resultLength,
                    char* result);
}
