// The address a dispatcher listens on, taken apart.
//
// Purpose: scheme://host[:port][/path]; the path plays no part in listening and is dropped.
// Ownership: a value.
// Threads: any.
// Errors: parse() throws std::invalid_argument with a text for the person who typed the URI.
#pragma once

#include <cstdint>
#include <string>

struct SampleUri {
    bool tls = false;  // "https" and "tls"; "http" and "tcp" are plain
    std::string host;  // without brackets; empty or "*" means every address of the machine
    std::uint16_t port = 0;

    static SampleUri parse(const std::string& text);
};
