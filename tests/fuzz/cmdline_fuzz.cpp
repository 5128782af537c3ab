// Any text as a command line.

#include <cstring>
#include <string>
#include <vector>

#include "FuzzService.h"
#include "ZORCmdLine.h"

namespace {

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
    std::string text = FuzzTarget::textOf(data, size);
    text.resize(std::strlen(text.c_str()));
    checkQuotes(text);
    const ZORCmdLine cmdLine(text.data());
    const std::vector<ZORCLArg> args = cmdLine.getArgs();
    FuzzTarget::require(static_cast<int>(args.size()) == cmdLine.getArgCount(), "the count is the list's");
    for (std::size_t i = 0; i < args.size(); ++i)
        checkArgument(cmdLine, static_cast<int>(i), args[i]);
    return 0;
}
