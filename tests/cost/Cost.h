// What an operation costs, in numbers that no other load of the machine changes.
//
// Purpose: runs the operation in a forked process and counts the system calls and the allocations of its thread between
//   beginning and end. The parent traces the child; nothing of the operation itself is changed. Of several rounds the
//   cheapest counts: an answer that is waited for costs a few calls more than one that is there.
// Threads: the operation's process has one when it begins; calls of threads that it starts are not seen.
// Errors: std::runtime_error when the operation fails or takes longer than 60 s.
#pragma once

#include <cstddef>
#include <functional>

struct Cost {
    std::size_t systemCalls = 0;
    std::size_t allocations = 0;           // malloc and new
    std::size_t allocationsOfOpenSsl = 0;  // beyond those
    // 0, or the error with which the system refused to trace: then systemCalls is 0. ENOSYS on an emulated processor.
    int traceError = 0;

    // `prepare` runs in the process first and returns the operation. Both throw to fail.
    static Cost of(int rounds, const std::function<std::function<void()>()>& prepare);
};
