// A machine in virtual time, with the children of a service on it.
//
// Purpose: what the service meets when it runs here: its children's processes, which end when they are told to, the
//   security library, whose connections lead to those children, a disk that is only read, and a wall clock. All are
//   told how to behave, before or while time passes, and what the service has found is told to a listener.
//   Which child a process belongs to is learned from the order in which a supervisor works: it looks at a child before
//   it does anything to it. The first processes are those of the children in their order.
// Ownership: as ReadOnlyOs; the children's notes.
// Threads: as VirtualOs. Children are read and changed within with(). A listener is called by the thread that has found
//   something, while it holds no lock of this object's; it must not wait.
// Units: milliseconds, the wall clock's beginning in seconds since the epoch.
// Errors: as TVLOs says.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "ReadOnlyOs.h"
#include "VirtualChild.h"

// What has been found of a child, or done to it.
struct VirtualEvent {
    enum class Kind {
        Started,     // a process was made
        Ended,       // its process has ended, whyever
        Looked,      // it is alive
        FoundGone,   // it is not
        Connected,   // for a ping or a stop command
        Failed,      // a ping was not answered
        Answered,    // an answer was read
        ToldToStop,  // by a command, a signal or a program
        Killed
    };
    Kind kind;
    std::size_t child;
    std::int64_t atMs;
};

class VirtualMachine : public ReadOnlyOs {
  public:
    explicit VirtualMachine(std::time_t wallClock = 0);
    ~VirtualMachine() override;

    // Called once, when the service makes its first process: by then it knows its children.
    void askForChildren(std::function<std::vector<VirtualChild>()> children) {
        m_askForChildren = std::move(children);
    }
    // Sees and changes the children; whoever waits for one looks again.
    void with(const std::function<void(std::vector<VirtualChild>&)>& change);
    void listenToEvents(std::function<void(const VirtualEvent&)> listener) {
        m_onEvent = std::move(listener);
    }
    // Called when a second thread beside the main one has started: from now on the supervisor waits.
    void onSupervision(std::function<void()> begins) { m_onSupervision = std::move(begins); }
    // The process of a child ends.
    void end(std::size_t child);
    // From now on what would never end does: waits without a limit are refused, and a service that goes on sleeping for
    // longer than kEndlessMs gets Endless thrown at it.
    void giveUp();
    bool isOver() const { return m_givenUpAtMs >= 0; }
    static constexpr std::int64_t kEndlessMs = std::int64_t{30} * 24 * 3600 * 1000;
    struct Endless {};
    // Called when the service signals its whole process group, which it belongs to itself. A termination signal then
    // reaches it; others only come here.
    void listenToGroup(std::function<void(int signal)> listener) { m_onGroupSignal = std::move(listener); }
    // Called when a thread begins to wait for something for some time at most, as a supervisor does between its rounds.
    void listenToWaits(std::function<void()> listener) { m_onWait = std::move(listener); }
    // What a command for the daemon starts is a daemon with children that live: it writes this file.
    void beDaemon(std::string pidFile) { m_daemonPidFile = std::move(pidFile); }

    pid_t fork() override;
    int kill(pid_t pid, int signal) override;
    pid_t getpid() override;
    std::time_t wallClock() override;
    unsigned int currentThreadId() override;
    int startThread(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                    void* argument) override;
    bool holdProcess(pid_t pid, uid_t user) override;
    void sleepMs(std::int64_t durationMs) override;
    bool waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                   std::int64_t deadlineMs) override;
    void* dlopen(const char* file, int mode) override;
    void* dlsym(void* library, const char* name) override;
    int dlclose(void* library) override;

    // ---- For the security library. ----

    static VirtualMachine& current();
    static constexpr std::size_t kNobody = static_cast<std::size_t>(-1);
    // The child that is reached at this address, the one that is looked at before others.
    std::size_t childAt(const std::string& uri);
    // A copy; of kNobody one that refuses.
    VirtualChild childNow(std::size_t child);
    // Whether the process with which a connection was made lives.
    bool lives(std::size_t child, pid_t pid);
    // Returns at that time or when something has changed.
    void waitForChange(std::int64_t deadlineMs);
    void tell(VirtualEvent::Kind kind, std::size_t child);
    // The child takes its stop command.
    void tellToStop(std::size_t child);

  protected:
    bool refusesEndlessWaits() override { return m_givenUpAtMs >= 0; }

  private:
    int killGroup(int signal);
    void signalChild(std::size_t child, int signal);
    void begin(std::size_t child, pid_t pid);
    void endNow(std::size_t child, pid_t pid);
    std::size_t childWith(pid_t pid);
    pid_t startDaemon();
    void meetChildren();

    std::time_t m_wallClock;
    std::function<std::vector<VirtualChild>()> m_askForChildren;
    std::function<void(const VirtualEvent&)> m_onEvent;
    std::function<void()> m_onSupervision;
    std::function<void(int)> m_onGroupSignal;
    std::function<void()> m_onWait;
    std::string m_daemonPidFile;

    std::mutex m_state;  // guards the children and what follows
    std::condition_variable m_changed;
    std::vector<VirtualChild> m_children;
    std::size_t m_nextChild = 0;       // of the first starts
    std::size_t m_lookedAt = kNobody;  // by the supervisor, latest
    pid_t m_threads = 0;               // that have been started
    std::atomic<std::int64_t> m_givenUpAtMs{-1};
};
