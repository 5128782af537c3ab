// Texts for people and machines.
//
// Purpose: one form of times, sizes and bytes in all outputs; and what comes from outside, a process's name or a peer's
//   answer, cannot steer a terminal.
// Ownership, threads: free functions without state.
// Units: as the names say.
// Errors: none.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace CTLText {

// Control characters, and bytes that are no UTF-8, replaced by "?".
std::string printable(std::string_view text);
// As it would stand between quotes in a program: \r, \n, \t, \\, \" and \xNN for what is no printable ASCII.
std::string escaped(std::string_view bytes);
std::string hexadecimal(std::string_view bytes);
// "4 s", "3 min 20 s", "5 h 07 min", "12 d 03 h"
std::string age(std::int64_t seconds);
// "824 kB", "12.4 MB"
std::string size(std::int64_t bytes);
// "0.35 ms", "12 ms", "2.5 s"
std::string duration(std::int64_t microseconds);
// "2026-11-21 23:13:06", as the zone of the user has it
std::string localTime(std::time_t time);
// "2026-11-21T23:13:06Z"
std::string utc(std::time_t time);

}  // namespace CTLText
