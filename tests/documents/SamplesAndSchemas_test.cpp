// The documents of this repository against their schemas, and the schemas themselves.

#include <filesystem>
#include <map>

#include "ExternalProgram.h"
#include "FileContent.h"
#include "SchemaCheck.h"
#include "ServiceUnderTest.h"

namespace fs = std::filesystem;

namespace {

// By the beginning of the file's name; empty for a document of another program.
std::string schemaOf(const fs::path& file) {
    const std::string name = file.filename().string();
    if (file.extension() != ".xml") return {};
    for (std::string schema : {"bootstrap", "zorlogconfig", "startup"}) {
        if (name.compare(0, schema.size(), schema) == 0) return schema;
    }
    return {};
}

std::multimap<std::string, fs::path> samplesBySchema() {
    std::multimap<std::string, fs::path> samples;
    for (const auto& entry : fs::recursive_directory_iterator(VBS_SOURCE_FOLDER "/sample")) {
        const std::string schema = schemaOf(entry.path());
        if (!schema.empty()) samples.emplace(schema, entry.path());
    }
    return samples;
}

std::string countIn(const std::string& schema, const std::string& nodes) {
    ExternalProgram xmllint({"xmllint", "--xpath", "count(" + nodes + ")", schemaFile(schema)});
    EXPECT_EQ(xmllint.waitForEnd(), 0) << xmllint.words();
    return xmllint.words();
}

TEST(SamplesTest, EachSampleIsAcceptedAndNamesItsSchema) {
    const std::multimap<std::string, fs::path> samples = samplesBySchema();
    for (const char* const schema : {"bootstrap", "zorlogconfig", "startup"})
        EXPECT_GE(samples.count(schema), 1U) << schema;
    for (const auto& [schema, file] : samples) {
        const std::string document = contentOf(file);
        EXPECT_EQ(schemaComplaints(schema, document), "") << file;
        EXPECT_NE(
            document.find("<?xml-model href=\"/usr/share/velbootstrapservice/schemas/" + schema + ".xsd\""),
            std::string::npos)
            << file;
    }
}

TEST(SamplesTest, WhatTestsBeginWithIsAccepted) {
    const ServiceUnderTest service;
    EXPECT_EQ(schemaComplaints("bootstrap", service.read("bin/bootstrap_linuxi38632.xml")), "");
    EXPECT_EQ(schemaComplaints("zorlogconfig", service.read("bin/zorlogconfig.xml")), "");
    EXPECT_EQ(schemaComplaints("startup", service.read("configuration/startup.xml")), "");
}

// The service reads this one without a word, then connects to no place, does not wait for an answer, and stops a
// child with signal 0.
TEST(SamplesTest, TheMistakesOfALargeDocumentAreAllFound) {
    const std::string complaints =
        schemaComplaints("bootstrap", contentOf(VBS_SOURCE_FOLDER "/tests/fuzz/corpus/bootstrap/full"));
    for (const char* const attribute : {"'sockIOTimeoutSec'", "'signal'", "'URI'"})
        EXPECT_NE(complaints.find(std::string("attribute ") + attribute), std::string::npos) << complaints;
}

TEST(SchemasTest, EachElementAndAttributeIsExplained) {
    for (const char* const schema : {"bootstrap", "zorlogconfig", "startup", "vrx"}) {
        const std::string declared = "//*[local-name()='element' or local-name()='attribute'][@name]";
        EXPECT_NE(countIn(schema, declared), "0\n") << schema;
        EXPECT_EQ(countIn(schema, declared + "[not(normalize-space(*[local-name()='annotation']"
                                             "/*[local-name()='documentation']))]"),
                  "0\n")
            << schema;
    }
}

}  // namespace
