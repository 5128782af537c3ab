// What a caller's document says: the service, and the address family of a session.
//
// Purpose: the checked content of the session document, and the checks of the initialise and terminate
//   documents.
// Ownership: a value type.
// Threads: immutable once parsed.
// Units: none.
// Errors: both readers throw SEKFailure that says what is wrong with the document.
#pragma once

#include <string>

struct SEKSession {
    std::string serviceID;  // names the section of sek.cnf that applies
    int family = 0;         // AF_INET or AF_INET6: the only family that is tried
    std::string text{};     // the document itself, to know it again

    // Reads a sessionConfigDocument, whose root is in the crypto-schema namespace or in none; elements that it does
    // not know are passed over. Null is refused like any other text that is none.
    static SEKSession parse(const char* document);
};

// Checks a document whose root has this name and that holds a serviceID.
void checkServiceDocument(const char* document, const std::string& rootName);
