// What is outside the service in a scenario: processes, peers, the file with another limit.
//
// Purpose: answers what the service would find at a time, and notes what it does. The table and the real service
//   get a world each, made of the same scenario: the same calls at the same times find the same.
// Ownership: refers to its scenario.
// Threads: one at a time.
// Units: milliseconds of virtual time; times of one world never go back.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Scenario.h"

class World {
  public:
    explicit World(const Scenario& scenario);

    // The new process of the program at `path`, or -1 with `error` set.
    int fork(std::int64_t nowMs, const std::string& path, int& error);
    // 0, or -1 with `error` set. Process 0 is everybody in the group, the service among them.
    int kill(std::int64_t nowMs, int pid, int signal, int& error);
    std::vector<int> alive(std::int64_t nowMs) const;

    // What the calls of one exchange bring, from asking for a handle to closing it; one exchange at a time. How a peer
    // behaves is settled when the first connection to it is tried.
    Reply handle(std::int64_t nowMs);
    Reply connect(std::int64_t nowMs, const std::string& uri);
    Reply establish();
    Reply send() const { return exchange().send; }
    void sent(std::int64_t nowMs);  // the command has arrived
    Reply poll(std::int64_t limitMs) const;
    Reply receive() const { return exchange().receive; }
    const Exchange& exchange() const;  // throws std::logic_error when no connection has been tried
    const std::string& uri() const { return m_uri; }

    // The last file by that time, none before the first.
    const LimitFile* limitFile(std::int64_t nowMs) const;
    // When the service itself got which signal by its own hand, the first one.
    const std::pair<std::int64_t, int>& ownSignal() const { return m_ownSignal; }

    static bool endsService(int signal) { return signal == 1 || signal == 2 || signal == 3 || signal == 15; }

  private:
    struct Process {
        std::int64_t endsAtMs = kNever;
        Life life{};
    };

    const Exchange& behaviour(std::int64_t nowMs, const std::string& uri) const;
    void stopNewest(std::int64_t nowMs, const std::string& child);
    Process started(std::int64_t nowMs, const ChildText& child);
    static void tell(Process& process, std::int64_t nowMs, int signal);

    const Scenario& m_scenario;
    std::map<int, Process> m_processes;
    int m_lastPid = 2000;
    std::map<std::string, int> m_newest;          // process of a child
    std::map<std::string, std::size_t> m_starts;  // of a child
    std::pair<std::int64_t, int> m_ownSignal{kNever, 0};

    const Exchange* m_exchange = nullptr;  // null until a connection has been tried
    std::string m_uri;
    std::size_t m_connects = 0;
    std::size_t m_establishes = 0;
};
