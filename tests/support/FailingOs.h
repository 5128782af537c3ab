// An operating system that refuses one call of a kind, or all from one on.
//
// Purpose: stands before the operating system that is in force, be it the real one or a virtual one, hands every call
//   on, and counts those that can fail by their kinds. A test lets one of them fail, and knows from the count when it
//   has been through all.
// Ownership: in force while it exists; the one it stands before must outlive it.
// Threads: told what to do while no other thread calls; the calls may come from any. Neither lock nor memory is needed
//   for counting, so that a forked child can go on.
// Units: calls are numbered from 1.
// Errors: a refused call fails as its declaration says, with the errno that the test gives.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <ostream>

#include "TVLOs.h"

// One line for each member, however long.
// clang-format off

// The kinds of calls that can fail.
#define OS_KINDS(X) \
    X(Open) X(Duplicate) X(OpenStream) X(OpenFolder) X(Read) X(ReadLine) X(ReadFolder) X(ReadLink) \
    X(Write) X(WriteNoWait) X(Send) X(WriteStream) X(Poll) X(WaitWritable) X(Status) X(NamedStatus) \
    X(FileSystem) X(StatusFlags) X(Truncate) X(ChangeMode) X(ChangeOwner) X(Remove) X(MakeFolder) \
    X(ChangeFolder) X(ReturnToFolder) X(WorkingFolder) X(Fork) X(Execute) X(Signal) X(TestProcess) \
    X(HoldProcess) X(OpenProcess) X(SignalProcess) X(ExamineChild) X(DescriptorLimit) X(NewSession) \
    X(SetVariable) X(LoadLibrary) X(FindSymbol) X(UnloadLibrary) X(WaitForSignal) X(Wait) \
    X(StartThread)

// Each member of the doorway that can fail: its kind, which may depend on the parameters; result, name, parameters and
// arguments; what a refused call gives. One that is missing both here and below leaves FailingOs abstract, and nothing
// that uses it compiles.
#define OS_CALLS(X) \
    X(Open, int, openat, (int folder, const char* path, int flags, mode_t mode), (folder, path, flags, mode), -1) \
    X(Duplicate, int, dup, (int descriptor), (descriptor), -1) \
    X(Duplicate, int, duplicateFrom, (int lowest, int descriptor), (lowest, descriptor), -1) \
    X(OpenStream, std::FILE*, fdopen, (int descriptor, const char* mode), (descriptor, mode), nullptr) \
    X(OpenFolder, DIR*, fdopendir, (int descriptor), (descriptor), nullptr) \
    X(Read, ssize_t, read, (int descriptor, void* buffer, std::size_t size), (descriptor, buffer, size), -1) \
    X(ReadLine, char*, fgets, (char* line, int size, std::FILE* stream), (line, size, stream), nullptr) \
    X(ReadFolder, dirent*, readdir, (DIR* folder), (folder), nullptr) \
    X(ReadLink, ssize_t, readlinkat, (int folder, const char* path, char* text, std::size_t size), (folder, path, text, size), -1) \
    X(Write, ssize_t, write, (int descriptor, const void* data, std::size_t size), (descriptor, data, size), -1) \
    X(WriteNoWait, ssize_t, writeNoWait, (int descriptor, const void* data, std::size_t size), (descriptor, data, size), -1) \
    X(Send, ssize_t, sendNoWait, (int socket, const void* data, std::size_t size), (socket, data, size), -1) \
    X(WriteStream, bool, writeStream, (std::FILE* stream, std::string_view text), (stream, text), false) \
    X(Poll, int, poll, (pollfd* entries, nfds_t count, int timeoutMs), (entries, count, timeoutMs), -1) \
    X(WaitWritable, bool, waitWritable, (int descriptor, std::int64_t timeoutMs), (descriptor, timeoutMs), false) \
    X(Status, int, fstat, (int descriptor, struct stat* status), (descriptor, status), -1) \
    X(NamedStatus, int, fstatat, (int folder, const char* path, struct stat* status, int flags), (folder, path, status, flags), -1) \
    X(FileSystem, int, fstatfs, (int descriptor, struct statfs* status), (descriptor, status), -1) \
    X(StatusFlags, int, statusFlags, (int descriptor), (descriptor), -1) \
    X(Truncate, int, ftruncate, (int descriptor, off_t size), (descriptor, size), -1) \
    X(ChangeMode, int, fchmod, (int descriptor, mode_t mode), (descriptor, mode), -1) \
    X(ChangeOwner, int, fchownat, (int folder, const char* path, uid_t user, gid_t group, int flags), (folder, path, user, group, flags), -1) \
    X(Remove, int, unlinkat, (int folder, const char* path, int flags), (folder, path, flags), -1) \
    X(MakeFolder, int, mkdirat, (int folder, const char* path, mode_t mode), (folder, path, mode), -1) \
    X(MakeFolder, int, makeFolders, (const char* path), (path), -1) \
    X(ChangeFolder, int, chdir, (const char* path), (path), -1) \
    X(ReturnToFolder, int, fchdir, (int folder), (folder), -1) \
    X(WorkingFolder, char*, getcwd, (char* path, std::size_t size), (path, size), nullptr) \
    X(Fork, pid_t, fork, (), (), -1) \
    X(Execute, int, execve, (const char* path, char* const argv[], char* const envp[]), (path, argv, envp), -1) \
    X(signal == 0 ? TestProcess : Signal, int, kill, (pid_t pid, int signal), (pid, signal), -1) \
    X(HoldProcess, bool, holdProcess, (pid_t pid, uid_t user), (pid, user), false) \
    X(OpenProcess, int, openProcess, (pid_t pid), (pid), -1) \
    X(SignalProcess, int, signalProcess, (int process, int signal), (process, signal), -1) \
    X(ExamineChild, int, examineChild, (int process), (process), -1) \
    X(DescriptorLimit, int, descriptorLimit, (rlimit* limit), (limit), -1) \
    X(NewSession, pid_t, setsid, (), (), -1) \
    X(SetVariable, int, putenv, (char* variable), (variable), -1) \
    X(LoadLibrary, void*, dlopen, (const char* file, int mode), (file, mode), nullptr) \
    X(FindSymbol, void*, dlsym, (void* library, const char* name), (library, name), nullptr) \
    X(UnloadLibrary, int, dlclose, (void* library), (library), -1) \
    X(WaitForSignal, int, waitForSignal, (const sigset_t& signals), (signals), 0) \
    X(Wait, bool, waitUntil, (std::condition_variable& condition, std::unique_lock<std::mutex>& lock, std::int64_t deadlineMs), (condition, lock, deadlineMs), refuseToWait()) \
    X(StartThread, int, startThread, (pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument), (thread, attributes, body, argument), errno)

// The members that cannot fail, and isTerminal(), which answers a question: result, name, parameters and arguments.
#define OS_SURE_CALLS(X) \
    X(bool, isTerminal, (int descriptor), (descriptor)) \
    X(pid_t, getpid, (), ()) \
    X(uid_t, geteuid, (), ()) \
    X(const char*, getenv, (const char* name), (name)) \
    X(void, exitProcess, (int status), (status)) \
    X(void, signalThread, (pthread_t thread, int signal), (thread, signal)) \
    X(std::int64_t, nowMs, (), ()) \
    X(void, sleepMs, (std::int64_t durationMs), (durationMs)) \
    X(std::time_t, wallClock, (), ()) \
    X(void, wakeAll, (std::condition_variable& condition), (condition)) \
    X(unsigned int, currentThreadId, (), ()) \
    X(void, threadStarts, (), ()) \
    X(void, threadEnds, (), ())

// clang-format on

#define OS_KIND(kind) kind,
enum class OsKind : std::size_t { OS_KINDS(OS_KIND) };
#undef OS_KIND

#define OS_KIND(kind) OsKind::kind,
constexpr std::array kOsKinds{OS_KINDS(OS_KIND)};
#undef OS_KIND

const char* nameOf(OsKind kind);
void PrintTo(OsKind kind, std::ostream* out);

class FailingOs : public TVLOs {
  public:
    explicit FailingOs(TVLOs& os = TVLOs::current());
    ~FailingOs() override;

    // From now on, counted anew, the `number`-th call of the kind is refused, or all from that one on.
    void failNth(OsKind kind, int number, int error);
    void failFrom(OsKind kind, int number, int error);
    // Nothing is refused any more, and all counts are 0.
    void reset();

    int uses(OsKind kind) const { return plan(kind).uses; }  // refused ones included
    int refusals(OsKind kind) const { return plan(kind).refusals; }

#define OS_MEMBER(kind, result, name, parameters, arguments, refused) result name parameters override;
    OS_CALLS(OS_MEMBER)
#undef OS_MEMBER
#define OS_MEMBER(result, name, parameters, arguments) result name parameters override;
    OS_SURE_CALLS(OS_MEMBER)
#undef OS_MEMBER

  private:
    struct Plan {
        std::atomic<int> uses{0};
        std::atomic<int> refusals{0};
        int first = 0;  // 0: none is refused
        int last = 0;
        int error = 0;
    };

    const Plan& plan(OsKind kind) const {
        return m_plans[static_cast<std::size_t>(kind)];
    }
    void refuse(OsKind kind, int first, int last, int error);
    // Counts the call; true, with errno set, when it is to be refused.
    bool refuses(OsKind kind);

    TVLOs& m_os;
    TVLOs* m_before;
    std::array<Plan, kOsKinds.size()> m_plans;
};
