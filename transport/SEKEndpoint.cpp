#include "SEKEndpoint.h"

#include <netinet/in.h>

#include <cerrno>
#include <string>

#include "SEKErrors.h"

namespace {

[[noreturn]] void refuse(const std::string& what) {
    throw SEKFailure(what + ": " + SEKErrors::systemReason(errno));
}

}  // namespace

SEKEndpoint::SEKEndpoint(int family) : m_family(family) {
    open();
}

void SEKEndpoint::open() {
    m_descriptor = SEKDescriptor::aboveStandard(
        [this] { return socket(m_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); });
    if (!m_descriptor.isOpen())
        refuse(std::string("cannot create a socket (") + SEKAddress::familyName(m_family) + ")");
    // The family is the only one that may be used, also through mapped addresses.
    if (m_family == AF_INET6) switchOn(IPPROTO_IPV6, IPV6_V6ONLY);
    m_options.applyTo(descriptor());
    m_isWorn = false;
}

void SEKEndpoint::bind(const SEKAddress& address) {
    switchOn(SOL_SOCKET, SO_REUSEADDR);
    if (::bind(descriptor(), address.get(), address.length()) != 0)
        refuse("cannot bind to " + address.text());
    m_bound = localAddress();
}

void SEKEndpoint::prepareAttempt() {
    if (m_isWorn) {
        m_descriptor.reset();
        open();
        if (m_bound.has_value()) bind(SEKAddress(*m_bound));
    }
    wearOut();
}

void SEKEndpoint::switchOn(int level, int option) const noexcept {
    const int on = 1;
    setsockopt(descriptor(), level, option, &on, sizeof on);
}

SEKAddress SEKEndpoint::localAddress() const {
    SEKAddress address;
    socklen_t length = address.length();
    if (getsockname(descriptor(), address.buffer(), &length) != 0) refuse("cannot read the local address");
    address.setLength(length);
    return address;
}

SEKAddress SEKEndpoint::peerAddress() const {
    SEKAddress address;
    socklen_t length = address.length();
    if (getpeername(descriptor(), address.buffer(), &length) != 0) refuse("cannot read the peer's address");
    address.setLength(length);
    return address;
}
