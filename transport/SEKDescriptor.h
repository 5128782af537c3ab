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

class SEKDescriptor {
  public:
    explicit SEKDescriptor(int descriptor = -1) noexcept : m_descriptor(descriptor) {}
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
