#include "CTLStartCommand.h"

#include <CLI/CLI.hpp>

#include "CTLControl.h"

CLI::App* CTLStartCommand::declare(CLI::App& program) {
    CLI::App* const command = program.add_subcommand(
        "start", "Starts the service and waits until every child of its document answers.");
    command->footer(
        "Exit codes: 0 every child of the document answers, 1 the service or a child does not; 130 Ctrl-C "
        "has ended the "
        "waiting, and nothing else; 64 usage, 70 failure, 77 another user has to give it.");
    CTLControl::declareTimeout(*command, m_timeoutSec);
    return command;
}

int CTLStartCommand::run(CTLContext& context) {
    return CTLControl(context.terminal, CTLInstance::find(context.instance), m_timeoutSec).start();
}
