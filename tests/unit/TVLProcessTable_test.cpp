// Against the real kernel. Where ids must be given again, in a PID namespace of its own, in which nobody else starts
// processes.
#include "TVLProcessTable.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>

#include "FailingOs.h"
#include "TVLThread.h"

namespace {

constexpr uid_t kSomebodyElse = 54321;

// As the service has it: children that end are reaped at once.
class EndedChildrenGo {
  public:
    EndedChildrenGo() : m_before(std::signal(SIGCHLD, SIG_IGN)) {}
    ~EndedChildrenGo() { std::signal(SIGCHLD, m_before); }
    EndedChildrenGo(const EndedChildrenGo&) = delete;
    EndedChildrenGo& operator=(const EndedChildrenGo&) = delete;

  private:
    void (*m_before)(int);
};

[[noreturn]] void stay() {
    for (;;)
        pause();
}

void waitUntilGone(pid_t child) {
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
}

bool refused(int result, int error) {
    return result == -1 && errno == error;
}

bool notHeld(bool held, int error) {
    return !held && errno == error;
}

std::set<int> openDescriptors() {
    std::set<int> numbers;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        numbers.insert(std::atoi(entry.path().filename().c_str()));
    std::erase_if(numbers, [](int number) { return fcntl(number, F_GETFD) == -1; });  // the folder's own
    return numbers;
}

// What `work` has left open.
std::set<int> openedBy(const std::function<void()>& work) {
    const std::set<int> before = openDescriptors();
    work();
    std::set<int> opened;
    for (const int number : openDescriptors()) {
        if (before.count(number) == 0) opened.insert(number);
    }
    return opened;
}

// Room for this many more descriptors before the limit.
class FewDescriptors {
  public:
    explicit FewDescriptors(int more) {
        getrlimit(RLIMIT_NOFILE, &m_before);
        const int next = dup(STDIN_FILENO);
        close(next);
        rlimit few = m_before;
        few.rlim_cur = static_cast<rlim_t>(next + more);
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    }
    ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &m_before); }
    FewDescriptors(const FewDescriptors&) = delete;
    FewDescriptors& operator=(const FewDescriptors&) = delete;

  private:
    rlimit m_before{};
};

class NoDescriptors : public FailingOs {
  public:
    NoDescriptors() { failFrom(OsKind::OpenProcess, 1, ENOSYS); }
};

// The table comes too late: the child has ended and somebody else has its id.
class LateOs : public FailingOs {
  public:
    std::function<void(pid_t)> meanwhile;

    int openProcess(pid_t pid) override {
        if (meanwhile) meanwhile(pid);
        return FailingOs::openProcess(pid);
    }
};

class TVLProcessTableTest : public testing::Test {
  protected:
    pid_t forked() {
        const pid_t child = table.fork();
        if (child == 0) stay();
        return child;
    }

    static void end(pid_t child) {
        ::kill(child, SIGKILL);
        waitUntilGone(child);
    }

    TVLProcessTable table;
    EndedChildrenGo reaped;
};

TEST_F(TVLProcessTableTest, SpeaksToAChildAsLongAsItLives) {
    const pid_t child = forked();
    EXPECT_EQ(table.kill(child, 0), 0);
    EXPECT_EQ(table.kill(child, SIGKILL), 0);
    waitUntilGone(child);
    EXPECT_TRUE(refused(table.kill(child, SIGTERM), ESRCH));
    EXPECT_TRUE(refused(table.kill(child, 0), ESRCH));
}

TEST_F(TVLProcessTableTest, AnIdItDoesNotKnowIsTheSystems) {
    const pid_t other = fork();
    if (other == 0) stay();
    EXPECT_EQ(table.kill(other, SIGKILL), 0);
    waitUntilGone(other);
    EXPECT_TRUE(refused(table.kill(other, 0), ESRCH));
}

TEST_F(TVLProcessTableTest, ASignalThatIsNoneIsRefused) {
    const pid_t child = forked();
    EXPECT_TRUE(refused(table.kill(child, 12345), EINVAL));
    end(child);
}

TEST_F(TVLProcessTableTest, NoProgramInheritsADescriptor) {
    pid_t child = 0;
    const std::set<int> opened = openedBy([&] { child = forked(); });
    ASSERT_EQ(opened.size(), 1U);
    EXPECT_EQ(fcntl(*opened.begin(), F_GETFD), FD_CLOEXEC);
    end(child);
}

TEST_F(TVLProcessTableTest, AForkedChildBeginsWithNoDescriptors) {
    const pid_t first = forked();
    const pid_t second = forked();
    const std::set<int> known = openDescriptors();
    const pid_t child = table.fork();
    if (child == 0) ::_exit(openDescriptors().size() + 2 == known.size() ? 0 : 1);
    std::signal(SIGCHLD, SIG_DFL);
    int status = -1;
    const pid_t third = table.fork();
    if (third == 0) ::_exit(openDescriptors().size() + 2 == known.size() ? 0 : 1);
    ASSERT_EQ(waitpid(third, &status, 0), third);
    EXPECT_EQ(status, 0);
    std::signal(SIGCHLD, SIG_IGN);
    end(first);
    end(second);
    waitUntilGone(child);
}

TEST_F(TVLProcessTableTest, ADescriptorGoesWhenItsProcessIsFoundToHaveEnded) {
    EXPECT_TRUE(openedBy([&] {
                    const pid_t child = forked();
                    end(child);
                    EXPECT_TRUE(refused(table.kill(child, SIGTERM), ESRCH));
                }).empty());
}

TEST_F(TVLProcessTableTest, ChildrenNobodyAsksAboutKeepNoDescriptors) {
    pid_t last = 0;
    const std::set<int> opened = openedBy([&] {
        for (int i = 0; i < 20; ++i)
            end(forked());
        last = forked();
    });
    EXPECT_EQ(opened.size(), 1U) << "the last one's";
    end(last);
}

TEST_F(TVLProcessTableTest, EndedChildrenAreStillToldOfAfterTheirDescriptorsHaveGone) {
    const pid_t ended = forked();
    end(ended);
    const pid_t last = forked();
    EXPECT_TRUE(refused(table.kill(ended, SIGKILL), ESRCH));
    end(last);
}

TEST_F(TVLProcessTableTest, LeavesDescriptorsToFilesAndConnections) {
    std::set<int> opened;
    std::set<pid_t> children;
    {
        const FewDescriptors few(TVLProcessTable::kReserve + 3);
        opened = openedBy([&] {
            for (int i = 0; i < 8; ++i)
                children.insert(forked());
        });
    }
    EXPECT_LE(opened.size(), 4U);
    EXPECT_GE(opened.size(), 1U);
    EXPECT_EQ(children.size(), 8U);
    for (const pid_t child : children) {
        EXPECT_EQ(table.kill(child, SIGKILL), 0);
        waitUntilGone(child);
        EXPECT_TRUE(refused(table.kill(child, 0), ESRCH));
    }
}

TEST_F(TVLProcessTableTest, WithNoDescriptorLeftAChildIsStarted) {
    // Once before, a look at one that has ended included: where calls of members are checked, the first check of each
    // takes a descriptor.
    for (int i = 0; i < 2; ++i)
        end(forked());
    pid_t child = 0;
    {
        const FewDescriptors none(0);
        child = forked();
    }
    EXPECT_GT(child, 0);
    EXPECT_EQ(table.kill(child, SIGKILL), 0);
    waitUntilGone(child);
}

TEST_F(TVLProcessTableTest, AKernelWithoutSuchDescriptorsSignalsIds) {
    const NoDescriptors os;
    const pid_t child = forked();
    EXPECT_EQ(table.kill(child, 0), 0);
    EXPECT_EQ(table.kill(child, SIGKILL), 0);
    waitUntilGone(child);
    EXPECT_TRUE(refused(table.kill(child, 0), ESRCH));
}

TEST_F(TVLProcessTableTest, AForkedChildFindsTheLockFree) {
    std::signal(SIGCHLD, SIG_DFL);
    class Asking : public TVLThread {
      public:
        explicit Asking(TVLProcessTable& table) : TVLThread(nullptr, 0), m_table(table) { start(); }
        ~Asking() override {
            m_enough = true;
            Asking::join();
        }
        void run() override {
            while (!m_enough)
                m_table.kill(getpid(), 0);
        }

      private:
        TVLProcessTable& m_table;
        std::atomic<bool> m_enough{false};
    } const asking(table);
    for (int i = 0; i < 100; ++i) {
        const pid_t child = table.fork();
        if (child == 0) {
            alarm(20);
            ::_exit(table.kill(getpid(), 0) == 0 ? 0 : 1);
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_EQ(status, 0);
    }
}

// ---- A process by its id and its user ----

TEST_F(TVLProcessTableTest, HoldsAProcessOfTheUser) {
    const pid_t other = fork();
    if (other == 0) stay();
    EXPECT_TRUE(table.hold(other, getuid()));
    EXPECT_TRUE(table.hold(other, getuid())) << "again";
    EXPECT_EQ(table.kill(other, 0), 0);
    EXPECT_EQ(table.kill(other, SIGKILL), 0);
    waitUntilGone(other);
    EXPECT_TRUE(refused(table.kill(other, SIGTERM), ESRCH));
    EXPECT_TRUE(notHeld(table.hold(other, getuid()), ESRCH));
}

TEST_F(TVLProcessTableTest, HoldsNobodyElsesProcess) {
    const std::set<int> opened =
        openedBy([&] { EXPECT_TRUE(notHeld(table.hold(getpid(), kSomebodyElse), EPERM)); });
    EXPECT_TRUE(opened.empty());
}

TEST_F(TVLProcessTableTest, HoldsNoGroupAndNoThread) {
    for (const pid_t pid : {0, -1, -getpid()})
        EXPECT_TRUE(notHeld(table.hold(pid, getuid()), ESRCH)) << pid;
    class Thread : public TVLThread {
      public:
        Thread() : TVLThread(nullptr, 0) { start(); }
        ~Thread() override { Thread::join(); }
        void run() override { id = static_cast<pid_t>(currentThreadId()); }
        pid_t id = 0;
    };
    Thread ended;
    ended.join();
    EXPECT_TRUE(notHeld(table.hold(ended.id, getuid()), ESRCH));
}

TEST_F(TVLProcessTableTest, WithoutDescriptorsTheUserIsCheckedAllTheSame) {
    const NoDescriptors os;
    const pid_t other = fork();
    if (other == 0) stay();
    EXPECT_TRUE(table.hold(other, getuid()));
    EXPECT_TRUE(notHeld(table.hold(other, kSomebodyElse), EPERM));
    EXPECT_EQ(table.kill(other, SIGKILL), 0);
    waitUntilGone(other);
    EXPECT_TRUE(notHeld(table.hold(other, getuid()), ESRCH));
}

// ---- Ids that are given again ----

// Runs as the first process of a PID namespace, with the /proc that belongs to it. A process of the namespace that is
// left goes with it.
class ReusedIdTest : public TVLProcessTableTest {
  protected:
    static void inANamespace(const std::function<bool()>& scenario) {
        std::signal(SIGCHLD, SIG_DFL);
        const pid_t outside = fork();
        if (outside == 0) ::_exit(outcomeOf(scenario));
        int status = -1;
        ASSERT_EQ(waitpid(outside, &status, 0), outside);
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_NE(WEXITSTATUS(status), 2) << "no namespace can be made here";
        EXPECT_EQ(WEXITSTATUS(status), 0);
    }

    // A process of nobody's here, with an id of the test's choice. The kernel takes a moment to give an id back after
    // its process has been reaped.
    static pid_t strangerWithId(pid_t pid) {
        for (;;) {
            nextIdIs(pid);
            const pid_t stranger = ::fork();
            if (stranger == 0) stay();
            if (stranger == pid) return stranger;
            end(stranger);
        }
    }

    // The same as a grandchild, whose parent stays.
    static void unrelatedWithId(pid_t pid) {
        if (::fork() == 0) {
            strangerWithId(pid);
            stay();
        }
        while (::kill(pid, 0) != 0)
            sched_yield();
    }

    static void nextIdIs(pid_t pid) { std::ofstream("/proc/sys/kernel/ns_last_pid") << pid - 1; }

  private:
    static int outcomeOf(const std::function<bool()>& scenario) {
        const int user = geteuid() == 0 ? 0 : CLONE_NEWUSER;
        if (unshare(CLONE_NEWPID | CLONE_NEWNS | user) != 0) return 2;
        const pid_t first = fork();
        if (first == 0) {
            alarm(30);
            if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) ::_exit(2);
            if (mount("proc", "/proc", "proc", 0, nullptr) != 0) ::_exit(2);
            std::signal(SIGCHLD, SIG_IGN);
            ::_exit(scenario() ? 0 : 1);
        }
        int status = -1;
        waitpid(first, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
    }
};

TEST_F(ReusedIdTest, AStrangerWithTheIdOfAnEndedChildIsLeftAlone) {
    inANamespace([this] {
        const pid_t child = forked();
        end(child);
        if (strangerWithId(child) != child) return false;
        for (const int signal : {SIGTERM, SIGKILL, 0}) {
            if (!refused(table.kill(child, signal), ESRCH)) return false;
        }
        return ::kill(child, 0) == 0;
    });
}

TEST_F(ReusedIdTest, AStrangerIsLeftAloneAfterOtherChildrenHaveBeenStarted) {
    inANamespace([this] {
        const pid_t child = forked();
        end(child);
        forked();
        if (strangerWithId(child) != child) return false;
        forked();
        return refused(table.kill(child, SIGKILL), ESRCH) && ::kill(child, 0) == 0;
    });
}

TEST_F(ReusedIdTest, OnceAnEndWasToldTheIdIsTheSystems) {
    inANamespace([this] {
        const pid_t child = forked();
        end(child);
        if (strangerWithId(child) != child) return false;
        return refused(table.kill(child, 0), ESRCH) && table.kill(child, 0) == 0;
    });
}

TEST_F(ReusedIdTest, AStrangerThatCameBeforeTheDescriptorIsNotTheChild) {
    inANamespace([this] {
        LateOs late;
        late.meanwhile = [](pid_t child) {
            end(child);
            unrelatedWithId(child);
        };
        const pid_t child = forked();
        return refused(table.kill(child, SIGKILL), ESRCH) && ::kill(child, 0) == 0;
    });
}

TEST_F(ReusedIdTest, AChildThatEndedBeforeTheDescriptorIsTold) {
    inANamespace([this] {
        LateOs late;
        late.meanwhile = end;
        const pid_t child = forked();
        late.meanwhile = nullptr;
        return strangerWithId(child) == child && refused(table.kill(child, SIGKILL), ESRCH) &&
               ::kill(child, 0) == 0;
    });
}

TEST_F(ReusedIdTest, ANewChildWithAnOldIdIsTheOneSpokenTo) {
    inANamespace([this] {
        const pid_t child = forked();
        end(child);
        if (!refused(table.kill(child, SIGTERM), ESRCH)) return false;
        end(strangerWithId(child));
        for (pid_t again = 0; again != child; again = forked())
            nextIdIs(child);
        if (table.kill(child, 0) != 0 || table.kill(child, SIGKILL) != 0) return false;
        waitUntilGone(child);
        return refused(table.kill(child, 0), ESRCH);
    });
}

TEST_F(ReusedIdTest, AStrangerWithTheIdOfAHeldProcessIsLeftAlone) {
    inANamespace([this] {
        const pid_t daemon = ::fork();
        if (daemon == 0) stay();
        if (!table.hold(daemon, getuid())) return false;
        end(daemon);
        if (strangerWithId(daemon) != daemon) return false;
        return refused(table.kill(daemon, SIGTERM), ESRCH) && ::kill(daemon, 0) == 0;
    });
}

}  // namespace
