// One installation of the service on disk.
//
// Purpose: finds the instance that a command is about, and names its files. It reads nothing.
// Ownership: owns its paths.
// Threads: as any value.
// Units: none.
// Errors: find() throws CTLError, which says where it has looked.
#pragma once

#include <filesystem>
#include <string>

class CTLInstance {
  public:
    // The first of: `given` (may be empty), $VELBOOTSTRAP_INSTANCE, the working folder or the one above it, the
    // package's. An instance that is named and is none is an error; nothing else is tried then.
    static CTLInstance find(const std::string& given);
    // The package's instance; it need not be there.
    static std::filesystem::path systemFolder();

    explicit CTLInstance(const std::filesystem::path& folder) : m_folder(folder) {}

    const std::filesystem::path& folder() const { return m_folder; }
    std::filesystem::path bin() const { return m_folder / "bin"; }
    std::filesystem::path configuration() const { return m_folder / "configuration"; }
    std::filesystem::path logs() const { return m_folder / "logs"; }
    std::filesystem::path temp() const { return m_folder / "temp"; }
    std::filesystem::path executable() const { return bin() / "velbootstrapservice"; }
    std::filesystem::path bootstrapDocument() const { return bin() / "bootstrap_linuxi38632.xml"; }
    std::filesystem::path loggingDocument() const { return bin() / "zorlogconfig.xml"; }
    std::filesystem::path startupDocument() const { return configuration() / "startup.xml"; }
    std::filesystem::path environmentFile() const { return configuration() / "zorEnvironmentVars.ini"; }
    std::filesystem::path pidFile() const { return logs() / "velbootstrap_service.pid"; }

    // Whether it is the package's, which the system's service manager starts and stops.
    bool isSystem() const;

  private:
    std::filesystem::path m_folder;  // absolute, without links
};
