// A peer that goes no further than it is told.
//
// Purpose: listens on a port of the loopback address and stops wherever a test wants the service to be held: before the
//   connection is taken, before an answer.
// Ownership: owns its sockets.
// Threads: one.
// Units: none.
// Errors: a socket that cannot be had throws std::runtime_error.
#pragma once

#include <string>
#include <vector>

class HeldPort {
  public:
    // A peer whose queue is full leaves further connections in the air.
    explicit HeldPort(bool queueIsFull = false);
    ~HeldPort();
    HeldPort(const HeldPort&) = delete;
    HeldPort& operator=(const HeldPort&) = delete;

    std::string str() const { return std::to_string(m_port); }

    // Somebody's connection is in the air: asked for and not answered.
    bool isBeingConnected() const;
    // What all connections have sent so far; takes those that wait. None of the two ever waits itself.
    std::string received();
    void answer(const std::string& text);
    void hangUp();

  private:
    void takeConnections();

    int m_port = 0;
    int m_listener = -1;
    int m_filler = -1;
    std::vector<int> m_connections;
    std::string m_received;
};
