// velbootstrapctl restart-child NAME [--grace SECONDS] [--timeout SECONDS]
//
// Purpose: ends the process of one child, which the supervisor then starts again; see CTLControl.
// Ownership: owns its options.
// Threads: one.
// Units: seconds.
// Errors: exit codes 0 another process runs and answers, 1 it does not, or which process it is cannot be told; 130 when
//   Ctrl-C has ended the waiting.
#pragma once

#include <string>

#include "CTLCommand.h"

class CTLRestartChildCommand : public CTLCommand {
  public:
    CLI::App* declare(CLI::App& program) override;
    int run(CTLContext& context) override;

  private:
    std::string m_child;
    int m_graceSec = 10;
    int m_timeoutSec = 300;
};
