#include "CTLChildMatch.h"

#include <algorithm>
#include <cstdlib>

namespace {

// The log's times are whole seconds, and those of processes nearly.
constexpr std::time_t kToleranceSec = 2;
// Ends of command lines are compared up to so many arguments.
constexpr std::size_t kLongestEnd = 64;

// The arguments from `begin` on, each with its end, so that no two different ends look the same.
std::string joined(const std::vector<std::string>& arguments, std::size_t begin = 0) {
    std::string text;
    for (std::size_t index = begin; index < arguments.size(); ++index)
        text.append(arguments[index]).push_back('\0');
    return text;
}

// Where the longest end that is compared begins.
std::size_t firstEnd(const std::vector<std::string>& arguments, std::size_t usual) {
    return arguments.size() > kLongestEnd ? arguments.size() - kLongestEnd : usual;
}

std::string nameIn(const std::string& text, const std::string& before) {
    if (text.compare(0, before.size(), before) != 0 || text.back() != '"') return {};
    return text.substr(before.size(), text.size() - before.size() - 1);
}

}  // namespace

const char* CTLChildMatch::word(CTLMatch match) {
    switch (match) {
        case CTLMatch::None:
            break;
        case CTLMatch::Log:
            return "log";
        case CTLMatch::CommandLine:
            return "command line";
        case CTLMatch::Arguments:
            return "arguments";
        case CTLMatch::Elimination:
            return "elimination";
    }
    return "none";
}

std::map<std::string, CTLStartInLog> CTLChildMatch::startsIn(const std::vector<CTLLogLine>& lines) {
    const std::string starting = "starting process \"";
    const std::string started = "Started process, pid = ";
    std::map<std::string, CTLStartInLog> starts;
    std::map<std::string, std::pair<std::string, std::time_t>> begun;  // by thread: child, when
    for (const CTLLogLine& line : lines) {
        if (line.logger == "ZORChildProcess") {
            const std::string name = nameIn(line.text, starting);
            if (!name.empty()) begun[line.thread] = {name, line.time};
        } else if (line.logger == "ZORSpawnAction" && line.text.compare(0, started.size(), started) == 0) {
            const auto of = begun.find(line.thread);
            if (of == begun.end()) continue;
            const auto pid = static_cast<pid_t>(std::atol(line.text.c_str() + started.size()));
            starts[of->second.first] = {pid, of->second.second, line.time};
            begun.erase(of);
        }
    }
    return starts;
}

CTLChildMatch::CTLChildMatch(const std::vector<CTLWantedChild>& children,
                             const std::vector<CTLFoundProcess>& processes)
    : m_children(children),
      m_processes(processes),
      m_results(children.size()),
      m_taken(processes.size(), false) {}

std::vector<CTLChildMatch::Result> CTLChildMatch::match(const std::vector<CTLWantedChild>& children,
                                                        const std::vector<CTLFoundProcess>& processes,
                                                        const std::map<std::string, CTLStartInLog>& starts) {
    CTLChildMatch matching(children, processes);
    matching.byLog(starts);
    matching.byCommandLine();
    matching.byEnd();
    matching.byElimination();
    matching.noteAlike();
    return matching.m_results;
}

void CTLChildMatch::pair(std::size_t child, std::size_t process, CTLMatch by) {
    m_results[child].by = by;
    m_results[child].process = process;
    m_taken[process] = true;
}

// An id alone would prove nothing: it must also have been started when the log says so.
void CTLChildMatch::byLog(const std::map<std::string, CTLStartInLog>& starts) {
    std::map<pid_t, std::size_t> places;
    for (std::size_t process = 0; process < m_processes.size(); ++process)
        places[m_processes[process].pid] = process;
    for (std::size_t child = 0; child < m_children.size(); ++child) {
        const auto start = starts.find(m_children[child].name);
        if (start == starts.end()) continue;
        const auto place = places.find(start->second.pid);
        if (place == places.end() || m_taken[place->second]) continue;
        const std::time_t began = m_processes[place->second].started;
        if (began + kToleranceSec < start->second.from || began > start->second.until + kToleranceSec)
            continue;
        pair(child, place->second, CTLMatch::Log);
    }
}

void CTLChildMatch::byCommandLine() {
    std::multimap<std::string, std::size_t> wanted;
    for (std::size_t child = 0; child < m_children.size(); ++child) {
        if (isFree(child)) wanted.emplace(joined(m_children[child].arguments), child);
    }
    for (std::size_t process = 0; process < m_processes.size(); ++process) {
        if (m_taken[process]) continue;
        const auto child = wanted.find(joined(m_processes[process].arguments));
        if (child == wanted.end()) continue;
        pair(child->second, process, CTLMatch::CommandLine);
        wanted.erase(child);
    }
}

// The child whose end of the command line this process has, the longest that there is. One that several children have
// in common tells nothing, unless they are alike in all.
std::optional<std::size_t> CTLChildMatch::bestFor(std::size_t process,
                                                  const std::multimap<std::string, std::size_t>& ends) const {
    const std::vector<std::string>& arguments = m_processes[process].arguments;
    for (std::size_t begin = firstEnd(arguments, 0); begin < arguments.size(); ++begin) {
        const auto [first, last] = ends.equal_range(joined(arguments, begin));
        std::optional<std::size_t> best;
        for (auto end = first; end != last; ++end) {
            if (!isFree(end->second)) continue;
            if (best && m_children[*best].arguments != m_children[end->second].arguments) return std::nullopt;
            if (!best) best = end->second;
        }
        if (best) return best;
    }
    return std::nullopt;
}

void CTLChildMatch::byEnd() {
    std::multimap<std::string, std::size_t> ends;
    for (std::size_t child = 0; child < m_children.size(); ++child) {
        const std::vector<std::string>& arguments = m_children[child].arguments;
        // The whole has been compared already.
        for (std::size_t begin = firstEnd(arguments, 1); isFree(child) && begin < arguments.size(); ++begin)
            ends.emplace(joined(arguments, begin), child);
    }
    for (std::size_t process = 0; process < m_processes.size() && !ends.empty(); ++process) {
        if (m_taken[process]) continue;
        if (const auto child = bestFor(process, ends)) pair(*child, process, CTLMatch::Arguments);
    }
}

void CTLChildMatch::byElimination() {
    std::vector<std::size_t> children;
    std::vector<std::size_t> processes;
    for (std::size_t child = 0; child < m_children.size(); ++child) {
        if (isFree(child)) children.push_back(child);
    }
    for (std::size_t process = 0; process < m_processes.size(); ++process) {
        if (!m_taken[process]) processes.push_back(process);
    }
    if (children.size() == 1 && processes.size() == 1) pair(children[0], processes[0], CTLMatch::Elimination);
}

// Of alike children those that were paired by their words alone.
void CTLChildMatch::noteAlike() {
    std::map<std::string, std::vector<std::size_t>> groups;
    for (std::size_t child = 0; child < m_children.size(); ++child) {
        if (m_results[child].by != CTLMatch::Log)
            groups[joined(m_children[child].arguments)].push_back(child);
    }
    for (const auto& [words, group] : groups) {
        for (const std::size_t child : group)
            m_results[child].alike = group.size();
    }
}
