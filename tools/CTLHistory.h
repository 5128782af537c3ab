// What has happened to the service and its children, from its log.
//
// Purpose: makes events of the texts that the service's classes log, and tells which child a line is about. What the log
//   does not say at the level that the service runs at is not there: that a child without a ping was replaced, when
//   a child was started first, and how long a good ping took stand at DEBUG only.
// Ownership: owns what it keeps of lines until now. With lines that come for ever, take() keeps it small.
// Threads: one.
// Units: seconds since the epoch; the lengths of pings in seconds.
// Errors: lines that say nothing of it are passed over.
#pragma once

#include <cstddef>
#include <ctime>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "CTLLogLine.h"
#include "CTLPinged.h"
#include "CTLTextPattern.h"

struct CTLEvent {
    enum class Kind {
        ServiceStarted,   // all children have been started
        ServiceReady,     // all children answer
        ServiceStopping,  // it was told to stop
        ServiceStopped,
        Started,       // a child, other than by a restart
        Died,          // a child's process was gone
        Restarted,     // a child was started again
        PingAnswered,  // `seconds` says how long it took
        PingFailed,    // not sent or not answered, or answered with something else
        Unresponsive,  // the limit of failed pings was reached
        AskedToStop,   // an unresponsive child, by its stop action
        Killed,
        Stopped,  // a child, at the end of the service
        Fatal,    // any FATAL line
    };

    std::time_t time = 0;
    std::string child;  // empty: the service, or a child that the log does not name
    Kind kind = Kind::Fatal;
    std::string text;  // what the log says
    std::optional<int> seconds{};

    // "service started", "ping failed" and so on.
    static const char* word(Kind kind);
};

class CTLHistory {
  public:
    // A text that something is known of. The format is as the service's sources have it.
    struct Text {
        const char* logger;
        const char* level;
        const char* format;
    };

    explicit CTLHistory(const std::vector<CTLPinged>& pinged = {}) : m_pinged(pinged) {}

    void add(const CTLLogLine& line);
    // The child that the last line is about; empty when it is about none, or does not say.
    const std::string& childOfLast() const { return m_childOfLast; }
    // The events until now, oldest first; they are gone from here.
    std::vector<CTLEvent> take();

    static std::vector<CTLEvent> of(const std::vector<CTLLogLine>& lines,
                                    const std::vector<CTLPinged>& pinged = {});
    // All texts that something is known of.
    static std::vector<Text> texts();

  private:
    // What is known of a thread of the service, or of one of its commands.
    struct Thread {
        std::string child;        // that it is busy with
        std::string slow;         // that has not yet finished stopping
        int slowLooks = 0;        // how often that was said of it
        bool isPinging = false;   // at DEBUG, where the result is told after the reason
        bool isCommand = false;   // a ping of its own restarts nothing
        bool isStopping = false;  // what fails now is no ping
        bool isLeaving = false;   // the service ends
        bool wasKilled = false;
        std::string reason;  // of a failed ping
        std::time_t pingBegan = 0;
        std::optional<std::time_t> unfinished{};  // when a handshake was last said to take long
    };
    using Values = std::vector<std::string>;
    using Handler = void (CTLHistory::*)(const CTLLogLine& line, Thread& thread, const Values& values);
    struct Row {
        Text text{};
        Handler handler = nullptr;
    };
    struct Known {
        Text text{};
        Handler handler = nullptr;
        CTLTextPattern pattern;
    };

    static const Row kRows[];
    static const std::vector<Known>& known();
    static const std::vector<const Known*>& knownOf(const std::string& logger);

    void names(const CTLLogLine& line, Thread& thread, const Values& values);
    void idles(const CTLLogLine& line, Thread& thread, const Values& values);
    void beginsCommand(const CTLLogLine& line, Thread& thread, const Values& values);
    void endsCommand(const CTLLogLine& line, Thread& thread, const Values& values);
    void runs(const CTLLogLine& line, Thread& thread, const Values& values);
    void isReady(const CTLLogLine& line, Thread& thread, const Values& values);
    void leaves(const CTLLogLine& line, Thread& thread, const Values& values);
    void isDone(const CTLLogLine& line, Thread& thread, const Values& values);
    void examines(const CTLLogLine& line, Thread& thread, const Values& values);
    void died(const CTLLogLine& line, Thread& thread, const Values& values);
    void answered(const CTLLogLine& line, Thread& thread, const Values& values);
    void failed(const CTLLogLine& line, Thread& thread, const Values& values);
    void isUnresponsive(const CTLLogLine& line, Thread& thread, const Values& values);
    void asksToStop(const CTLLogLine& line, Thread& thread, const Values& values);
    void hasAsked(const CTLLogLine& line, Thread& thread, const Values& values);
    void isSlow(const CTLLogLine& line, Thread& thread, const Values& values);
    void restarts(const CTLLogLine& line, Thread& thread, const Values& values);
    void starts(const CTLLogLine& line, Thread& thread, const Values& values);
    void killed(const CTLLogLine& line, Thread& thread, const Values& values);
    void killedRest(const CTLLogLine& line, Thread& thread, const Values& values);
    void isDead(const CTLLogLine& line, Thread& thread, const Values& values);
    void sends(const CTLLogLine& line, Thread& thread, const Values& values);
    void tellsReason(const CTLLogLine& line, Thread& thread, const Values& values);
    void tellsUnfinished(const CTLLogLine& line, Thread& thread, const Values& values);

    void note(const CTLLogLine& line, const std::string& child, CTLEvent::Kind kind);
    std::string childAt(std::string_view address) const;
    Thread& threadOf(const CTLLogLine& line);

    std::vector<CTLPinged> m_pinged;
    std::map<std::string, Thread> m_threads;
    std::set<std::string> m_restarting;  // children whose next start is no first one
    std::set<std::string> m_stopped;     // children that were told to have stopped
    std::string m_childOfLast;
    std::vector<CTLEvent> m_events;
};
