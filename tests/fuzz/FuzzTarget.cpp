#include "FuzzTarget.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace {

// A descriptor that is left open always takes the lowest number.
int lowestFreeDescriptor() {
    const int number = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    close(number);
    return number;
}

}  // namespace

void FuzzTarget::require(bool holds, const char* promise) {
    if (holds) return;
    std::fprintf(stderr, "broken promise: %s\n", promise);
    std::abort();
}

void FuzzTarget::requireSame(const std::string& expected, const std::string& found, const char* promise) {
    if (expected == found) return;
    std::fprintf(stderr, "expected \"%s\"\nfound    \"%s\"\n", expected.c_str(), found.c_str());
    require(false, promise);
}

std::string FuzzTarget::textOf(const std::uint8_t* data, std::size_t size) {
    return {data, data + size};
}

std::string FuzzTarget::untilZero(const std::string& text) {
    return text.substr(0, text.find('\0'));
}

std::string FuzzTarget::takeLine(std::string& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string line = text.substr(0, end);
    text.erase(0, end + 1);
    return line;
}

FuzzTarget::NothingLeftOpen::NothingLeftOpen() : m_lowestFree(lowestFreeDescriptor()) {}

FuzzTarget::NothingLeftOpen::~NothingLeftOpen() {
    require(lowestFreeDescriptor() == m_lowestFree, "no descriptor is left open");
}

FuzzTarget::Visit::Visit(const std::string& folder) : m_before(std::filesystem::current_path()) {
    std::filesystem::current_path(folder);
}

FuzzTarget::Visit::~Visit() {
    std::error_code ignored;
    std::filesystem::current_path(m_before, ignored);
}
