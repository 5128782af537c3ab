// The service's own preparation, run in this process on the documents of an instance.
//
// Purpose: what the service would make of its documents is asked of its own classes, so that no rule is read twice:
//   environment file, install paths, startup configuration, security library, bootstrap document, children. Nothing
//   is started, and nothing is written into the instance: what the service would log is kept here.
// Ownership: owns the service object. One in a process, because the service's properties and its log are the process's;
//   the working folder is the instance's bin/ from then on, and its environment file has been applied.
// Threads: the main thread.
// Units: none.
// Errors: CTLError when the folder cannot be entered. What is wrong with the documents is in the lines, and isUsable().
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "CTLLogLine.h"
#include "ZORBootstrapService.h"

class CTLInstance;

class CTLPreparation {
  public:
    // `arguments` are those that the service is given, its own name first: options among them stand for properties.
    explicit CTLPreparation(const CTLInstance& instance, const std::vector<std::string>& arguments = {});
    CTLPreparation(const CTLPreparation&) = delete;
    CTLPreparation& operator=(const CTLPreparation&) = delete;
    ~CTLPreparation();

    // Whether the service would go on with these documents.
    bool isUsable() const { return m_usable; }
    ZORBootstrapService& service() { return *m_service; }
    // What the service would have logged until now, at all levels.
    std::vector<CTLLogLine> lines() const;
    // From now on nothing more is kept of what the service's classes log.
    void keepNoMore();

  private:
    bool prepare(std::vector<std::string> arguments);
    bool readStartupConfiguration();

    char* m_text = nullptr;  // the log, as the stream leaves it
    std::size_t m_size = 0;
    std::FILE* m_log = nullptr;
    std::unique_ptr<ZORBootstrapService> m_service;
    bool m_usable = false;
};
