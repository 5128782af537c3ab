#include "Cost.h"

#include <malloc.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

#include "MallocCounter.h"

namespace {

constexpr int kMostRounds = 64;
constexpr int kNone = -1;
constexpr unsigned kTimeLimitSec = 60;

// What both processes see.
struct Page {
    std::atomic<int> round{kNone};  // that is being counted
    std::array<Cost, kMostRounds> rounds{};
    int traceError = 0;
};

struct Unmap {
    void operator()(Page* page) const { munmap(page, sizeof *page); }
};
using SharedPage = std::unique_ptr<Page, Unmap>;

SharedPage sharedPage() {
    void* const memory =
        mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::runtime_error("no shared memory");
    return SharedPage(new (memory) Page);
}

// Between the two changes of `round` there is no system call but the operation's.
void countRound(Page& page, int round, const std::function<void()>& operation) {
    Cost& cost = page.rounds.at(static_cast<std::size_t>(round));
    const std::size_t calls = MallocCounter::calls();
    const std::size_t callsByOpenSsl = MallocCounter::callsByOpenSsl();
    page.round = round;
    operation();
    page.round = kNone;
    cost.allocations = MallocCounter::calls() - calls;
    cost.allocationsOfOpenSsl = MallocCounter::callsByOpenSsl() - callsByOpenSsl;
}

// From now on the heap has room: whether the operation happens to be the one for which it grows is no cost of its own.
void makeRoom() {
    constexpr int kRoom = 64 * 1024 * 1024;
    mallopt(M_TOP_PAD, kRoom);
    mallopt(M_TRIM_THRESHOLD, 2 * kRoom);
    mallopt(M_MMAP_THRESHOLD, kRoom / 4);
    std::free(std::malloc(kRoom / 8));
}

[[noreturn]] void runAsChild(Page& page, int rounds, const std::function<std::function<void()>()>& prepare) {
    alarm(kTimeLimitSec);
    makeRoom();
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0) {
        raise(SIGSTOP);
    } else {
        page.traceError = errno;
    }
    int status = 0;
    try {
        const std::function<void()> operation = prepare();
        for (int round = 0; round < rounds; ++round)
            countRound(page, round, operation);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "%s\n", exception.what());
        status = 1;
    }
    _exit(status);
}

// Follows the process to its end; the status of that.
int trace(Page& page, pid_t pid) {
    constexpr int kAtSystemCall = SIGTRAP | 0x80;
    bool isFollowed = false;
    int status = 0;
    while (waitpid(pid, &status, 0) == pid && WIFSTOPPED(status)) {
        int signal = WSTOPSIG(status);
        if (!isFollowed) {
            ptrace(PTRACE_SETOPTIONS, pid, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
            isFollowed = true;
            signal = 0;
        } else if (signal == kAtSystemCall) {
            const int round = page.round;
            if (round != kNone) ++page.rounds.at(static_cast<std::size_t>(round)).systemCalls;
            signal = 0;
        }
        ptrace(PTRACE_SYSCALL, pid, nullptr, signal);
    }
    return status;
}

}  // namespace

Cost Cost::of(int rounds, const std::function<std::function<void()>()>& prepare) {
    const SharedPage page = sharedPage();
    const pid_t pid = fork();
    if (pid < 0) throw std::runtime_error("no process");
    if (pid == 0) runAsChild(*page, rounds, prepare);
    const int status = trace(*page, pid);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw std::runtime_error("the operation has failed, wait status " + std::to_string(status));
    }
    Cost least = page->rounds[0];
    for (int round = 1; round < rounds; ++round) {
        const Cost& cost = page->rounds.at(static_cast<std::size_t>(round));
        least.systemCalls = std::min(least.systemCalls, cost.systemCalls);
        least.allocations = std::min(least.allocations, cost.allocations);
        least.allocationsOfOpenSsl = std::min(least.allocationsOfOpenSsl, cost.allocationsOfOpenSsl);
    }
    least.systemCalls /= 2;  // each stopped the process on its way in and on its way out
    least.traceError = page->traceError;
    return least;
}
