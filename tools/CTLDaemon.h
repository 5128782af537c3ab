// The daemon of an instance: is it there, and is it really it?
//
// Purpose: the PID file names a process; what that process is says the proc file system. Whoever has the id now is the
//   daemon when it runs the instance's program, works in its bin/ folder, belongs to the user that the PID file belongs
//   to, and was there before the PID file was written, which was after the machine was started. No signal is sent.
// Ownership: a value.
// Threads: one.
// Units: seconds since the epoch.
// Errors: a PID file that is none (a folder, a pipe, too large, behind another user's link) is one without a number.
#pragma once

#include <sys/types.h>

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "CTLProcesses.h"

class CTLInstance;

enum class CTLVerdict {
    Running,      // proved
    NotRunning,   // no PID file
    Stale,        // the PID file names no process
    UsedAgain,    // the id belongs to another program now
    AnotherUser,  // the id belongs to another user's process
    NotProved     // it may be the daemon: another user has to ask
};

class CTLDaemon {
  public:
    static CTLDaemon of(const CTLInstance& instance, const CTLProcesses& processes);

    CTLVerdict verdict() const { return m_verdict; }
    bool isRunning() const { return m_verdict == CTLVerdict::Running; }
    // In one word or few: "running", "not running", "stale", "used again", "of another user", "not proved".
    const char* word() const;
    // Why, in a sentence.
    const std::string& reason() const { return m_reason; }
    // What else a person should know; empty when there is nothing.
    const std::vector<std::string>& notes() const { return m_notes; }
    // The process that has the id, if there is one.
    const std::optional<CTLProcess>& process() const { return m_process; }
    // The command line of a daemon that runs.
    const std::vector<std::string>& arguments() const { return m_arguments; }
    // The user that has to ask, where something could not be proved.
    const std::string& userToBe() const { return m_userToBe; }

    // "velbootstrap", or the number of a user without a name.
    static std::string nameOf(uid_t user);

  private:
    // What the PID file says.
    struct Record {
        pid_t pid = 0;
        uid_t owner = 0;
        std::time_t written = 0;
    };

    static std::optional<Record> read(const std::string& path, std::string& why);
    void judge(const CTLInstance& instance, const CTLProcesses& processes);
    void judgeRecord(const CTLInstance& instance, const CTLProcesses& processes, const Record& record);
    void judgeProcess(const CTLInstance& instance, const CTLProcesses& processes, const Record& record);
    void judgeAge(const CTLProcesses& processes, const Record& record);
    void noteOthers(const CTLInstance& instance, const CTLProcesses& processes);
    bool isInRunMode() const;
    std::string who() const;
    void decide(CTLVerdict verdict, const std::string& reason);

    CTLVerdict m_verdict = CTLVerdict::NotRunning;
    std::string m_reason;
    std::vector<std::string> m_notes;
    std::optional<CTLProcess> m_process;
    std::vector<std::string> m_arguments;
    std::string m_userToBe;
};
