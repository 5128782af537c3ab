// Substitution by the rules as they are told, without a thought for time: what the real one is compared with.
#pragma once

#include <string>

// Over the present property table. A circle of references never ends, as in the real one.
std::string plainlyExpanded(std::string text);
