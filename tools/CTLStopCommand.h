// velbootstrapctl stop [--timeout SECONDS]
//
// Purpose: see CTLControl, which does it.
// Ownership: owns its options.
// Threads: one.
// Units: seconds.
// Errors: exit codes 0 the service and its children are gone, 1 something of them is left; 130 when Ctrl-C has ended the
//   waiting.
#pragma once

#include "CTLCommand.h"

class CTLStopCommand : public CTLCommand {
  public:
    CLI::App* declare(CLI::App& program) override;
    int run(CTLContext& context) override;

  private:
    int m_timeoutSec = 300;
};
