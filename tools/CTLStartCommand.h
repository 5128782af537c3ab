// velbootstrapctl start [--timeout SECONDS]
//
// Purpose: see CTLControl, which does it.
// Ownership: owns its options.
// Threads: one.
// Units: seconds.
// Errors: exit codes 0 every child of the document answers, 1 the service or a child does not; 130 when Ctrl-C has ended the
//   waiting.
#pragma once

#include "CTLCommand.h"

class CTLStartCommand : public CTLCommand {
  public:
    CLI::App* declare(CLI::App& program) override;
    int run(CTLContext& context) override;

  private:
    int m_timeoutSec = 300;
};
