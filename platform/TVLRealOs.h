// The operating system itself.
//
// Purpose: what stands behind the doorway when no test has put anything else there. Each member is the call that its
//   declaration in TVLOs or one of its bases describes.
// Ownership: has the table of the processes that kill() speaks to.
// Threads, units, errors: as TVLOs and its bases say.
#pragma once

#include "TVLOs.h"
#include "TVLProcessTable.h"

class TVLRealOs : public TVLOs {
  public:
    TVLRealOs();
    ~TVLRealOs() override;

    int openat(int folder, const char* path, int flags, mode_t mode) override;
    int dup(int descriptor) override;
    int duplicateFrom(int lowest, int descriptor) override;
    std::FILE* fdopen(int descriptor, const char* mode) override;
    DIR* fdopendir(int descriptor) override;
    ssize_t read(int descriptor, void* buffer, std::size_t size) override;
    char* fgets(char* line, int size, std::FILE* stream) override;
    dirent* readdir(DIR* folder) override;
    ssize_t readlinkat(int folder, const char* path, char* text, std::size_t size) override;
    ssize_t write(int descriptor, const void* data, std::size_t size) override;
    ssize_t writeNoWait(int descriptor, const void* data, std::size_t size) override;
    ssize_t sendNoWait(int socket, const void* data, std::size_t size) override;
    bool writeStream(std::FILE* stream, std::string_view text) override;
    int poll(pollfd* entries, nfds_t count, int timeoutMs) override;
    bool waitWritable(int descriptor, std::int64_t timeoutMs) override;
    int fstat(int descriptor, struct stat* status) override;
    int fstatat(int folder, const char* path, struct stat* status, int flags) override;
    int fstatfs(int descriptor, struct statfs* status) override;
    int statusFlags(int descriptor) override;
    bool isTerminal(int descriptor) override;
    int ftruncate(int descriptor, off_t size) override;
    int fchmod(int descriptor, mode_t mode) override;
    int fchownat(int folder, const char* path, uid_t user, gid_t group, int flags) override;
    int unlinkat(int folder, const char* path, int flags) override;
    int mkdirat(int folder, const char* path, mode_t mode) override;
    int makeFolders(const char* path) override;
    int chdir(const char* path) override;
    int fchdir(int folder) override;
    char* getcwd(char* path, std::size_t size) override;

    pid_t fork() override;
    int execve(const char* path, char* const argv[], char* const envp[]) override;
    int kill(pid_t pid, int signal) override;
    bool holdProcess(pid_t pid, uid_t user) override;
    int openProcess(pid_t pid) override;
    int signalProcess(int process, int signal) override;
    int examineChild(int process) override;
    int descriptorLimit(rlimit* limit) override;
    pid_t getpid() override;
    uid_t geteuid() override;
    pid_t setsid() override;
    const char* getenv(const char* name) override;
    int putenv(char* variable) override;
    void exitProcess(int status) override;

    void* dlopen(const char* file, int mode) override;
    void* dlsym(void* library, const char* name) override;
    int dlclose(void* library) override;

    int waitForSignal(const sigset_t& signals) override;
    void signalThread(pthread_t thread, int signal) override;
    std::int64_t nowMs() override;
    void sleepMs(std::int64_t durationMs) override;
    std::time_t wallClock() override;
    bool waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                   std::int64_t deadlineMs) override;
    void wakeAll(std::condition_variable& condition) override;
    int startThread(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                    void* argument) override;
    unsigned int currentThreadId() override;
    void threadStarts() override;
    void threadEnds() override;

  private:
    TVLProcessTable m_processes;
};
