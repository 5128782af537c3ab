// The interface of libSEK_Crypto_Interface.so: sockets, plain or TLS, behind a C function table.
//
// Purpose: the one description of the 38 entry points, for the library that defines them and for the programs
//   that use it. The service looks them up by name at run time; other programs may link against the library.
// Ownership: a handle belongs to the caller until SEK_CloseHandle. Text and memory that the library hands out
//   (details, protected data) is heap memory of the library, released with SEK_CryptoFree.
// Threads: every entry may be called from any thread; one handle is used by one thread at a time.
// Units: time limits are milliseconds (-1: none); lengths are bytes.
// Errors: 0 is success; any other value is an error code. SEK_HandshakePending and SEK_CallAgain ask the caller
//   to go on and are not failures: they leave no detail text, but for a handshake that takes unduly long. Every
//   failure leaves one, on one line, at the handle or, for calls without one, at the thread; a `details` argument
//   gets a copy of it, and null after a success. Before the first SEK_CryptoInitialize every call but
//   SEK_CryptoFree and SEK_CryptoGetLastErrorDetails fails.
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

// --- The library ---

// Documents are <initializeDocument> and <terminateDocument>, each with one <serviceID>. Initialising is
// cheap and may be repeated; each one needs its terminate. Settings and trust store are read when the first
// TLS connection needs them. Handles that are open when the last terminate comes can still be closed.
long SEK_CryptoInitialize(char* document, char* reserved, char** details);
long SEK_CryptoTerminate(char* document, char* reserved, char** details);

// Releases what the library handed out; null is fine.
long SEK_CryptoFree(void* memory, char* reserved);

// The text of the last failure of the handle, or, for null and for what is no live handle, of this thread's
// calls without a handle. Null when the last call succeeded or only asked to go on. Reading it takes nothing
// away.
long SEK_CryptoGetLastErrorDetails(void* handle, char* reserved, char** details);

// --- Sockets ---

// The document is a <sessionConfigDocument> with a <serviceID>, which names the section of
// ../configuration/sek.cnf, and a <protocolFamily>, "IPv4" or "IPv6", the only family that the handle uses.
long SEK_Socket(void** handle, char* sessionDocument, char* reserved, char** details);

// The server's side. URLs are as for SEK_Connect_Url; the host "*" is any local address, the port 0 any free
// one. Handles accepted from a listener bound to an https or tls URL transfer nothing before
// SEK_EstablishSecure. SEK_Accept waits until somebody connects, or as long as SO_RCVTIMEO says.
long SEK_Bind(void* handle, sockaddr_storage* address, long length, char* reserved);
long SEK_Bind_Url(void* handle, char* url, char* reserved);
long SEK_Listen(void* handle, long backlog, char* reserved);
long SEK_Accept(void* handle, void** accepted, sockaddr_storage* peer, long* length, char* reserved);

// Connects to an address, plain; SEK_EstablishSecure may follow and then expects a certificate for that
// address.
long SEK_Connect(void* handle, sockaddr_storage* address, long length, char* reserved);

// Connects to scheme://host[:port][/path], plain for http and tcp, TLS for https and tls; 10 s at most, for
// resolving and all addresses together. A TLS URL gives SEK_HandshakePending until the handshake is finished
// and SEK_Ok afterwards. "localhost" and names that end in ".localhost" are 127.0.0.1 or ::1 and are not looked
// up. The document may be null; otherwise it must be of the handle's family. After a failure the call may be repeated.
long SEK_Connect_Url(void* handle, char* url, char* sessionDocument);

// The handshake, 2 s at most: SEK_CallAgain while it must be called again, with a detail text when that has gone
// on for more than 10 s, SEK_Ok when it is finished. A client verifies the server's certificate for the host of
// the URL; a server takes its certificate from sek.cnf.
long SEK_EstablishSecure(void* handle, char* reserved);

// The operation "describePeer" gives an XML text about the peer of an established TLS connection, heap memory for
// SEK_CryptoFree: protocol, cipher and the certificates. Any other operation: SEK_NotSupported.
long SEK_SocketSecurityOp(void* handle, char* operation, char** result, char* reserved);

// Options are those of the level SOL_SOCKET. SO_SNDTIMEO is the time without progress after which a send
// fails (60 s unless set; all in all a send may last as long, and a millisecond more for every 16 bytes),
// SO_RCVTIMEO the limit of a receive and of an accept (none unless set). A zero limit is none. Names are cut to the room that is there; the length is always the full one.
long SEK_GetSockName(void* handle, sockaddr_storage* address, long* length, char* reserved);
long SEK_GetPeerName(void* handle, sockaddr_storage* address, long* length, char* reserved);
long SEK_GetSockOpt(void* handle, long option, void* value, long* length, char* reserved);
long SEK_SetSockOpt(void* handle, long option, const void* value, long length, char* reserved);

// Sends every byte or fails; `sent` (may be null) counts those that went out in either case. Flags must be 0.
// After a failed send a TLS connection is of no more use.
long SEK_Send(void* handle, const void* data, long length, long flags, long* sent, char* reserved);

// Waits for one block, at most one TLS record; 0 bytes at the end of the stream. A TLS stream that ends
// without its close notification is a failure, since the answer may have been cut off. Flags must be 0.
long SEK_Recv(void* handle, void* buffer, long capacity, long flags, long* received, char* reserved);

// Waiting for many handles. SEK_Ok when something happened, SEK_TimedOut when nothing did. Readable means
// that a receive would return at once: data of the application is there, the peer has ended the connection,
// or it has failed; for a listener, that somebody wants to connect. Null handles in poll entries are passed
// over.
long SEK_Select(SEK_Handle_Set* readSet, SEK_Handle_Set* writeSet, SEK_Handle_Set* exceptSet,
                const timeval* timeLimit, long* ready, char* reserved, char** details);
long SEK_Poll(SEK_Pollfd* entries, long count, long timeLimitMs, char* reserved, char** details);

// Ends a connection politely, which takes no longer than a tenth of a second, and clears the handle. Null is
// fine.
long SEK_CloseHandle(void** handle, char* reserved, char** details);

// --- Random data ---

long SEK_GetRandomData(unsigned long length, void* buffer, char* reserved);

// --- Not offered ---

// All of these return SEK_NotSupported with the text "not supported".
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
long SEK_ImpUsrDeserializeHandle(char* text, void** handle, char** result, char* reserved);
long SEK_EncryptCredential(void* handle, unsigned long kind, void* data, unsigned long length,
                           unsigned long flags, void** result, unsigned long* resultLength, char* reserved);
long SEK_DecryptCredential(void* handle, unsigned long kind, void* data, unsigned long length, void** result,
                           unsigned long* resultLength, char* reserved);
long SEK_CMDRT_DecryptPassport(void* passport, unsigned long length, void** result,
                               unsigned long* resultLength, char* reserved);
long AS_DecryptText(long kind, unsigned long flags, int length, const char* text, int* resultLength,
                    char* result);
}
