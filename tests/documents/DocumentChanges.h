// Small changes to a document that a schema accepts.
//
// Purpose: says of each change whether the schema still accepts the document, and that it names the place when
//   it does not. Since nothing but the change can be the reason, each case fails when the rule behind it is gone.
// Ownership, threads: free functions without state.
// Units: none.
// Errors: a text that is not in the document is a failure of the test.
#pragma once

#include <string>
#include <vector>

struct Change {
    std::string from;
    std::string to;
};

struct RefusedChange {
    std::string from;
    std::string to;
    std::string named;  // what the schema must say, beginning with the element or attribute
};

void expectAccepted(const std::string& schema, const std::string& document,
                    const std::vector<Change>& changes);
void expectRefused(const std::string& schema, const std::string& document,
                   const std::vector<RefusedChange>& mistakes);
