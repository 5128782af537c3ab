// The command modes.
//
// Purpose: one table says for each mode option which section of the logging document applies and what is done; and the
//   usage text for whoever names none.
// Ownership, threads: free functions over constants.
// Units: none.
// Errors: a command line without a mode is ZORMode::None.
#pragma once

class ZORCmdLine;

enum class ZORMode { None, Foreground, Ask, Stop, Start, Daemon };

namespace ZORModes {

// What is to be done. The table's order decides between several options, not that of the command line.
ZORMode modeOf(const ZORCmdLine& cmdLine);

// The section of the logging document. Deliberate: it may name another mode than the one carried out; see
// CommandModesTest.TheLoggingModeFollowsItsOwnOrder.
const char* logSection(const ZORCmdLine& cmdLine);

// Reads that section, and adds standard output as "-stdoutLog" has it.
void configureLogging(const ZORCmdLine& cmdLine);

bool wantsHelp(const ZORCmdLine& cmdLine);
const char* usage();

}  // namespace ZORModes
