// A configuration error.
//
// Purpose: one message, thrown by prepare() operations after the reason has been logged at FATAL.
// Ownership: thrown by value, caught by reference.
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
