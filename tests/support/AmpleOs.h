// An operating system that has memory enough.
//
// Purpose: stands before another one while AllocationSeam lets the code under test run out of memory; what the system does
//   for it, a test's own events included, neither counts nor fails.
// Ownership, threads, errors: as FailingOs.
// Units: none.
#pragma once

#include <functional>
#include <type_traits>

#include "AllocationSeam.h"
#include "FailingOs.h"

class AmpleOs : public FailingOs {
  public:
    using FailingOs::FailingOs;

    std::function<void()> onSignalTest{};  // called before every kill with signal 0
    std::function<void()> onFork{};
    std::function<void()> onExecve{};

    pid_t fork() override {
        if (onFork) exempt(onFork);
        return exempt([&] { return FailingOs::fork(); });
    }
    int execve(const char* path, char* const argv[], char* const envp[]) override {
        if (onExecve) onExecve();
        return exempt([&] { return FailingOs::execve(path, argv, envp); });
    }
    int kill(pid_t pid, int signal) override {
        if (signal == 0 && onSignalTest) onSignalTest();
        return exempt([&] { return FailingOs::kill(pid, signal); });
    }
    int waitForSignal(const sigset_t& signals) override {
        return exempt([&] { return FailingOs::waitForSignal(signals); });
    }
    void signalThread(pthread_t thread, int signal) override {
        exempt([&] { FailingOs::signalThread(thread, signal); });
    }
    std::int64_t nowMs() override {
        return exempt([&] { return FailingOs::nowMs(); });
    }
    pid_t setsid() override {
        return exempt([&] { return FailingOs::setsid(); });
    }
    void threadStarts() override {
        exempt([&] { FailingOs::threadStarts(); });
    }
    void threadEnds() override {
        exempt([&] { FailingOs::threadEnds(); });
    }
    void sleepMs(std::int64_t durationMs) override {
        exempt([&] { FailingOs::sleepMs(durationMs); });
    }
    bool waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                   std::int64_t deadlineMs) override {
        return exempt([&] { return FailingOs::waitUntil(condition, lock, deadlineMs); });
    }
    void wakeAll(std::condition_variable& condition) override {
        exempt([&] { FailingOs::wakeAll(condition); });
    }
    bool waitWritable(int descriptor, std::int64_t timeoutMs) override {
        return exempt([&] { return FailingOs::waitWritable(descriptor, timeoutMs); });
    }

  private:
    template <typename Call>
    static std::invoke_result_t<Call&> exempt(Call call) {
        const AllocationSeam::Exempt here;
        return call();
    }
};
