// The pages of the guide that explain messages, as they were when this program was built.
//
// Purpose: what "explain" says and what the guide says are the same text.
// Ownership: constants.
// Threads: any.
// Units: none.
// Errors: none.
#pragma once

#include <string_view>

namespace CTLGuide {

extern const std::string_view operation;
extern const std::string_view debug_messages;
extern const std::string_view transport;

}  // namespace CTLGuide
