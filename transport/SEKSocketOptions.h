// The options that a caller has set on a socket.
//
// Purpose: remembers what a new descriptor of the same socket must be given, too, and keeps the two time limits
//   SO_SNDTIMEO and SO_RCVTIMEO itself: the descriptors never block, so the system would not apply them. All
//   other options go to the system as they are.
// Ownership: a value type; the descriptors stay the caller's.
// Threads: used by one thread at a time.
// Units: milliseconds; a negative limit means none.
// Errors: set and get throw SEKFailure that names the option and the reason; a refused option is not remembered.
#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <vector>

class SEKSocketOptions {
  public:
    static constexpr std::int64_t usualSendLimitMs = 60'000;

    // Of the level SOL_SOCKET.
    void set(int descriptor, int option, const void* value, socklen_t length);
    void get(int descriptor, int option, void* value, socklen_t& length) const;

    // Gives a new descriptor what was set so far. What it does not take is passed over, since the first one took it.
    void applyTo(int descriptor) const noexcept;

    std::size_t count() const { return m_options.size(); }  // of those that a new descriptor gets

    std::int64_t sendLimitMs() const { return m_sendLimitMs; }
    std::int64_t receiveLimitMs() const { return m_receiveLimitMs; }

  private:
    struct Option {
        int name;
        std::vector<char> value;
    };

    void remember(int option, const void* value, socklen_t length);

    std::vector<Option> m_options;  // in the order in which they were set, each once
    std::int64_t m_sendLimitMs = usualSendLimitMs;
    std::int64_t m_receiveLimitMs = -1;
};
