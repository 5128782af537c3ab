// The condition of a parameter, condName and condValue.
//
// Purpose: says whether the two can ever be equal, whatever is configured: the text around the references has to fit, and
//   a property that has few values has to have the one that is asked for.
// Ownership, threads: a free function without state.
// Units: none.
// Errors: none; what takes too long to tell can hold.
#pragma once

#include <string>

namespace CTLCondition {

bool canHold(const std::string& condName, const std::string& condValue);

}  // namespace CTLCondition
