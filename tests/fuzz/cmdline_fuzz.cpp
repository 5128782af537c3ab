// Any text as a command line.

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "FuzzService.h"
#include "ZORCmdLine.h"
#include "ZORModes.h"

namespace {

// Parts between blanks outside of quotes; the quotes go. A line feed stands for a blank.
std::vector<std::string> plainArguments(const std::string& text) {
    std::vector<std::string> arguments(1);
    bool quoted = false;
    for (const char c : text) {
        if (c == '"') {
            quoted = !quoted;
        } else if (c == ' ' && !quoted) {
            arguments.emplace_back();
        } else {
            arguments.back() += c == '\n' ? ' ' : c;
        }
    }
    std::erase(arguments, "");
    return arguments;
}

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return text;
}

bool isGiven(const std::vector<ZORCLArg>& args, const char* option) {
    return std::any_of(args.begin(), args.end(),
                       [&](const ZORCLArg& arg) { return lowerCase(arg.getName()) == option; });
}

ZORMode plainMode(const std::vector<ZORCLArg>& args) {
    if (isGiven(args, "-d")) return ZORMode::Foreground;
    if (isGiven(args, "-isrunning")) return ZORMode::Ask;
    if (isGiven(args, "-stop")) return ZORMode::Stop;
    if (isGiven(args, "-start")) return ZORMode::Start;
    return isGiven(args, "runasdaemon") ? ZORMode::Daemon : ZORMode::None;
}

std::string plainSection(const std::vector<ZORCLArg>& args) {
    for (const char* const section : {"start", "stop", "isrunning"}) {
        if (isGiven(args, ("-" + std::string(section)).c_str())) return section;
    }
    for (const char* const option : {"-d", "runasdaemon", "-run", "-win95"}) {
        if (isGiven(args, option)) return "run";
    }
    return "default";
}

void checkModes(const ZORCmdLine& cmdLine, const std::vector<ZORCLArg>& args) {
    FuzzTarget::require(ZORModes::modeOf(cmdLine) == plainMode(args), "the mode is as the rules say");
    FuzzTarget::requireSame(plainSection(args), ZORModes::logSection(cmdLine),
                            "and so is the section of the log");
    const bool help = args.empty() || isGiven(args, "-h") || isGiven(args, "-help") || isGiven(args, "-?");
    FuzzTarget::require(ZORModes::wantsHelp(cmdLine) == help, "and the wish for help");
}

void checkText(const ZORCLArg& arg, const std::string& expected) {
    const std::string value = arg.hasValue() ? std::string("=") + arg.getValue() : "";
    FuzzTarget::requireSame(expected, arg.getName() + value, "an argument is all of its text");
}

void checkQuotes(std::string in) {
    std::vector<char> out(in.size() + 1, 'X');
    ZORCmdLine().preProcessQuotes(in.data(), out.data());
    const void* const end = std::memchr(out.data(), '\0', out.size());
    FuzzTarget::require(end != nullptr, "the output is terminated within its room");
    FuzzTarget::require(std::strchr(out.data(), '"') == nullptr, "no quote is left");
}

void checkArgument(const ZORCmdLine& cmdLine, int index, const ZORCLArg& arg) {
    const int found = cmdLine.find(arg.getName().c_str(), 0);
    FuzzTarget::require(found >= 0 && found <= index, "every argument is found, at its place or before");
    FuzzTarget::require(cmdLine.find(arg.getName().c_str(), index) == index, "and from its place on there");
    FuzzTarget::require(arg.getName().find('=') == std::string::npos, "a name ends at the equals sign");
    std::string value = "unset";
    FuzzTarget::require((cmdLine.getValue(arg.getName().c_str(), value, index) != 0) == arg.hasValue(),
                        "a value is got when there is one");
    FuzzTarget::require(value == (arg.hasValue() ? arg.getValue() : "unset"), "and is the argument's");
    int number = -1;
    FuzzTarget::require((cmdLine.getIntValue(arg.getName().c_str(), number, index) != 0) == arg.isNumber(),
                        "a number is got when it is one");
    FuzzTarget::require(!arg.isNumber() || number >= 0, "and has no sign");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzService::logEverythingToNowhere();
    std::string text = FuzzTarget::untilZero(FuzzTarget::textOf(data, size));
    checkQuotes(text);
    const ZORCmdLine cmdLine(text.data());
    const std::vector<ZORCLArg> args = cmdLine.getArgs();
    FuzzTarget::require(static_cast<int>(args.size()) == cmdLine.getArgCount(), "the count is the list's");
    const std::vector<std::string> expected = plainArguments(text);
    FuzzTarget::require(args.size() == expected.size(), "there are as many arguments as the rules say");
    for (std::size_t i = 0; i < args.size(); ++i) {
        checkText(args[i], expected[i]);
        checkArgument(cmdLine, static_cast<int>(i), args[i]);
    }
    checkModes(cmdLine, args);
    return 0;
}
