// A life of the service in virtual time in which something goes wrong, and when what happened.
//
// Purpose: lets the service live on a machine of its own, brings trouble over its children at a chosen moment, and notes
//   what the supervisor did about it.
// Ownership: the simulation is the caller's; machine and service of a life go with it.
// Threads: the main thread; the service's own, which have ended when a life has been led.
// Units: milliseconds, counted from the trouble, or as told.
// Errors: none. What has not happened within a day has no time.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CTLSimulation.h"

class ZORCmdLine;

// What the supervisor did about a child in trouble, and when.
struct CTLCourse {
    std::optional<std::int64_t> noticed;  // the first failed ping, or found gone
    std::optional<std::int64_t> stopped;  // its stop action has been carried out
    std::optional<std::int64_t> killed;
    std::optional<std::int64_t> started;
    std::optional<std::int64_t> answered;  // or, without a ping, started
};

class CTLLife {
  public:
    enum class Trouble { Death, Refusal, Silence, Freeze };
    static constexpr std::size_t kAll = static_cast<std::size_t>(-1);
    static constexpr std::int64_t kDayMs = std::int64_t{24} * 3600 * 1000;  // no life is longer

    explicit CTLLife(CTLSimulation& simulation) : m_simulation(simulation) {}

    // Trouble for a child, or for all, that comes when this has been observed of the child (for all, of the last one
    // that is pinged), in its second round. All courses end with the last one of the children concerned.
    CTLCourse afterTrouble(Trouble trouble, std::size_t child, VirtualEvent::Kind moment);
    // A child that never listens after the start of the service, counted from the moment the supervisor first waits.
    CTLCourse neverListening(std::size_t child);
    // From a termination signal to the end of the service, with all children in that mood from the start on
    // (`atOnce`), or from the end of their first round. The signal comes in the `round`-th round after that, right
    // after it has begun; 0: while the first child is started. None: there is no such round within `beforeMs`.
    std::optional<std::int64_t> stop(VirtualChild::Mood mood, bool atOnce, int round, std::int64_t beforeMs);
    // The round in which the first child in that mood is told to stop, counted likewise; 1 when none ever is.
    int roundOfRestart(VirtualChild::Mood mood);
    // How long the command takes that starts the daemon, whose children are in that mood, or stops one that does not end.
    std::optional<std::int64_t> startCommand(VirtualChild::Mood mood,
                                             const std::vector<std::string>& options = {});
    std::optional<std::int64_t> stopCommand(const std::vector<std::string>& options = {});

  private:
    struct Watch;

    void begin(Watch& watch, ZORBootstrapService& service);
    void conclude(Watch& watch);
    void live(Watch& watch);
    void bring(Trouble trouble, std::size_t child);
    std::optional<std::int64_t> command(Watch& watch, const std::vector<std::string>& options,
                                        const std::function<void(ZORBootstrapService&, ZORCmdLine&)>& given);

    CTLSimulation& m_simulation;
};
