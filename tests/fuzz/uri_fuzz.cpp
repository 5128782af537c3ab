// Any text as an address: what is accepted can be written down again and is then read as the same.

#include <algorithm>
#include <string>

#include "FuzzTarget.h"
#include "SEKErrors.h"
#include "SEKUri.h"

using FuzzTarget::require;
using FuzzTarget::requireSame;

namespace {

constexpr std::size_t kLongestHost = 253;

bool isNamed(const std::string& text, const std::string& scheme) {
    const auto same = [](char left, char right) {
        return (left >= 'A' && left <= 'Z' ? left - 'A' + 'a' : left) == right;
    };
    const std::string beginning = scheme + "://";
    return text.size() >= beginning.size() &&
           std::equal(beginning.begin(), beginning.end(), text.begin(),
                      [&](char right, char left) { return same(left, right); });
}

void checkScheme(const std::string& text, const SEKUri& uri) {
    const bool isSecure = isNamed(text, "https") || isNamed(text, "tls");
    require(isSecure || isNamed(text, "http") || isNamed(text, "tcp"), "an accepted scheme is a known one");
    require(uri.isSecure() == isSecure, "https and tls are TLS, nothing else is");
}

void checkHost(const std::string& host) {
    require(!host.empty() && host.size() <= kLongestHost, "a host has a length that can be asked for");
    require(std::all_of(host.begin(), host.end(), [](char c) { return c > ' ' && c < '\x7f'; }),
            "a host is printable");
    require(host.find_first_of("/?#@[]\\") == std::string::npos,
            "a host has no character with a meaning of its own");
}

// What has to stand in a URI for that host and port. Of the first "%25" the figures go when it is read.
std::string written(const SEKUri& uri) {
    std::string authority = uri.authority();
    const std::size_t zone = authority.find("%25");
    if (zone != std::string::npos && authority.front() == '[') authority.insert(zone + 1, "25");
    return (uri.isSecure() ? "tls://" : "tcp://") + authority;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = FuzzTarget::untilZero(FuzzTarget::textOf(data, size));
    try {
        const SEKUri uri = SEKUri::parse(text);
        checkScheme(text, uri);
        checkHost(uri.host());
        require(text.find(uri.host().substr(0, uri.host().find('%'))) != std::string::npos,
                "a host stands in its URI");
        const SEKUri again = SEKUri::parse(written(uri));
        requireSame(uri.host(), again.host(), "a host that is written down is read as the same");
        require(uri.port() == again.port(), "and so is the port");
    } catch (const SEKFailure& reason) {
        require(std::string(reason.what()).rfind("bad address \"" + text + "\": ", 0) == 0,
                "a refusal quotes the address");
    }
    return 0;
}
