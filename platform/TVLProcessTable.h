// The processes that this one speaks to by their ids.
//
// Purpose: what TVLRealOs has behind fork(), kill() and holdProcess(). Ended children are reaped at once, so the id of one that has ended may name a stranger soon after. The
//   table keeps a descriptor of the process beside its id: a signal reaches that process or nobody. An id that
//   it has no descriptor for, because the kernel has no such descriptors or too few are left, is signalled as it is.
// Ownership: the table owns the descriptors, which no child inherits. One is closed when its process has been found
//   to have ended. Of those the last kRemembered are remembered until somebody tests whether they live.
// Threads: every member may be called from any thread. fork() holds the lock, so that a forked child, which begins
//   with an empty table, finds it free.
// Units: none.
// Errors: as the system calls of the same names: -1 with errno set; hold() likewise false.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <deque>
#include <map>
#include <optional>

#include "TVLDescriptor.h"
#include "TVLThreadSync.h"

class TVLProcessTable {
  public:
    // Ended processes whose ids are remembered; many more than there are children.
    static constexpr std::size_t kRemembered = 4096;
    // Numbers below the limit of open files that are left to files and connections.
    static constexpr int kReserve = 64;

    TVLProcessTable() = default;
    TVLProcessTable(const TVLProcessTable&) = delete;
    TVLProcessTable& operator=(const TVLProcessTable&) = delete;
    ~TVLProcessTable();

    pid_t fork();
    int kill(pid_t pid, int signal);
    // From now on kill() with this id speaks to the process that has it now, if its real user is `user`. Otherwise
    // false: EPERM for another's or one whose user cannot be told, ESRCH for none.
    bool hold(pid_t pid, uid_t user);

  private:
    // The real user of the process that has this id now; none when that cannot be told.
    static std::optional<uid_t> userOf(pid_t pid);

    void remember(pid_t child) TVL_REQUIRES(m_mutex);
    void keep(pid_t pid, TVLDescriptor process) TVL_REQUIRES(m_mutex);
    void rememberAsEnded(pid_t pid) TVL_REQUIRES(m_mutex);
    void forget(pid_t pid) TVL_REQUIRES(m_mutex);
    void closeEnded() TVL_REQUIRES(m_mutex);

    TVLThreadMutex m_mutex;
    std::map<pid_t, TVLDescriptor> m_held TVL_GUARDED_BY(m_mutex);
    std::deque<pid_t> m_ended TVL_GUARDED_BY(m_mutex);  // oldest first
};
