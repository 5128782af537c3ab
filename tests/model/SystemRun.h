// The real service in a scenario.
//
// Purpose: prepares children and supervisor from the scenario's document, runs the service's own threads in virtual
//   time, with peers, processes and signals as the scenario has them, and tells what it did.
// Ownership: everything belongs to the call.
// Threads: the caller becomes the service's main thread; one run at a time in a process.
// Errors: std::runtime_error when the machine refuses a file.
#pragma once

#include "Run.h"
#include "Scenario.h"

Run runService(const Scenario& scenario);
