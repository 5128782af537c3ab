// One client of the dispatcher, served by a thread of its own.
//
// Purpose: shakes hands, collects what the client sends, and sends what a handler answers. The library's
//   calls may wait for the client; here they make nobody else wait. It knows nothing of commands.
// Ownership: owns its socket and its thread. Refers to handler and log, which must outlive it.
// Threads: made, asked and destroyed by one thread; all work is done on its own. The destructor waits for
//   that thread, after tellEnd() no longer than a call on the socket takes: two seconds.
// Units: seconds as the names say.
// Errors: the constructor throws when there is no thread to be had; trouble with the client is logged and
//   ends the connection.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "SampleLog.h"
#include "SampleSocket.h"

class SampleConnection {
  public:
    struct Reply {
        std::size_t consumed = 0;  // bytes dealt with; 0: not a whole command yet
        std::string text{};
        bool hangUp = false;  // once the text has been sent
    };
    // Called by the threads of all connections.
    using Handler = std::function<Reply(const std::string& peer, const std::string& received)>;
    struct Rules {
        bool isTls = false;
        int idleLimitSec = 0;  // 0: the client may be silent for ever
    };

    SampleConnection(SampleSocket socket, const Rules& rules, const Handler& handler, SampleLog& log);
    SampleConnection(const SampleConnection&) = delete;
    SampleConnection& operator=(const SampleConnection&) = delete;
    ~SampleConnection();

    // The answer under way is still sent.
    void tellEnd() { m_isToEnd = true; }
    bool isOver() const { return m_isOver; }

  private:
    using Clock = std::chrono::steady_clock;

    void run();
    bool shakeHands();
    void converse();
    bool answer();
    bool goesOn() const;

    const Rules m_rules;
    const Handler& m_handler;
    SampleLog& m_log;
    std::atomic<bool> m_isToEnd{false};
    std::atomic<bool> m_isOver{false};

    // Used by the connection's own thread.
    std::optional<SampleSocket> m_socket;
    const std::string m_peer;
    std::string m_received;
    Clock::time_point m_lastTraffic = Clock::now();

    std::thread m_thread;  // the last: it uses all of the above
};
