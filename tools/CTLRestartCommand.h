// velbootstrapctl restart [--timeout SECONDS]
//
// Purpose: see CTLControl, which does it.
// Ownership: owns its options.
// Threads: one.
// Units: seconds.
// Errors: exit codes as those of stop, then of start; 130 when Ctrl-C has ended the
//   waiting.
#pragma once

#include "CTLCommand.h"

class CTLRestartCommand : public CTLCommand {
  public:
    CLI::App* declare(CLI::App& program) override;
    int run(CTLContext& context) override;

  private:
    int m_timeoutSec = 300;
};
