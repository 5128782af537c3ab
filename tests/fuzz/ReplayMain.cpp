// Replays a corpus: every file of the folders on the command line goes through the fuzz target once. Fails
// when there is nothing to replay.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "FuzzTarget.h"

namespace {

std::vector<char> contentOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace

int main(int argc, char** argv) {
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            const std::vector<char> content = contentOf(entry.path());
            const std::vector<std::uint8_t> bytes(content.begin(), content.end());
            LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
            ++replayed;
        }
    }
    std::printf("%d inputs replayed\n", replayed);
    return replayed > 0 ? 0 : 1;
}
