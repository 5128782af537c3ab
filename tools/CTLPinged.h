// The children that are pinged, and where.
//
// Purpose: a line about a connection that failed names an address and no child; with the port that each child is pinged at
//   it can be told whom the line is about.
// Ownership: a value.
// Threads: the main thread, since the service's preparation is asked.
// Units: none.
// Errors: of documents that cannot be used nothing is known: an empty list.
#pragma once

#include <string>
#include <vector>

class CTLInstance;
class ZORBootstrapService;

struct CTLPinged {
    std::string child;
    std::string port;  // empty: the address has none, or cannot be read

    static std::vector<CTLPinged> of(ZORBootstrapService& service);
    // Prepares the service for it; the working folder is the instance's bin/ from then on.
    static std::vector<CTLPinged> of(const CTLInstance& instance);
};
