// The part of the doorway that leads to processes: this one, its children, and others by their ids.
//
// Purpose: starting, signalling and examining processes, and what this one is told from outside.
// Ownership: the descriptors of processes are the caller's. What putenv() is given belongs to the environment.
// Threads: every member may be called from any thread; putenv() before there are others. Between fork() and execve()
//   nothing here takes memory.
// Units: none.
// Errors: as the system calls of the same names, the others as kill(): -1 with errno set.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

class TVLOsProcesses {
  public:
    TVLOsProcesses() = default;
    TVLOsProcesses(const TVLOsProcesses&) = delete;
    TVLOsProcesses& operator=(const TVLOsProcesses&) = delete;
    virtual ~TVLOsProcesses();

    virtual pid_t fork() = 0;  // child: 0; parent: the child's id, or -1
    // Returns only on failure.
    virtual int execve(const char* path, char* const argv[], char* const envp[]) = 0;
    // Speaks to the process that fork() made, or holdProcess() was given, under this id; when that one has ended,
    // nobody else gets the signal: ESRCH. Other ids go to the system as they are.
    virtual int kill(pid_t pid, int signal) = 0;
    // From now on kill() with this id means the process that has it now, provided its real user is `user`. Otherwise
    // false: EPERM for another's, ESRCH for none.
    virtual bool holdProcess(pid_t pid, uid_t user) = 0;

    // By descriptors, for the table that kill() and holdProcess() stand on.
    virtual int openProcess(pid_t pid) = 0;  // of the process that has this id now, close-on-exec
    virtual int signalProcess(int process, int signal) = 0;
    virtual int examineChild(
        int process) = 0;  // 0: it is a child of this process; ECHILD: it is none (any more)
    virtual int descriptorLimit(rlimit* limit) = 0;

    // This process.
    virtual pid_t getpid() = 0;
    virtual uid_t geteuid() = 0;
    virtual pid_t setsid() = 0;
    virtual const char* getenv(const char* name) = 0;  // null: not set
    virtual int putenv(char* variable) = 0;
    virtual void exitProcess(int status) = 0;  // exit(status); a test's replacement throws instead
};
