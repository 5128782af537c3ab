// Documents against the schemas that an administrator checks them with.
//
// Purpose: asks xmllint, the administrator's own tool, and hands back its words.
// Ownership: owns nothing beyond a call.
// Threads: any thread that outlives the call.
// Units: none.
// Errors: a schema that cannot be used and a missing xmllint are complaints, too.
#pragma once

#include <string>

// What xmllint says to the document; empty when the schema ("bootstrap", "zorlogconfig" or "startup") accepts it.
std::string schemaComplaints(const std::string& schema, const std::string& document);

// For a document of another program, which has no schema here: empty when it is XML at all.
std::string wellFormedComplaints(const std::string& document);

// Where the schemas are.
std::string schemaFile(const std::string& schema);
