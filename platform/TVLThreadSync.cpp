#include "TVLThreadSync.h"

#include <pthread.h>

#include <forward_list>
#include <memory>

#include "TVLOs.h"
#include "TVLThread.h"

TVLThreadMutex* TVLThreadMutex::m_heldAcrossFork = nullptr;

TVLThreadMutex::~TVLThreadMutex() {
    if (m_heldAcrossFork == this) m_heldAcrossFork = nullptr;
}

void TVLThreadMutex::lockHeld() {
    if (m_heldAcrossFork != nullptr) m_heldAcrossFork->m_mutex.lock();
}

void TVLThreadMutex::unlockHeld() {
    if (m_heldAcrossFork != nullptr) m_heldAcrossFork->m_mutex.unlock();
}

void TVLThreadMutex::holdAcrossFork() {
    // Handlers cannot be taken back, so they are registered once.
    static const int registered = pthread_atfork(lockHeld, unlockHeld, unlockHeld);
    if (registered == 0) m_heldAcrossFork = this;
}

TVLThreadGuard::~TVLThreadGuard() = default;

TVLThreadSemaphore::TVLThreadSemaphore(int count) : m_count(count) {}

TVLThreadSemaphore* TVLThreadSemaphore::createImmortal(int count) {
    struct Kept {
        TVLThreadMutex mutex;
        std::forward_list<TVLThreadSemaphore> semaphores TVL_GUARDED_BY(mutex);
    };
    // Reached from here for ever, so that a leak checker knows they are kept on purpose.
    static auto* const kept = new Kept;
    const TVLThreadGuard guard(kept->mutex);
    return &kept->semaphores.emplace_front(count);
}

void TVLThreadSemaphore::post() {
    const TVLThreadGuard guard(m_mutex);
    ++m_count;
    // Woken under the lock: when the waiter goes on, this thread no longer touches the condition.
    TVLOs::current().wakeAll(m_posted);
}

void TVLThreadSemaphore::wait() {
    takeBefore(TVLOs::kForever);
}

int TVLThreadSemaphore::timedWait(int timeoutMs) {
    constexpr std::int64_t kPast = 0;
    TVLOs& os = TVLOs::current();
    const std::int64_t deadlineMs = timeoutMs > 0 ? os.nowMs() + timeoutMs : kPast;
    try {
        return takeBefore(deadlineMs) ? 1 : 0;
    } catch (const TVLThreadResourceError&) {
        // Whoever waits for so long at most goes on in any case; with a post it comes late.
        if (deadlineMs != kPast) os.sleepMs(deadlineMs - os.nowMs());
        return take() ? 1 : 0;
    }
}

bool TVLThreadSemaphore::take() {
    const TVLThreadGuard guard(m_mutex);
    if (m_count == 0) return false;
    --m_count;
    return true;
}

bool TVLThreadSemaphore::takeBefore(std::int64_t deadlineMs) {
    TVLThreadGuard guard(m_mutex);
    bool inTime = true;
    while (m_count == 0 && inTime)
        inTime = TVLOs::current().waitUntil(m_posted, guard.held(), deadlineMs);
    if (m_count == 0) return false;
    --m_count;
    return true;
}
