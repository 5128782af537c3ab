// The dispatcher's log: a line per event.
//
// Purpose: "time process-id text" on standard output and, when asked for, appended to a file as well, because
//   the standard output of a supervised program usually ends in /dev/null.
// Ownership: owns the file.
// Threads: line() may be called by any thread.
// Units: UTC, to the millisecond.
// Errors: openFile() throws std::runtime_error; a line that cannot be written is lost.
#pragma once

#include <fstream>
#include <mutex>
#include <string>

class SampleLog {
  public:
    void openFile(const std::string& path);  // an empty path: no file
    void line(const std::string& text);

  private:
    std::mutex m_mutex;  // one line at a time
    std::ofstream m_file;
};
