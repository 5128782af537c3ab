// The one owner of a descriptor.
//
// Purpose: closes what was opened, on every way out.
// Ownership: move-only; owns the descriptor it holds, -1 for none.
// Threads: used by one thread at a time.
// Units: none.
// Errors: a failing close is not reported, since nothing can be done about it.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <utility>

class SEKDescriptor {
  public:
    explicit SEKDescriptor(int descriptor = -1) noexcept : m_descriptor(descriptor) {}
    // What the system call makes, under a number above those of the standard streams. Holds none, and errno says
    // why, when the call failed or no such number is free.
    template <typename Call>
    static SEKDescriptor aboveStandard(Call&& call) noexcept;
    SEKDescriptor(SEKDescriptor&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    SEKDescriptor& operator=(SEKDescriptor&& other) noexcept {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }
    SEKDescriptor(const SEKDescriptor&) = delete;
    SEKDescriptor& operator=(const SEKDescriptor&) = delete;
    ~SEKDescriptor() { reset(); }

    int get() const noexcept { return m_descriptor; }
    bool isOpen() const noexcept { return m_descriptor >= 0; }
    void reset() noexcept {
        const int descriptor = std::exchange(m_descriptor, -1);
        if (descriptor >= 0) ::close(descriptor);
    }

  private:
    static SEKDescriptor moved(SEKDescriptor made) noexcept;

    int m_descriptor;
};

// Holds those numbers of the standard streams that are free, so that nothing else is made under them while it lives:
// a program that was started without these streams must not write its messages into a connection, not even for a
// moment. What is written to them meanwhile goes nowhere. Leaves errno as it is.
class SEKStandardNumbers {
  public:
    SEKStandardNumbers() noexcept;
    ~SEKStandardNumbers();
    SEKStandardNumbers(const SEKStandardNumbers&) = delete;
    SEKStandardNumbers& operator=(const SEKStandardNumbers&) = delete;

  private:
    std::array<SEKDescriptor, STDERR_FILENO + 1> m_places;
};

template <typename Call>
SEKDescriptor SEKDescriptor::aboveStandard(Call&& call) noexcept {
    const SEKStandardNumbers held;
    return moved(SEKDescriptor(std::forward<Call>(call)()));
}
