// A process of this machine as /proc shows it.
//
// Purpose: reads what a process has inherited and what it is: signal masks, descriptors, identity, environment.
// Ownership: owns nothing; only the id is kept, and every question is asked anew.
// Threads: any.
// Units: as /proc has them.
// Errors: of a process that has gone, and of an entry that is not there, everything is empty or 0.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

class ProcessView {
  public:
    explicit ProcessView(pid_t pid) : m_pid(pid) {}

    pid_t pid() const { return m_pid; }

    // The program and its arguments, a blank after each.
    std::string commandLine() const;
    // An entry as it stands, such as "limits" or "task/7/status".
    std::string content(const std::string& entry) const;
    // Where a link such as "exe", "cwd" or "fd/1" leads.
    std::string target(const std::string& link) const;
    std::size_t entriesOf(const std::string& folder) const;

    // The value of a line "<key>: value" of /proc/<pid>/status.
    std::string status(const std::string& key) const;
    // A column of /proc/<pid>/stat, counted from 1 as its description does, from the third on.
    std::string stat(std::size_t column) const;
    pid_t parent() const;
    pid_t group() const;
    pid_t session() const;

    // One line per open descriptor, in the order of the numbers: number, blank, what it is.
    std::string descriptors() const;
    // Those above the standard three that a program started from this process would get.
    std::string inheritableDescriptors() const;
    // NAME=VALUE, in the order of the environment.
    std::vector<std::string> environment() const;

    // The value after "<key>:" and blanks, up to the end of the line.
    static std::string field(const std::string& text, const std::string& key);

  private:
    std::vector<int> descriptorNumbers() const;

    pid_t m_pid;
};
