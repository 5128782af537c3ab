#include "CTLCheckCommand.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>

#include "CTLBudget.h"
#include "CTLCheck.h"
#include "CTLError.h"
#include "CTLInstance.h"
#include "CTLServiceUser.h"
#include "CTLTerminal.h"
#include "TVLIDOM_Document.h"

using Severity = CTLFinding::Severity;

namespace {

constexpr const char* kHelp =
    "Check an instance: its documents, folders, certificates and ports\n"
    "Each mistake is told as FILE:LINE:COLUMN. As root the check is made with the rights of the user who "
    "runs the "
    "service. Of a FILE only that document is checked, against its schema and, if it is a bootstrap "
    "document, by the "
    "service's own preparation in the instance.\n"
    "Exit codes: 0 nothing found, 1 warnings, 2 errors; 64 wrong command line or no instance, 70 the check "
    "could not be "
    "made, 77 another user has to give the command.";

constexpr int kWhatColumns = 26;
constexpr int kTimeColumns = 9;

std::string placeOf(const CTLFinding& finding) {
    std::string place = finding.file;
    if (finding.place.line != 0) place += ":" + std::to_string(finding.place.line);
    if (finding.place.column != 0) place += ":" + std::to_string(finding.place.column);
    return place;
}

std::string severityOf(const CTLFinding& finding) {
    return finding.severity == Severity::Error ? "error" : "warning";
}

std::string counted(std::size_t number, const char* what) {
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

nlohmann::ordered_json asJson(const CTLFinding& finding) {
    nlohmann::ordered_json json{
        {"severity", severityOf(finding)}, {"rule", finding.rule}, {"file", finding.file}};
    if (finding.place.line != 0) json["line"] = finding.place.line;
    if (finding.place.column != 0) json["column"] = finding.place.column;
    if (!finding.child.empty()) json["child"] = finding.child;
    json["text"] = finding.text;
    return json;
}

nlohmann::ordered_json asJson(const CTLBudgetRow& row) {
    nlohmann::ordered_json json;
    if (!row.child.empty()) json["child"] = row.child;
    json["what"] = row.what;
    json["seconds"] = nullptr;
    if (row.ms) json["seconds"] = static_cast<double>(*row.ms) / 1000;
    if (!row.why.empty()) json["why"] = row.why;
    return json;
}

// One decimal place; a budget is no stop-watch.
std::string secondsOf(const CTLBudgetRow& row) {
    if (!row.ms) return "never";
    const std::int64_t tenths = (*row.ms + 50) / 100;
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10);
}

std::vector<CTLBudgetRow> budgetOf(CTLCheck& check) {
    CTLPreparation* const preparation = check.preparation();
    return preparation == nullptr ? std::vector<CTLBudgetRow>() : CTLBudget::of(*preparation);
}

int exitCodeFor(const CTLFindings& findings) {
    if (findings.errors() != 0) return CTLCheckCommand::kErrors;
    return findings.warnings() != 0 ? CTLCheckCommand::kWarnings : 0;
}

}  // namespace

CLI::App* CTLCheckCommand::declare(CLI::App& program) {
    CLI::App* const command = program.add_subcommand("check", kHelp);
    command->add_option("FILE", m_files, "Documents to check in place of the instance's");
    command->add_option("--schemas", m_schemas, "Where the schemas are, in place of the installation's")
        ->option_text("FOLDER");
    command->add_flag("--json", m_isJson, "Print JSON, as velbootstrapctl-check.schema.json describes it");
    command->add_flag(
        "--budget", m_hasBudget,
        "Print how long the service takes to notice trouble and to mend it, also where no terminal is");
    return command;
}

int CTLCheckCommand::run(CTLContext& context) {
    TVLIDOM_DOMImplementation::initialize();
    CTLCheck check(CTLSchemas::folder(m_schemas));
    if (m_files.empty()) {
        checkInstance(context.instance, check);
    } else {
        checkFiles(context.instance, check);
    }
    const int exitCode = exitCodeFor(check.findings());
    if (m_isJson) {
        printJson(context.terminal, check, exitCode);
    } else {
        print(context.terminal, check.findings());
        if (m_hasBudget || isatty(STDOUT_FILENO) == 1) printBudget(context.terminal, check);
    }
    return exitCode;
}

void CTLCheckCommand::checkInstance(const std::string& named, CTLCheck& check) {
    const CTLInstance instance = CTLInstance::find(named);
    check.loadSchemas();
    CTLServiceUser::become(instance);
    check.checkInstance(instance);
}

// Without an instance there is no more to a document than its schema.
void CTLCheckCommand::checkFiles(const std::string& named, CTLCheck& check) {
    std::optional<CTLInstance> instance;
    try {
        instance = CTLInstance::find(named);
    } catch (const CTLError&) {
        if (!named.empty()) throw;
    }
    check.checkFiles(m_files);
    if (!instance) return;
    CTLServiceUser::become(*instance);
    check.prepareIn(*instance);
}

void CTLCheckCommand::print(CTLTerminal& terminal, const CTLFindings& findings) {
    for (const CTLFinding& finding : findings.sorted()) {
        const bool isError = finding.severity == Severity::Error;
        terminal.out() << placeOf(finding) << ": "
                       << terminal.painted(isError ? CTLColour::Bad : CTLColour::Warning, severityOf(finding))
                       << ": " << finding.text;
        if (!finding.child.empty()) terminal.out() << " [child " << finding.child << "]";
        terminal.out() << '\n';
    }
    if (findings.errors() + findings.warnings() == 0) {
        terminal.out() << terminal.painted(CTLColour::Good, "nothing found") << '\n';
        return;
    }
    terminal.out() << counted(findings.errors(), "error") << ", " << counted(findings.warnings(), "warning")
                   << '\n';
}

void CTLCheckCommand::printBudget(CTLTerminal& terminal, CTLCheck& check) {
    std::string child = "-";  // of the row before; no name at first
    for (const CTLBudgetRow& row : budgetOf(check)) {
        if (row.child != child) {
            const std::string head = row.child.empty() ? "the whole service" : "child " + row.child;
            terminal.out() << '\n' << terminal.painted(CTLColour::Bold, head + ", in seconds") << '\n';
            child = row.child;
        }
        terminal.out() << "  " << std::left << std::setw(kWhatColumns) << row.what << std::right
                       << std::setw(kTimeColumns) << secondsOf(row);
        if (!row.why.empty()) terminal.out() << "  " << terminal.painted(CTLColour::Faint, row.why);
        terminal.out() << '\n';
    }
}

void CTLCheckCommand::printJson(CTLTerminal& terminal, CTLCheck& check, int exitCode) {
    nlohmann::ordered_json json{{"exitCode", exitCode},
                                {"errors", check.findings().errors()},
                                {"warnings", check.findings().warnings()},
                                {"children", check.children()},
                                {"findings", nlohmann::ordered_json::array()},
                                {"budget", nlohmann::ordered_json::array()}};
    for (const CTLFinding& finding : check.findings().sorted())
        json["findings"].push_back(asJson(finding));
    for (const CTLBudgetRow& row : budgetOf(check))
        json["budget"].push_back(asJson(row));
    // What is no UTF-8 in a document must not end the output.
    terminal.out() << json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}
