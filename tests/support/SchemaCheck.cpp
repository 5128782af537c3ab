#include "SchemaCheck.h"

#include "ExternalProgram.h"

std::string schemaFile(const std::string& schema) {
    return std::string(VBS_SCHEMAS "/") + schema + ".xsd";
}

std::string schemaComplaints(const std::string& schema, const std::string& document) {
    ExternalProgram xmllint({"xmllint", "--noout", "--nonet", "--schema", schemaFile(schema), "-"});
    xmllint.type(document);
    xmllint.endInput();
    const int exitCode = xmllint.waitForEnd();
    if (exitCode == 0) return {};
    return "xmllint ended with " + std::to_string(exitCode) + ":\n" + xmllint.words();
}
