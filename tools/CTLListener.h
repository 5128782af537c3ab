// Who listens on a port of this machine.
//
// Purpose: looks into the kernel's tables of TCP sockets for one that waits for connections and that a connection to the
//   loopback address would reach. Nothing is connected or bound.
// Ownership, threads: free functions without state.
// Units: ports.
// Errors: none; what the kernel does not show to this user is left out.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace CTLListener {

// In words: "process 123 (nginx)", or "a process of another user"; none when nobody listens there.
std::optional<std::string> on(std::uint16_t port);

// Whether a host of a URI means this machine by its loopback address.
bool isHere(const std::string& host);

}  // namespace CTLListener
