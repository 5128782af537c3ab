#include "SEKPoller.h"

#include <algorithm>
#include <utility>

#include "SEKSocket.h"

namespace {
constexpr short brokenEvents = POLLERR | POLLHUP;
bool has(const pollfd& wait, short events) {
    return (wait.revents & events) != 0;
}
}  // namespace

void SEKPoller::add(std::shared_ptr<SEKSocket> socket, Events wanted) {
    socket->requireWaitable();
    // The system reports a broken connection also to those who ask for nothing, and would end every wait.
    m_waits.push_back({wanted.any() ? socket->descriptor() : -1, 0, 0});
    m_entries.push_back({std::move(socket), wanted, {}});
}

int SEKPoller::wait(const SEKDeadline& deadline) {
    while (true) {
        collectInput();
        const bool isReady = countReady() > 0;
        const int count = SEKWait::waitForAny(m_waits, isReady ? SEKDeadline(0) : deadline);
        for (std::size_t i = 0; count > 0 && i < m_entries.size(); ++i)
            collectEvents(i);
        if (count > 0) collectInput();
        if (countReady() > 0) return countReady();
        if (deadline.expired()) return 0;
    }
}

// Looks for input that the system does not know of, and notes what to wait for.
void SEKPoller::collectInput() {
    for (std::size_t i = 0; i < m_entries.size(); ++i) {
        Entry& entry = m_entries[i];
        short events = 0;
        if (entry.wanted.read && !entry.happened.read) entry.happened.read = entry.socket->hasInput(events);
        if (entry.wanted.write) events |= POLLOUT;
        if (entry.wanted.urgent) events |= POLLPRI;
        m_waits[i].events = events;
    }
}

void SEKPoller::collectEvents(std::size_t index) {
    Entry& entry = m_entries[index];
    const pollfd& wait = m_waits[index];
    const bool isAnsweredBySystem = entry.wanted.read && !entry.socket->needsInputCheck();
    if (isAnsweredBySystem && has(wait, POLLIN | brokenEvents)) entry.happened.read = true;
    if (entry.wanted.write && has(wait, POLLOUT | brokenEvents)) entry.happened.write = true;
    if (entry.wanted.urgent && has(wait, POLLPRI | brokenEvents)) entry.happened.urgent = true;
}

int SEKPoller::countReady() const {
    return static_cast<int>(std::count_if(m_entries.begin(), m_entries.end(),
                                          [](const Entry& entry) { return entry.happened.any(); }));
}
