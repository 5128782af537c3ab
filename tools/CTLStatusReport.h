// What the status of an instance looks like: for a person, for a monitor, and as JSON.
//
// Purpose: the outputs of `status` but its metrics, which CTLMetrics makes.
// Ownership, threads: free functions without state.
// Units: as CTLStatus.
// Errors: none.
#pragma once

#include <nlohmann/json_fwd.hpp>

struct CTLStatus;
class CTLTerminal;

namespace CTLStatusReport {

// The states that monitors know, which are their exit codes.
enum class Health { Ok = 0, Warning = 1, Critical = 2, Unknown = 3 };

void print(CTLTerminal& terminal, const CTLStatus& status);
nlohmann::json asJson(const CTLStatus& status);

// Critical: not running, a child missing or silent, a certificate that ends within 7 days. Warning: a restart within the
// last hour, a certificate that ends within 30 days. Unknown: it cannot be told.
Health healthOf(const CTLStatus& status);
// One line with the health and the figures behind it.
void printForMonitor(CTLTerminal& terminal, const CTLStatus& status);

}  // namespace CTLStatusReport
