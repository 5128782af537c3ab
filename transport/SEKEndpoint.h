// This end of a connection, or a listener: its descriptor, and what the caller laid down for it.
//
// Purpose: makes the descriptor, of one address family and non-blocking, and makes it anew when it can serve no other
//   attempt to connect; a new one gets the options and the local address that the caller chose.
// Ownership: owns its descriptor.
// Threads: used by one thread at a time.
// Units: none.
// Errors: throws SEKFailure that names what failed, on which address, and the system's reason.
#pragma once

#include <sys/socket.h>

#include <optional>
#include <utility>

#include "SEKAddress.h"
#include "SEKDescriptor.h"
#include "SEKSocketOptions.h"

class SEKEndpoint {
  public:
    explicit SEKEndpoint(int family);
    // Of an accepted connection.
    SEKEndpoint(int family, SEKDescriptor descriptor)
        : m_family(family), m_descriptor(std::move(descriptor)) {}

    int family() const { return m_family; }
    int descriptor() const { return m_descriptor.get(); }
    void close() noexcept { m_descriptor.reset(); }

    void bind(const SEKAddress& address);
    SEKAddress localAddress() const;
    SEKAddress peerAddress() const;

    const SEKSocketOptions& options() const { return m_options; }
    void setOption(int option, const void* value, socklen_t length) {
        m_options.set(descriptor(), option, value, length);
    }
    void getOption(int option, void* value, socklen_t& length) const {
        m_options.get(descriptor(), option, value, length);
    }
    // An option that the library wants on this descriptor; where the system does not know it, it goes without.
    void switchOn(int level, int option) const noexcept;

    // Before each attempt to connect. A descriptor whose attempt failed keeps traces of it, so each gets a fresh one.
    // When that cannot have the local address, everything stays as it was.
    void prepareAttempt();
    // The descriptor cannot serve another attempt.
    void wearOut() noexcept { m_isWorn = true; }

  private:
    SEKDescriptor fresh() const;
    static void bind(const SEKDescriptor& descriptor, const SEKAddress& address);

    int m_family;
    SEKSocketOptions m_options;  // before the descriptor, which is made with them
    SEKDescriptor m_descriptor;
    bool m_isWorn = false;
    std::optional<SEKAddress> m_bound;
};
