// What happens to a service and its children in one run: made of a seed, or made smaller from one that fails.
//
// Purpose: the document's values as they are written, and everything that comes from outside: processes that end,
//   forks that fail, how peers behave from when on, the file with another limit, and the request to stop.
// Ownership: plain values.
// Threads: any, one at a time.
// Units: milliseconds of virtual time since the service began to run; the document's attributes as texts.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

// What one call of the security library brings.
struct Reply {
    long code = 0;
    std::optional<std::string> details{};
    std::int64_t latencyMs = 0;
};

// One whole exchange with a peer. Of a list the last reply is repeated.
struct Exchange {
    std::string mood = "good";
    std::vector<Reply> connects{{}};
    std::vector<Reply> establishes{{}};
    Reply send{};
    Reply poll{};
    bool readable = true;
    Reply receive{};
    std::string answer = "READY";
};

// From that time on a peer behaves so.
struct Mood {
    std::int64_t fromMs = 0;
    Exchange exchange{};
};

// What becomes of a process, counted from its start or from what it is told; kNever: nothing.
struct Life {
    std::int64_t endsAfterMs = kNever;
    std::int64_t afterTermMs = 0;
    std::int64_t afterKillMs = 0;
    std::int64_t afterStopMs = 0;  // told by the child's own stop action
    bool foreign = false;          // no signal is allowed, not even the test
};

struct Param {
    std::string text;
    std::string condName{};
    std::string condValue{};
};

// An action as the document has it; of the attributes those that its kind knows. An empty text is no attribute.
struct ActionText {
    enum class Kind { Spawn, Signal, Send };

    Kind kind = Kind::Spawn;
    std::string waitTime{};
    std::string path{};
    std::string sync{};
    bool quoted = false;
    std::vector<Param> params{};
    std::string signal{};
    std::string uri{};
    std::string command{};
    std::string timeout{};
    std::string size{};
    std::string ok{};
    std::string fatal{};
    std::string retry{};
};

struct ChildText {
    std::string name;
    ActionText start{};
    ActionText stop{};
    std::optional<ActionText> ping{};
    std::string dependency{};  // of the ping; the component "web" is installed, no other is

    std::vector<Life> lives{{}};  // of its processes, one after the other and then again from the first
    std::vector<std::int64_t> deaths{};
    std::vector<Mood> pingMoods{{}};
    std::vector<Mood> stopMoods{{}};

    bool isPinged() const { return ping && (dependency.empty() || dependency == "web"); }
};

// A stretch of time in which a call fails.
struct Outage {
    std::int64_t fromMs = 0;
    std::int64_t toMs = 0;
    int code = 0;
    std::optional<std::string> details{};
};

// From that time on the file with another limit holds this; none: there is no file.
struct LimitFile {
    std::int64_t fromMs = 0;
    std::optional<std::string> content{};
    std::int64_t modifiedSec = 0;
};

struct Scenario {
    std::uint64_t seed = 0;
    bool manager = true;  // whether there is a "processManager"
    std::string pollSec{};
    std::string checkMs{};
    std::string pingTimeout{};   // of the startup configuration; empty: undefined
    std::string stopWaitTime{};  // likewise
    std::string startupDelay{};
    std::string network = "IPv4";
    bool asDaemon = false;
    bool waitForEver = false;
    bool pidFileWritable = true;
    std::vector<ChildText> children{};
    std::vector<Outage> forks{};
    std::vector<Outage> sockets{};
    std::vector<LimitFile> limitFiles{};
    std::vector<std::int64_t> stopAtMs{};  // the first is the request; later ones change nothing
    std::vector<int> stopSignals{};        // one for each

    // A negative interval: nobody supervises, and nobody would ever wake the main thread.
    bool isUnsupervised() const { return manager && !pollSec.empty() && pollSec.front() == '-'; }

    static Scenario random(std::uint64_t seed);
    std::string document() const;
    std::string describe() const;  // the document and what happens, for a person
    // Every scenario that is a little smaller than this one.
    std::vector<Scenario> smaller() const;
};

// "${greeting}" and "${stopSignal}" are defined in every run.
std::string expanded(const std::string& text);
