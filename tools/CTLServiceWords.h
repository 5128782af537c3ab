// What the service said while it prepared itself, as findings.
//
// Purpose: goes through the lines of a preparation and finds the element that each was about, in the order in which the
//   service reads the bootstrap document. Lines that tell of an administrator's choice are no findings.
// Ownership: owns what it has learnt; document and findings stay the caller's.
// Threads: one thread at a time.
// Units: none.
// Errors: none.
#pragma once

#include <string>
#include <vector>

#include "CTLDocument.h"
#include "CTLFindings.h"
#include "CTLLogLine.h"

class CTLServiceWords {
  public:
    // Either document may be missing or broken; then its lines are about the whole file.
    CTLServiceWords(const CTLDocument& bootstrap, const CTLDocument& startup, CTLFindings& findings);

    void read(const std::vector<CTLLogLine>& lines);
    // The "process" elements in the order of the document, each with whether the service took it.
    struct Process {
        TVLIDOM_Element element;
        bool isTaken = true;
    };
    const std::vector<Process>& processes() const { return m_processes; }

  private:
    void follow(const CTLLogLine& line);
    void beginProcess();
    void beginStop();
    void endProcess(const std::string& reason);
    void tell(const CTLLogLine& line);
    void tellOfBootstrap(CTLFinding::Severity severity, const std::string& text);
    void tellOfStartup(CTLFinding::Severity severity, const std::string& text);
    bool isOfStartup(const std::string& text) const;

    const CTLDocument& m_bootstrap;
    const CTLDocument& m_startup;
    CTLFindings& m_findings;
    TVLIDOM_NodeList m_elements;
    std::vector<Process> m_processes;
    TVLIDOM_Element m_at;    // what the service is reading; null: the document as a whole
    int m_spawnsToCome = 0;  // of the present process
    std::string m_reason;    // the last that was said of the present process
};
