// The real executable in an install tree of its own.
//
// Purpose: makes the tree with default documents, runs the program in it, waits for what it does, and knows
//   every process that came from it.
// Ownership: owns the tree and everything that runs from it; the destructor ends those processes by their ids
//   and removes the tree. The test process becomes the reaper of daemons, so that their exit codes are seen.
// Threads: one thread only.
// Units: deadlines in seconds.
// Errors: a helper that cannot do its work throws std::runtime_error; a condition that does not come about in
//   time is a failed AssertionResult. A failed SystemTest shows the logs.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// A port of the loopback address that nobody else is given as long as this object lives. Nobody listens on it
// unless the test makes somebody listen.
class ReservedPort {
  public:
    ReservedPort();
    ~ReservedPort();
    ReservedPort(const ReservedPort&) = delete;
    ReservedPort& operator=(const ReservedPort&) = delete;

    std::string str() const { return std::to_string(m_port); }

  private:
    int m_socket;
    int m_port = 0;
};

// Whether the schemas accept a document. A test that is about a mistake says so; the mistake is then one that the
// schema must find, too.
enum class Schema { Accepts, Refuses };

// A "process" element with defaults: the fake child, stopped by SIGTERM, without a ping. Its folder is
// temp/<name>.
struct ChildXml {
    std::string name = "alpha";
    std::string path = "${bin_path}/fakechild";
    std::vector<std::string> options{};  // of the fake child
    std::string startAttributes{};       // of the "spawn" element
    std::string stop = "<stop type=\"signal\"><signal signal=\"15\"/></stop>";
    std::string ping{};

    // Pings over plain TCP: the child listens and is asked "PING".
    ChildXml& pinged(const ReservedPort& port, const std::string& attributes = {});
    std::string str() const;
};

// A bootstrap document with defaults: a poll interval of a second, quick shutdown checks, and a daemon that
// is started as an administrator would configure it.
struct BootstrapXml {
    std::string rootAttributes{};
    std::string manager = "<processManager pollIntervalsec=\"1\" checkForShutdownIntervalms=\"100\"/>";
    std::vector<ChildXml> children{ChildXml{}};
    std::string extra{};  // further elements
    std::string daemonSpawn =
        "<daemonSpawn><path>${bin_path}/velbootstrapservice</path><param>runAsDaemon</param>"
        "<param>-java_home=${java_home}</param></daemonSpawn>";
    Schema schema = Schema::Accepts;

    std::string str() const;
};

// What a finished program left.
struct RunResult {
    int exitCode = -1;  // -1 when a signal ended it
    int signal = 0;
    std::string out;
    std::string err;
};
void PrintTo(const RunResult& result, std::ostream* out);

class ServiceUnderTest {
  public:
    struct Launch {
        std::vector<std::string> arguments{};
        std::map<std::string, std::string> environment{};  // added to the defaults, or in their place
        std::vector<std::string> withoutVariables{};       // defaults left out
        std::vector<int> closed{};                         // standard descriptors that are not open
        int kept = -1;                                     // a descriptor of the test passed on as it is
        int output = -1;                                   // a descriptor of the test as standard output
        std::string workingFolder = "bin";
        bool cannotFork = false;  // only for an ordinary user
        bool asMyself = false;    // even after asOrdinaryUser()
        bool asStranger = false;  // as an ordinary user, whose the tree is not; the test must be root's
        long fileSizeBytes = -1;  // the greatest size of a file that the program and its children may write
    };

    ServiceUnderTest();
    ~ServiceUnderTest();
    ServiceUnderTest(const ServiceUnderTest&) = delete;
    ServiceUnderTest& operator=(const ServiceUnderTest&) = delete;

    // The tree.
    std::string path(const std::string& relative = {}) const;
    void write(const std::string& relative, std::string_view content) const;
    std::string read(const std::string& relative) const;
    bool exists(const std::string& relative) const;
    void remove(const std::string& relative) const;
    // Both hold the document against its schema.
    void bootstrap(const BootstrapXml& document) const;
    // configuration/startup.xml around these elements
    void startup(const std::string& elements, Schema schema = Schema::Accepts) const;
    static std::string startupDefaults();
    void useLibrary(const std::string& file) const;  // as the security library, in place of the real one
    // From here on programs run as a user who may not do everything; the tree is made theirs.
    void asOrdinaryUser();

    // Programs. run() is given a minute.
    RunResult run(const std::vector<std::string>& arguments);
    RunResult run(const Launch& launch);
    pid_t begin(const Launch& launch);
    RunResult finish(pid_t pid, int deadlineSec = 60);
    bool hasEnded(pid_t pid);   // true also for daemons and for ids that never ran
    int exitCodeOf(pid_t pid);  // of a program or daemon that has ended; -1 when unknown or ended by a signal
    pid_t daemonPid() const;    // from the PID file; 0 without one
    // "-start" with one-second checks; then the daemon runs.
    RunResult startDaemon(std::vector<std::string> arguments = {});
    // Everything that runs from this tree.
    std::vector<pid_t> processes() const;
    void endProcesses();
    // A test that leaves processes or PID files on purpose ends them with this; otherwise they are failures.
    void cleanUp();
    std::string leftovers() const;  // empty when all is as it should be

    // The fake child of that name.
    std::string childFile(const std::string& name, const std::string& file) const;
    std::vector<pid_t> childPids(const std::string& name = "alpha") const;  // one per start
    void answer(const std::string& text, const std::string& name = "alpha") const;

    // Logs: time stamps, thread and process ids taken out; "LEVEL LOGGER text" per message.
    static std::string normalised(const std::string& log);
    std::string log(const std::string& name = "run") const;
    // Whether the whole message was written `times` times.
    testing::AssertionResult logged(const std::string& level, const std::string& logger,
                                    const std::string& text, const std::string& name = "run") const;
    testing::AssertionResult neverLogged(const std::string& text, const std::string& name = "run") const;
    std::size_t countLogged(const std::string& level, const std::string& logger, const std::string& text,
                            const std::string& name = "run") const;
    testing::AssertionResult inOrder(const std::vector<std::string>& lines,
                                     const std::string& name = "run") const;

    // Waits for a condition; on failure says what was waited for.
    testing::AssertionResult waitFor(const std::string& what, const std::function<bool()>& condition,
                                     int deadlineSec = 40);
    testing::AssertionResult waitForLog(const std::string& level, const std::string& logger,
                                        const std::string& text, int deadlineSec = 40);
    testing::AssertionResult waitForStarts(std::size_t count, const std::string& name = "alpha",
                                           int deadlineSec = 40);
    testing::AssertionResult waitForEnd(pid_t pid, int deadlineSec = 40);
    std::string logs() const;

  private:
    void writeDocuments() const;
    void writeBootstrap(const BootstrapXml& document) const;
    void writeStartup(const std::string& elements) const;
    void copyPrograms() const;
    std::vector<std::string> environmentOf(const Launch& launch) const;
    [[noreturn]] void becomeProgram(const Launch& launch, const std::string& out,
                                    const std::string& err) const;
    void reap();

    std::filesystem::path m_root;
    bool m_ordinaryUser = false;
    std::map<pid_t, std::string> m_outputs;  // of programs begun: where their output goes
    std::map<pid_t, int> m_statuses;         // of everything that has ended and was waited for
    int m_programs = 0;
};

// A test with a tree, that fails when something is left of it.
class SystemTest : public testing::Test {
  protected:
    void TearDown() override;

    // Started by "-start"; its first child runs.
    pid_t runningDaemon();
    // Run by "-d", with its PID file written.
    pid_t runningInForeground(const std::vector<std::string>& options = {});
    // Tells a daemon, or a program in the foreground, to stop and waits until it has.
    void stopDaemon(pid_t daemon, int signal = 15);

    ServiceUnderTest service;
};
