// A moment on the monotonic clock until which an operation may wait, and the wait itself.
//
// Purpose: every wait of the library goes through waitFor, so that time limits hold across interrupted
//   calls and steps of the wall clock.
// Ownership: none; a value type.
// Threads: a deadline is immutable and may be shared.
// Units: milliseconds; a negative limit means none.
// Errors: waitFor throws SEKFailure when the system refuses to wait.
#pragma once

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <vector>

class SEKDeadline {
  public:
    explicit SEKDeadline(std::int64_t limitMs);

    // The time left for poll(2): -1 for no limit, 0 once the moment has passed.
    int remainingMs() const;
    bool expired() const { return remainingMs() == 0; }

    // The one that comes first.
    SEKDeadline butNotAfter(const SEKDeadline& other) const;

    // An earlier deadline: this one's remaining time divided by the number of attempts that share it.
    SEKDeadline share(std::size_t attempts) const;

  private:
    std::chrono::steady_clock::time_point m_end;
    bool m_unlimited;
};

namespace SEKWait {

// Waits for any of the entries; the number of those that have something to tell, 0 when the time is over.
int waitForAny(std::vector<pollfd>& entries, const SEKDeadline& deadline);

// Waits for one descriptor; false when the time is over, whatever the descriptor has to tell by then, so that a
// loop around the wait ends in time.
bool waitFor(int descriptor, short events, const SEKDeadline& deadline);

}  // namespace SEKWait
