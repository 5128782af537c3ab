// The one list of the security library's entry points.
//
// Purpose: whatever must know all 38, in their agreed order, is made from this list: the loader's table of names, its
//   indices and forwarding members, the library's export map, the scripted library of the tests, and the tests
//   themselves. What each entry point does stands at its declaration in SEK_Crypto_Interface.h, which the list is held
//   against by the compiler.
// Ownership, threads, units: none.
// Errors: the last column is the argument that takes empty error details when the entry point is missing, nullptr
//   where there is none.
#pragma once

// ENTRY(name, (parameters), (arguments), details)
#define SEK_ENTRY_POINTS(ENTRY)                                                                              \
    ENTRY(SEK_CryptoInitialize, (char* document, char* reserved, char** details),                            \
          (document, reserved, details), details)                                                            \
    ENTRY(SEK_CryptoTerminate, (char* document, char* reserved, char** details),                             \
          (document, reserved, details), details)                                                            \
    ENTRY(SEK_CryptoFree, (void* memory, char* reserved), (memory, reserved), nullptr)                       \
    ENTRY(SEK_CryptoGetLastErrorDetails, (void* handle, char* reserved, char** details),                     \
          (handle, reserved, details), details)                                                              \
    ENTRY(SEK_Socket, (void** handle, char* sessionDocument, char* reserved, char** details),                \
          (handle, sessionDocument, reserved, details), details)                                             \
    ENTRY(SEK_Bind, (void* handle, sockaddr_storage* address, long length, char* reserved),                  \
          (handle, address, length, reserved), nullptr)                                                      \
    ENTRY(SEK_Bind_Url, (void* handle, char* url, char* reserved), (handle, url, reserved), nullptr)         \
    ENTRY(SEK_Listen, (void* handle, long backlog, char* reserved), (handle, backlog, reserved), nullptr)    \
    ENTRY(SEK_Accept, (void* handle, void** accepted, sockaddr_storage* peer, long* length, char* reserved), \
          (handle, accepted, peer, length, reserved), nullptr)                                               \
    ENTRY(SEK_Connect, (void* handle, sockaddr_storage* address, long length, char* reserved),               \
          (handle, address, length, reserved), nullptr)                                                      \
    ENTRY(SEK_Connect_Url, (void* handle, char* url, char* sessionDocument), (handle, url, sessionDocument), \
          nullptr)                                                                                           \
    ENTRY(SEK_EstablishSecure, (void* handle, char* reserved), (handle, reserved), nullptr)                  \
    ENTRY(SEK_GetSockName, (void* handle, sockaddr_storage* address, long* length, char* reserved),          \
          (handle, address, length, reserved), nullptr)                                                      \
    ENTRY(SEK_GetPeerName, (void* handle, sockaddr_storage* address, long* length, char* reserved),          \
          (handle, address, length, reserved), nullptr)                                                      \
    ENTRY(SEK_GetSockOpt, (void* handle, long option, void* value, long* length, char* reserved),            \
          (handle, option, value, length, reserved), nullptr)                                                \
    ENTRY(SEK_SetSockOpt, (void* handle, long option, const void* value, long length, char* reserved),       \
          (handle, option, value, length, reserved), nullptr)                                                \
    ENTRY(SEK_Send, (void* handle, const void* data, long length, long flags, long* sent, char* reserved),   \
          (handle, data, length, flags, sent, reserved), nullptr)                                            \
    ENTRY(SEK_Recv, (void* handle, void* buffer, long capacity, long flags, long* received, char* reserved), \
          (handle, buffer, capacity, flags, received, reserved), nullptr)                                    \
    ENTRY(SEK_SocketSecurityOp, (void* handle, char* operation, char** result, char* reserved),              \
          (handle, operation, result, reserved), nullptr)                                                    \
    ENTRY(SEK_Select,                                                                                        \
          (SEK_Handle_Set * readSet, SEK_Handle_Set * writeSet, SEK_Handle_Set * exceptSet,                  \
           const timeval* timeLimit, long* ready, char* reserved, char** details),                           \
          (readSet, writeSet, exceptSet, timeLimit, ready, reserved, details), details)                      \
    ENTRY(SEK_Poll, (SEK_Pollfd * entries, long count, long timeLimitMs, char* reserved, char** details),    \
          (entries, count, timeLimitMs, reserved, details), details)                                         \
    ENTRY(SEK_CloseHandle, (void** handle, char* reserved, char** details), (handle, reserved, details),     \
          details)                                                                                           \
    ENTRY(SEK_PersistentInitialize, (void** handle, char* document, char* reserved, char** details),         \
          (handle, document, reserved, details), details)                                                    \
    ENTRY(SEK_SetInfo, (void* handle, char* document, char* reserved), (handle, document, reserved),         \
          nullptr)                                                                                           \
    ENTRY(SEK_ProtectData,                                                                                   \
          (void* handle, void* data, unsigned long length, void** result, unsigned long* resultLength,       \
           char* reserved),                                                                                  \
          (handle, data, length, result, resultLength, reserved), nullptr)                                   \
    ENTRY(SEK_UnprotectData,                                                                                 \
          (void* handle, void* data, unsigned long length, void** result, unsigned long* resultLength,       \
           char* reserved),                                                                                  \
          (handle, data, length, result, resultLength, reserved), nullptr)                                   \
    ENTRY(SEK_GetInfo, (void* handle, char* query, char** result, char* reserved),                           \
          (handle, query, result, reserved), nullptr)                                                        \
    ENTRY(SEK_ImpUsrInitialize, (void** handle, char* document, char* reserved, char** details),             \
          (handle, document, reserved, details), details)                                                    \
    ENTRY(SEK_ImpUsrNegotiate, (void* handle, char* token, char** reply, char* reserved),                    \
          (handle, token, reply, reserved), nullptr)                                                         \
    ENTRY(SEK_ImpUsrImpersonate, (void* handle, char* reserved), (handle, reserved), nullptr)                \
    ENTRY(SEK_ImpUsrRevert, (void* handle, char* reserved), (handle, reserved), nullptr)                     \
    ENTRY(SEK_ImpUsrSerializeHandle, (void* handle, char** text, char* reserved), (handle, text, reserved),  \
          nullptr)                                                                                           \
    ENTRY(SEK_ImpUsrDeserializeHandle, (char* text, void** handle, char** result, char* reserved),           \
          (text, handle, result, reserved), nullptr)                                                         \
    ENTRY(SEK_GetRandomData, (unsigned long length, void* buffer, char* reserved),                           \
          (length, buffer, reserved), nullptr)                                                               \
    ENTRY(SEK_EncryptCredential,                                                                             \
          (void* handle, unsigned long kind, void* data, unsigned long length, unsigned long flags,          \
           void** result, unsigned long* resultLength, char* reserved),                                      \
          (handle, kind, data, length, flags, result, resultLength, reserved), nullptr)                      \
    ENTRY(SEK_DecryptCredential,                                                                             \
          (void* handle, unsigned long kind, void* data, unsigned long length, void** result,                \
           unsigned long* resultLength, char* reserved),                                                     \
          (handle, kind, data, length, result, resultLength, reserved), nullptr)                             \
    ENTRY(                                                                                                   \
        SEK_CMDRT_DecryptPassport,                                                                           \
        (void* passport, unsigned long length, void** result, unsigned long* resultLength, char* reserved),  \
        (passport, length, result, resultLength, reserved), nullptr)                                         \
    ENTRY(AS_DecryptText,                                                                                    \
          (long kind, unsigned long flags, int length, const char* text, int* resultLength, char* result),   \
          (kind, flags, length, text, resultLength, result), nullptr)
