#include "SEKSocketOptions.h"

#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "SEKErrors.h"

namespace {

// Rounded up, so that no wait ends early; a limit beyond the bounds of the clock is cut by SEKDeadline anyway.
std::int64_t toMs(const timeval& time) {
    const std::int64_t seconds = std::clamp<std::int64_t>(time.tv_sec, -1, 2'000'000);
    const std::int64_t micros = std::clamp<std::int64_t>(time.tv_usec, 0, 1'000'000);
    return seconds * 1000 + (micros + 999) / 1000;
}

timeval toTimeval(std::int64_t ms) {
    timeval time{};
    time.tv_sec = static_cast<decltype(time.tv_sec)>(ms / 1000);
    time.tv_usec = static_cast<decltype(time.tv_usec)>(ms % 1000 * 1000);
    return time;
}

// Zero means no limit, as it does for the system.
std::int64_t readLimit(const void* value, socklen_t length) {
    if (length != sizeof(timeval)) throw SEKFailure("cannot set the time limit: not a timeval");
    timeval time{};
    std::memcpy(&time, value, sizeof time);
    return toMs(time) <= 0 ? -1 : toMs(time);
}

void writeLimit(std::int64_t limitMs, void* value, socklen_t& length) {
    if (length < sizeof(timeval)) throw SEKFailure("cannot read the time limit: no room for a timeval");
    const timeval time = toTimeval(limitMs < 0 ? 0 : limitMs);
    std::memcpy(value, &time, sizeof time);
    length = sizeof time;
}

[[noreturn]] void refuse(const char* what, int option) {
    throw SEKFailure(std::string("cannot ") + what + " socket option " + std::to_string(option) + ": " +
                     SEKErrors::systemReason(errno));
}

}  // namespace

void SEKSocketOptions::set(int descriptor, int option, const void* value, socklen_t length) {
    if (option == SO_SNDTIMEO) {
        m_sendLimitMs = readLimit(value, length);
    } else if (option == SO_RCVTIMEO) {
        m_receiveLimitMs = readLimit(value, length);
    } else {
        if (setsockopt(descriptor, SOL_SOCKET, option, value, length) != 0) refuse("set", option);
        remember(option, value, length);
    }
}

void SEKSocketOptions::get(int descriptor, int option, void* value, socklen_t& length) const {
    if (option == SO_SNDTIMEO) return writeLimit(m_sendLimitMs, value, length);
    if (option == SO_RCVTIMEO) return writeLimit(m_receiveLimitMs, value, length);
    if (getsockopt(descriptor, SOL_SOCKET, option, value, &length) != 0) refuse("read", option);
}

void SEKSocketOptions::applyTo(int descriptor) const noexcept {
    for (const Option& option : m_options)
        setsockopt(descriptor, SOL_SOCKET, option.name, option.value.data(),
                   static_cast<socklen_t>(option.value.size()));
}

void SEKSocketOptions::remember(int option, const void* value, socklen_t length) {
    const char* const bytes = static_cast<const char*>(value);
    Option fresh{option, std::vector<char>(bytes, bytes + length)};
    m_options.erase(std::remove_if(m_options.begin(), m_options.end(),
                                   [option](const Option& old) { return old.name == option; }),
                    m_options.end());
    m_options.push_back(std::move(fresh));
}
