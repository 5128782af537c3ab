// What came of a simulation, for people and for machines.
//
// Purpose: the summary of CTLRehearsed as text and as JSON.
// Ownership: none.
// Threads: one.
// Units: durations for people in the units that fit; milliseconds and UTC for machines.
// Errors: none.
#pragma once

#include <cstdint>
#include <ctime>
#include <nlohmann/json_fwd.hpp>
#include <ostream>
#include <string>

struct CTLRehearsed;

namespace CTLRehearsalReport {

// "1 h 30 min", "2.25 s", "0 s".
std::string durationText(std::int64_t ms);
// In UTC, with the day in front of the time.
std::string timeText(std::time_t time);
// "2026-11-22T03:00:00Z".
std::string machineTimeText(std::time_t time);

void print(const CTLRehearsed& rehearsed, std::time_t day, std::ostream& out);
// Everything but the log.
nlohmann::json json(const CTLRehearsed& rehearsed, std::time_t day);

}  // namespace CTLRehearsalReport
