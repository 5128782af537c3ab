// A socket address, and the resolution of host names into such addresses.
//
// Purpose: keeps an address with its length, prints it for messages, and looks names up in one family only.
// Ownership: a value type.
// Threads: resolve may be called by any thread; a look-up that outlasts its deadline is left to a thread of
//   its own, which ends as soon as the system's resolver gives up.
// Units: none.
// Errors: resolve and the checked constructor throw SEKFailure with the host and the resolver's words.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <string>
#include <vector>

#include "SEKDeadline.h"

class SEKAddress {
  public:
    SEKAddress() = default;
    SEKAddress(const sockaddr* address, socklen_t length);
    // From the arguments of an entry point: refuses null, a bad length and any other family.
    static SEKAddress checked(const sockaddr_storage* address, long length, int family);

    // The family in the words of the session document, for messages, too.
    static const char* familyName(int family);

    enum class Use { Connect, Bind };
    // All addresses of the host in that family, in the resolver's order; at least one. The host "*" is any
    // local address when the use is Bind; "localhost" and names that end in ".localhost", with or without a final
    // dot, are the loopback address, which no resolver is asked for.
    static std::vector<SEKAddress> resolve(const std::string& host, std::uint16_t port, int family, Use use,
                                           const SEKDeadline& deadline);

    const sockaddr* get() const;
    sockaddr* buffer();
    socklen_t length() const { return m_length; }
    void setLength(socklen_t length) { m_length = length; }

    std::string hostText() const;  // the address in figures
    std::string text() const;      // "127.0.0.1:80" or "[::1]:80"

    // Hands the address out through an entry point's arguments, cut to the room that the caller has.
    void copyTo(sockaddr_storage* address, long* length) const;

  private:
    sockaddr_storage m_storage{};
    socklen_t m_length = sizeof(sockaddr_storage);
};
