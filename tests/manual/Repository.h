// The files of the repository, as the tests of the documents read them.
//
// Purpose: finds and reads files by their path below the repository's root.
// Ownership: none.
// Threads: may be used by any thread.
// Units: none.
// Errors: a file that cannot be read throws std::runtime_error.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace repository {

std::filesystem::path root();
std::string read(const std::filesystem::path& file);
// The files with that extension in a folder and below, in order; what is built or hidden is left out.
std::vector<std::filesystem::path> filesBelow(const std::string& folder, const std::string& extension);

// Line ends and rows of blanks as a single blank, none at the ends.
std::string collapsed(const std::string& text);
std::string replaced(std::string text, const std::string& from, const std::string& to);
// The parts between the separators, empty ones too.
std::vector<std::string> split(const std::string& text, const std::string& separator);

}  // namespace repository
