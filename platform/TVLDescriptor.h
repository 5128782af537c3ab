// The one owner of a descriptor.
//
// Purpose: closes what was opened, on every way out.
// Ownership: move-only; owns the descriptor it holds, -1 for none.
// Threads: used by one thread at a time.
// Units: none.
// Errors: none; a failing close is not reported, since nothing can be done about it.
#pragma once

#include <unistd.h>

#include <utility>

class TVLDescriptor {
  public:
    explicit TVLDescriptor(int descriptor = -1) noexcept : m_descriptor(descriptor) {}
    TVLDescriptor(TVLDescriptor&& other) noexcept : m_descriptor(other.release()) {}
    TVLDescriptor& operator=(TVLDescriptor&& other) noexcept {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }
    TVLDescriptor(const TVLDescriptor&) = delete;
    TVLDescriptor& operator=(const TVLDescriptor&) = delete;
    ~TVLDescriptor() {
        if (isOpen()) ::close(m_descriptor);
    }

    int get() const noexcept { return m_descriptor; }
    bool isOpen() const noexcept { return m_descriptor >= 0; }
    int release() noexcept { return std::exchange(m_descriptor, -1); }  // now the caller's

  private:
    int m_descriptor;
};
