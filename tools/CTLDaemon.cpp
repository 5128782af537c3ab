#include "CTLDaemon.h"

#include <pwd.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include "CTLInstance.h"
#include "TVLFile.h"
#include "TVLNumber.h"
#include "ZORCmdLine.h"
#include "ZORModes.h"

namespace {

// The clock of the processes' starts is as coarse as a second at either end.
constexpr std::time_t kToleranceSec = 2;

std::string quoted(const std::string& text) {
    return "\"" + text + "\"";
}

bool isOurs(const CTLInstance& instance, const CTLProcesses& processes, pid_t pid) {
    return processes.compare(pid, "exe", instance.executable()) == CTLProcesses::Link::Same &&
           processes.compare(pid, "cwd", instance.bin()) == CTLProcesses::Link::Same;
}

// The program of a process whose file has been replaced since: the kernel says so after its name.
bool wasReplaced(const CTLInstance& instance, const std::string& target) {
    std::error_code error;
    const std::string path = std::filesystem::canonical(instance.executable(), error).string();
    return !error && target == path + " (deleted)";
}

}  // namespace

CTLDaemon CTLDaemon::of(const CTLInstance& instance, const CTLProcesses& processes) {
    CTLDaemon daemon;
    daemon.judge(instance, processes);
    return daemon;
}

const char* CTLDaemon::word() const {
    switch (m_verdict) {
        case CTLVerdict::Running:
            return "running";
        case CTLVerdict::NotRunning:
            return "not running";
        case CTLVerdict::Stale:
            return "stale";
        case CTLVerdict::UsedAgain:
            return "used again";
        case CTLVerdict::AnotherUser:
            return "of another user";
        case CTLVerdict::NotProved:
            return "not proved";
    }
    return "";
}

std::string CTLDaemon::nameOf(uid_t user) {
    passwd entry{};
    passwd* found = nullptr;
    std::array<char, 4096> texts{};
    if (getpwuid_r(user, &entry, texts.data(), texts.size(), &found) == 0 && found != nullptr)
        return entry.pw_name;
    return std::to_string(user);
}

void CTLDaemon::decide(CTLVerdict verdict, const std::string& reason) {
    m_verdict = verdict;
    m_reason = reason;
}

// Read as the service reads it: the number at the beginning of a small regular file's first line.
std::optional<CTLDaemon::Record> CTLDaemon::read(const std::string& path, std::string& why) {
    const TVLFilePtr file = TVLFile::openForReading(path.c_str(), TVLFile::kMostOfARecord, &why);
    struct stat status {};
    if (!file || fstat(fileno(file.get()), &status) != 0) return std::nullopt;
    std::array<char, 64> line{};
    if (std::fgets(line.data(), static_cast<int>(line.size()), file.get()) == nullptr) line[0] = '\0';
    return Record{TVLNumber::parse(line.data()), status.st_uid, status.st_mtim.tv_sec};
}

void CTLDaemon::judge(const CTLInstance& instance, const CTLProcesses& processes) {
    const std::string path = instance.pidFile();
    std::string why;
    const std::optional<Record> record = read(path, why);
    if (record) {
        judgeRecord(instance, processes, *record);
    } else if (errno == ENOENT) {
        decide(CTLVerdict::NotRunning, "there is no PID file");
    } else if (errno == EACCES) {
        decide(CTLVerdict::NotProved, "the PID file " + path + " may not be read");
        struct stat logs {};
        m_userToBe = nameOf(stat(instance.logs().c_str(), &logs) == 0 ? logs.st_uid : 0);
    } else {
        decide(CTLVerdict::Stale, "the PID file " + path + " cannot be used: " + why);
    }
    if (!isRunning()) noteOthers(instance, processes);
}

void CTLDaemon::judgeRecord(const CTLInstance& instance, const CTLProcesses& processes,
                            const Record& record) {
    if (record.pid < 1) {
        decide(CTLVerdict::Stale, "the PID file names no process");
        return;
    }
    m_process = processes.find(record.pid);
    if (!m_process) {
        const bool isOlder = record.written + kToleranceSec < processes.bootTime();
        decide(CTLVerdict::Stale, "process " + std::to_string(record.pid) + " has ended" +
                                      (isOlder ? "; the PID file is from before the machine's start" : ""));
        return;
    }
    if (m_process->user != record.owner) {
        decide(CTLVerdict::AnotherUser, who() + " belongs to " + nameOf(m_process->user) +
                                            ", the PID file to " + nameOf(record.owner));
        return;
    }
    judgeProcess(instance, processes, record);
}

std::string CTLDaemon::who() const {
    return "process " + std::to_string(m_process->pid) + " (" + m_process->name + ")";
}

void CTLDaemon::judgeProcess(const CTLInstance& instance, const CTLProcesses& processes,
                             const Record& record) {
    m_arguments = processes.argumentsOf(record.pid);
    const CTLProcesses::Link program = processes.compare(record.pid, "exe", instance.executable());
    if (program == CTLProcesses::Link::Unreadable) {
        m_userToBe = nameOf(m_process->user);
        decide(CTLVerdict::NotProved,
               "which program " + who() + " runs, and where, only " + m_userToBe + " may see");
        return;
    }
    const std::string target = processes.target(record.pid, "exe");
    const bool isOlderProgram = program == CTLProcesses::Link::Other && wasReplaced(instance, target);
    if (program == CTLProcesses::Link::Other && !isOlderProgram) {
        decide(CTLVerdict::UsedAgain, who() + " runs " + quoted(target));
    } else if (processes.compare(record.pid, "cwd", instance.bin()) != CTLProcesses::Link::Same) {
        decide(CTLVerdict::UsedAgain, who() + " works in " + quoted(processes.target(record.pid, "cwd")));
    } else {
        judgeAge(processes, record);
        if (isOlderProgram)
            m_notes.emplace_back(
                "its program has been replaced since it was started: a restart brings the new one");
    }
}

// Whoever came after the PID file did not write it. The service's own process in a mode that supervises is told from
// that: then the clock has been set.
void CTLDaemon::judgeAge(const CTLProcesses& processes, const Record& record) {
    const bool isLater = m_process->started > record.written + kToleranceSec;
    if (isLater && !isInRunMode()) {
        decide(CTLVerdict::UsedAgain, who() + " was started after the PID file was written");
        return;
    }
    decide(CTLVerdict::Running, "program, working folder, user and age of process " +
                                    std::to_string(record.pid) + " are those of the service");
    if (isLater || record.written + kToleranceSec < processes.bootTime())
        m_notes.emplace_back("its PID file seems older than the process: the clock has been set since");
}

bool CTLDaemon::isInRunMode() const {
    std::vector<std::string> texts = m_arguments;
    std::vector<char*> pointers;
    pointers.reserve(texts.size());
    for (std::string& text : texts)
        pointers.push_back(text.data());
    if (pointers.empty()) return false;
    const ZORCmdLine cmdLine(static_cast<int>(pointers.size()), pointers.data());
    const ZORMode mode = ZORModes::modeOf(cmdLine);
    // With a document of its own it has another PID file.
    const bool supervises = mode == ZORMode::Daemon || mode == ZORMode::Foreground;
    return supervises && cmdLine.find("-config", 0) < 0;
}

// A service that lost its PID file cannot be asked nor stopped by its commands.
void CTLDaemon::noteOthers(const CTLInstance& instance, const CTLProcesses& processes) {
    for (const pid_t pid : processes.all()) {
        if (m_process && m_process->pid == pid) continue;
        if (!isOurs(instance, processes, pid)) continue;
        CTLDaemon other;
        other.m_arguments = processes.argumentsOf(pid);
        if (!other.isInRunMode()) continue;
        m_notes.push_back("process " + std::to_string(pid) +
                          " is a service of this instance that the PID file does not name");
    }
}
