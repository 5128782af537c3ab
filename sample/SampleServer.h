// The dispatcher's network side.
//
// Purpose: listens on a URI's host, IPv4 and IPv6, and serves any number of clients at once: each has a
//   thread of its own, so that one that is silent, slow or stuck in its handshake delays nobody.
// Ownership: owns its listeners and connections. Refers to the log, which must outlive it.
// Threads: used by one; the handler is called by the threads of the connections.
// Units: milliseconds and seconds as the names say.
// Errors: the constructor and listen() throw std::runtime_error; trouble with one client is logged and ends
//   that client's connection only.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "SampleConnection.h"
#include "SampleLog.h"
#include "SampleSocket.h"

class SampleServer {
  public:
    struct Settings {
        std::string uri;
        std::string service;   // whose settings apply
        int idleLimitSec = 0;  // 0: clients may be silent for ever
    };

    SampleServer(const Settings& settings, SampleConnection::Handler handler, SampleLog& log);

    // False when the port is in use; it may be tried again.
    bool listen();
    // Takes in new clients until the time has passed or one has come, and parts with those that are over.
    void turn(int timeoutMs);
    // Every connection ends; answers under way are still sent.
    void endConnections();

  private:
    bool listenWith(const std::string& family, std::string& reasons);
    void acceptFrom(SampleSocket& listener);
    void removeFinished();

    const Settings m_settings;
    const SampleConnection::Rules m_rules;
    const SampleConnection::Handler m_handler;
    SampleLog& m_log;
    const SampleLibrary m_library;
    std::vector<SampleSocket> m_listeners;
    bool m_pauses = false;  // an accept has failed: the next turn takes nobody in
    std::vector<std::unique_ptr<SampleConnection>> m_connections;
};
