// The PID file, by which a second invocation finds the running daemon.
//
// Purpose: the daemon writes its process id and removes the file at its end; a controlling process reads the id and
//   asks whether that process lives.
// Ownership: owns its path.
// Threads: the main thread, but for write(), which the signal thread calls while the path no longer changes.
// Units: none.
// Errors: lines in the log; read() is false when no live process is named.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <optional>
#include <string>

class ZORLogger;

// 1 when a process of that id exists and may be signalled, else 0. An id below 1 is no process.
int testPID(int pid, ZORLogger* logger);

class ZORPidFile {
  public:
    ZORPidFile() = default;
    ZORPidFile(const ZORPidFile&) = delete;
    ZORPidFile& operator=(const ZORPidFile&) = delete;

    const std::string& path() const { return m_path; }
    void setPath(const std::string& path) { m_path = path; }

    void write() const;
    void remove() const;
    // Stores the id of the live process that the file names. Without one `pid` is 0, or left alone when the file could
    // not be read.
    bool read(int& pid) const;

  private:
    void warnOfAnotherOwner(std::FILE* file) const;
    bool mayName(int pid, std::optional<uid_t> owner) const;

    std::string m_path;
};
