// Which uses of something are made to fail, each in its turn.
//
// Purpose: all of them would take hours for what is used thousands of times. VBS_FAULTS=all in the environment takes all.
// Ownership: none.
// Threads: any.
// Units: uses are numbered from 1.
// Errors: none.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

// So many of the uses, or all, evenly spread, the first and the last included.
inline std::vector<int> chosenUses(int uses, int most) {
    const char* const wanted = std::getenv("VBS_FAULTS");
    const bool isAll = wanted != nullptr && std::string(wanted) == "all";
    const int count = isAll ? uses : std::min(uses, most);
    std::vector<int> chosen;
    for (std::int64_t i = 0; i < count; ++i)
        chosen.push_back(static_cast<int>(1 + i * (uses - 1) / std::max(1, count - 1)));
    return chosen;
}
