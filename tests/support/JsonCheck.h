// JSON against the schemas that the project ships.
//
// Purpose: says what is wrong with a JSON text according to one of the schemas, or with the schema itself.
// Ownership, threads: a free function without state.
// Units: none.
// Errors: std::runtime_error when the checker cannot be run.
#pragma once

#include <string>

// `schema` is the first part of the file's name, "velbootstrapctl-log" for example. Empty when the text is as the schema
// has it; with `isLines` each line of the text is a JSON text of its own, and there is at least one.
std::string jsonComplaints(const std::string& schema, const std::string& json, bool isLines = false);
