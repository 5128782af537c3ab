#include "CTLProgram.h"

#include <CLI/CLI.hpp>
#include <exception>
#include <ostream>

#include "CTLCheckCommand.h"
#include "CTLError.h"
#include "CTLExplainCommand.h"
#include "CTLHistoryCommand.h"
#include "CTLLogCommand.h"
#include "CTLPingCommand.h"
#include "CTLRestartChildCommand.h"
#include "CTLRestartCommand.h"
#include "CTLSimulateCommand.h"
#include "CTLStartCommand.h"
#include "CTLStatusCommand.h"
#include "CTLStopCommand.h"
#include "CTLTerminal.h"

namespace {

constexpr const char* kWhat =
    "Checks, asks and controls instances of the bootstrap service.\n"
    "An instance is the first of: --instance FOLDER, $VELBOOTSTRAP_INSTANCE, the working folder or the one "
    "above it, the package's.";

std::vector<std::unique_ptr<CTLCommand>> allCommands() {
    std::vector<std::unique_ptr<CTLCommand>> commands;
    commands.push_back(std::make_unique<CTLCheckCommand>());
    commands.push_back(std::make_unique<CTLExplainCommand>());
    commands.push_back(std::make_unique<CTLHistoryCommand>());
    commands.push_back(std::make_unique<CTLLogCommand>());
    commands.push_back(std::make_unique<CTLPingCommand>());
    commands.push_back(std::make_unique<CTLRestartChildCommand>());
    commands.push_back(std::make_unique<CTLRestartCommand>());
    commands.push_back(std::make_unique<CTLSimulateCommand>());
    commands.push_back(std::make_unique<CTLStartCommand>());
    commands.push_back(std::make_unique<CTLStatusCommand>());
    commands.push_back(std::make_unique<CTLStopCommand>());
    return commands;
}

}  // namespace

CTLProgram::CTLProgram(CTLTerminal& terminal) : m_terminal(terminal), m_commands(allCommands()) {}

int CTLProgram::run(int argc, const char* const* argv) {
    try {
        const int exitCode = carryOut(argc, argv);
        if (!m_terminal.failed()) return exitCode;
        m_terminal.err() << "velbootstrapctl: standard output takes no data\n";
    } catch (const CTLError& error) {
        m_terminal.err() << "velbootstrapctl: " << error.what() << '\n';
        return error.exitCode();
    } catch (const std::exception& exception) {
        m_terminal.err() << "velbootstrapctl: " << exception.what() << '\n';
    }
    return CTLError::kFailed;
}

int CTLProgram::carryOut(int argc, const char* const* argv) {
    CLI::App program(kWhat, "velbootstrapctl");
    CTLContext context{{}, m_terminal};
    program.add_option("--instance", context.instance, "The instance's folder, the one above bin/")
        ->option_text("FOLDER");
    program.set_version_flag("--version", "velbootstrapctl " VBS_VERSION, "Print the version and exit");
    program.require_subcommand(0, 1);
    program.fallthrough();
    std::vector<CLI::App*> declared;
    declared.reserve(m_commands.size());
    for (const auto& command : m_commands)
        declared.push_back(command->declare(program));
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const bool asked = error.get_exit_code() == 0;
        program.exit(error, m_terminal.out(), m_terminal.err());
        return asked ? 0 : CTLError::kUsage;
    }
    for (std::size_t index = 0; index < declared.size(); ++index) {
        if (declared[index]->parsed()) return m_commands[index]->run(context);
    }
    throw CTLError(CTLError::kUsage, "which command? --help lists them");
}
