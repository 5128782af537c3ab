// A configuration error.
//
// Purpose: one message, thrown after the reason has been logged by whoever knows it.
// Ownership: thrown by value, caught by reference.
// Threads: the thread that prepares.
// Units: none.
// Errors: memory exhaustion while the message is copied.
#pragma once

#include <string>

class ZORBadConfigException {
  public:
    explicit ZORBadConfigException(const char* message);
    virtual ~ZORBadConfigException();

    const char* getMessage() const { return m_message.c_str(); }

  private:
    std::string m_message;
};
