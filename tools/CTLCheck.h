// One check of an instance's documents, or of others in their place.
//
// Purpose: brings the parts together in their order: the documents as such, the schemas, the folders, then the service's
//   own preparation and what follows from it.
// Ownership: owns documents, preparation and findings.
// Threads: the main thread. One in a process, as CTLPreparation.
// Units: none.
// Errors: CTLError when a schema is missing or the folder cannot be entered. What is wrong with the instance is found.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "CTLChildCheck.h"
#include "CTLDocument.h"
#include "CTLFindings.h"
#include "CTLInstance.h"
#include "CTLPreparation.h"
#include "CTLSchemas.h"

class CTLServiceWords;

class CTLCheck {
  public:
    explicit CTLCheck(const std::filesystem::path& schemas) : m_schemas(schemas) {}
    CTLCheck(const CTLCheck&) = delete;
    CTLCheck& operator=(const CTLCheck&) = delete;
    ~CTLCheck();

    // Before another user is taken on, who may not read what the installation has.
    void loadSchemas() { m_schemas.load(); }
    // All of the instance. Afterwards the working folder is its bin/.
    void checkInstance(const CTLInstance& instance);
    // These files only, each by the name of its root.
    void checkFiles(const std::vector<std::string>& files);
    // After that: prepares the first bootstrap document among them, which this process can read, as that of the instance.
    void prepareIn(const CTLInstance& instance);

    const CTLFindings& findings() const { return m_findings; }
    // Of those that the service would run.
    std::size_t children() const { return m_children; }
    // Null when it was not made, or the service would not go on with the documents.
    CTLPreparation* preparation();

  private:
    const CTLDocument& open(const std::filesystem::path& file, CTLDocument::Kind expected);
    bool canBePrepared(const CTLDocument& bootstrap, const CTLDocument& startup);
    void prepare(const CTLInstance& instance, const CTLDocument& bootstrap, const CTLDocument& startup);
    void checkChildren(const CTLInstance& instance, const CTLDocument& bootstrap,
                       const CTLServiceWords& words);
    void checkPorts(const CTLDocument& bootstrap, const std::vector<CTLChildCheck::Address>& addresses);
    void checkUnchanged();

    CTLSchemas m_schemas;
    CTLFindings m_findings;
    std::vector<std::unique_ptr<CTLDocument>> m_documents;
    std::unique_ptr<CTLPreparation> m_preparation;
    std::size_t m_children = 0;
};
