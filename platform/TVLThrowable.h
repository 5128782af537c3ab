// Base of the support library's exceptions.
//
// Purpose: an error text, the place that threw, and the places it passed through.
// Ownership: a value; thrown by value, caught by reference.
// Threads: none of its own.
// Units: none.
// Errors: memory exhaustion while recording a place is the standard allocation exception.
#pragma once

#include <exception>
#include <string>

class TVLThrowable : public std::exception {
  public:
    TVLThrowable(const char* message, const char* file, int line);
    ~TVLThrowable() override;

    const char* getMessage() const noexcept { return m_message.c_str(); }
    const char* what() const noexcept override { return m_message.c_str(); }

    // One line a place, the throwing one first: "file:line\n".
    const char* getBackTrace() const noexcept { return m_backTrace.c_str(); }
    void addBackTrace(const char* file, int line);

  private:
    std::string m_message;
    std::string m_backTrace;
};

// Memory is exhausted.
class TVLOutOfMemoryError : public TVLThrowable {
  public:
    TVLOutOfMemoryError(const char* file, int line);
};
