#include "SampleUri.h"

#include <charconv>
#include <stdexcept>

namespace {

struct Scheme {
    const char* name;
    bool tls;
    int defaultPort;  // -1: the URI must name one
};

constexpr Scheme kSchemes[] = {
    {"https", true, 443}, {"tls", true, -1}, {"http", false, 80}, {"tcp", false, -1}};

[[noreturn]] void refuse(const std::string& text, const std::string& reason) {
    throw std::invalid_argument("\"" + text + "\": " + reason);
}

const Scheme& schemeOf(const std::string& text, const std::string& name) {
    for (const Scheme& scheme : kSchemes) {
        if (name == scheme.name) return scheme;
    }
    refuse(text, "the scheme must be tls, https, tcp or http");
}

// Splits "host:port", "[v6]:port" or either without a port.
void splitAuthority(const std::string& text, const std::string& authority, std::string& host,
                    std::string& port) {
    std::size_t hostEnd = authority.rfind(':');
    if (!authority.empty() && authority.front() == '[') {
        const std::size_t bracket = authority.find(']');
        if (bracket == std::string::npos) refuse(text, "\"[\" without \"]\"");
        host = authority.substr(1, bracket - 1);
        hostEnd = bracket + 1;
        if (hostEnd < authority.size() && authority[hostEnd] != ':') refuse(text, "text after \"]\"");
    } else {
        host = authority.substr(0, hostEnd);
    }
    if (hostEnd < authority.size()) port = authority.substr(hostEnd + 1);
}

std::uint16_t portNumber(const std::string& text, const std::string& digits) {
    std::uint16_t port = 0;
    const char* end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, port);
    if (error != std::errc() || stop != end || port == 0) {
        refuse(text, "the port must be a number from 1 to 65535");
    }
    return port;
}

}  // namespace

SampleUri SampleUri::parse(const std::string& text) {
    const std::size_t colon = text.find("://");
    if (colon == std::string::npos) refuse(text, "expected scheme://host:port");
    const Scheme& scheme = schemeOf(text, text.substr(0, colon));
    const std::string rest = text.substr(colon + 3);

    SampleUri uri;
    uri.tls = scheme.tls;
    std::string port;
    splitAuthority(text, rest.substr(0, rest.find('/')), uri.host, port);
    if (port.empty() && scheme.defaultPort < 0) refuse(text, "this scheme has no default port");
    uri.port = port.empty() ? static_cast<std::uint16_t>(scheme.defaultPort) : portNumber(text, port);
    return uri;
}
