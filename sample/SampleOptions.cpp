#include "SampleOptions.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <variant>

namespace {

using Text = std::string SampleOptions::*;
using Number = int SampleOptions::*;
using Flag = bool SampleOptions::*;

struct Option {
    const char* name;
    const char* value;  // what the help calls the value; empty: a flag
    const char* help;
    std::variant<Text, Number, Flag> target;
};

const Option kOptions[] = {
    {"--listen", "URI",
     "Where to listen: tls://host:port or https://host:port with a certificate, tcp://host:port\n"
     "or http://host:port without. [::1] is an IPv6 address, * every address of the machine. A\n"
     "path after the port is ignored.",
     &SampleOptions::listenUri},
    {"--service", "SECTION",
     "The section of ../configuration/sek.cnf, relative to the working directory, that names the\n"
     "certificate and its key for TLS. Default dispatcher.",
     &SampleOptions::service},
    {"--wait-for-port", "SECONDS",
     "How long a port in use is tried again: a predecessor may still be about to end.\n"
     "Default 0: fail at once.",
     &SampleOptions::waitForPortSec},
    {"--idle-limit", "SECONDS", "Hang up on a client that has been silent this long. Default 60; 0: never.",
     &SampleOptions::idleLimitSec},
    {"--ping", "TEXT", "The command that asks for the state. Default PING.", &SampleOptions::pingCommand},
    {"--shutdown", "TEXT", "The command that ends the program. Default SHUTDOWN.",
     &SampleOptions::shutdownCommand},
    {"--ready", "TEXT", "The answer when ready. Default READY.", &SampleOptions::readyMarker},
    {"--retry", "TEXT", "The answer while warming up. Default STARTING.", &SampleOptions::retryMarker},
    {"--fatal", "TEXT", "The answer when broken. Default FATAL.", &SampleOptions::fatalMarker},
    {"--answer", "TEXT", "Answer every ping with this text, whatever the state.",
     &SampleOptions::fixedAnswer},
    {"--warm-up", "SECONDS", "Be warming up for so long after the start. Default 0.",
     &SampleOptions::warmUpSec},
    {"--warm-up-file", "FILE", "Be warming up until this file exists.", &SampleOptions::readyFile},
    {"--fatal-file", "FILE", "Be broken while this file exists.", &SampleOptions::fatalFile},
    {"--silent", "", "Read pings and never answer.", &SampleOptions::silent},
    {"--silent-file", "FILE", "Read pings and do not answer while this file exists.",
     &SampleOptions::silentFile},
    {"--stubborn", "", "Take no notice of SIGTERM and of the shutdown command.", &SampleOptions::stubborn},
    {"--exit-after", "N", "End after N answers. Default 0: never.", &SampleOptions::exitAfterAnswers},
    {"--pid-file", "FILE", "Write the process id here once listening; removed at an orderly end.",
     &SampleOptions::pidFile},
    {"--log-file", "FILE", "Append the log to this file as well as writing it to standard output.",
     &SampleOptions::logFile},
    {"--help", "", "Show this text.", &SampleOptions::help},
};

const Option& optionNamed(const std::string& name) {
    for (const Option& option : kOptions) {
        if (name == option.name) return option;
    }
    throw std::invalid_argument("unknown option \"" + name + "\"");
}

int numberOf(const std::string& name, const std::string& digits) {
    int number = 0;
    const char* end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number);
    if (error != std::errc() || stop != end || number < 0) {
        throw std::invalid_argument(name + " needs a number of 0 or more, not \"" + digits + "\"");
    }
    return number;
}

void setValue(SampleOptions& options, const Option& option, const std::string& value) {
    if (const Number* number = std::get_if<Number>(&option.target)) {
        options.*(*number) = numberOf(option.name, value);
    } else if (const Text* text = std::get_if<Text>(&option.target)) {
        if (value.empty()) throw std::invalid_argument(std::string(option.name) + " needs a value");
        options.*(*text) = value;
    }
}

// Two commands of which one begins the other could not be told apart: they arrive without an end mark.
void checkCommands(const SampleOptions& options) {
    const std::string& ping = options.pingCommand;
    const std::string& shutdown = options.shutdownCommand;
    const std::size_t shorter = std::min(ping.size(), shutdown.size());
    if (ping.compare(0, shorter, shutdown, 0, shorter) == 0) {
        throw std::invalid_argument("--ping and --shutdown must not begin with one another");
    }
}

void checkWhole(const SampleOptions& options) {
    if (options.listenUri.empty()) throw std::invalid_argument("--listen is required");
    checkCommands(options);
}

}  // namespace

SampleOptions SampleOptions::parse(int argc, const char* const* argv) {
    SampleOptions options;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const std::size_t equals = argument.find('=');
        const std::string name = argument.substr(0, equals);
        const Option& option = optionNamed(name);
        if (const Flag* flag = std::get_if<Flag>(&option.target)) {
            if (equals != std::string::npos) {
                throw std::invalid_argument(std::string(option.name) + " takes no value");
            }
            options.*(*flag) = true;
        } else if (equals != std::string::npos) {
            setValue(options, option, argument.substr(equals + 1));
        } else {
            setValue(options, option, ++i < argc ? argv[i] : "");
        }
    }
    if (!options.help) checkWhole(options);
    return options;
}

std::string SampleOptions::helpText() {
    std::string text =
        "sampledispatcher - a child for the bootstrap service to start, ping and stop.\n\n"
        "Usage: sampledispatcher --listen=URI [OPTION]...\n\n"
        "Answers a ping command over TCP or TLS and ends on a shutdown command, SIGTERM, SIGINT,\n"
        "SIGQUIT or SIGHUP. A value is given as --option=value or --option value.\n\n";
    for (const Option& option : kOptions) {
        text += std::string("  ") + option.name;
        if (*option.value != '\0') text += std::string("=") + option.value;
        text += "\n      ";
        for (const char* c = option.help; *c != '\0'; ++c)
            text += *c == '\n' ? "\n      " : std::string(1, *c);
        text += "\n";
    }
    text += "\nExit code: 0 after an orderly end, 1 when it cannot listen, 2 for wrong options.\n";
    return text;
}
