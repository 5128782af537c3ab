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

#include <cerrno>
#include <utility>

class SEKDescriptor {
  public:
    explicit SEKDescriptor(int descriptor = -1) noexcept : m_descriptor(descriptor) {}
    // Takes over what a system call has just made, under a number above those of the standard streams: a program
    // that was started without them must not write its messages into a connection. Holds none, and errno says why,
    // when the call failed or no such number is free.
    static SEKDescriptor aboveStandard(int descriptor) noexcept {
        SEKDescriptor made(descriptor);
        if (descriptor < 0 || descriptor > STDERR_FILENO) return made;
        SEKDescriptor moved(::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
        const int error = errno;
        made.reset();
        errno = error;
        return moved;
    }
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
    int m_descriptor;
};
