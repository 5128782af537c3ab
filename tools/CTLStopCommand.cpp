#include "CTLStopCommand.h"

#include <CLI/CLI.hpp>

#include "CTLControl.h"

CLI::App* CTLStopCommand::declare(CLI::App& program) {
    CLI::App* const command =
        program.add_subcommand("stop", "Stops the service and waits until it and its children are gone.");
    command->footer(
        "Exit codes: 0 the service and its children are gone, 1 something of them is left; 130 Ctrl-C has "
        "ended the "
        "waiting, and nothing else; 64 usage, 70 failure, 77 another user has to give it.");
    CTLControl::declareTimeout(*command, m_timeoutSec);
    return command;
}

int CTLStopCommand::run(CTLContext& context) {
    return CTLControl(context.terminal, CTLInstance::find(context.instance), m_timeoutSec).stop();
}
