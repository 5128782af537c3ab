// The code blocks of a page of the documentation, for tests that hold the page to what it prints.
//
// Purpose: cuts out what stands between the fences.
// Ownership, threads: a free function without state.
// Units: none.
// Errors: a page that cannot be read has no blocks.
#pragma once

#include <string>
#include <vector>

// The contents of the page's blocks of that language, in order.
std::vector<std::string> markdownBlocks(const std::string& page, const std::string& language);
