#include "CTLExplainCommand.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <ostream>

#include "CTLTerminal.h"
#include "CTLText.h"

namespace {

constexpr std::size_t kNearest = 3;
constexpr std::size_t kIndent = 4;

// In lines that fit the terminal, below a heading.
void showParagraph(CTLTerminal& terminal, const std::string& text) {
    const auto width = static_cast<std::size_t>(CTLTerminal::columns());
    std::size_t column = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find(' ', at), text.size());
        const bool isFirst = column == 0;
        if (isFirst || column + 1 + end - at > width) {
            terminal.out() << (isFirst ? "" : "\n") << std::string(kIndent, ' ');
            column = kIndent;
        } else {
            terminal.out() << ' ';
            ++column;
        }
        terminal.out() << text.substr(at, end - at);
        column += end - at;
        at = end + 1;
    }
    if (column > 0) terminal.out() << '\n';
}

std::string joined(const std::vector<std::string>& words, const char* between) {
    std::string all;
    for (const std::string& word : words)
        all += (all.empty() ? "" : between) + word;
    return all;
}

}  // namespace

CLI::App* CTLExplainCommand::declare(CLI::App& program) {
    CLI::App* const command = program.add_subcommand(
        "explain",
        "Explains a message of the log: what it means, and what to do. A whole line of the log will do.\n"
        "Exit codes: 0 explained, 1 there is no such message, 64 wrong command line.");
    command->add_option("message", m_words, "The message, with or without values in it")
        ->option_text("MESSAGE")
        ->required();
    return command;
}

int CTLExplainCommand::run(CTLContext& context) {
    const CTLMessages messages;
    const std::string text = joined(m_words, " ");
    const std::vector<const CTLMessage*> found = messages.find(text);
    const std::vector<const CTLReason*> reasons = messages.reasonsIn(text);
    for (const CTLMessage* const message : found)
        show(context.terminal, *message);
    for (const CTLReason* const reason : reasons)
        show(context.terminal, *reason, text);
    if (!found.empty() || !reasons.empty()) return 0;
    showNearest(context.terminal, messages, text);
    return 1;
}

void CTLExplainCommand::show(CTLTerminal& terminal, const CTLMessage& message) {
    terminal.out() << terminal.painted(CTLColour::Bold, message.text) << '\n';
    terminal.out() << "    " << message.level << " of " << joined(message.loggers, ", ") << '\n';
    const bool isSilent = message.meaning.empty();
    showParagraph(terminal,
                  isSilent ? "It is there to follow what happens, and asks for nothing." : message.meaning);
}

void CTLExplainCommand::show(CTLTerminal& terminal, const CTLReason& reason, const std::string& text) {
    terminal.out() << terminal.painted(CTLColour::Bold, reason.foundIn(CTLMessages::collapsed(text))) << '\n';
    showParagraph(terminal, reason.meaning);
    showParagraph(terminal, reason.remedy);
}

void CTLExplainCommand::showNearest(CTLTerminal& terminal, const CTLMessages& messages,
                                    const std::string& text) {
    const std::vector<const CTLMessage*> nearest = messages.nearest(text, kNearest);
    terminal.err() << "velbootstrapctl: the service has no message \"" << CTLText::printable(text) << "\""
                   << (nearest.empty() ? "" : "; these are most like it:") << '\n';
    for (const CTLMessage* const message : nearest)
        show(terminal, *message);
}
