// What lies around the documents: folders, the environment file, the security library, the logging document's files.
//
// Purpose: says what the user who runs the service could not write, read or run, as far as it can be seen beforehand.
// Ownership: findings stay the caller's.
// Threads: one thread at a time; the working folder is the instance's bin/. The rights are those of this process.
// Units: none.
// Errors: none; all mistakes are findings.
#pragma once

#include <filesystem>
#include <string>

#include "CTLDocument.h"
#include "CTLFindings.h"
#include "CTLInstance.h"

class CTLFolderCheck {
  public:
    CTLFolderCheck(const CTLInstance& instance, CTLFindings& findings)
        : m_instance(instance), m_findings(findings) {}

    void checkPrograms();
    void checkEnvironmentFile();
    void checkJavaHome();
    void checkLimitFile();
    void checkLogs();
    void checkLogging(const CTLDocument& logging);
    // The folder for temporary files, and numbers; after the preparation.
    void checkStartup(const CTLDocument& startup);

  private:
    void add(CTLFinding::Severity severity, const char* rule, const std::filesystem::path& file,
             const std::string& text);
    void checkWritableFile(const std::filesystem::path& file);
    void checkLogFile(const CTLDocument& logging, const TVLIDOM_Element& file);
    void checkTemp(const CTLDocument& startup);
    void checkParameter(const CTLDocument& startup, const TVLIDOM_Element& parameter);

    const CTLInstance& m_instance;
    CTLFindings& m_findings;
};
