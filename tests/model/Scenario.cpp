#include "Scenario.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <functional>
#include <map>
#include <random>
#include <sstream>

namespace {

using Kind = ActionText::Kind;

// The same numbers on every machine, which the distributions of the standard library do not promise.
class Dice {
  public:
    explicit Dice(std::uint64_t seed) : m_engine(seed) {}

    // 0 to bound - 1.
    std::int64_t below(std::int64_t bound) {
        return static_cast<std::int64_t>(m_engine() % static_cast<std::uint64_t>(bound));
    }
    std::int64_t between(std::int64_t low, std::int64_t high) { return low + below(high - low + 1); }
    bool percent(int chance) { return below(100) < chance; }
    template <std::size_t Size>
    std::string one(const std::array<const char*, Size>& texts) {
        return texts.at(static_cast<std::size_t>(below(Size)));
    }
    std::optional<std::string> details(const char* text) {
        return percent(65) ? std::optional<std::string>(text) : std::nullopt;
    }

  private:
    std::mt19937_64 m_engine;
};

// ---- Peers ----

using Maker = std::function<Exchange(Dice&)>;

Exchange answering(const char* mood, const std::string& answer, std::int64_t latencyMs = 0) {
    Exchange exchange;
    exchange.mood = mood;
    exchange.answer = answer;
    exchange.poll.latencyMs = latencyMs;
    return exchange;
}

Exchange good(Dice& dice) {
    return answering("good", dice.percent(80) ? "READY" : "it is READY and BROKEN",
                     dice.percent(30) ? 700 : 0);
}

Exchange bad(Dice& dice) {
    return answering("bad answer",
                     dice.one(std::array{"NOTHING OF THE KIND", "ready", "\x01\x80 REA DY \x1f"}));
}

Exchange torn(Dice& dice) {
    return answering("torn answer", dice.one(std::array{"REA", "R", "BROKE", "LATE"}));
}

Exchange withZeroByte(Dice& dice) {
    const std::string rest = dice.percent(50) ? "READY" : "BROKEN";
    return answering("zero byte in the answer", std::string("xy") + '\0' + rest);
}

Exchange tooLong(Dice& dice) {
    const std::string filler(static_cast<std::size_t>(dice.between(1, 300)), 'x');
    return answering("long answer", dice.percent(50) ? "READY" + filler : filler + "READY");
}

Exchange refused(Dice& dice) {
    Exchange exchange;
    exchange.mood = "refused";
    exchange.connects = {{-1, dice.details("refused"), dice.percent(20) ? 10000 : 0}};
    return exchange;
}

// The handshake takes `rounds` calls, and as many connections.
Exchange handshake(Dice& dice) {
    Exchange exchange;
    exchange.mood = "handshake";
    exchange.connects.clear();
    exchange.establishes.clear();
    const std::int64_t connects = dice.between(1, 6);
    for (std::int64_t i = 0; i < connects; ++i)
        exchange.connects.push_back({-15, dice.percent(20) ? dice.details("go on") : std::nullopt, 0});
    if (dice.percent(80)) exchange.connects.push_back({});
    const std::int64_t pending = dice.below(6);
    for (std::int64_t i = 0; i < pending; ++i)
        exchange.establishes.push_back(
            {-23, dice.percent(20) ? dice.details("pending") : std::nullopt, 2000});
    if (dice.percent(90))
        exchange.establishes.push_back({dice.percent(80) ? 0 : -1, dice.details("broken"), 100});
    if (exchange.establishes.empty()) exchange.establishes.push_back({});
    return exchange;
}

Exchange unsent(Dice& dice) {
    Exchange exchange;
    exchange.mood = "sending fails";
    exchange.send = {dice.percent(50) ? -1 : 7, dice.details("pipe"), 0};
    return exchange;
}

Exchange silent(Dice&) {
    Exchange exchange;
    exchange.mood = "silent";
    exchange.poll.code = 2;
    exchange.poll.latencyMs = kNever;  // as long as the poll allows
    exchange.readable = false;
    exchange.receive = {-1, "closed", 90000};  // without a poll
    return exchange;
}

Exchange oddPoll(Dice& dice) {
    Exchange exchange;
    exchange.mood = "odd poll";
    exchange.poll = {std::array{-1L, 0L, 2L, 5L}.at(static_cast<std::size_t>(dice.below(4))),
                     dice.details("poll"), 300};
    exchange.readable = dice.percent(50);
    if (exchange.poll.code >= 0) exchange.poll.details.reset();
    return exchange;
}

Exchange lost(Dice& dice) {
    Exchange exchange;
    exchange.mood = "reading fails";
    exchange.receive = {-1, dice.details("reset"), 0};
    return exchange;
}

struct Weighted {
    int weight;
    Maker make;
};

const std::vector<Weighted>& makers() {
    static const std::vector<Weighted> list{
        {40, good},
        {6, [](Dice&) { return answering("not ready", "LATER"); }},
        {3, [](Dice&) { return answering("not ready", "LATER, and then READ Y"); }},
        {6, [](Dice&) { return answering("broken", "BROKEN"); }},
        {2, [](Dice&) { return answering("broken", "LATER or BROKEN"); }},
        {5, bad},
        {4, torn},
        {3, tooLong},
        {2, withZeroByte},
        {2, [](Dice&) { return answering("empty answer", ""); }},
        {14, refused},
        {8, handshake},
        {6, unsent},
        {10, silent},
        {6, oddPoll},
        {6, lost},
    };
    return list;
}

Exchange randomExchange(Dice& dice) {
    int total = 0;
    for (const Weighted& each : makers())
        total += each.weight;
    std::int64_t at = dice.below(total);
    for (const Weighted& each : makers()) {
        if (at < each.weight) return each.make(dice);
        at -= each.weight;
    }
    return {};
}

std::vector<Mood> randomMoods(Dice& dice, std::int64_t endMs, std::int64_t stretchMs) {
    std::vector<Mood> moods;
    for (std::int64_t fromMs = 0; fromMs < endMs; fromMs += 1 + dice.below(stretchMs))
        moods.push_back({fromMs, randomExchange(dice)});
    return moods;
}

// ---- Children ----

std::int64_t delay(Dice& dice, std::int64_t longestMs) {
    if (dice.percent(50)) return 0;
    return dice.percent(40) ? kNever : 1 + dice.below(longestMs);
}

Life randomLife(Dice& dice, std::int64_t pollMs) {
    Life life;
    if (dice.percent(35)) life.endsAfterMs = dice.below(15 * pollMs);
    // In the midst of the ping after which it would be asked to stop.
    if (dice.percent(5)) life.endsAfterMs = 12 * (pollMs + 2000) - dice.between(1, 1999);
    if (dice.percent(5)) life.endsAfterMs = 0;
    life.afterTermMs = delay(dice, 3 * pollMs);
    life.afterStopMs = delay(dice, 3 * pollMs);
    if (dice.percent(15)) life.afterKillMs = delay(dice, pollMs);
    life.foreign = dice.percent(2);
    return life;
}

ActionText randomSpawn(Dice& dice, const std::string& path) {
    ActionText spawn;
    spawn.path = path;
    spawn.sync = dice.percent(30) ? dice.one(std::array{"0", "1", "3", "x"}) : "";
    spawn.quoted = dice.percent(10);
    for (std::int64_t i = dice.below(3); i > 0; --i) {
        Param param{dice.one(std::array{"-v", "two words", "say ${greeting}", "${unknown}"})};
        if (dice.percent(30)) param.condName = dice.one(std::array{"${greeting}", "${unknown}", "HELLO"});
        if (dice.percent(30)) param.condValue = dice.one(std::array{"HELLO", "hello", "${unknown}"});
        spawn.params.push_back(param);
    }
    return spawn;
}

std::string randomUri(Dice& dice, const std::string& name, int port) {
    const std::string scheme = dice.one(std::array{"tcp://", "https://"});
    const std::string end = ":" + std::to_string(port) + dice.one(std::array{"", "/ping", "/a:b"});
    if (dice.percent(70)) return scheme + name + end;
    return scheme + dice.one(std::array{"127.0.0.1", "[::1]", "host.example", "${greeting}"}) + end;
}

ActionText randomSend(Dice& dice, const std::string& name, int port) {
    ActionText send;
    send.kind = Kind::Send;
    send.uri = randomUri(dice, name, port);
    send.command = dice.one(std::array{"PING", "SHUTDOWN", "${greeting}", "a longer command"});
    send.timeout = dice.percent(50) ? dice.one(std::array{"5", "0", "-1", "x", "20"}) : "";
    send.size = dice.percent(85) ? dice.one(std::array{"20", "40", "200", "5", "4", "0", "-3"}) : "";
    send.ok = dice.percent(85) ? "READY" : "";
    send.fatal = dice.percent(80) ? "BROKEN" : "";
    send.retry = dice.percent(80) ? "LATER" : "";
    return send;
}

// A signal that ends the service itself at once would end the run: 9 only where it cannot reach the whole group.
ActionText randomSignal(Dice& dice, bool pinged) {
    ActionText signal;
    signal.kind = Kind::Signal;
    signal.signal = dice.one(std::array{"15", "15", "${stopSignal}", "2", "1", "SIGTERM", "0"});
    if (!pinged && dice.percent(20)) signal.signal = "9";
    return signal;
}

ActionText randomStop(Dice& dice, const std::string& name, bool pinged, int port) {
    const std::int64_t kind = dice.below(pinged ? 6 : 3);
    if (kind == 0) return randomSignal(dice, pinged);
    if (kind == 1) return randomSpawn(dice, "/bin/stop-" + name);
    return randomSend(dice, name, port);
}

std::string randomWaitTime(Dice& dice) {
    return dice.percent(20) ? dice.one(std::array{"0", "1", "4", "x"}) : "";
}

ChildText randomChild(Dice& dice, int number, std::int64_t endMs, std::int64_t pollMs) {
    ChildText child{std::array{"alpha", "beta", "gamma", "delta"}.at(static_cast<std::size_t>(number))};
    child.start = randomSpawn(dice, "/bin/" + child.name);
    if (dice.percent(75)) child.ping = randomSend(dice, child.name, 9000 + number);
    if (dice.percent(30)) child.dependency = dice.one(std::array{"web", "web", "mail"});
    child.stop = randomStop(dice, child.name, child.isPinged(), 9100 + number);
    child.start.waitTime = randomWaitTime(dice);
    child.stop.waitTime = randomWaitTime(dice);
    if (child.ping) child.ping->waitTime = randomWaitTime(dice);
    child.lives.clear();
    for (std::int64_t i = dice.between(1, 4); i > 0; --i)
        child.lives.push_back(randomLife(dice, pollMs));
    child.pingMoods = randomMoods(dice, endMs, 16 * pollMs);
    child.stopMoods = randomMoods(dice, endMs, 30 * pollMs);
    return child;
}

// ---- The rest ----

void addOutages(Dice& dice, Scenario& scenario, std::int64_t endMs, std::int64_t pollMs) {
    if (dice.percent(20)) {
        const std::int64_t fromMs = dice.below(endMs);
        scenario.forks.push_back({fromMs, fromMs + dice.below(4 * pollMs), dice.percent(50) ? 11 : 12});
    }
    if (dice.percent(10)) {
        const std::int64_t fromMs = dice.below(endMs);
        scenario.sockets.push_back({fromMs, fromMs + dice.below(4 * pollMs), -1, dice.details("no handle")});
    }
}

void addDeaths(Dice& dice, Scenario& scenario, std::int64_t endMs) {
    for (std::int64_t i = dice.below(4); i > 0; --i) {
        const std::int64_t atMs = dice.below(endMs);
        const bool all = dice.percent(40);
        for (ChildText& child : scenario.children) {
            if (all || dice.percent(40)) child.deaths.push_back(atMs);
        }
    }
}

void addLimitFiles(Dice& dice, Scenario& scenario, std::int64_t endMs) {
    if (!dice.percent(25)) return;
    std::int64_t modifiedSec = dice.percent(10) ? 0 : 1700000000;
    for (std::int64_t atMs = dice.below(endMs); atMs < endMs; atMs += 1 + dice.below(endMs)) {
        LimitFile file{
            atMs, dice.one(std::array{"5\n", "1", "0\n", "-2\n", "garbage\n", "", "3 and more\nnext\n"}), 0};
        if (dice.percent(20)) file.content.reset();
        if (dice.percent(70)) modifiedSec += dice.between(-3, 3);
        file.modifiedSec = modifiedSec;
        scenario.limitFiles.push_back(file);
    }
}

void addStops(Dice& dice, Scenario& scenario, std::int64_t endMs) {
    // The signal thread has to be gone before the main thread gives up waiting.
    const bool early = scenario.isUnsupervised() || dice.percent(10);
    scenario.stopAtMs.push_back(early ? dice.below(5000) : endMs / 4 + dice.below(endMs));
    scenario.stopSignals.push_back(
        std::array{15, 15, 15, 1, 2, 3}.at(static_cast<std::size_t>(dice.below(6))));
    if (!dice.percent(20)) return;
    scenario.stopAtMs.push_back(scenario.stopAtMs.front() + dice.below(3000));
    scenario.stopSignals.push_back(15);
}

void addSettings(Dice& dice, Scenario& scenario) {
    scenario.manager = dice.percent(92);
    scenario.pollSec =
        dice.percent(85) ? dice.one(std::array{"1", "2", "3", "5", "6", "10", "30", "60", " 7 s"}) : "";
    scenario.checkMs =
        dice.percent(50) ? dice.one(std::array{"500", "137", "1000", "2500", "-5", "0", "x"}) : "";
    scenario.pingTimeout =
        dice.percent(60) ? dice.one(std::array{"60", "45", "10", "1", "0", "-4", "x", "7"}) : "";
    scenario.stopWaitTime = dice.percent(60) ? dice.one(std::array{"60", "10", "1", "0", "3"}) : "";
    scenario.startupDelay = dice.percent(20) ? dice.one(std::array{"30", "0", "x", "1"}) : "";
    scenario.network = dice.one(std::array{"IPv4", "IPv6", "ipv6"});
    if (dice.percent(3)) scenario.pollSec = "-5";
    scenario.waitForEver = !scenario.isUnsupervised() && dice.percent(20);
    scenario.asDaemon = dice.percent(50);
    scenario.pidFileWritable = dice.percent(95);
}

// ---- The document ----

std::string attribute(const char* name, const std::string& value) {
    return value.empty() ? "" : " " + std::string(name) + "='" + value + "'";
}

std::string spawnText(const ActionText& action) {
    std::string text = "<spawn" + attribute("sync", action.sync) + attribute("wait_time", action.waitTime) +
                       "><path" + (action.quoted ? " quoteAsParam='true'" : "") + ">" + action.path +
                       "</path>";
    for (const Param& param : action.params) {
        text += "<param" + attribute("condName", param.condName) + attribute("condValue", param.condValue) +
                ">" + param.text + "</param>";
    }
    return text + "</spawn>";
}

std::string sendText(const ActionText& action, const std::string& dependency) {
    return "<socketSend" + attribute("URI", action.uri) + attribute("commandString", action.command) +
           attribute("sockIOTimeoutSec", action.timeout) + attribute("responseSize", action.size) +
           attribute("responseOK", action.ok) + attribute("responseFatal", action.fatal) +
           attribute("responseRetry", action.retry) + attribute("wait_time", action.waitTime) +
           attribute("dependency", dependency) + "/>";
}

std::string stopText(const ActionText& action) {
    if (action.kind == Kind::Spawn) return "<stop type='spawn'>" + spawnText(action) + "</stop>";
    if (action.kind == Kind::Send) return "<stop type='socketSend'>" + sendText(action, "") + "</stop>";
    return "<stop type='signal'><signal" + attribute("signal", action.signal) +
           attribute("wait_time", action.waitTime) + "/></stop>";
}

std::string childText(const ChildText& child) {
    std::string text = "<process name='" + child.name + "'>\n  <start>" + spawnText(child.start) +
                       "</start>\n  " + stopText(child.stop) + "\n";
    if (child.ping) text += "  <ping>" + sendText(*child.ping, child.dependency) + "</ping>\n";
    return text + "</process>\n";
}

// ---- What happens, for a person ----

std::string spelled(std::int64_t ms) {
    return ms == kNever ? "never" : std::to_string(ms) + " ms";
}

std::string spelled(const std::optional<std::string>& text) {
    return text ? '"' + *text + '"' : "nothing";
}

void describeReplies(std::ostream& out, const char* what, const std::vector<Reply>& replies) {
    out << ", " << what;
    for (const Reply& reply : replies)
        out << " " << reply.code << " (" << spelled(reply.details) << ", " << spelled(reply.latencyMs) << ")";
}

void describeMoods(std::ostream& out, const char* whose, const std::vector<Mood>& moods) {
    for (const Mood& mood : moods) {
        const Exchange& exchange = mood.exchange;
        out << "  " << whose << " peer from " << mood.fromMs << ": " << exchange.mood;
        describeReplies(out, "connect", exchange.connects);
        describeReplies(out, "establish", exchange.establishes);
        describeReplies(out, "send", {exchange.send});
        describeReplies(out, exchange.readable ? "poll, readable" : "poll, not readable", {exchange.poll});
        describeReplies(out, "receive", {exchange.receive});
        out << ", answer \"" << exchange.answer << "\"\n";
    }
}

void describeChild(std::ostream& out, const ChildText& child) {
    out << child.name << ":\n";
    for (const Life& life : child.lives) {
        out << "  a process ends after " << spelled(life.endsAfterMs) << ", after SIGTERM "
            << spelled(life.afterTermMs) << ", after SIGKILL " << spelled(life.afterKillMs)
            << ", after its stop action " << spelled(life.afterStopMs)
            << (life.foreign ? ", may not be signalled" : "") << "\n";
    }
    for (const std::int64_t atMs : child.deaths)
        out << "  dies at " << atMs << "\n";
    describeMoods(out, "ping", child.pingMoods);
    describeMoods(out, "stop", child.stopMoods);
}

// ---- Making it smaller ----

using Scenarios = std::vector<Scenario>;

// The scenario without one of the elements of a list, for each of them.
template <typename List>
void dropEach(Scenarios& result, const Scenario& from, const std::function<List&(Scenario&)>& list,
              std::size_t keep = 0) {
    Scenario copy = from;
    const std::size_t count = list(copy).size();
    if (count <= keep) return;
    for (std::size_t i = 0; i < count; ++i) {
        Scenario fewer = from;
        List& elements = list(fewer);
        elements.erase(elements.begin() + static_cast<std::ptrdiff_t>(i));
        result.push_back(std::move(fewer));
    }
}

void simplify(Scenarios& result, const Scenario& from, const std::function<bool(Scenario&)>& change) {
    Scenario simpler = from;
    if (change(simpler)) result.push_back(std::move(simpler));
}

template <typename Value>
bool changed(Value& value, const Value& simple) {
    if (value == simple) return false;
    value = simple;
    return true;
}

void smallerChild(Scenarios& result, const Scenario& from, std::size_t i) {
    dropEach<std::vector<Life>>(
        result, from, [i](Scenario & s) -> auto& { return s.children[i].lives; }, 1);
    dropEach<std::vector<Mood>>(
        result, from, [i](Scenario & s) -> auto& { return s.children[i].pingMoods; }, 1);
    dropEach<std::vector<Mood>>(
        result, from, [i](Scenario & s) -> auto& { return s.children[i].stopMoods; }, 1);
    dropEach<std::vector<std::int64_t>>(
        result, from, [i](Scenario & s) -> auto& { return s.children[i].deaths; });
    dropEach<std::vector<Param>>(
        result, from, [i](Scenario & s) -> auto& { return s.children[i].start.params; });
    dropEach<std::vector<Param>>(
        result, from, [i](Scenario & s) -> auto& { return s.children[i].stop.params; });
    for (const auto text : {&ActionText::waitTime, &ActionText::sync}) {
        simplify(result, from,
                 [i, text](Scenario& s) { return changed(s.children[i].start.*text, std::string()); });
        simplify(result, from,
                 [i, text](Scenario& s) { return changed(s.children[i].stop.*text, std::string()); });
    }
    simplify(result, from, [i](Scenario& s) {
        return s.children[i].ping && changed(s.children[i].ping->waitTime, std::string());
    });
    for (std::size_t life = 0; life < from.children[i].lives.size(); ++life) {
        simplify(result, from,
                 [i, life](Scenario& s) { return changed(s.children[i].lives[life].endsAfterMs, kNever); });
    }
}

}  // namespace

std::string expanded(const std::string& text) {
    static const std::map<std::string, std::string> properties{{"${greeting}", "HELLO"},
                                                               {"${stopSignal}", "15"}};
    std::string result = text;
    for (const auto& [reference, value] : properties) {
        for (std::size_t at = 0; (at = result.find(reference, at)) != std::string::npos; at += value.size())
            result.replace(at, reference.size(), value);
    }
    return result;
}

Scenario Scenario::random(std::uint64_t seed) {
    Dice dice(seed);
    Scenario scenario;
    scenario.seed = seed;
    addSettings(dice, scenario);
    const long configured = std::strtol(scenario.pollSec.c_str(), nullptr, 10);
    const std::int64_t pollMs = 1000 * (scenario.manager && configured > 0 ? configured : 30);
    const std::int64_t endMs = dice.between(3, 45) * (pollMs + 2000);
    const int children = static_cast<int>(dice.between(1, 4));
    for (int i = 0; i < children; ++i)
        scenario.children.push_back(randomChild(dice, i, endMs, pollMs));
    addOutages(dice, scenario, endMs, pollMs);
    addDeaths(dice, scenario, endMs);
    addLimitFiles(dice, scenario, endMs);
    addStops(dice, scenario, endMs);
    return scenario;
}

std::string Scenario::document() const {
    std::string text = "<bootstrap" + attribute("startupDelaySec", startupDelay) + ">\n";
    if (manager) {
        text += "<processManager" + attribute("pollIntervalsec", pollSec) +
                attribute("checkForShutdownIntervalms", checkMs) + "/>\n";
    }
    for (const ChildText& child : children)
        text += childText(child);
    return text + "<daemonSpawn><path>/bin/daemon</path></daemonSpawn>\n</bootstrap>\n";
}

std::string Scenario::describe() const {
    std::ostringstream out;
    out << document() << "dispatcherPingTimeout " << pingTimeout << ", dispatcherStopWaitTime "
        << stopWaitTime << ", network " << network << (asDaemon ? ", as a daemon" : "")
        << (waitForEver ? ", waits for ever" : "") << (pidFileWritable ? "" : ", no PID file can be written")
        << "\n";
    for (const ChildText& child : children)
        describeChild(out, child);
    for (const Outage& outage : forks)
        out << "no fork from " << outage.fromMs << " to " << outage.toMs << ", errno " << outage.code << "\n";
    for (const Outage& outage : sockets)
        out << "no handle from " << outage.fromMs << " to " << outage.toMs << ", " << spelled(outage.details)
            << "\n";
    for (const LimitFile& file : limitFiles) {
        out << "zor.failedPingLimit from " << file.fromMs << ": " << spelled(file.content) << " of "
            << file.modifiedSec << "\n";
    }
    for (std::size_t i = 0; i < stopAtMs.size(); ++i)
        out << "signal " << stopSignals[i] << " at " << stopAtMs[i] << "\n";
    return out.str();
}

std::vector<Scenario> Scenario::smaller() const {
    Scenarios result;
    dropEach<std::vector<ChildText>>(
        result, *this, [](Scenario & s) -> auto& { return s.children; }, 1);
    simplify(result, *this, [](Scenario& s) {
        s.stopAtMs.resize(1);
        s.stopAtMs[0] /= 2;
        return s.stopAtMs[0] > 0;
    });
    dropEach<std::vector<Outage>>(
        result, *this, [](Scenario & s) -> auto& { return s.forks; });
    dropEach<std::vector<Outage>>(
        result, *this, [](Scenario & s) -> auto& { return s.sockets; });
    dropEach<std::vector<LimitFile>>(
        result, *this, [](Scenario & s) -> auto& { return s.limitFiles; });
    simplify(result, *this, [](Scenario& s) { return changed(s.startupDelay, std::string()); });
    simplify(result, *this, [](Scenario& s) { return changed(s.waitForEver, false); });
    simplify(result, *this, [](Scenario& s) { return changed(s.asDaemon, false); });
    simplify(result, *this, [](Scenario& s) { return changed(s.pidFileWritable, true); });
    for (std::size_t i = 0; i < children.size(); ++i)
        smallerChild(result, *this, i);
    return result;
}
