#include "SchemaCheck.h"

#include <vector>

#include "ExternalProgram.h"

namespace {

std::string complaintsOfXmllint(const std::vector<std::string>& options, const std::string& document) {
    std::vector<std::string> command{"xmllint", "--noout", "--nonet"};
    command.insert(command.end(), options.begin(), options.end());
    command.emplace_back("-");
    ExternalProgram xmllint(command);
    xmllint.type(document);
    xmllint.endInput();
    const int exitCode = xmllint.waitForEnd();
    if (exitCode == 0) return {};
    return "xmllint ended with " + std::to_string(exitCode) + ":\n" + xmllint.words();
}

}  // namespace

std::string schemaFile(const std::string& schema) {
    return std::string(VBS_SCHEMAS "/") + schema + ".xsd";
}

std::string schemaComplaints(const std::string& schema, const std::string& document) {
    return complaintsOfXmllint({"--schema", schemaFile(schema)}, document);
}

std::string wellFormedComplaints(const std::string& document) {
    return complaintsOfXmllint({}, document);
}
