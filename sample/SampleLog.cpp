#include "SampleLog.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iostream>
#include <stdexcept>

namespace {

std::string timeStamp() {
    using namespace std::chrono;
    const auto now = system_clock::now();
    const std::time_t seconds = system_clock::to_time_t(now);
    const auto millis = static_cast<int>(duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    std::array<char, 32> date{};
    std::strftime(date.data(), date.size(), "%Y-%m-%d %H:%M:%S", &utc);
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), "%s.%03d", date.data(), millis);
    return text.data();
}

}  // namespace

void SampleLog::openFile(const std::string& path) {
    if (path.empty()) return;
    m_file.open(path, std::ios::app);
    if (!m_file) throw std::runtime_error("cannot write log file " + path + ": " + std::strerror(errno));
}

void SampleLog::line(const std::string& text) {
    const std::string whole = timeStamp() + " " + std::to_string(getpid()) + " " + text;
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::cout << whole << std::endl;
    if (m_file.is_open()) m_file << whole << std::endl;
}
