// velbootstrapctl status [--json | --prometheus FILE | --nagios] [--watch] [--ping]
//
// Purpose: how an instance is: its daemon, proved to be it, and each child.
// Ownership: owns its options.
// Threads: one; CTLStatus may use more.
// Units: seconds between two looks.
// Errors: the exit codes of an init script's "status": 0 it runs with every child, 1 it does not run though there is a
//   PID file, 3 it does not run, 4 it cannot be told; and 150 a child is missing, 151 a child fails the exchange of --ping.
//   With --nagios 0, 1, 2 and 3 for OK, WARNING, CRITICAL and UNKNOWN. With --prometheus 0 when the file was written, 77
//   when another user has to ask.
#pragma once

#include <memory>
#include <string>

#include "CTLCommand.h"

class CTLInstance;
struct CTLStatus;

class CTLStatusCommand : public CTLCommand {
  public:
    CTLStatusCommand();
    ~CTLStatusCommand() override;
    CLI::App* declare(CLI::App& program) override;
    int run(CTLContext& context) override;

  private:
    // What is made once and serves every look.
    struct Surroundings;

    CTLStatus look(Surroundings& surroundings) const;
    int show(CTLTerminal& terminal, const CTLStatus& status) const;
    int writeMetrics(CTLTerminal& terminal, const CTLStatus& status) const;
    int watch(CTLTerminal& terminal, Surroundings& surroundings) const;

    bool m_json = false;
    bool m_nagios = false;
    bool m_ping = false;
    bool m_watch = false;
    int m_intervalSec = 2;
    std::string m_metricsFile;
};
