// Who may give an instance's commands, and how.
//
// Purpose: the service runs as the user to whom its logs/ folder belongs. Root becomes that user before it touches
//   anything, and runs no program that is neither that user's nor its own; another user is told whom to be. The package's
//   instance is handed over to the system's service manager, when that is running.
// Ownership: holds the instance's bin/ folder and program open, so that nobody can exchange them after they were looked at.
// Threads: one, before there are others.
// Units: none.
// Errors: CTLError, with kWrongUser where another user has to give the command.
#pragma once

#include <sys/types.h>

#include <string>

#include "TVLDescriptor.h"

class CTLInstance;

class CTLAuthority {
  public:
    // Looks, and changes nothing.
    explicit CTLAuthority(const CTLInstance& instance);

    // The unit that starts and stops the instance; empty when the service's own commands do.
    static std::string unitOf(const CTLInstance& instance);

    // From now on this process is the instance's user, for good.
    void become();
    // The instance's program with these options, in its bin/ folder; returns only when that fails.
    void execute(const std::string& option, int seconds) const;

  private:
    void requireOwn(const TVLDescriptor& file, const std::string& path) const;

    TVLDescriptor m_bin;
    TVLDescriptor m_program;
    uid_t m_user = 0;
    gid_t m_group = 0;
};
