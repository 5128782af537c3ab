// velbootstrapctl explain MESSAGE...
//
// Purpose: what a message of the log means and what to do about it, in the words of the guide.
// Ownership: owns its options.
// Threads: one.
// Units: none.
// Errors: exit codes 0 explained, 1 there is no such message; those that are most alike are shown then.
#pragma once

#include <string>
#include <vector>

#include "CTLCommand.h"
#include "CTLMessages.h"

class CTLExplainCommand : public CTLCommand {
  public:
    CLI::App* declare(CLI::App& program) override;
    int run(CTLContext& context) override;

  private:
    static void show(CTLTerminal& terminal, const CTLMessage& message);
    static void show(CTLTerminal& terminal, const CTLReason& reason, const std::string& text);
    static void showNearest(CTLTerminal& terminal, const CTLMessages& messages, const std::string& text);

    std::vector<std::string> m_words;
};
