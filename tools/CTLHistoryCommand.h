// velbootstrapctl history [--since WHEN] [--child NAME] [--events] [--json | --html FILE]
//
// Purpose: restarts, failed pings and how long pings took, per child, from the log and its rotated files.
// Ownership: owns its options.
// Threads: one.
// Units: none.
// Errors: exit codes 0 shown, 1 the log has nothing of that time.
#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "CTLCommand.h"

struct CTLLogLine;
struct CTLRecord;
class ZORBootstrapService;

class CTLHistoryCommand : public CTLCommand {
  public:
    CLI::App* declare(CLI::App& program) override;
    int run(CTLContext& context) override;

  private:
    CTLRecord recordOf(ZORBootstrapService& service, const std::vector<CTLLogLine>& lines, std::time_t from,
                       std::time_t until) const;
    void show(CTLTerminal& terminal, const CTLRecord& record) const;
    static void showEvents(CTLTerminal& terminal, const CTLRecord& record);
    static void showJson(CTLTerminal& terminal, const CTLRecord& record, const std::string& folder,
                         bool isComplete);
    void writePage(CTLTerminal& terminal, const CTLRecord& record, const std::string& title,
                   bool isComplete) const;

    bool m_json = false;
    bool m_events = false;
    std::string m_html;
    std::string m_child;
    std::string m_since;
};
