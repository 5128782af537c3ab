#include "CTLLogCommand.h"

#include <poll.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <ostream>
#include <utility>

#include "CTLError.h"
#include "CTLInstance.h"
#include "CTLLogFiles.h"
#include "CTLLogFollower.h"
#include "CTLPinged.h"
#include "CTLServiceUser.h"
#include "CTLTerminal.h"
#include "CTLText.h"
#include "CTLTime.h"

namespace {

constexpr std::array<const char*, 5> kLevels{"FATAL", "ERROR", "WARN", "INFO", "DEBUG"};
constexpr int kLookMs = 200;
constexpr std::size_t kFollowedFrom = 10;

// A level that nobody knows is the least serious.
std::size_t rankOf(const std::string& level) {
    return static_cast<std::size_t>(std::find(kLevels.begin(), kLevels.end(), level) - kLevels.begin());
}

CTLColour colourOf(const std::string& level) {
    if (level == "FATAL" || level == "ERROR") return CTLColour::Bad;
    if (level == "WARN") return CTLColour::Warning;
    return level == "DEBUG" ? CTLColour::Faint : CTLColour::Plain;
}

// Waits until it is worth another look; false when whoever reads standard output has gone.
bool waitForMore() {
    pollfd reader{STDOUT_FILENO, 0, 0};
    return poll(&reader, 1, kLookMs) <= 0 || (reader.revents & (POLLERR | POLLHUP | POLLNVAL)) == 0;
}

// Further lines of a message stand below the first, so that none looks like a line of its own.
std::string indented(const std::string& text) {
    std::string all;
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        if (at > 0) all += "\n    ";
        all += CTLText::printable(text.substr(at, end - at));
        at = end + 1;
    }
    return all.substr(0, all.find_last_not_of(' ') + 1);
}

}  // namespace

CLI::App* CTLLogCommand::declare(CLI::App& program) {
    CLI::App* const command = program.add_subcommand(
        "log",
        "Shows the log, rotated files included, in local time and with the child that a line is about.\n"
        "Exit codes: 0 shown, 1 no line is like that, 64 wrong command line or no instance, 70 failed.");
    command->add_flag("-f,--follow", m_follow, "Go on with what is written from now on; Ctrl-C ends it");
    command->add_option("-n,--lines", m_most, "At most so many, the newest; 10 with -f, otherwise all")
        ->option_text("LINES");
    command->add_option("--child", m_child, "Lines about this child only")->option_text("NAME");
    command->add_option("--level", m_level, "Lines at least as serious: fatal, error, warn, info or debug")
        ->option_text("LEVEL")
        ->transform(CLI::IsMember({"FATAL", "ERROR", "WARN", "INFO", "DEBUG"}, CLI::ignore_case));
    command
        ->add_option(
            "--since", m_since,
            "Not older: 14:30, 2026-11-21, \"2026-11-21 14:30\", today, yesterday, 90s, 15m, 6h, 2d, 1w")
        ->option_text("WHEN");
    command->add_flag("--json", m_json, "One JSON object a line, times in UTC");
    return command;
}

std::time_t CTLLogCommand::since() const {
    if (m_since.empty()) return 0;
    const auto time = CTLTime::parse(m_since, std::time(nullptr));
    if (!time)
        throw CTLError(CTLError::kUsage, "--since: \"" + m_since + "\" is no time; --help has examples");
    return *time;
}

int CTLLogCommand::run(CTLContext& context) {
    const std::time_t from = since();
    const CTLInstance instance = CTLInstance::find(context.instance);
    CTLServiceUser::becomeAsRoot(instance);
    const CTLLogFiles files(instance);
    CTLHistory history(CTLPinged::of(instance));
    bool isComplete = true;
    std::int64_t end = 0;
    const std::vector<CTLLogLine> lines = files.linesSince(from, &isComplete, &end);
    if (!isComplete)
        context.terminal.err() << "velbootstrapctl: the log is too long, its beginning is left out\n";
    std::vector<Shown> chosen = wanted(history, lines);
    const std::size_t most = m_follow && m_most == 0 && m_since.empty() ? kFollowedFrom : m_most;
    if (most != 0 && chosen.size() > most)
        chosen.erase(chosen.begin(), chosen.end() - static_cast<std::ptrdiff_t>(most));
    show(context.terminal, chosen);
    if (!m_follow) return chosen.empty() ? 1 : 0;
    follow(context.terminal, history, files, end);
    return 0;
}

bool CTLLogCommand::isWanted(const CTLLogLine& line, const std::string& child) const {
    if (!m_child.empty() && child != m_child) return false;
    return m_level.empty() || rankOf(line.level) <= rankOf(m_level);
}

std::vector<CTLLogCommand::Shown> CTLLogCommand::wanted(CTLHistory& history,
                                                        const std::vector<CTLLogLine>& lines) const {
    std::vector<Shown> chosen;
    for (const CTLLogLine& line : lines) {
        history.add(line);
        if (isWanted(line, history.childOfLast())) chosen.push_back({line, history.childOfLast()});
    }
    history.take();
    return chosen;
}

void CTLLogCommand::show(CTLTerminal& terminal, const std::vector<Shown>& lines) const {
    for (const Shown& shown : lines) {
        if (m_json) {
            showJson(terminal, shown);
        } else {
            showLine(terminal, shown.line, shown.child);
        }
    }
    terminal.out().flush();
}

void CTLLogCommand::showLine(CTLTerminal& terminal, const CTLLogLine& line, const std::string& child) {
    std::string level = line.level;
    level.resize(5, ' ');
    terminal.out() << terminal.painted(CTLColour::Faint, CTLText::localTime(line.time)) << ' '
                   << terminal.painted(colourOf(line.level), level) << ' ';
    if (!child.empty())
        terminal.out() << terminal.painted(CTLColour::Bold, "[" + CTLText::printable(child) + "]") << ' ';
    terminal.out() << terminal.painted(CTLColour::Faint, CTLText::printable(line.logger)) << ' '
                   << indented(line.text) << '\n';
}

void CTLLogCommand::showJson(CTLTerminal& terminal, const Shown& shown) {
    nlohmann::ordered_json object{
        {"time", CTLText::utc(shown.line.time)}, {"level", shown.line.level}, {"thread", shown.line.thread},
        {"logger", shown.line.logger},           {"child", nullptr},          {"text", shown.line.text}};
    if (!shown.child.empty()) object["child"] = shown.child;
    // What is no UTF-8 is replaced: a log may hold anything.
    terminal.out() << object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}

void CTLLogCommand::follow(CTLTerminal& terminal, CTLHistory& history, const CTLLogFiles& files,
                           std::int64_t from) const {
    CTLLogFollower follower(files.present(), from);
    while (!terminal.failed()) {
        show(terminal, wanted(history, follower.read()));
        if (!waitForMore()) return;
    }
}
