#include "ZORModes.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string>

#include "TVLConfigurationFactory.h"
#include "ZORCmdLine.h"
#include "ZORLogger.h"

namespace {

struct Row {
    const char* option;
    const char* logSection;
    ZORMode mode;
};

// The first row whose option is given decides what is done. Deliberate: the last two select a log section and do
// nothing else, and one word has no dash, since it is what the starter passes to the daemon; see
// CommandModesTest.OptionsThatStartNothingEndInTheUsageText.
constexpr std::array kRows{
    Row{"-d", "run", ZORMode::Foreground},      Row{"-isRunning", "isrunning", ZORMode::Ask},
    Row{"-stop", "stop", ZORMode::Stop},        Row{"-start", "start", ZORMode::Start},
    Row{"runAsDaemon", "run", ZORMode::Daemon}, Row{"-run", "run", ZORMode::None},
    Row{"-win95", "run", ZORMode::None}};

// The first section that any option given names.
constexpr std::array kSectionOrder{"start", "stop", "isrunning", "run"};

// Deliberate: "actvities"; see CommandModesTest.EverySpellingOfHelpShowsTheUsage.
constexpr const char* kUsage =
    "\nvelbootstrapservice - manage the Velmora Bootstrap Service daemon.\n"
    "\t-java_home is required unless the environment variable JAVA_HOME variable is defined.\n\n"
    "Usage:\n\n"
    "\tvelbootstrapservice -start [-testReadyTries=20] [-testReadyInterval=6] -install_root=... "
    "[-java_home=...]\n"
    "\t\tspawn a zor child process. Waits until the child process is ready,\n"
    "\t\tpolling it at intervals until it reports it is ready.  The number of\n"
    "\t\tpolls and the interval (seconds) can be specified by -testReadyTries\n"
    "\t\tand -testReadyInterval (defaults are as shown).\n"
    "\n"
    "\tvelbootstrapservice -stop [-testDeadTries=20] [-testDeadInterval=6] -install_root=... "
    "[-java_home=...]\n"
    "\t\tStop the zor child process. Waits until the child process is dead,\n"
    "\t\tchecking at intervals.  The number of checks and the interval (seconds)\n"
    "\t\tcan be specified by -testDeadTries and -testDeadInterval (defaults are as shown).\n"
    "\n"
    "\tvelbootstrapservice -isrunning -install_root=... [-java_home=...]\n"
    "\t\tTest if the zor child process is running. Exit code of 0 indicates\n"
    "\t\tthat the process is running.\n\n"
    "\tThe option -stdoutLog=DEBUG|INFO|WARN|ERROR|FATAL is optional for all\n"
    "\tflavours of the command line.  It causes log messages that describe the\n"
    "\tactvities of ZOR to be written to stdout.\n\n";

bool has(const ZORCmdLine& cmdLine, const char* option) {
    return cmdLine.find(option, 0) >= 0;
}

std::string loggingDocument(const ZORCmdLine& cmdLine) {
    std::string path;
    if (cmdLine.getValue("-logconfig", path, 0) != 0) return path;
    path = "./zorlogconfig.xml";
    TVLConfigurationFactory::getInstance()->getFullPath(path);
    return path;
}

bool namesSection(const ZORCmdLine& cmdLine, const char* section) {
    return std::any_of(kRows.begin(), kRows.end(), [&](const Row& row) {
        return std::strcmp(row.logSection, section) == 0 && has(cmdLine, row.option);
    });
}

}  // namespace

namespace ZORModes {

ZORMode modeOf(const ZORCmdLine& cmdLine) {
    const auto* const row = std::find_if(kRows.begin(), kRows.end(), [&](const Row& candidate) {
        return candidate.mode != ZORMode::None && has(cmdLine, candidate.option);
    });
    return row == kRows.end() ? ZORMode::None : row->mode;
}

const char* logSection(const ZORCmdLine& cmdLine) {
    for (const char* const section : kSectionOrder) {
        if (namesSection(cmdLine, section)) return section;
    }
    return "default";
}

void configureLogging(const ZORCmdLine& cmdLine) {
    ZORLoggerFactory* const factory = ZORLoggerFactory::getInstance();
    factory->prepare(loggingDocument(cmdLine).c_str(), logSection(cmdLine));
    std::string level;
    if (cmdLine.getValue("-stdoutLog", level, 0) == 0) return;
    factory->addFile(stdout, 0);
    factory->setLevel(level.c_str());
}

bool wantsHelp(const ZORCmdLine& cmdLine) {
    return cmdLine.getArgCount() == 0 || has(cmdLine, "-h") || has(cmdLine, "-help") || has(cmdLine, "-?");
}

const char* usage() {
    return kUsage;
}

}  // namespace ZORModes
