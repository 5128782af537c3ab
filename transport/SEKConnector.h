// Connecting an endpoint.
//
// Purpose: tries one address, or each address of a host in the resolver's order, every one with its share of the time
//   that is left.
// Ownership: refers to the caller's endpoint, which must outlive it.
// Threads: used by one thread at a time.
// Units: milliseconds.
// Errors: both calls throw SEKFailure with the reason of each address that was tried, of the first few of many.
//   The endpoint may then be tried again.
#pragma once

#include <cstdint>
#include <string>

#include "SEKAddress.h"
#include "SEKDeadline.h"
#include "SEKEndpoint.h"
#include "SEKUri.h"

class SEKConnector {
  public:
    static constexpr std::int64_t limitMs = 10'000;  // resolving and all addresses together

    explicit SEKConnector(SEKEndpoint& endpoint) : m_endpoint(endpoint) {}

    void connect(const SEKAddress& address);
    // The address that was reached.
    SEKAddress connect(const SEKUri& uri);

  private:
    std::string attempt(const SEKAddress& address, const SEKDeadline& deadline);

    SEKEndpoint& m_endpoint;
};
