#include "SEKConnector.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstddef>
#include <vector>

#include "SEKErrors.h"

namespace {

constexpr std::size_t reasonsToldOfAddresses = 8;  // a name server may list thousands

// The error of an attempt that is under way; 0 when it succeeded.
int pendingError(int descriptor) {
    int error = 0;
    socklen_t length = sizeof error;
    if (getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &length) != 0) return errno;
    return error;
}

// The reasons of the addresses that were tried, in one text.
class Reasons {
  public:
    void add(const SEKAddress& address, const std::string& reason) {
        if (++m_count > reasonsToldOfAddresses) return;
        m_text += (m_text.empty() ? "" : "; ") + address.text() + ": " + reason;
    }
    std::string text() const {
        if (m_count <= reasonsToldOfAddresses) return m_text;
        return m_text + "; and " + std::to_string(m_count - reasonsToldOfAddresses) + " more";
    }

  private:
    std::size_t m_count = 0;
    std::string m_text;
};

}  // namespace

void SEKConnector::connect(const SEKAddress& address) {
    const std::string reason = attempt(address, SEKDeadline(limitMs));
    if (!reason.empty()) throw SEKFailure("cannot connect to " + address.text() + ": " + reason);
}

SEKAddress SEKConnector::connect(const SEKUri& uri) {
    const SEKDeadline deadline(limitMs);
    if (uri.port() == 0) throw SEKFailure("cannot connect to " + uri.authority() + ": no port");
    const std::vector<SEKAddress> addresses =
        SEKAddress::resolve(uri.host(), uri.port(), m_endpoint.family(), SEKAddress::Use::Connect, deadline);
    Reasons reasons;
    std::size_t left = addresses.size();
    for (const SEKAddress& address : addresses) {
        const std::string reason = attempt(address, deadline.share(left--));
        if (reason.empty()) return address;
        reasons.add(address, reason);
    }
    throw SEKFailure("cannot connect to " + uri.authority() + " (" +
                     SEKAddress::familyName(m_endpoint.family()) + "): " + reasons.text());
}

// Empty when connected, otherwise the reason.
std::string SEKConnector::attempt(const SEKAddress& address, const SEKDeadline& deadline) {
    m_endpoint.prepareAttempt();
    if (::connect(m_endpoint.descriptor(), address.get(), address.length()) == 0) return "";
    if (errno != EINPROGRESS && errno != EINTR) return SEKErrors::systemReason(errno);
    if (!SEKWait::waitFor(m_endpoint.descriptor(), POLLOUT, deadline)) return "no answer in time";
    const int error = pendingError(m_endpoint.descriptor());
    return error == 0 ? "" : SEKErrors::systemReason(error);
}
