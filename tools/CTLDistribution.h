// How long answers take.
//
// Purpose: the distribution of times, and the time-out that follows from it.
// Ownership: owns its times, the last kMost of them.
// Threads: one.
// Units: microseconds, and seconds where the name says so.
// Errors: without times everything is 0.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>

class CTLDistribution {
  public:
    // More are forgotten, the oldest first.
    static constexpr std::size_t kMost = 10000;
    // Fewer than this say little.
    static constexpr std::size_t kEnough = 20;

    void add(std::int64_t us);
    std::size_t count() const { return m_times.size(); }

    std::int64_t minimum() const { return at(0); }
    std::int64_t median() const { return at(50); }
    std::int64_t percentile95() const { return at(95); }
    std::int64_t maximum() const { return at(100); }
    // For "sockIOTimeoutSec": three times what 95 of 100 answers keep to and twice the slowest, in whole seconds, at
    // least one. 0 without answers.
    int timeoutSec() const;

  private:
    // The smallest time that so many of a hundred do not exceed.
    std::int64_t at(unsigned percent) const;

    std::deque<std::int64_t> m_times;
};
