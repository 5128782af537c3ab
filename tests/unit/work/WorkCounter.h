// Counts the work of the code under test, in steps that do not depend on the machine, and looks in between.
//
// Purpose: tests that an operation's cost grows with its input, without looking at a clock. One step is a
// basic
//   block of a source file that this program compiles with coverage calls, or a byte that the library's
//   memory functions move, compare or search.
// Threads: one counter for the process; one thread.
// Errors: none.
#pragma once

#include <cstdint>
#include <functional>

namespace WorkCounter {

void start();          // from zero
std::uint64_t stop();  // the steps since start()

// From now on called before every basic block, as another thread might look at any moment; empty: no more.
void lookBetweenSteps(std::function<void()> look);

}  // namespace WorkCounter
