// Lines into a stream whose reader may stall.
//
// Purpose: a regular file is written as it is. Everything else (a pipe, a terminal, a socket) is never waited for
//   longer than its patience, one second in all; from then on its lines are dropped at once until it takes data
//   again. Then goes out first what is left of a line that was begun, and next, in one piece, a notice of how many
//   lines were dropped and the line. Patience comes back at one second a minute, whatever the reader does: nobody can
//   slow the writer down by more than a sixtieth.
// Ownership: no stream is owned or kept. One object per pipe, terminal or socket, shared by all streams that lead
//   there: lines of two streams would tear each other otherwise.
// Threads: one at a time; the caller has a lock around it.
// Units: milliseconds of the monotonic clock.
// Errors: none come out. A write that fails for another reason than a slow reader loses its line, or, when a disk is
//   full, the end of it; the next one then begins on a line of its own.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

class TVLStreamWriter {
  public:
    static constexpr std::int64_t kPatienceMs = 1000;
    static constexpr std::int64_t kRecovery = 60;  // a second of patience comes back in so many seconds

    explicit TVLStreamWriter(std::FILE* stream);

    // Whether the stream leads to the same pipe, terminal or socket. Never true of a regular file.
    bool leadsTo(std::FILE* stream) const;

    // How many lines were dropped since the last notice.
    int dropped() const { return m_dropped; }
    // `notice` tells of the dropped lines and is used only when there are some; without one this line is dropped too.
    void write(std::FILE* stream, std::string_view line, std::string_view notice) noexcept;

  private:
    class Outlet;

    void writePlain(std::FILE* stream, std::string_view line, off_t size);
    void recover();
    bool await(int descriptor);
    std::size_t push(const Outlet& outlet, std::string_view text, bool mayWait);
    bool begin(const Outlet& outlet, std::string_view text, bool mayWait);
    bool resume(const Outlet& outlet, std::string_view line, std::string_view notice);
    void keep(std::string_view rest);

    bool m_isTorn = false;    // a regular file has taken a part of the last line and refused the rest
    bool m_isShared = false;  // there is a place that other streams may lead to
    dev_t m_device = 0;
    ino_t m_inode = 0;
    std::int64_t m_credit = kPatienceMs * kRecovery;  // patience left, in sixtieths of a millisecond
    std::int64_t m_recoveredAtMs;
    std::string m_rest;  // of a line that has been begun; goes out before anything else
    int m_dropped = 0;
};
