// What has become of each child in a stretch of time.
//
// Purpose: sums a history up, child by child: restarts, failed pings, how long pings took, and when the service ran.
// Ownership: values.
// Threads: as any value.
// Units: seconds since the epoch; pings in seconds.
// Errors: none; what the log does not tell is absent.
#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "CTLHistory.h"

struct CTLChildRecord {
    std::string name;  // empty: of a child that the log does not name
    int restarts = 0;
    int deaths = 0;
    int killed = 0;
    int failedPings = 0;
    int answeredPings = 0;  // at level DEBUG only
    std::optional<double> meanSec;
    std::optional<int> longestSec;
    std::optional<std::time_t> lastRestart;
    std::optional<std::time_t> lastFailedPing;
};

// When the service ran, as far as the log tells.
struct CTLRun {
    std::time_t from = 0;
    std::time_t until = 0;
    bool isOpen = false;  // its end is not in the log: it runs still, or was killed
};

struct CTLRecord {
    std::time_t from = 0;  // the first and the last moment that it is about
    std::time_t until = 0;
    std::vector<CTLChildRecord> children;  // in the order of the names that were given, others after them
    std::vector<CTLRun> runs;
    std::vector<CTLEvent> events;
    bool hasAnswerTimes = false;

    static CTLRecord of(const std::vector<CTLEvent>& events, const std::vector<std::string>& names,
                        std::time_t from, std::time_t until);

  private:
    CTLChildRecord& childOf(const std::string& name);
    void count(const CTLEvent& event);
    void countRun(const CTLEvent& event);
};
