#include "Model.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <stdexcept>

namespace {

constexpr std::size_t kMostRows = 100000;  // many times what a run takes

long numberIn(const std::string& text) {
    return std::strtol(text.c_str(), nullptr, 10);
}

long numberOr(const std::string& text, long otherwise) {
    return text.empty() ? otherwise : numberIn(text);
}

long positiveOr(long value, long otherwise) {
    return value > 0 ? value : otherwise;
}

bool compare(long left, const std::string& operation, long right) {
    if (operation == "==") return left == right;
    if (operation == "!=") return left != right;
    if (operation == "<") return left < right;
    if (operation == "<=") return left <= right;
    if (operation == ">") return left > right;
    return left >= right;
}

bool isIncluded(const Param& param) {
    const std::string name = expanded(param.condName);
    return name.empty() || param.condValue.empty() || name == param.condValue;
}

long lengthOf(const std::string& text) {
    return static_cast<long>(text.size());
}

std::string stopTypeOf(const std::string& table) {
    return table == "send" ? "socketSend" : table;
}

}  // namespace

// ---- What the document comes to ----

Model::Model(const Tables& tables, const Scenario& scenario, const Run& observed)
    : m_tables(tables), m_scenario(scenario), m_observed(observed), m_world(scenario) {
    for (const ChildText& text : scenario.children)
        m_children.push_back(prepared(text));
    ActionText daemon;
    daemon.path = "/bin/daemon";
    m_daemonSpawn = prepared(daemon);
    prepareLoop();
}

void Model::prepareLoop() {
    const bool manager = m_scenario.manager;
    const long poll = manager ? numberOr(m_scenario.pollSec, 30) : 30;
    const long timeout = positiveOr(numberIn(m_scenario.pingTimeout), 60);
    const long checkMs = manager ? positiveOr(numberOr(m_scenario.checkMs, 500), 500) : 500;
    const long waitMs = 1000 * positiveOr(numberIn(m_scenario.stopWaitTime), 60);
    m_numbers = {{"poll", poll},
                 {"pollMs", 1000 * poll},
                 {"limit", manager ? (poll + timeout - 1) / poll : 2},
                 {"checkMs", checkMs},
                 {"maxChecks", manager ? (checkMs + waitMs - 1) / checkMs : 30},
                 {"hasManager", manager ? 1 : 0},
                 {"hasPoll", m_scenario.pollSec.empty() ? 0 : 1},
                 {"hasCheck", m_scenario.checkMs.empty() ? 0 : 1},
                 {"asDaemon", m_scenario.asDaemon ? 1 : 0},
                 {"hasStartupDelay", m_scenario.startupDelay.empty() ? 0 : 1},
                 {"startupDelay", 1000 * numberIn(m_scenario.startupDelay)},
                 {"waitForEver", m_scenario.waitForEver ? 1 : 0},
                 {"stopFailed", 0},
                 {"lastTime", 0}};
}

Model::Child Model::prepared(const ChildText& text) {
    Child child{text.name, {{"handle", -1}, {"counter", 0}, {"pending", 0}, {"target", 0}}, {}};
    child.numbers["hasPing"] = text.ping ? 1 : 0;
    child.numbers["hasDependency"] = text.dependency.empty() ? 0 : 1;
    child.numbers["pinged"] = text.isPinged() ? 1 : 0;
    child.numbers["stopsBySpawn"] = text.stop.kind == ActionText::Kind::Spawn ? 1 : 0;
    child.actions["start"] = prepared(text.start);
    child.actions["stop"] = prepared(text.stop);
    if (text.isPinged()) child.actions["ping"] = prepared(*text.ping);
    return child;
}

Model::Prepared Model::prepared(const ActionText& text) {
    Prepared action;
    action.numbers["pause"] = text.waitTime.empty() ? -1 : 1000 * numberIn(text.waitTime);
    if (text.kind == ActionText::Kind::Spawn) {
        prepareSpawn(action, text);
    } else if (text.kind == ActionText::Kind::Signal) {
        action.table = "signal";
        action.numbers["signal"] = numberIn(expanded(text.signal));
    } else {
        prepareSend(action, text);
    }
    return action;
}

void Model::prepareSend(Prepared& action, const ActionText& text) {
    action.table = "send";
    action.uri = expanded(text.uri);
    action.command = expanded(text.command);
    const long size = numberIn(text.size);
    action.numbers["timeout"] = numberOr(text.timeout, 60);
    action.numbers["size"] = size;
    action.numbers["hasTimeout"] = text.timeout.empty() ? 0 : 1;
    action.numbers["hasSize"] = text.size.empty() ? 0 : 1;
    action.numbers["okGiven"] = lengthOf(text.ok);
    action.numbers["fatalGiven"] = lengthOf(text.fatal);
    action.numbers["retryGiven"] = lengthOf(text.retry);
    // A marker that could never fit is switched off, and so are all when no answer is read.
    if (lengthOf(text.ok) <= size) action.ok = text.ok;
    if (lengthOf(text.fatal) <= size) action.fatal = text.fatal;
    if (lengthOf(text.retry) <= size) action.retry = text.retry;
    action.numbers["okLength"] = lengthOf(action.ok);
}

void Model::prepareSpawn(Prepared& action, const ActionText& text) {
    action.table = "spawn";
    action.path = text.path;
    action.numbers["sync"] = numberIn(text.sync);
    action.numbers["syncMs"] = 1000 * numberIn(text.sync);
    const std::string program = text.quoted ? '"' + text.path + '"' : text.path;
    action.commandLine =
        "Spawning child process:\nPath: " + text.path + "\nParameters: \n\t" + program + "\n";
    for (const Param& param : text.params) {
        if (!isIncluded(param)) continue;
        action.arguments.push_back(expanded(param.text));
        action.commandLine += "\t" + action.arguments.back() + "\n";
    }
}

std::string Model::family(const std::string& uri, const std::string& command, const std::string& network) {
    if (command == "SHUTDOWN") return "IPv4";
    const std::size_t slashes = uri.find("//");
    const std::size_t from = slashes == std::string::npos ? 1 : slashes + 2;
    const std::size_t colon = uri.rfind(':');
    const std::size_t to = colon != std::string::npos && colon >= from ? colon : uri.find('/', from);
    const std::string host = uri.substr(from, to == std::string::npos ? to : to - from);
    if (host.find(':') != std::string::npos) return "IPv6";
    if (host.find('.') != std::string::npos) return "IPv4";
    return network == "IPv6" ? "IPv6" : "IPv4";
}

// ---- Following the table ----

Run Model::follow() {
    runTable("process");
    m_run.alive = m_world.alive(m_nowMs);
    return m_run;
}

std::size_t Model::stepAt(Agent agent, std::size_t deed) const {
    const std::vector<std::size_t>& steps = m_stepAt[static_cast<std::size_t>(agent)];
    return deed < steps.size() ? steps[deed] : m_steps;
}

void Model::runTable(const std::string& name) {
    const Table& table = m_tables.table(name);
    if (table.rows.empty()) throw std::runtime_error("nothing in table \"" + name + '"');
    m_found = {};
    for (std::string place = table.rows.front().at; place != "end";) {
        const Row& row = rowAt(table, place);
        ++m_taken[row.line];
        if (++m_rows > kMostRows) throw std::runtime_error("the table goes round and round");
        if (table.logger == "PingChildProcess") ++m_steps;
        for (const Action& action : row.actions)
            act(table, action);
        place = row.next;
    }
    if (!m_returned) m_found = {};
    m_returned = false;
}

const Row& Model::rowAt(const Table& table, const std::string& place) const {
    const auto found = std::find_if(table.rows.begin(), table.rows.end(),
                                    [&](const Row& row) { return row.at == place && fits(row); });
    if (found != table.rows.end()) return *found;
    throw std::runtime_error("table \"" + table.name + "\" has no row for " + valueOf("found") + " at \"" +
                             place + '"');
}

bool Model::fits(const Row& row) const {
    if (!row.when.empty()) {
        const Condition& when = row.when.front();
        if (!compare(number(when.left), when.operation, number(when.right))) return false;
    }
    if (row.found == "-") return true;
    if (!m_found.any) return false;
    if (row.found == "other") return true;
    if (!m_found.word.empty()) return row.found == m_found.word;
    if (row.found == "< 0") return m_found.number < 0;
    if (row.found == ">= 0") return m_found.number >= 0;
    return row.found == std::to_string(m_found.number);
}

void Model::act(const Table& table, const Action& action) {
    switch (action.verb) {
        case Action::Verb::Log:
            return note(action.level + " " + table.logger + " " + filledIn(action.name));
        case Action::Verb::Assign:
            return assign(action);
        case Action::Verb::RunTable:
            return runTable(action.name);
        case Action::Verb::RunForEach:
            return runForEach(action.name);
        case Action::Verb::Execute:
            return execute(action.name);
        case Action::Verb::Prepare:
            return prepare(action.name);
        case Action::Verb::Return:
            return giveBack(action.value);
        case Action::Verb::Sleep:
            return pause(number(action.value));
        case Action::Verb::Wait:
            return waitForPoll(number(action.value));
        case Action::Verb::Kill:
            return kill(number(action.value), number(action.second));
        case Action::Verb::Phrase:
            return phrase(action.name);
    }
}

void Model::assign(const Action& action) {
    const long value = number(action.value);
    long& target = ownerOf(action.name)[action.name];
    if (action.operation == "=") target = value;
    if (action.operation == "+=") target += value;
    if (action.operation == "-=") target -= value;
}

void Model::runForEach(const std::string& name) {
    for (Child& child : m_children) {
        m_child = &child;
        runTable(name);
    }
    m_child = nullptr;
    m_found = {};
}

void Model::execute(const std::string& name) {
    m_action = &m_child->actions.at(name);
    runTable("execute");
    m_action = nullptr;
}

void Model::prepare(const std::string& name) {
    m_action = m_child == nullptr ? &m_daemonSpawn : &m_child->actions.at(name);
    m_argument = 0;
    runTable("prepare " + m_action->table);
    m_action = nullptr;
}

void Model::giveBack(const std::string& value) {
    find(number(value));
    m_returned = true;
}

void Model::phrase(const std::string& name) {
    const auto known = phrases().find(name);
    if (known == phrases().end()) throw std::runtime_error("nobody knows how to \"" + name + '"');
    (this->*known->second)();
}

const std::map<std::string, Model::Phrase>& Model::phrases() {
    static const std::map<std::string, Phrase> known{
        {"fork, as the child", &Model::forkAsChild},
        {"setsid", &Model::setsid},
        {"SEK_CryptoInitialize", &Model::initializeLibrary},
        {"next argument", &Model::nextArgument},
        {"start the signal thread", &Model::startSignalThread},
        {"start the supervisor", &Model::startSupervisor},
        {"look at the flags", &Model::lookAtFlags},
        {"wait for the supervisor", &Model::waitForSupervisor},
        {"wait for a signal", &Model::waitForSignal},
        {"write the PID file", &Model::writePidFile},
        {"remove the PID file", &Model::removePidFile},
        {"publish the flags", &Model::publishFlags},
        {"the flags are as published", &Model::showFlags},
        {"publish the fatal flag", &Model::publishFatal},
        {"stat zor.failedPingLimit", &Model::statLimitFile},
        {"read zor.failedPingLimit", &Model::readLimitFile},
        {"wake the main thread", &Model::wakeMainThread},
        {"work", &Model::work},
        {"fork", &Model::fork},
        {"SEK_Socket", &Model::socket},
        {"SEK_Connect_Url", &Model::connect},
        {"SEK_CryptoGetLastErrorDetails", &Model::lastDetails},
        {"SEK_CryptoFree", &Model::freeDetails},
        {"SEK_EstablishSecure", &Model::establish},
        {"SEK_Send", &Model::send},
        {"SEK_Poll", &Model::poll},
        {"SEK_Recv", &Model::receive},
        {"SEK_CloseHandle", &Model::close},
    };
    return known;
}

// ---- Numbers and texts ----

long Model::number(const std::string& word) const {
    if (word.find_first_not_of("-0123456789") == std::string::npos) return numberIn(word);
    if (word == "found" && m_found.any && m_found.word.empty()) return m_found.number;
    if (word == "told") return toldAtMs() <= m_nowMs ? 1 : 0;
    if (m_action != nullptr && m_action->numbers.count(word) != 0) return m_action->numbers.at(word);
    if (m_child != nullptr && m_child->numbers.count(word) != 0) return m_child->numbers.at(word);
    const auto found = m_numbers.find(word);
    if (found == m_numbers.end()) throw std::runtime_error("no number \"" + word + '"');
    return found->second;
}

Model::Numbers& Model::ownerOf(const std::string& name) {
    return m_child != nullptr && m_child->numbers.count(name) != 0 ? m_child->numbers : m_numbers;
}

std::string Model::filledIn(const std::string& text) const {
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t open = text.find('{', at);
        const std::size_t close = open == std::string::npos ? open : text.find('}', open);
        result += text.substr(at, close == std::string::npos ? close : open - at);
        if (close == std::string::npos) break;
        result += valueOf(text.substr(open + 1, close - open - 1));
        at = close + 1;
    }
    return result;
}

std::string Model::valueOf(const std::string& name) const {
    if (name == "name") return m_child->name;
    if (name == "bin" || name == "temp") return "ROOT/" + name;
    if (name == "stop type") return stopTypeOf(m_child->actions.at("stop").table);
    if (name == "argument") return m_action->arguments.at(m_argument - 1);
    if (name == "uri") return m_action->uri;
    if (name == "command") return m_action->command;
    if (name == "ok") return m_action->ok;
    if (name == "fatal") return m_action->fatal;
    if (name == "retry") return m_action->retry;
    if (name == "command line") return m_action->commandLine;
    if (name == "detail text") return m_details;
    if (name == "answer") return m_answer;
    if (name == "own id") return std::to_string(getpid());
    if (name == "found" && !m_found.any) return "nothing";
    if (name == "found" && !m_found.word.empty()) return m_found.word;
    return std::to_string(number(name));
}

void Model::note(const std::string& what) {
    m_run.of(m_agent).push_back({m_nowMs, what});
    m_stepAt[static_cast<std::size_t>(m_agent)].push_back(m_steps);
}

void Model::pause(std::int64_t durationMs) {
    if (durationMs <= 0) return;
    note("sleep " + std::to_string(durationMs));
    m_nowMs += durationMs;
}

const Deed* Model::observedNext() const {
    const std::vector<Deed>& observed = m_observed.of(m_agent);
    const std::size_t at = m_run.of(m_agent).size();
    return at < observed.size() ? &observed[at] : nullptr;
}

void Model::nextArgument() {
    find(m_argument++ < m_action->arguments.size() ? "one" : "none");
}

// ---- The threads ----

void Model::startSignalThread() {
    note("starts a thread");
    m_signalsBeginMs = m_nowMs;
    m_startedWithDelay = number("startupDelay") != 0;
}

// Nothing that the supervisor meets depends on the others but the request to stop, whose time is known.
void Model::startSupervisor() {
    note("starts a thread");
    const std::int64_t nowMs = m_nowMs;
    m_supervisorBeginMs = nowMs;
    m_agent = Agent::Supervisor;
    runTable("supervisor");
    m_agent = Agent::Signals;
    m_nowMs = m_signalsBeginMs;
    runTable("signals");
    m_agent = Agent::Main;
    m_nowMs = nowMs;
    m_found = {};
}

std::int64_t Model::toldAtMs() const {
    const std::int64_t signalMs = std::min(m_scenario.stopAtMs.front(), m_world.ownSignal().first);
    return std::max(m_signalsBeginMs, signalMs);
}

void Model::waitForSignal() {
    const auto& [ownMs, ownSignal] = m_world.ownSignal();
    const bool own = ownMs < m_scenario.stopAtMs.front();
    m_nowMs = toldAtMs();
    find(own ? ownSignal : m_scenario.stopSignals.front());
}

// A request that comes before the supervisor waits for the first time finds nothing to post. When both threads begin
// together, either may be first.
void Model::waitForPoll(std::int64_t limitMs) {
    const std::int64_t toldMs = toldAtMs();
    bool heard = toldMs <= m_nowMs + limitMs;
    if (toldMs <= m_supervisorBeginMs) {
        const Deed* const next = observedNext();
        heard = !m_startedWithDelay && (next == nullptr || next->atMs == m_nowMs);
    }
    m_nowMs = heard ? std::max(m_nowMs, toldMs) : m_nowMs + limitMs;
    find(heard ? "posted" : "time-out");
}

void Model::publishFlags() {
    m_flags.push_back({m_nowMs, number("restarts") == 0, number("failed") == 0, number("fatals") != 0});
}

void Model::showFlags() {
    const Flags& flags = m_flags.back();
    note("flags " + std::to_string(flags.running) + " " + std::to_string(flags.answered) + " " +
         std::to_string(flags.fatal));
}

void Model::publishFatal() {
    Flags flags = m_flags.back();
    flags.fromMs = m_nowMs;
    flags.fatal = true;
    m_flags.push_back(flags);
}

void Model::wakeMainThread() {
    m_finishedMs = m_nowMs;
}

void Model::waitForSupervisor() {
    find(m_finishedMs == kNever ? "refused" : "woken");
    if (m_finishedMs != kNever) m_nowMs = std::max(m_nowMs, m_finishedMs);
}

// Flags that change at this very millisecond may be seen as they were or as they are.
void Model::lookAtFlags() {
    static const std::map<std::string, std::string> endings{
        {"ready", "PCP reports all children are OK."},
        {"fatal", "some child processes got fatal errors, return -1."},
        {"neither", "PCP reports some child processes not yet ready so sleep a bit"}};
    std::vector<std::string> possible;
    for (const Flags& flags : m_flags) {
        if (flags.fromMs > m_nowMs) break;
        if (flags.fromMs < m_nowMs) possible.clear();
        const bool ready = flags.running && flags.answered;
        possible.emplace_back(ready ? "ready" : flags.fatal ? "fatal" : "neither");
    }
    const Deed* const next = observedNext();
    for (const std::string& each : possible) {
        if (next != nullptr && next->what.ends_with(endings.at(each))) return find(each.c_str());
    }
    find(possible.back().c_str());
}

void Model::writePidFile() {
    m_run.pidFileLeft = m_scenario.pidFileWritable;
    find(m_scenario.pidFileWritable ? 1 : 0);
}

// ---- The file with another limit ----

void Model::statLimitFile() {
    const LimitFile* const file = m_world.limitFile(m_nowMs);
    if (file == nullptr || !file->content) return find("missing");
    m_numbers["fileTime"] = static_cast<long>(file->modifiedSec);
    find("there");
}

void Model::readLimitFile() {
    const std::string& content = *m_world.limitFile(m_nowMs)->content;
    if (content.empty()) return find("nothing");
    m_numbers["lineValue"] = numberIn(content);
    find("line");
}

// ---- Processes ----

void Model::work() {
    runTable(m_action->table);
}

void Model::fork() {
    int error = 0;
    const int pid = m_world.fork(m_nowMs, m_action->path, error);
    note("fork " + std::to_string(pid));
    m_numbers["errno"] = error;
    find(pid);
}

void Model::kill(long process, long signal) {
    int error = 0;
    const int result = m_world.kill(m_nowMs, static_cast<int>(process), static_cast<int>(signal), error);
    note("kill " + std::to_string(process) + " " + std::to_string(signal) + ": " + std::to_string(result));
    find(result);
}

// ---- The security library ----

void Model::reply(const Reply& reply) {
    m_lastReply = reply;
    m_nowMs += reply.latencyMs;
    m_details = reply.details.value_or("");
    m_numbers["details"] = reply.details ? 1 : 0;
    find(reply.code);
}

void Model::socket() {
    note("SEK_Socket " + family(m_action->uri, m_action->command, m_scenario.network));
    reply(m_world.handle(m_nowMs));
    m_handleOpen = m_lastReply.code >= 0;
}

void Model::connect() {
    note("SEK_Connect_Url " + m_action->uri);
    reply(m_world.connect(m_nowMs, m_action->uri));
}

void Model::establish() {
    note("SEK_EstablishSecure");
    reply(m_world.establish());
}

void Model::lastDetails() {
    note("SEK_CryptoGetLastErrorDetails");
    find(m_lastReply.details ? 1 : 0);
}

void Model::freeDetails() {
    note("SEK_CryptoFree");
}

void Model::send() {
    note("SEK_Send " + m_action->command);
    reply(m_world.send());
    if (m_lastReply.code == 0) m_world.sent(m_nowMs);
}

void Model::poll() {
    const std::int64_t limitMs = 1000 * m_action->numbers.at("timeout");
    note("SEK_Poll " + std::to_string(limitMs));
    reply(m_world.poll(limitMs));
    m_numbers["readable"] = m_world.exchange().readable ? 1 : 0;
}

void Model::receive() {
    const long size = m_action->numbers.at("size");
    note("SEK_Recv " + std::to_string(size));
    reply(m_world.receive());
    if (m_lastReply.code < 0) {
        m_answer.clear();
        return;
    }
    m_answer = answerRead(size);
    m_numbers["hasOk"] = m_answer.find(m_action->ok) != std::string::npos ? 1 : 0;
    m_numbers["hasFatal"] =
        !m_action->fatal.empty() && m_answer.find(m_action->fatal) != std::string::npos ? 1 : 0;
    m_numbers["hasRetry"] =
        !m_action->retry.empty() && m_answer.find(m_action->retry) != std::string::npos ? 1 : 0;
}

// The first piece, up to its first zero byte, with a blank for everything that is not plain text.
std::string Model::answerRead(long capacity) {
    std::string text = m_world.exchange().answer.substr(0, static_cast<std::size_t>(capacity));
    m_numbers["received"] = lengthOf(text);
    text = text.substr(0, text.find('\0'));
    std::replace_if(
        text.begin(), text.end(), [](char each) { return static_cast<signed char>(each) < 32; }, ' ');
    return text;
}

void Model::close() {
    if (!m_handleOpen) return;
    note("SEK_CloseHandle");
    m_handleOpen = false;
}
