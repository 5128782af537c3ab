// The dispatcher's network side.
//
// Purpose: listens on every address of a URI's host, IPv4 and IPv6, and serves any number of clients in turn
//   without ever waiting for one of them: a client that is silent, slow or stuck in its handshake delays
//   nobody. It knows nothing of commands; a handler is shown what has arrived and says what to answer.
// Ownership: owns its sockets and TLS state. Refers to the log, which must outlive it.
// Threads: one.
// Units: milliseconds and seconds as the names say.
// Errors: the constructor and listen() throw std::runtime_error; trouble with one client is logged and ends
//   that client's connection only.
#pragma once

#include <netdb.h>
#include <poll.h>

#include <csignal>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "SampleLog.h"
#include "SampleTls.h"
#include "SampleUri.h"

class SampleServer {
  public:
    struct Settings {
        std::string uri;
        std::string certificateFile;
        std::string keyFile;
        int idleLimitSec = 0;  // 0: clients may be silent for ever
    };
    struct Reply {
        std::size_t consumed = 0;  // bytes dealt with; 0: not a whole command yet
        std::string text{};
        bool hangUp = false;  // once the text has been sent
    };
    using Handler = std::function<Reply(const std::string& peer, const std::string& received)>;

    SampleServer(const Settings& settings, SampleLog& log);
    SampleServer(const SampleServer&) = delete;
    SampleServer& operator=(const SampleServer&) = delete;
    ~SampleServer();

    // False when the port is in use; it may be tried again.
    bool listen();
    // Waits for traffic, for a signal that `whileWaiting` lets through or for the time to pass, and deals
    // with what there is.
    void turn(int timeoutMs, const sigset_t& whileWaiting, const Handler& handler);
    // Answers that clients have not taken yet.
    bool hasUnsentAnswers() const;

  private:
    class Connection;
    class Descriptor {
      public:
        explicit Descriptor(int number) : m_number(number) {}
        Descriptor(Descriptor&& other) noexcept : m_number(other.m_number) { other.m_number = -1; }
        Descriptor& operator=(Descriptor&&) = delete;
        ~Descriptor();
        int get() const { return m_number; }

      private:
        int m_number;  // -1: none
    };

    bool listenOn(const addrinfo& address);
    bool isListeningOn(const std::string& name) const;
    std::vector<pollfd> pollSet() const;
    void acceptFrom(int listener);
    void serveConnections(const std::vector<pollfd>& polled, const Handler& handler);

    struct Listener {
        Descriptor socket;
        std::string name;
    };

    const SampleUri m_uri;
    const std::string m_uriText;
    const int m_idleLimitSec;
    SampleLog& m_log;
    std::optional<SampleTls> m_tls;
    std::vector<Listener> m_listeners;
    std::vector<std::unique_ptr<Connection>> m_connections;
};
