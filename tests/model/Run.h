// What a run of the service was like: what the table says, or what the real one did.
//
// Purpose: each thread's deeds with the time of each, and what was left at the end. Two threads that are awake at the
//   same time may be in either order, so their deeds are kept apart.
// Ownership: plain values.
// Threads: any, once made.
// Units: milliseconds of virtual time.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

struct Deed {
    std::int64_t atMs = 0;
    std::string what;

    friend bool operator==(const Deed&, const Deed&) = default;
};

enum class Agent { Main, Signals, Supervisor };
constexpr std::array<Agent, 3> kAgents{Agent::Main, Agent::Signals, Agent::Supervisor};

struct Run {
    std::array<std::vector<Deed>, 3> deeds{};
    std::vector<int> alive{};  // processes at the end
    int exitCode = 0;
    bool pidFileLeft = false;
    int handlesLeft = 0;
    int detailsLeft = 0;

    std::vector<Deed>& of(Agent agent) { return deeds[static_cast<std::size_t>(agent)]; }
    const std::vector<Deed>& of(Agent agent) const { return deeds[static_cast<std::size_t>(agent)]; }
};
