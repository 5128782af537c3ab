// Any bytes as a file of one number: the PID file, and the limit of failed pings.

#include <algorithm>
#include <limits>
#include <string>

#include "FuzzService.h"
#include "TVLFile.h"
#include "TestAccess.h"
#include "TestWorld.h"
#include "VirtualOs.h"
#include "ZORPidFile.h"

using FuzzTarget::require;

namespace {

constexpr std::size_t kMostOfALine = 63;
constexpr int kUnread = -7;

// A sign and decimal digits behind blanks; what is too great is the greatest.
int plainNumber(const std::string& line) {
    std::size_t at = std::min(line.find_first_not_of(" \t\n\v\f\r"), line.size());
    const bool isNegative = line.compare(at, 1, "-") == 0;
    if (isNegative || line.compare(at, 1, "+") == 0) ++at;
    constexpr double kMin = std::numeric_limits<int>::min();
    constexpr double kMax = std::numeric_limits<int>::max();
    double value = 0;
    for (; at < line.size() && line[at] >= '0' && line[at] <= '9'; ++at)
        value = value * 10 + (line[at] - '0');
    return static_cast<int>(std::clamp(isNegative ? -value : value, kMin, kMax));
}

bool isReadable(const std::string& text) {
    return !text.empty() && static_cast<std::int64_t>(text.size()) <= TVLFile::kMostOfARecord;
}

int numberIn(const std::string& text) {
    const std::size_t feed = std::min(text.find('\n'), text.size());
    return plainNumber(FuzzTarget::untilZero(text.substr(0, std::min(feed, kMostOfALine))));
}

void checkPid(const FuzzFolder& folder, const std::string& text, bool isAlive) {
    folder.write("logs/service.pid", text);
    const int expected = numberIn(text);
    VirtualOs os;
    if (isAlive && expected > 0) os.process(expected);
    ZORPidFile file;
    file.setPath(folder.path("logs/service.pid"));
    int pid = kUnread;
    const bool running = file.read(pid);
    require(running == (isReadable(text) && isAlive && expected > 0), "a live process is found");
    require(!running || pid == expected, "it is the one that the file names");
    require(running || pid == (isReadable(text) ? 0 : kUnread), "without one there is no process id");
    require(os.kills().empty(), "nothing is signalled");
    require(expected > 0 || os.aliveTests() == 0, "no group of processes is asked for");
}

void checkLimit(const FuzzFolder& folder, const std::string& text) {
    static auto* const supervisor = new PingChildProcess;  // what it makes is made once in a process
    folder.write("bin/zor.failedPingLimit", text);
    require(
        TestAccess::limitAfterReading(*supervisor, kUnread) == (isReadable(text) ? numberIn(text) : kUnread),
        "the limit is the number of the first line");
}

}  // namespace

// The first byte says whether the process of the file is alive.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    FuzzService::logEverythingToNowhere();
    const FuzzFolder folder;
    const std::string text = FuzzTarget::textOf(data + 1, size - 1);
    const FuzzTarget::NothingLeftOpen check;
    checkPid(folder, text, (data[0] & 1) != 0);
    checkLimit(folder, text);
    return 0;
}
