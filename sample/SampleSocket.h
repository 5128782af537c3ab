// The security library's sockets, as the dispatcher uses them.
//
// Purpose: turns the library's handles and codes into objects and exceptions, so that the dispatcher reads as
//   what it does. The settings of TLS are the library's: ../configuration/sek.cnf, relative to the working
//   directory, in the section that a socket is made with.
// Ownership: a socket owns its handle; closing it takes up to a tenth of a second. SampleLibrary keeps the
//   library initialised and must outlive every socket.
// Threads: a socket is used by one thread at a time.
// Units: milliseconds as the names say.
// Errors: what fails throws SampleSocketError with the library's words; destructors throw nothing.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

class SampleSocketError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
    // Somebody else has the port; it may be tried again.
    bool isAddressInUse() const;
};

class SampleLibrary {
  public:
    explicit SampleLibrary(const std::string& service);
    SampleLibrary(const SampleLibrary&) = delete;
    SampleLibrary& operator=(const SampleLibrary&) = delete;
    ~SampleLibrary();

  private:
    const std::string m_service;
};

class SampleSocket {
  public:
    // `family` is IPv4 or IPv6.
    SampleSocket(const std::string& service, const std::string& family);
    SampleSocket(SampleSocket&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
    SampleSocket& operator=(SampleSocket&&) = delete;
    ~SampleSocket();

    // Listens; at most `acceptLimitMs` later an accept gives up.
    void listenOn(const std::string& uri, int acceptLimitMs);
    SampleSocket accept();
    std::string localName() const;  // "127.0.0.1:9300" or "[::1]:9300"
    std::string peerName() const;

    // The server's half of a TLS handshake; false: call again. Takes up to two seconds.
    bool establish();
    // Whether receive() would return at once, waited for up to `timeoutMs`.
    bool hasInput(int timeoutMs);
    std::string receive();  // one block; empty: the peer has ended the connection
    void limitSending(int limitMs);
    void send(const std::string& text);

    // Waits until one of them has input, a new connection included, and tells which have. Without any socket
    // the time passes.
    static std::vector<SampleSocket*> withInput(const std::vector<SampleSocket*>& sockets, int timeoutMs);

  private:
    explicit SampleSocket(void* handle) : m_handle(handle) {}
    void limit(int option, int limitMs);
    void check(long result) const;

    void* m_handle = nullptr;  // null: moved from
};
