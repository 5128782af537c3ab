#include "SEKEndpoint.h"

#include <netinet/in.h>

#include <cerrno>
#include <string>

#include "SEKErrors.h"

namespace {

[[noreturn]] void refuse(const std::string& what) {
    throw SEKFailure(what + ": " + SEKErrors::systemReason(errno));
}

void turnOn(const SEKDescriptor& descriptor, int level, int option) noexcept {
    const int on = 1;
    setsockopt(descriptor.get(), level, option, &on, sizeof on);
}

}  // namespace

SEKEndpoint::SEKEndpoint(int family) : m_family(family), m_descriptor(fresh()) {}

SEKDescriptor SEKEndpoint::fresh() const {
    SEKDescriptor made = SEKDescriptor::aboveStandard(
        [this] { return socket(m_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); });
    if (!made.isOpen())
        refuse(std::string("cannot create a socket (") + SEKAddress::familyName(m_family) + ")");
    // The family is the only one that may be used, also through mapped addresses.
    if (m_family == AF_INET6) turnOn(made, IPPROTO_IPV6, IPV6_V6ONLY);
    m_options.applyTo(made.get());
    return made;
}

void SEKEndpoint::bind(const SEKAddress& address) {
    bind(m_descriptor, address);
    m_bound = localAddress();
}

void SEKEndpoint::bind(const SEKDescriptor& descriptor, const SEKAddress& address) {
    turnOn(descriptor, SOL_SOCKET, SO_REUSEADDR);
    if (::bind(descriptor.get(), address.get(), address.length()) != 0)
        refuse("cannot bind to " + address.text());
}

// The old descriptor stays until the new one has the local address, which must not be lost when it cannot be had.
void SEKEndpoint::prepareAttempt() {
    if (m_isWorn) {
        SEKDescriptor next = fresh();
        if (m_bound.has_value()) bind(next, *m_bound);
        m_descriptor = std::move(next);
    }
    wearOut();
}

void SEKEndpoint::switchOn(int level, int option) const noexcept {
    turnOn(m_descriptor, level, option);
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
