#include "TVLOs.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <system_error>

#include "TVLThread.h"

namespace {

std::atomic<TVLOs*>& installed() {
    // Never destroyed: threads may still be waiting in it while the process ends.
    static std::atomic<TVLOs*> os{new TVLOs};
    return os;
}

TVLOs* realOne() {
    static TVLOs* const os = installed().load();
    return os;
}

}  // namespace

TVLOs::~TVLOs() = default;

TVLOs& TVLOs::current() {
    return *installed().load(std::memory_order_acquire);
}

TVLOs* TVLOs::install(TVLOs* os) {
    TVLOs* const real = realOne();
    return installed().exchange(os == nullptr ? real : os);
}

void TVLOs::occupyStandardStreams() {
    // The system gives the lowest free number, so the first one above them says that none is left.
    int placeholder = STDIN_FILENO;
    while (placeholder >= 0 && placeholder <= STDERR_FILENO)
        placeholder = open("/", O_PATH | O_CLOEXEC);
    if (placeholder > STDERR_FILENO) close(placeholder);
}

bool TVLOs::redirectStandardStreams() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        close(descriptor);
    // Becomes the first of them.
    const int null = open("/dev/null", O_RDWR);
    if (null >= 0 && dup(null) >= 0 && dup(null) >= 0) return true;
    const int error = errno;
    occupyStandardStreams();
    errno = error;
    return false;
}

pid_t TVLOs::fork() {
    return m_processes.fork();
}

int TVLOs::execve(const char* path, char* const argv[], char* const envp[]) {
    return ::execve(path, argv, envp);
}

int TVLOs::kill(pid_t pid, int signal) {
    return m_processes.kill(pid, signal);
}

bool TVLOs::holdProcess(pid_t pid, uid_t user) {
    return m_processes.hold(pid, user);
}

pid_t TVLOs::setsid() {
    return ::setsid();
}

void TVLOs::exitProcess(int status) {
    std::exit(status);
}

int TVLOs::waitForSignal(const sigset_t& signals) {
    int number = 0;
    return sigwait(&signals, &number) == 0 ? number : 0;
}

void TVLOs::signalThread(pthread_t thread, int signal) {
    pthread_kill(thread, signal);
}

std::int64_t TVLOs::nowMs() {
    using namespace std::chrono;
    return ceil<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

void TVLOs::sleepMs(std::int64_t durationMs) {
    const std::int64_t deadlineMs = nowMs() + durationMs;
    const timespec until{static_cast<time_t>(deadlineMs / 1000),
                         static_cast<long>(deadlineMs % 1000) * 1000000};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}

bool TVLOs::waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                      std::int64_t deadlineMs) {
    try {
        if (deadlineMs == kForever) {
            condition.wait(lock);
            return true;
        }
        const std::chrono::steady_clock::time_point deadline{std::chrono::milliseconds(deadlineMs)};
        return condition.wait_until(lock, deadline) == std::cv_status::no_timeout;
    } catch (const std::system_error& error) {
        throw TVLThreadResourceError(error.what(), __FILE__, __LINE__);
    }
}

void TVLOs::wakeAll(std::condition_variable& condition) {
    condition.notify_all();
}

bool TVLOs::waitWritable(int descriptor, std::int64_t timeoutMs) {
    const std::int64_t deadlineMs = nowMs() + timeoutMs;
    pollfd entry{descriptor, POLLOUT, 0};
    int ready = 0;
    do {
        const std::int64_t remainingMs = std::clamp<std::int64_t>(deadlineMs - nowMs(), 0, INT_MAX);
        ready = poll(&entry, 1, static_cast<int>(remainingMs));
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

void TVLOs::threadStarts() {}

void TVLOs::threadEnds() {}
