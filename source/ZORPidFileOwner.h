// Whose processes a PID file may name.
//
// Purpose: whoever writes a PID file says which process gets root's SIGTERM. So with root's rights a file of another
//   user's, or one in another user's folder, is believed only for processes of that user.
// Ownership: none.
// Threads: free functions without state.
// Units: none.
// Errors: what cannot be found out makes the file name nobody's process.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <optional>
#include <string>

namespace ZORPidFileOwner {

// No process is this user's.
constexpr uid_t kNobody = static_cast<uid_t>(-1);

// The user whose processes alone the file may name, or none when it may name any. `file` was opened at `path`.
std::optional<uid_t> of(std::FILE* file, const std::string& path);

}  // namespace ZORPidFileOwner
