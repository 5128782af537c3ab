// Times as people type them.
//
// Purpose: reads "14:30", "2026-11-21", "2026-11-21 14:30[:05]", "today", "yesterday", and how long ago: "90s", "15m",
//   "6h", "2d", "1w".
// Ownership, threads: a free function without state but the process's time zone.
// Units: seconds since the epoch.
// Errors: no value for anything else, a day that no calendar has included.
#pragma once

#include <ctime>
#include <optional>
#include <string>

namespace CTLTime {

std::optional<std::time_t> parse(const std::string& text, std::time_t now);

}  // namespace CTLTime
