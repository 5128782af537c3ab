// New lines of a log, as they are written.
//
// Purpose: reads on where it stands, across log rotation: a file that was copied and emptied is told by what stands before
//   the place, which the copy still has; one that was renamed is read to its end before the new one is begun.
// Ownership: owns the open file.
// Threads: one.
// Units: bytes.
// Errors: a file that is not there, or not to be read, is waited for. Of a line that never ends only the beginning is kept.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "CTLLogLine.h"
#include "TVLFile.h"

class CTLLogFollower {
  public:
    // A line is cut here.
    static constexpr std::size_t kMostOfALine = std::size_t{1024} * 1024;

    // From that place in the file on; kEnd: from its end.
    static constexpr std::int64_t kEnd = -1;
    explicit CTLLogFollower(const std::filesystem::path& file, std::int64_t from = kEnd);

    // What has come since the last time. A line is handed out when the next has begun, or nothing more has come, since
    // messages can have further lines.
    std::vector<CTLLogLine> read();

  private:
    bool open();
    void readNew(std::vector<CTLLogLine>& lines);
    void readRest(std::FILE* file, std::vector<CTLLogLine>& lines);
    bool isAsLeft(std::FILE* file) const;
    bool hasPlace() const;
    void followRotation(std::vector<CTLLogLine>& lines);
    void take(const std::string& bytes, std::vector<CTLLogLine>& lines);
    void takeLine(const std::string& text, std::vector<CTLLogLine>& lines);
    void finish(std::vector<CTLLogLine>& lines);

    std::filesystem::path m_path;
    TVLFilePtr m_file;
    std::int64_t m_at = 0;  // what is before has been read
    std::string m_mark;     // the last bytes before that
    std::string m_torn;     // a line that has not ended yet
    std::optional<CTLLogLine> m_pending;
    std::vector<char> m_block;
};
