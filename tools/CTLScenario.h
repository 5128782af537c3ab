// What is to happen to the children of a service: a text of one step a line.
//
// Purpose: takes such a text apart.
//
//     # what stands after a number sign, and an empty line, says nothing
//     at TIME CHILD dies
//     at TIME CHILD silent | refuses | freezes            [for DURATION | until TIME]
//     at TIME CHILD answers ["TEXT"]                      [for DURATION | until TIME]
//     at TIME CHILD slow by DURATION                      [for DURATION | until TIME]
//     at TIME CHILD listens after DURATION
//     at TIME CHILD stops in DURATION | ignores stops
//     at TIME service starts | stops
//
//   TIME is HH:MM or HH:MM:SS, and hours may go on beyond 24; DURATION is a number with s, min, h or d. A name or text
//   with blanks stands in double quotes, in which \" \\ and \n are a quote, a backslash and the end of a line.
// Ownership: a value.
// Threads: one.
// Units: milliseconds since 00:00 of the first day.
// Errors: CTLError, kBadScenario, that names file and line of each bad line.
#pragma once

#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <vector>

struct CTLScenarioStep {
    enum class Kind {
        Dies,
        Silent,
        Refuses,
        Freezes,
        Answers,       // `text`; empty: as usual
        Slow,          // by `ms`
        ListensAfter,  // `ms`
        StopsIn,       // `ms`; none: never
        ServiceStarts,
        ServiceStops
    };

    std::size_t line = 0;
    std::int64_t atMs = 0;
    std::string child{};  // empty: the service
    Kind kind = Kind::Dies;
    std::string text{};
    std::optional<std::int64_t> ms{};
    std::optional<std::int64_t> untilMs{};  // none: as long as its process lives
};

class CTLScenario {
  public:
    static constexpr int kBadScenario = 2;  // an exit code
    static constexpr std::int64_t kMostMs = std::int64_t{366} * 24 * 3600 * 1000;

    // `name` stands for the text in errors.
    static CTLScenario read(std::istream& text, const std::string& name);
    // Milliseconds of a TIME or a DURATION; none when it is none.
    static std::optional<std::int64_t> timeOf(const std::string& text);
    static std::optional<std::int64_t> durationOf(const std::string& number, const std::string& unit);

    const std::string& name() const { return m_name; }
    // In the order of their times, without those of the service.
    const std::vector<CTLScenarioStep>& steps() const { return m_steps; }
    std::int64_t startMs() const { return m_startMs; }
    std::optional<std::int64_t> stopMs() const { return m_stopMs; }
    // When nothing more happens.
    std::int64_t endMs() const;

  private:
    void add(const CTLScenarioStep& step);
    void complain(std::size_t line, const std::string& what);
    void checkOrder();

    std::string m_name;
    std::vector<CTLScenarioStep> m_steps;
    std::int64_t m_startMs = 0;
    bool m_startIsGiven = false;
    std::optional<std::int64_t> m_stopMs;
    std::string m_complaints;
};
