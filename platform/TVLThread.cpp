#include "TVLThread.h"

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "TVLOs.h"

TVLThreadRunnable::~TVLThreadRunnable() = default;

TVLThreadInit::TVLThreadInit() {
    TVLOs::current();
}

TVLThread::TVLThread(TVLThreadRunnable* runnable, std::size_t stackSizeBytes)
    : m_runnable(runnable), m_stackSizeBytes(stackSizeBytes) {}

TVLThread::~TVLThread() {
    TVLThread::join();
}

void TVLThread::run() {
    if (m_runnable != nullptr) m_runnable->run();
}

void* TVLThread::entry(void* self) {
    auto* const thread = static_cast<TVLThread*>(self);
    try {
        thread->run();
    } catch (...) {
        // The thread ends here and the process goes on: what run() was for has stopped, nothing else has.
    }
    thread->m_alive.store(false);
    thread->m_finished.post();
    TVLOs::current().threadEnds();
    return nullptr;
}

void TVLThread::start() {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    const auto smallest = static_cast<std::size_t>(std::max(0L, sysconf(_SC_THREAD_STACK_MIN)));
    pthread_attr_setstacksize(&attributes, std::max(m_stackSizeBytes, smallest));
    m_alive.store(true);
    TVLOs::current().threadStarts();
    const int error = TVLOs::current().startThread(&m_thread, &attributes, entry, this);
    pthread_attr_destroy(&attributes);
    m_joinable = error == 0;
    if (m_joinable) return;
    m_alive.store(false);
    TVLOs::current().threadEnds();
    throw TVLThreadResourceError(std::strerror(error), __FILE__, __LINE__);
}

void TVLThread::join() {
    if (!m_joinable) return;
    // The end is awaited on the common clock first; the system's own join then takes no time.
    try {
        m_finished.wait();
    } catch (const TVLThreadResourceError&) {
        // Then the system's own join is the wait.
    }
    pthread_join(m_thread, nullptr);
    m_joinable = false;
}

bool TVLThread::isAlive() const {
    return m_alive.load();
}

void TVLThread::interrupt(int signal) {
    if (m_joinable) TVLOs::current().signalThread(m_thread, signal);
}

void TVLThread::sleep(int durationMs) {
    if (durationMs > 0) TVLOs::current().sleepMs(durationMs);
}

unsigned int TVLThread::currentThreadId() {
    return TVLOs::current().currentThreadId();
}
