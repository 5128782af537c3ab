// What an exchange looks like: for a person, and as JSON.
//
// Purpose: `ping` and `status --ping` show the same.
// Ownership, threads: free functions without state.
// Units: as CTLExchange; in JSON milliseconds, with fractions.
// Errors: none.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

struct CTLExchange;
struct CTLPeer;
class CTLTerminal;

namespace CTLExchangeReport {

// Step by step, several lines; `limit` as CTLExchange::consequence has it.
void print(CTLTerminal& terminal, const CTLExchange& exchange, int limit);
nlohmann::json asJson(const CTLExchange& exchange, int limit);

}  // namespace CTLExchangeReport
