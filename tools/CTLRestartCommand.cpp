#include "CTLRestartCommand.h"

#include <CLI/CLI.hpp>

#include "CTLControl.h"

CLI::App* CTLRestartCommand::declare(CLI::App& program) {
    CLI::App* const command = program.add_subcommand("restart", "Stops the service, and starts it again.");
    command->footer(
        "Exit codes: as those of stop, then of start; 130 Ctrl-C has ended the "
        "waiting, and nothing else; 64 usage, 70 failure, 77 another user has to give it.");
    CTLControl::declareTimeout(*command, m_timeoutSec);
    return command;
}

int CTLRestartCommand::run(CTLContext& context) {
    return CTLControl(context.terminal, CTLInstance::find(context.instance), m_timeoutSec).restart();
}
