// The schemas of the documents.
//
// Purpose: holds a document against the schema of its kind and says in an administrator's words what does not fit, with
//   the place of the element or attribute. The schemas come from a folder of the installation and from nowhere else:
//   what a document says of its schema is not heeded, and the network is not there.
// Ownership: owns the grammars that it has read; each is read once, when it is needed.
// Threads: one thread at a time. The XML library must have been started and must not end before.
// Units: none.
// Errors: CTLError when a schema is not there or is none.
#pragma once

#include <filesystem>
#include <map>
#include <memory>

#include "CTLDocument.h"
#include "CTLFindings.h"

class CTLSchemas {
  public:
    // Where the installation has them; `given` instead, if it is not empty.
    static std::filesystem::path folder(const std::filesystem::path& given);

    explicit CTLSchemas(const std::filesystem::path& folder);
    CTLSchemas(const CTLSchemas&) = delete;
    CTLSchemas& operator=(const CTLSchemas&) = delete;
    ~CTLSchemas();

    // Reads all of them: for whoever changes the user afterwards.
    void load();
    // Held against the schema of that kind, whatever its root is. The document must have been parsed.
    void validate(const CTLDocument& document, CTLDocument::Kind kind, CTLFindings& findings);

  private:
    struct Grammar;
    Grammar& grammarOf(CTLDocument::Kind kind);

    std::filesystem::path m_folder;
    std::map<CTLDocument::Kind, std::unique_ptr<Grammar>> m_grammars;
};
