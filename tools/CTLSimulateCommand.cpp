#include "CTLSimulateCommand.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <ostream>
#include <sstream>
#include <utility>

#include "CTLError.h"
#include "CTLInstance.h"
#include "CTLLogLine.h"
#include "CTLRehearsalReport.h"
#include "CTLServiceUser.h"
#include "CTLTerminal.h"
#include "TVLFileStream.h"

namespace {

constexpr const char* kWhat =
    "Shows what the service would do in a day in which this and that happens to its children.\n"
    "The service itself runs in virtual time, with the instance's documents: its log is printed as it would "
    "be "
    "written, then a summary. No process is made, no connection is opened, no file is changed.\n\n"
    "A line of SCENARIO: at TIME CHILD dies | silent | refuses | freezes | answers [\"TEXT\"] | slow by "
    "DURATION, "
    "then nothing, for DURATION or until TIME; or listens after DURATION | stops in DURATION | ignores "
    "stops; or "
    "at TIME service starts | stops.";
constexpr const char* kExitCodes =
    "Exit codes: 0 simulated, 1 the service does not start with these documents, 2 the scenario is wrong, 3 "
    "cut "
    "short, 64 wrong command line, 70 failed";

std::string nameOf(const std::string& path) {
    return path == "-" ? "standard input" : path;
}

TVLFilePtr opened(const std::string& path) {
    std::string why;
    TVLFilePtr file =
        path == "-" ? TVLFilePtr(fdopen(dup(STDIN_FILENO), "r")) : TVLFile::openDocument(path.c_str(), &why);
    if (file) return file;
    throw CTLError(CTLError::kFailed, nameOf(path) + ": " + (why.empty() ? std::strerror(errno) : why));
}

// A terminal is waited for, a file or pipe that does not end is not.
CTLScenario readScenario(const std::string& path) {
    TVLFileStream stream(opened(path));
    std::string text;
    char block[4096];
    for (int got = stream.read(block, sizeof block); got > 0; got = stream.read(block, sizeof block))
        text.append(block, static_cast<std::size_t>(got));
    if (!stream.error().empty()) throw CTLError(CTLError::kFailed, nameOf(path) + ": " + stream.error());
    std::istringstream lines(text);
    return CTLScenario::read(lines, nameOf(path));
}

std::time_t dayOf(const std::string& date) {
    if (date.empty()) return std::time(nullptr) / 86400 * 86400;
    std::tm day{};
    const char* const end = strptime(date.c_str(), "%Y-%m-%d", &day);
    if (end != nullptr && *end == '\0') return timegm(&day);
    throw CTLError(CTLError::kUsage, "--date " + date + " is no date: YYYY-MM-DD");
}

nlohmann::json linesOf(const std::string& log) {
    std::istringstream text(log);
    nlohmann::json lines = nlohmann::json::array();
    for (const CTLLogLine& line : CTLLogLine::read(text)) {
        lines.push_back({{"time", CTLRehearsalReport::machineTimeText(line.time)},
                         {"level", line.level},
                         {"thread", line.thread},
                         {"logger", line.logger},
                         {"text", line.text}});
    }
    return lines;
}

}  // namespace

CLI::App* CTLSimulateCommand::declare(CLI::App& program) {
    CLI::App* const command = program.add_subcommand("simulate", kWhat);
    command->footer(kExitCodes);
    command->add_option("scenario", m_scenario, "What happens; - is standard input")
        ->option_text("SCENARIO")
        ->required();
    command->add_option("arguments", m_arguments, "Further ones of the service's command line, after --")
        ->option_text("ARGUMENT ...");
    command->add_option("--date", m_date, "The first day, in UTC; today's if not given")
        ->option_text("YYYY-MM-DD");
    command
        ->add_option(
            "--until", m_until,
            "The end, HH:MM[:SS] of the first day, 8784:00 at most; a day after the start, an hour after the "
            "last step, or the service's own end if not given")
        ->option_text("TIME");
    command->add_option("--level", m_level, "The level of the log, in place of the logging document's")
        ->option_text("LEVEL")
        ->check(CLI::IsMember({"FATAL", "ERROR", "WARN", "INFO", "DEBUG"}));
    command->add_option("--real-time", m_realTimeSec, "Seconds after which it is cut short; 60 if not given")
        ->option_text("SECONDS")
        ->check(CLI::Range(1, 86400));
    command->add_flag("--no-log", m_withoutLog, "The summary only");
    command->add_flag("--json", m_asJson, "As JSON, see velbootstrapctl-simulate.schema.json");
    return command;
}

CTLRehearsal::Plan CTLSimulateCommand::plan() const {
    CTLRehearsal::Plan plan{.day = dayOf(m_date), .arguments = m_arguments};
    plan.realTime = std::chrono::seconds(m_realTimeSec);
    if (!m_level.empty()) plan.arguments.push_back("-stdoutLog=" + m_level);
    if (m_until.empty()) return plan;
    plan.untilMs = CTLScenario::timeOf(m_until);
    if (!plan.untilMs)
        throw CTLError(CTLError::kUsage, "--until " + m_until + " is no time: HH:MM or HH:MM:SS");
    return plan;
}

int CTLSimulateCommand::run(CTLContext& context) {
    const CTLInstance instance = CTLInstance::find(context.instance);
    const CTLRehearsal::Plan asked = plan();
    const CTLScenario scenario = readScenario(m_scenario);
    if (asked.untilMs && *asked.untilMs <= scenario.startMs())
        throw CTLError(CTLError::kUsage, "--until " + m_until + " is not after the start");
    CTLServiceUser::becomeAsRoot(instance);
    std::string log;
    CTLRehearsal rehearsal(scenario, asked, [&](std::string_view line) {
        if (m_withoutLog) return;
        if (m_asJson) {
            log += line;
        } else {
            context.terminal.out() << line;
        }
    });
    return tell(rehearsal.run(instance), log, context.terminal);
}

int CTLSimulateCommand::tell(const CTLRehearsed& rehearsed, const std::string& log,
                             CTLTerminal& terminal) const {
    const std::time_t day = dayOf(m_date);
    if (m_asJson) {
        nlohmann::json all = CTLRehearsalReport::json(rehearsed, day);
        if (!m_withoutLog) all["log"] = linesOf(log);
        terminal.out() << all.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
    } else {
        CTLRehearsalReport::print(rehearsed, day, terminal.out());
    }
    if (!rehearsed.started) return kDoesNotStart;
    return rehearsed.cutShort ? kCutShort : 0;
}
