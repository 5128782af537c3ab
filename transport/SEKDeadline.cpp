#include "SEKDeadline.h"

#include <algorithm>
#include <cerrno>

#include "SEKErrors.h"

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {
// Longer limits are as good as none, and this one cannot overflow the clock or poll's argument.
constexpr std::int64_t longestLimitMs = 2'000'000'000;
}  // namespace

SEKDeadline::SEKDeadline(std::int64_t limitMs)
    : m_end(steady_clock::now() + milliseconds(std::clamp<std::int64_t>(limitMs, 0, longestLimitMs))),
      m_unlimited(limitMs < 0) {}

int SEKDeadline::remainingMs() const {
    if (m_unlimited) return -1;
    // Rounded up: a wait that ends early would make the caller spin through the last millisecond.
    const auto left = std::chrono::ceil<milliseconds>(m_end - steady_clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, longestLimitMs));
}

SEKDeadline SEKDeadline::share(std::size_t attempts) const {
    if (m_unlimited || attempts < 2) return *this;
    return SEKDeadline(remainingMs() / static_cast<std::int64_t>(attempts));
}

SEKDeadline SEKDeadline::butNotAfter(const SEKDeadline& other) const {
    if (other.m_unlimited) return *this;
    return m_unlimited || other.m_end < m_end ? other : *this;
}

namespace SEKWait {

int waitForAny(std::vector<pollfd>& entries, const SEKDeadline& deadline) {
    while (true) {
        const int count = poll(entries.data(), entries.size(), deadline.remainingMs());
        if (count >= 0) return count;
        if (errno != EINTR) throw SEKFailure("cannot wait for a socket: " + SEKErrors::systemReason(errno));
        if (deadline.expired()) return 0;
    }
}

bool waitFor(int descriptor, short events, const SEKDeadline& deadline) {
    // A peer that never pauses would make every wait succeed.
    if (deadline.expired()) return false;
    std::vector<pollfd> entry{{descriptor, events, 0}};
    return waitForAny(entry, deadline) > 0;
}

}  // namespace SEKWait
