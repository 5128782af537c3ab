// The log of an instance: the file that the daemon writes to, and what log rotation has put aside.
//
// Purpose: which file it is the service's own logging decides, asked with the instance's logging document in a
//   surrounding that opens nothing for writing. Rotated files are those that copytruncate leaves beside it: NAME.1 is
//   the newest, older ones are packed as NAME.2.gz and so on.
// Ownership: owns paths only; each question opens the files anew and closes them.
// Threads: one; asking which file it is changes the working folder and the doorway to the system for that moment.
// Units: seconds since the epoch; bytes.
// Errors: what cannot be read, is no regular file or, for root, lies behind another user's link, counts as empty. Lines
//   beyond the bounds are left out, oldest first, and isComplete says so.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "CTLLogLine.h"

class CTLInstance;

class CTLLogFiles {
  public:
    // The most that is read of all files together, and the most that is unpacked of a packed one.
    static constexpr std::size_t kMostBytes = std::size_t{32} * 1024 * 1024;
    static constexpr std::size_t kMostUnpacked = std::size_t{256} * 1024 * 1024;

    explicit CTLLogFiles(const CTLInstance& instance);

    // The file that the daemon writes to; it need not be there.
    const std::filesystem::path& present() const { return m_present; }
    // Oldest first, the present one last.
    std::vector<std::filesystem::path> files() const;
    // All lines that are not older, oldest first, as far as the bounds allow. Times are taken to rise: what the clock was
    // set back over may be left out. A last line that is still being written is left out as well; `end` is its place in
    // the present file.
    std::vector<CTLLogLine> linesSince(std::time_t since, bool* isComplete = nullptr,
                                       std::int64_t* end = nullptr) const;

  private:
    std::filesystem::path m_present;
};
