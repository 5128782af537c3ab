// An address as callers write it: scheme://host[:port][/path].
//
// Purpose: tells host, port and whether TLS is wanted. http and tcp are plain, https and tls are TLS. The
//   path plays no part. An IPv6 literal stands in brackets, where it may carry a zone.
// Ownership: a value type.
// Threads: immutable once parsed.
// Units: none.
// Errors: parse throws SEKFailure with the reason and the URI as given.
#pragma once

#include <cstdint>
#include <string>

class SEKUri {
  public:
    static SEKUri parse(const std::string& text);

    bool isSecure() const { return m_secure; }
    const std::string& host() const { return m_host; }  // without brackets; never empty
    std::uint16_t port() const { return m_port; }       // 0 only when the text says so

    // "host:port", with brackets where the host has colons; for messages.
    std::string authority() const;

  private:
    void readScheme(const std::string& scheme);
    void readHostAndPort(const std::string& authority);
    void readBracketed(const std::string& authority);
    void readPort(const std::string& digits);

    bool m_secure = false;
    int m_defaultPort = -1;  // -1: the scheme has none
    std::string m_host;
    std::uint16_t m_port = 0;
};
