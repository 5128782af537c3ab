// velbootstrapctl simulate: what the service would do in a day in which this and that happens.
//
// Purpose: reads a scenario, runs it, and prints the log that the service would write, and a summary.
// Ownership: its options.
// Threads: the main thread.
// Units: exit codes: 0 it was simulated, 1 the service does not start with these documents, 2 the scenario is wrong, 3 it
//   was cut short.
// Errors: as CTLCommand.
#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "CTLCommand.h"
#include "CTLRehearsal.h"

class CTLSimulateCommand : public CTLCommand {
  public:
    static constexpr int kDoesNotStart = 1;
    static constexpr int kCutShort = 3;

    CLI::App* declare(CLI::App& program) override;
    int run(CTLContext& context) override;

  private:
    CTLRehearsal::Plan plan() const;
    int tell(const CTLRehearsed& rehearsed, const std::string& log, CTLTerminal& terminal) const;

    std::string m_scenario;
    std::string m_date;
    std::string m_until;
    std::string m_level;
    std::vector<std::string> m_arguments;
    int m_realTimeSec = 60;
    bool m_withoutLog = false;
    bool m_asJson = false;
};
