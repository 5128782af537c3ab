#include "CTLStatusCommand.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>

#include "CTLDoorway.h"
#include "CTLError.h"
#include "CTLExchangeNotes.h"
#include "CTLInstance.h"
#include "CTLLogFiles.h"
#include "CTLMetrics.h"
#include "CTLPreparation.h"
#include "CTLServiceUser.h"
#include "CTLStatus.h"
#include "CTLStatusReport.h"
#include "CTLTerminal.h"
#include "CTLWatch.h"

namespace {

constexpr const char* kWhat = "Is the service there, is it really it, and how are its children?";
constexpr const char* kExitCodes =
    "Exit codes: 0 it runs and every child is there; 1 it does not run, though there is a PID file (stale, "
    "used again, of "
    "another user); 3 it does not run; 4 it cannot be told; 150 it runs and a child is missing; 151 a child "
    "fails the "
    "exchange of --ping; 64 usage, 70 failure. With --nagios: 0 OK, 1 WARNING, 2 CRITICAL, 3 UNKNOWN. With "
    "--prometheus: "
    "0 the file was written, 77 another user has to ask.";
constexpr int kLongestIntervalSec = 86400;

}  // namespace

struct CTLStatusCommand::Surroundings {
    explicit Surroundings(const CTLInstance& theInstance)
        : instance(theInstance),
          daemon(CTLDaemon::of(instance, processes)),
          preparation(instance, daemon.arguments()),
          log(instance) {}

    CTLInstance instance;
    CTLProcesses processes;
    CTLDoorway doorway;
    CTLDaemon daemon;
    CTLPreparation preparation;
    CTLExchangeNotes notes;
    CTLLogFiles log;
};

CTLStatusCommand::CTLStatusCommand() = default;
CTLStatusCommand::~CTLStatusCommand() = default;

CLI::App* CTLStatusCommand::declare(CLI::App& program) {
    CLI::App* const command = program.add_subcommand("status", kWhat);
    command->footer(kExitCodes);
    CLI::Option* const json = command->add_flag("--json", m_json, "Print JSON");
    CLI::Option* const nagios = command->add_flag("--nagios", m_nagios, "Print one line for a monitor");
    CLI::Option* const metrics = command->add_option("--prometheus", m_metricsFile,
                                                     "Write metrics into FILE, \"-\" for standard output");
    metrics->option_text("FILE");
    json->excludes(nagios)->excludes(metrics);
    nagios->excludes(metrics);
    command->add_flag("--ping", m_ping,
                      "One exchange with each child that has a ping; without it no connection is made");
    CLI::Option* const watch = command->add_flag("--watch", m_watch, "Look again and again, until Ctrl-C");
    command->add_option("--interval", m_intervalSec, "Seconds between two looks of --watch, 2 unless given")
        ->option_text("SECONDS")
        ->check(CLI::Range(1, kLongestIntervalSec))
        ->needs(watch);
    return command;
}

int CTLStatusCommand::run(CTLContext& context) {
    const CTLInstance instance = CTLInstance::find(context.instance);
    if (!m_metricsFile.empty() && m_metricsFile != "-")
        m_metricsFile = std::filesystem::absolute(m_metricsFile);
    CTLServiceUser::becomeAsRoot(instance);
    Surroundings surroundings(instance);
    if (m_watch) return watch(context.terminal, surroundings);
    return show(context.terminal, look(surroundings));
}

CTLStatus CTLStatusCommand::look(Surroundings& surroundings) const {
    return CTLStatus::of(surroundings.instance, surroundings.processes, surroundings.daemon,
                         surroundings.preparation, surroundings.log,
                         {m_ping, m_json || !m_metricsFile.empty()});
}

int CTLStatusCommand::show(CTLTerminal& terminal, const CTLStatus& status) const {
    if (!m_metricsFile.empty()) return writeMetrics(terminal, status);
    if (m_nagios) {
        CTLStatusReport::printForMonitor(terminal, status);
        return static_cast<int>(CTLStatusReport::healthOf(status));
    }
    if (m_json) {
        terminal.out() << CTLStatusReport::asJson(status).dump(m_watch ? -1 : 2) << '\n';
    } else {
        CTLStatusReport::print(terminal, status);
    }
    return status.exitCode();
}

// What cannot be told must not look like a service that is down: then the old file stays, and grows old.
int CTLStatusCommand::writeMetrics(CTLTerminal& terminal, const CTLStatus& status) const {
    if (!status.daemon.userToBe().empty()) {
        throw CTLError(CTLError::kWrongUser,
                       status.daemon.reason() + ": give this command as " + status.daemon.userToBe());
    }
    if (m_metricsFile == "-") {
        terminal.out() << CTLMetrics::text(status);
    } else {
        CTLMetrics::write(m_metricsFile, CTLMetrics::text(status));
    }
    return 0;
}

int CTLStatusCommand::watch(CTLTerminal& terminal, Surroundings& surroundings) const {
    CTLWatch watch;
    int exitCode = CTLStatus::kUnknown;
    do {
        std::optional<CTLStatus> status;
        surroundings.daemon = CTLDaemon::of(surroundings.instance, surroundings.processes);
        if (!watch.round([&] { status = look(surroundings); })) CTLWatch::leave(terminal, exitCode);
        if (!m_json && !m_nagios && m_metricsFile.empty()) CTLWatch::beginPicture(terminal);
        exitCode = show(terminal, *status);
        if (terminal.failed()) return exitCode;
    } while (watch.wait(m_intervalSec));
    return exitCode;
}
