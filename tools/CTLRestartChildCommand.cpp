#include "CTLRestartChildCommand.h"

#include <CLI/CLI.hpp>

#include "CTLControl.h"

namespace {

constexpr int kLongestGraceSec = 3600;

}  // namespace

CLI::App* CTLRestartChildCommand::declare(CLI::App& program) {
    CLI::App* const command = program.add_subcommand(
        "restart-child",
        "Ends the process of one child; the service starts it again, and this waits until it answers.");
    command->footer(
        "Exit codes: 0 another process runs and answers, 1 it does not, or which process is the child's "
        "cannot be "
        "told; 130 Ctrl-C has ended the waiting, and nothing else; 64 usage, 70 failure, 77 another user has "
        "to give it.");
    command->add_option("child", m_child, "Its name in the bootstrap document")
        ->option_text("NAME")
        ->required();
    command->add_option("--grace", m_graceSec, "Seconds from SIGTERM to SIGKILL, 10 unless given")
        ->option_text("SECONDS")
        ->check(CLI::Range(0, kLongestGraceSec));
    CTLControl::declareTimeout(*command, m_timeoutSec);
    return command;
}

int CTLRestartChildCommand::run(CTLContext& context) {
    CTLControl control(context.terminal, CTLInstance::find(context.instance), m_timeoutSec);
    return control.restartChild(m_child, m_graceSec);
}
