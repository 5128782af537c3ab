// velbootstrapctl log [-f] [-n LINES] [--child NAME] [--level LEVEL] [--since WHEN] [--json]
//
// Purpose: the log of an instance with its rotated files, for people in local time with the child that a line is about,
//   for machines as one JSON object a line; with -f also what is written from now on.
// Ownership: owns its options, and while it runs what it has learnt of the children.
// Threads: one.
// Units: none.
// Errors: exit codes 0 shown, 1 no line is like that; with -f 0 when its reader has gone, and Ctrl-C ends it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "CTLCommand.h"
#include "CTLHistory.h"
#include "CTLLogLine.h"

class CTLLogFiles;

class CTLLogCommand : public CTLCommand {
  public:
    CLI::App* declare(CLI::App& program) override;
    int run(CTLContext& context) override;

    // For people: local time, and the child that it is about, if it is about one.
    static void showLine(CTLTerminal& terminal, const CTLLogLine& line, const std::string& child);

  private:
    struct Shown {
        CTLLogLine line;
        std::string child;
    };

    bool isWanted(const CTLLogLine& line, const std::string& child) const;
    std::vector<Shown> wanted(CTLHistory& history, const std::vector<CTLLogLine>& lines) const;
    void show(CTLTerminal& terminal, const std::vector<Shown>& lines) const;
    static void showJson(CTLTerminal& terminal, const Shown& shown);
    std::time_t since() const;
    void follow(CTLTerminal& terminal, CTLHistory& history, const CTLLogFiles& files,
                std::int64_t from) const;

    bool m_follow = false;
    bool m_json = false;
    std::size_t m_most = 0;  // 0: all
    std::string m_child;
    std::string m_level;
    std::string m_since;
};
