#include "SEKUri.h"

#include <algorithm>
#include <charconv>

#include "SEKErrors.h"

namespace {

constexpr std::size_t longestHost = 253;  // the longest name that a resolver can be asked for

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return text;
}

bool isHostCharacter(char c) {
    return c > ' ' && c < '\x7f' && c != '@' && c != '[' && c != ']' && c != '\\';
}

}  // namespace

SEKUri SEKUri::parse(const std::string& text) {
    try {
        const std::size_t mark = text.find("://");
        if (mark == std::string::npos) throw SEKFailure("no scheme");
        const std::string rest = text.substr(mark + 3);
        SEKUri uri;
        uri.readScheme(lowerCase(text.substr(0, mark)));
        uri.readHostAndPort(rest.substr(0, rest.find_first_of("/?#")));
        return uri;
    } catch (const SEKFailure& reason) {
        throw SEKFailure("bad address \"" + text + "\": " + reason.what());
    }
}

void SEKUri::readScheme(const std::string& scheme) {
    m_secure = scheme == "https" || scheme == "tls";
    if (!m_secure && scheme != "http" && scheme != "tcp") throw SEKFailure("unknown scheme");
    if (scheme == "http") m_defaultPort = 80;
    if (scheme == "https") m_defaultPort = 443;
}

void SEKUri::readHostAndPort(const std::string& authority) {
    if (!authority.empty() && authority.front() == '[') return readBracketed(authority);
    const std::size_t colon = authority.find(':');
    if (colon != authority.rfind(':')) throw SEKFailure("an IPv6 address stands in brackets");
    m_host = authority.substr(0, colon);
    if (m_host.empty()) throw SEKFailure("no host");
    // To the check of a certificate's names it would stand for any name that ends so.
    if (m_host.front() == '.') throw SEKFailure("bad host name");
    if (m_host.size() > longestHost) throw SEKFailure("host name too long");
    if (!std::all_of(m_host.begin(), m_host.end(), isHostCharacter)) throw SEKFailure("bad host name");
    readPort(colon == std::string::npos ? "" : authority.substr(colon + 1));
}

void SEKUri::readBracketed(const std::string& authority) {
    const std::size_t end = authority.find(']');
    if (end == std::string::npos) throw SEKFailure("no closing bracket");
    m_host = authority.substr(1, end - 1);
    // Inside a URI the percent sign before a zone is itself written as %25.
    const std::size_t zone = m_host.find("%25");
    if (zone != std::string::npos) m_host.erase(zone + 1, 2);
    if (m_host.find(':') == std::string::npos || m_host.size() > longestHost ||
        !std::all_of(m_host.begin(), m_host.end(), isHostCharacter))
        throw SEKFailure("bad IPv6 address");
    const std::string rest = authority.substr(end + 1);
    if (!rest.empty() && rest.front() != ':') throw SEKFailure("bad text after the IPv6 address");
    readPort(rest.empty() ? "" : rest.substr(1));
}

void SEKUri::readPort(const std::string& digits) {
    if (digits.empty()) {
        if (m_defaultPort < 0) throw SEKFailure("no port");
        m_port = static_cast<std::uint16_t>(m_defaultPort);
        return;
    }
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, m_port);
    if (error != std::errc() || stop != end) throw SEKFailure("bad port");
}

std::string SEKUri::authority() const {
    const bool needsBrackets = m_host.find(':') != std::string::npos;
    return (needsBrackets ? "[" + m_host + "]" : m_host) + ":" + std::to_string(m_port);
}
