// What the dispatcher says to a command.
//
// Purpose: finds whole commands in the bytes of a connection, which come without an end mark, and chooses the
//   answer from the state: warming up, ready or broken.
// Ownership: refers to options and log, which must outlive it.
// Threads: any; one command at a time.
// Units: the warm-up counts from construction, on the monotonic clock.
// Errors: none.
#pragma once

#include <chrono>
#include <mutex>
#include <string>

#include "SampleConnection.h"
#include "SampleLog.h"
#include "SampleOptions.h"

class SampleDialogue {
  public:
    SampleDialogue(const SampleOptions& options, SampleLog& log);

    // Deals with the first command in `received`. Once finished, nobody is answered any more.
    SampleConnection::Reply reply(const std::string& peer, const std::string& received);
    // Told to end, or enough answers given.
    bool finished() const;

  private:
    SampleConnection::Reply answerPing(const std::string& peer);
    SampleConnection::Reply obeyShutdown(const std::string& peer);
    std::string stateMarker() const;
    bool isWarmingUp() const;
    bool isSilent() const;

    const SampleOptions& m_options;
    SampleLog& m_log;
    const std::chrono::steady_clock::time_point m_warmAt;
    mutable std::mutex m_mutex;  // guards what follows
    int m_answers = 0;
    bool m_finished = false;
};
