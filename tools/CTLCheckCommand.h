// velbootstrapctl check
//
// Purpose: checks an instance, or documents, and prints what was found, for people or as JSON; then the time budget of the
//   children, to a person at a terminal, to whoever asks for it, and in JSON.
// Ownership: owns what its options say.
// Threads: one.
// Units: exit codes: 0 nothing found, 1 warnings only, 2 errors.
// Errors: CTLError.
#pragma once

#include <string>
#include <vector>

#include "CTLCommand.h"

class CTLCheck;
class CTLFindings;

class CTLCheckCommand : public CTLCommand {
  public:
    static constexpr int kWarnings = 1;
    static constexpr int kErrors = 2;

    CLI::App* declare(CLI::App& program) override;
    int run(CTLContext& context) override;

  private:
    void checkInstance(const std::string& named, CTLCheck& check);
    void checkFiles(const std::string& named, CTLCheck& check);
    static void print(CTLTerminal& terminal, const CTLFindings& findings);
    static void printBudget(CTLTerminal& terminal, CTLCheck& check);
    static void printJson(CTLTerminal& terminal, CTLCheck& check, int exitCode);

    std::vector<std::string> m_files;
    std::string m_schemas;
    bool m_isJson = false;
    bool m_hasBudget = false;
};
