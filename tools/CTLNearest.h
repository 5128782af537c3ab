// The word that somebody may have meant.
//
// Purpose: of the words that mean something the one that is nearest to a word that means nothing, by the letters that
//   are wrong, missing, too many or exchanged. Another letter case is no mistake of a letter.
// Ownership, threads: a free function without state.
// Units: none.
// Errors: none; empty when nothing is near enough to be meant.
#pragma once

#include <set>
#include <string>

namespace CTLNearest {

std::string to(const std::string& word, const std::set<std::string>& words);

// ": did you mean "X"?", or nothing.
std::string question(const std::string& word, const std::set<std::string>& words);

}  // namespace CTLNearest
