// The user who runs the service of an instance.
//
// Purpose: a check must have that user's rights, and root must not read with root's what others could have arranged: as
//   root this process becomes that user, for good.
// Ownership, threads: free functions; the change is the process's.
// Units: user ids.
// Errors: CTLError when another user has to give the command, or the user cannot be had.
#pragma once

#include <sys/types.h>

class CTLInstance;

namespace CTLServiceUser {

// The owner of the folder that the service writes to; of the package's instance the package's user.
uid_t of(const CTLInstance& instance);

// Only as root: for a command that others may give as well, as far as their rights go.
void becomeAsRoot(const CTLInstance& instance);

// Does nothing when this process is that user's. For an instance of one's own any other user may look as well.
void become(const CTLInstance& instance);

}  // namespace CTLServiceUser
