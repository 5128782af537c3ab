#include "TVLRealOs.h"

#include <dlfcn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <system_error>

#include "TVLThread.h"

TVLRealOs::TVLRealOs() = default;

TVLRealOs::~TVLRealOs() = default;

// ---- Processes ----

pid_t TVLRealOs::fork() {
    return m_processes.fork();
}

int TVLRealOs::execve(const char* path, char* const argv[], char* const envp[]) {
    return ::execve(path, argv, envp);
}

int TVLRealOs::kill(pid_t pid, int signal) {
    return m_processes.kill(pid, signal);
}

bool TVLRealOs::holdProcess(pid_t pid, uid_t user) {
    return m_processes.hold(pid, user);
}

int TVLRealOs::openProcess(pid_t pid) {
    return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
}

// The C library's own declaration is not usable from C++ everywhere.
int TVLRealOs::signalProcess(int process, int signal) {
    return static_cast<int>(syscall(SYS_pidfd_send_signal, process, signal, nullptr, 0));
}

int TVLRealOs::examineChild(int process) {
    siginfo_t state{};
    return waitid(P_PIDFD, static_cast<id_t>(process), &state, WEXITED | WNOHANG | WNOWAIT);
}

int TVLRealOs::descriptorLimit(rlimit* limit) {
    return getrlimit(RLIMIT_NOFILE, limit);
}

pid_t TVLRealOs::getpid() {
    return ::getpid();
}

uid_t TVLRealOs::geteuid() {
    return ::geteuid();
}

pid_t TVLRealOs::setsid() {
    return ::setsid();
}

const char* TVLRealOs::getenv(const char* name) {
    return std::getenv(name);
}

int TVLRealOs::putenv(char* variable) {
    return ::putenv(variable);
}

void TVLRealOs::exitProcess(int status) {
    std::exit(status);
}

// ---- Libraries ----

void* TVLRealOs::dlopen(const char* file, int mode) {
    return ::dlopen(file, mode);
}

void* TVLRealOs::dlsym(void* library, const char* name) {
    return ::dlsym(library, name);
}

int TVLRealOs::dlclose(void* library) {
    return ::dlclose(library);
}

// ---- Signals, time and threads ----

int TVLRealOs::waitForSignal(const sigset_t& signals) {
    int number = 0;
    return sigwait(&signals, &number) == 0 ? number : 0;
}

void TVLRealOs::signalThread(pthread_t thread, int signal) {
    pthread_kill(thread, signal);
}

std::int64_t TVLRealOs::nowMs() {
    using namespace std::chrono;
    return ceil<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

void TVLRealOs::sleepMs(std::int64_t durationMs) {
    const std::int64_t deadlineMs = nowMs() + durationMs;
    const timespec until{static_cast<time_t>(deadlineMs / 1000),
                         static_cast<long>(deadlineMs % 1000) * 1000000};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}

std::time_t TVLRealOs::wallClock() {
    return std::time(nullptr);
}

bool TVLRealOs::waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
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

void TVLRealOs::wakeAll(std::condition_variable& condition) {
    condition.notify_all();
}

bool TVLRealOs::waitWritable(int descriptor, std::int64_t timeoutMs) {
    const std::int64_t deadlineMs = nowMs() + timeoutMs;
    pollfd entry{descriptor, POLLOUT, 0};
    int ready = 0;
    do {
        const std::int64_t remainingMs = std::clamp<std::int64_t>(deadlineMs - nowMs(), 0, INT_MAX);
        ready = ::poll(&entry, 1, static_cast<int>(remainingMs));
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

int TVLRealOs::startThread(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                           void* argument) {
    return pthread_create(thread, attributes, body, argument);
}

unsigned int TVLRealOs::currentThreadId() {
    return static_cast<unsigned int>(syscall(SYS_gettid));
}

void TVLRealOs::threadStarts() {}

void TVLRealOs::threadEnds() {}
