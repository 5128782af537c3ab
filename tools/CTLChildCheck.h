// The children of the bootstrap document, and what the service would silently accept of them.
//
// Purpose: looks at each "process" and at "daemonSpawn": references, numbers, texts that the service reads only in part,
//   conditions, programs, addresses, markers, stops and pings that do not go together, pings that are not used.
// Ownership: document, references and findings stay the caller's.
// Threads: one thread at a time; the working folder is the instance's bin/.
// Units: none.
// Errors: none; all mistakes are findings.
#pragma once

#include <string>
#include <vector>

#include "CTLDocument.h"
#include "CTLFindings.h"
#include "CTLReferences.h"

class ZORChildProcess;
class ZORSpawnAction;

class CTLChildCheck {
  public:
    // An address that a child is spoken to at, with all references replaced.
    struct Address {
        TVLIDOM_Element element;
        std::string uri;
        std::string command;
    };

    CTLChildCheck(const CTLDocument& bootstrap, const CTLReferences& references, CTLFindings& findings)
        : m_document(bootstrap), m_references(references), m_findings(findings) {}

    // What can be told of the document alone: numbers, references, conditions, divided texts.
    void checkTexts();
    // `child` is what the service has made of the element.
    void checkChild(const TVLIDOM_Element& process, ZORChildProcess& child);
    void checkDaemonSpawn(const ZORSpawnAction* daemonSpawn);

    // Those that are good, of the children that were looked at.
    const std::vector<Address>& addresses() const { return m_addresses; }

  private:
    void add(CTLFinding::Severity severity, const char* rule, const TVLIDOM_Element& element,
             const std::string& attribute, const std::string& text);
    void checkNumbers(const TVLIDOM_Element& element);
    void checkReferences(const TVLIDOM_Element& element);
    void checkReferencesIn(const TVLIDOM_Element& element, const std::string& attribute,
                           const std::string& text, CTLFinding::Severity severity);
    void checkWholeText(const TVLIDOM_Element& element);
    void checkCondition(const TVLIDOM_Element& param);
    void checkProgram(const TVLIDOM_Element& spawn, const std::string& path);
    void checkSignal(const TVLIDOM_Element& stop, bool isPinged);
    void checkPing(const TVLIDOM_Element& process, bool isPinged);
    void checkDependency(const TVLIDOM_Element& socketSend);
    void checkMarkers(const TVLIDOM_Element& socketSend);
    void checkMarker(const TVLIDOM_Element& socketSend, const char* name, int size);
    void checkAddress(const TVLIDOM_Element& socketSend);

    const CTLDocument& m_document;
    const CTLReferences& m_references;
    CTLFindings& m_findings;
    std::vector<Address> m_addresses;
};
