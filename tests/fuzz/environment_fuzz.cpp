// Any bytes as the environment file: what goes to the environment, against the rules written down plainly.

#include <sstream>
#include <string>
#include <vector>

#include "FuzzTarget.h"
#include "ZOREnvironment.h"

namespace {

std::vector<std::string> plainEntries(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> entries;
    for (std::string line; std::getline(stream, line);) {
        const bool isComment = line.rfind('#', 0) == 0;
        if (!line.empty() && !isComment) entries.push_back(line);
    }
    return entries;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = FuzzTarget::textOf(data, size);
    const std::vector<std::string> expected = plainEntries(text);
    const std::vector<std::string> found = ZOREnvironment::entriesOf(text);
    FuzzTarget::require(found.size() == expected.size(),
                        "as many entries as lines that are none of those left out");
    for (std::size_t i = 0; i < found.size(); ++i)
        FuzzTarget::requireSame(expected[i], found[i], "an entry is its line, whole");
    return 0;
}
