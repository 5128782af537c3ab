#include "ServiceUnderTest.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <grp.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "FileContent.h"
#include "ProcessView.h"
#include "SchemaCheck.h"

namespace fs = std::filesystem;

namespace {

// Nobody's numbers by convention.
constexpr uid_t kOrdinaryUser = 65534;
constexpr gid_t kOrdinaryGroup = 65534;

constexpr const char* kPidFile = "logs/velbootstrap_service.pid";

constexpr const char* kBootstrapFile = "bin/bootstrap_linuxi38632.xml";
constexpr const char* kStartupFile = "configuration/startup.xml";

constexpr const char* kModes[] = {"start", "stop", "isrunning", "run", "default"};

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

void expectFromSchema(Schema verdict, const char* schema, const std::string& document) {
    const std::string complaints = schemaComplaints(schema, document);
    EXPECT_EQ(complaints.empty(), verdict == Schema::Accepts) << complaints << document;
}

// A hard link where that is possible: the programs are large and every test has its own tree.
void place(const fs::path& from, const fs::path& to) {
    std::error_code error;
    fs::remove(to, error);
    fs::create_hard_link(from, to, error);
    if (error) fs::copy_file(from, to, fs::copy_options::overwrite_existing);
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

void redirect(const std::string& path, int flags, int descriptor) {
    const int file = open(path.c_str(), flags, 0644);
    if (file < 0 || dup2(file, descriptor) < 0) _exit(126);
    if (file != descriptor) close(file);
}

// What the test program itself was started with must not reach the program under test.
void resetSignals() {
    for (int signal = 1; signal < NSIG; ++signal)
        std::signal(signal, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

void becomeOrdinaryUser() {
    if (geteuid() != 0) return;
    if (setgroups(0, nullptr) != 0 || setgid(kOrdinaryGroup) != 0 || setuid(kOrdinaryUser) != 0) _exit(126);
}

// One line of a log without time stamp and thread; other lines are parts of a message and stay.
std::string withoutPrefix(const std::string& line) {
    if (line.size() < 35 || line[24] != ' ' || line[25] != ' ' || line.compare(32, 2, "t[") != 0) return line;
    const std::size_t rest = line.find("] ", 32);
    if (rest == std::string::npos) return line;
    const std::string level = line.substr(26, line.find(' ', 26) - 26);
    return level + " " + line.substr(rest + 2);
}

bool startsWith(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

// Runs from the tree: its program or its working directory is there.
bool belongsTo(const ProcessView& process, const std::string& root) {
    return startsWith(process.target("exe"), root + "/") || startsWith(process.target("cwd"), root + "/");
}

}  // namespace

// ---- ReservedPort ----

// Bound and not listening: the system gives the port to nobody else, and a listener that asks for reuse may
// still take it.
ReservedPort::ReservedPort() : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const int yes = 1;
    setsockopt(m_socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    socklen_t length = sizeof address;
    if (bind(m_socket, any, length) != 0 || getsockname(m_socket, any, &length) != 0) fail("no port");
    m_port = ntohs(address.sin_port);
}

ReservedPort::~ReservedPort() {
    close(m_socket);
}

// ---- Documents ----

ChildXml& ChildXml::pinged(const ReservedPort& port, const std::string& attributes) {
    options.push_back("port=" + port.str());
    ping = "<ping><socketSend URI=\"tcp://127.0.0.1:" + port.str() +
           "\" commandString=\"PING\" sockIOTimeoutSec=\"1\" responseSize=\"16\" responseOK=\"READY\" "
           "responseFatal=\"BROKEN\" responseRetry=\"STARTING\" " +
           attributes + "/></ping>";
    return *this;
}

std::string ChildXml::str() const {
    std::string xml = "<process name=\"" + name + "\"><start><spawn " + startAttributes + "><path>" + path +
                      "</path><param>${install_path}/temp/" + name + "</param>";
    for (const std::string& option : options)
        xml += "<param>" + option + "</param>";
    return xml + "</spawn></start>" + stop + ping + "</process>";
}

std::string BootstrapXml::str() const {
    std::string xml = "<?xml version=\"1.0\"?><bootstrap " + rootAttributes + ">" + manager;
    for (const ChildXml& child : children)
        xml += child.str();
    return xml + extra + daemonSpawn + "</bootstrap>";
}

void PrintTo(const RunResult& result, std::ostream* out) {
    *out << "exit code " << result.exitCode << ", signal " << result.signal << "\n--- output\n"
         << result.out << "--- errors\n"
         << result.err << "---\n";
}

// ---- The tree ----

ServiceUnderTest::ServiceUnderTest() {
    std::string name = (fs::temp_directory_path() / "vbs_system_XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) fail("no temporary folder");
    m_root = fs::canonical(name);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    for (const char* const folder : {"bin", "configuration", "logs", "temp", "output"})
        fs::create_directory(m_root / folder);
    copyPrograms();
    writeDocuments();
}

ServiceUnderTest::~ServiceUnderTest() {
    std::error_code error;
    endProcesses();
    fs::remove_all(m_root, error);
}

void ServiceUnderTest::copyPrograms() const {
    place(VBS_EXECUTABLE, m_root / "bin/velbootstrapservice");
    place(VBS_FAKECHILD, m_root / "bin/fakechild");
    place(VBS_DISPATCHER, m_root / "bin/sampledispatcher");
    useLibrary(VBS_SECURITY_LIBRARY);
}

void ServiceUnderTest::writeDocuments() const {
    std::string logging = "<?xml version=\"1.0\"?><logConfiguration>";
    for (const std::string mode : kModes) {
        const std::string file = "<file name=\"../logs/" + mode + ".log\" append=\"true\"/>";
        logging.append("<").append(mode).append("><logging level=\"DEBUG\"><logFiles>").append(file);
        logging.append("</logFiles></logging></").append(mode).append(">");
    }
    write("bin/zorlogconfig.xml", logging + "</logConfiguration>");
    // Not held against the schemas each time: one test does that for all.
    writeStartup(startupDefaults());
    writeBootstrap(BootstrapXml{});
}

std::string ServiceUnderTest::path(const std::string& relative) const {
    return relative.empty() ? m_root.string() : (m_root / relative).string();
}

void ServiceUnderTest::write(const std::string& relative, std::string_view content) const {
    std::ofstream file(m_root / relative, std::ios::binary);
    file << content;
    if (!file.flush()) fail("cannot write " + relative);
}

std::string ServiceUnderTest::read(const std::string& relative) const {
    return contentOf(m_root / relative);
}

bool ServiceUnderTest::exists(const std::string& relative) const {
    return fs::exists(m_root / relative);
}

void ServiceUnderTest::remove(const std::string& relative) const {
    fs::remove_all(m_root / relative);
}

void ServiceUnderTest::bootstrap(const BootstrapXml& document) const {
    writeBootstrap(document);
    expectFromSchema(document.schema, "bootstrap", read(kBootstrapFile));
}

void ServiceUnderTest::writeBootstrap(const BootstrapXml& document) const {
    write(kBootstrapFile, document.str());
    for (const ChildXml& child : document.children)
        fs::create_directories(m_root / "temp" / child.name);
}

std::string ServiceUnderTest::startupDefaults() {
    return "<ZOR><vrx:parameter name=\"dispatcherStopWaitTime\"><vrx:value xsi:type=\"xsd:unsignedShort\">1"
           "</vrx:value></vrx:parameter></ZOR><temp>../temp</temp>"
           "<internalDispatcher>https://localhost:9300/dispatch</internalDispatcher>";
}

void ServiceUnderTest::startup(const std::string& elements, Schema schema) const {
    writeStartup(elements);
    expectFromSchema(schema, "startup", read(kStartupFile));
}

void ServiceUnderTest::writeStartup(const std::string& elements) const {
    write(kStartupFile,
          "<startupConfiguration xmlns:vrx=\"urn:velmora:startup\" "
          "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
          "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\">" +
              elements + "</startupConfiguration>");
}

void ServiceUnderTest::useLibrary(const std::string& file) const {
    place(file, m_root / "bin/libSEK_Crypto_Interface.so");
}

void ServiceUnderTest::asOrdinaryUser() {
    m_ordinaryUser = true;
    if (geteuid() != 0) return;
    for (const auto& entry : fs::recursive_directory_iterator(m_root)) {
        // A linked program is the build's, not the tree's.
        if (entry.is_regular_file() && fs::hard_link_count(entry) > 1) continue;
        if (lchown(entry.path().c_str(), kOrdinaryUser, kOrdinaryGroup) != 0) fail("chown");
    }
    if (chown(m_root.c_str(), kOrdinaryUser, kOrdinaryGroup) != 0) fail("chown");
}

// ---- Programs ----

std::vector<std::string> ServiceUnderTest::environmentOf(const Launch& launch) const {
    std::map<std::string, std::string> variables{{"PATH", "/usr/bin:/bin"}, {"JAVA_HOME", "/opt/java"}};
    for (const char* const name : {"ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
        if (const char* const value = std::getenv(name); value != nullptr) variables[name] = value;
    }
#ifdef VBS_SANITIZED
    // A sanitizer stands between the program and dlopen, which then does not look beside the program.
    variables["LD_LIBRARY_PATH"] = path("bin");
#endif
    for (const auto& [name, value] : launch.environment)
        variables[name] = value;
    for (const std::string& name : launch.withoutVariables)
        variables.erase(name);
    std::vector<std::string> entries;
    entries.reserve(variables.size());
    for (const auto& [name, value] : variables)
        entries.push_back(std::string(name).append("=").append(value));
    return entries;
}

void ServiceUnderTest::becomeProgram(const Launch& launch, const std::string& out,
                                     const std::string& err) const {
    resetSignals();
    const std::string program = path("bin/velbootstrapservice");
    std::vector<std::string> arguments{program};
    arguments.insert(arguments.end(), launch.arguments.begin(), launch.arguments.end());
    std::vector<std::string> environment = environmentOf(launch);
    redirect("/dev/null", O_RDONLY, STDIN_FILENO);
    redirect(out, O_WRONLY | O_CREAT | O_TRUNC, STDOUT_FILENO);
    redirect(err, O_WRONLY | O_CREAT | O_TRUNC, STDERR_FILENO);
    if (launch.output >= 0) dup2(launch.output, STDOUT_FILENO);
    for (int descriptor = 3; descriptor < 256; ++descriptor) {
        if (descriptor != launch.kept) close(descriptor);
    }
    if (launch.kept >= 0) fcntl(launch.kept, F_SETFD, 0);
    for (const int descriptor : launch.closed)
        close(descriptor);
    if (chdir(path(launch.workingFolder).c_str()) != 0) _exit(126);
    if (launch.asStranger || (m_ordinaryUser && !launch.asMyself)) becomeOrdinaryUser();
    const rlimit none{0, 0};
    if (launch.cannotFork && setrlimit(RLIMIT_NPROC, &none) != 0) _exit(126);
    const rlimit fileSize{static_cast<rlim_t>(launch.fileSizeBytes),
                          static_cast<rlim_t>(launch.fileSizeBytes)};
    if (launch.fileSizeBytes >= 0 && setrlimit(RLIMIT_FSIZE, &fileSize) != 0) _exit(126);
    execve(program.c_str(), pointersTo(arguments).data(), pointersTo(environment).data());
    _exit(127);
}

pid_t ServiceUnderTest::begin(const Launch& launch) {
    const std::string output = path("output/" + std::to_string(m_programs++));
    const pid_t pid = fork();
    if (pid < 0) fail("fork");
    if (pid == 0) becomeProgram(launch, output + ".out", output + ".err");
    m_outputs[pid] = output;
    return pid;
}

RunResult ServiceUnderTest::finish(pid_t pid, int deadlineSec) {
    const testing::AssertionResult ended = waitForEnd(pid, deadlineSec);
    EXPECT_TRUE(ended);
    if (!ended) {
        kill(pid, SIGKILL);
        EXPECT_TRUE(waitForEnd(pid, 10));
    }
    RunResult result;
    const int status = m_statuses[pid];
    if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
    result.out = contentOf(m_outputs[pid] + ".out");
    result.err = contentOf(m_outputs[pid] + ".err");
    return result;
}

RunResult ServiceUnderTest::run(const std::vector<std::string>& arguments) {
    return run(Launch{.arguments = arguments});
}

RunResult ServiceUnderTest::run(const Launch& launch) {
    return finish(begin(launch));
}

void ServiceUnderTest::reap() {
    int status = 0;
    for (pid_t pid = waitpid(-1, &status, WNOHANG); pid > 0; pid = waitpid(-1, &status, WNOHANG))
        m_statuses[pid] = status;
}

bool ServiceUnderTest::hasEnded(pid_t pid) {
    reap();
    return m_statuses.count(pid) != 0 || kill(pid, 0) != 0;
}

int ServiceUnderTest::exitCodeOf(pid_t pid) {
    reap();
    const auto found = m_statuses.find(pid);
    return found == m_statuses.end() || !WIFEXITED(found->second) ? -1 : WEXITSTATUS(found->second);
}

pid_t ServiceUnderTest::daemonPid() const {
    return std::atoi(read(kPidFile).c_str());
}

RunResult ServiceUnderTest::startDaemon(std::vector<std::string> arguments) {
    for (const char* const argument : {"-start", "-testReadyInterval=1"})
        arguments.emplace_back(argument);
    return run(arguments);
}

std::vector<pid_t> ServiceUnderTest::processes() const {
    std::vector<pid_t> found;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/proc", error)) {
        const pid_t pid = std::atoi(entry.path().filename().c_str());
        if (pid > 0 && belongsTo(ProcessView(pid), m_root.string())) found.push_back(pid);
    }
    return found;
}

// Again until none is left: one may have started another meanwhile.
void ServiceUnderTest::endProcesses() {
    for (int attempt = 0; attempt < 500; ++attempt) {
        const std::vector<pid_t> left = processes();
        for (const pid_t pid : left)
            kill(pid, SIGKILL);
        reap();
        if (left.empty()) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

void ServiceUnderTest::cleanUp() {
    endProcesses();
    remove(kPidFile);
}

std::string ServiceUnderTest::leftovers() const {
    std::string text;
    for (const pid_t pid : processes())
        text += "process " + std::to_string(pid) + ": " + ProcessView(pid).commandLine() + "\n";
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(m_root / "logs", error)) {
        const std::string name = entry.path().filename().string();
        if (startsWith(name, "velbootstrap_service.pid") || startsWith(name, "zor_cnfgtest_"))
            text += "PID file " + name + "\n";
    }
    return text;
}

// ---- The fake child ----

std::string ServiceUnderTest::childFile(const std::string& name, const std::string& file) const {
    return read("temp/" + name + "/" + file);
}

std::vector<pid_t> ServiceUnderTest::childPids(const std::string& name) const {
    std::istringstream lines(childFile(name, "pids"));
    std::vector<pid_t> pids;
    for (pid_t pid = 0; lines >> pid;)
        pids.push_back(pid);
    return pids;
}

void ServiceUnderTest::answer(const std::string& text, const std::string& name) const {
    // By renaming: the child never sees half of it.
    write("temp/" + name + "/answer.new", text);
    fs::rename(m_root / "temp" / name / "answer.new", m_root / "temp" / name / "answer");
}

// ---- Logs ----

std::string ServiceUnderTest::normalised(const std::string& log) {
    std::istringstream lines(log);
    std::string result;
    for (std::string line; std::getline(lines, line);)
        result += withoutPrefix(line) + "\n";
    return result;
}

std::string ServiceUnderTest::log(const std::string& name) const {
    return normalised(read("logs/" + name + ".log"));
}

std::size_t ServiceUnderTest::countLogged(const std::string& level, const std::string& logger,
                                          const std::string& text, const std::string& name) const {
    const std::string all = "\n" + log(name);
    const std::string wanted = "\n" + level + " " + logger + " " + text + "\n";
    std::size_t count = 0;
    for (std::size_t at = all.find(wanted); at != std::string::npos; at = all.find(wanted, at + 1))
        ++count;
    return count;
}

testing::AssertionResult ServiceUnderTest::logged(const std::string& level, const std::string& logger,
                                                  const std::string& text, const std::string& name) const {
    if (countLogged(level, logger, text, name) > 0) return testing::AssertionSuccess();
    return testing::AssertionFailure()
           << "not in " << name << ".log: " << level << ' ' << logger << ' ' << text;
}

testing::AssertionResult ServiceUnderTest::neverLogged(const std::string& text,
                                                       const std::string& name) const {
    if (log(name).find(text) == std::string::npos) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "in " << name << ".log: " << text;
}

testing::AssertionResult ServiceUnderTest::inOrder(const std::vector<std::string>& lines,
                                                   const std::string& name) const {
    const std::string all = "\n" + log(name);
    std::size_t at = 0;
    for (const std::string& line : lines) {
        at = all.find("\n" + line + "\n", at);
        if (at == std::string::npos)
            return testing::AssertionFailure() << "not in its place in " << name << ".log: " << line;
        ++at;
    }
    return testing::AssertionSuccess();
}

std::string ServiceUnderTest::logs() const {
    std::string text;
    std::error_code error;
    for (const char* const folder : {"logs", "output"}) {
        for (const auto& entry : fs::directory_iterator(m_root / folder, error)) {
            if (entry.is_regular_file())
                text += "--- " + entry.path().filename().string() + "\n" + contentOf(entry.path());
        }
    }
    return text;
}

// ---- Waiting ----

testing::AssertionResult ServiceUnderTest::waitFor(const std::string& what,
                                                   const std::function<bool()>& condition, int deadlineSec) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(deadlineSec);
    for (;;) {
        reap();
        if (condition()) return testing::AssertionSuccess();
        if (std::chrono::steady_clock::now() > deadline) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return testing::AssertionFailure() << "not within " << deadlineSec << " s: " << what;
}

testing::AssertionResult ServiceUnderTest::waitForLog(const std::string& level, const std::string& logger,
                                                      const std::string& text, int deadlineSec) {
    return waitFor(
        "logged: " + level + " " + logger + " " + text, [&] { return countLogged(level, logger, text) > 0; },
        deadlineSec);
}

testing::AssertionResult ServiceUnderTest::waitForStarts(std::size_t count, const std::string& name,
                                                         int deadlineSec) {
    return waitFor(
        std::to_string(count) + " starts of " + name, [&] { return childPids(name).size() >= count; },
        deadlineSec);
}

testing::AssertionResult ServiceUnderTest::waitForEnd(pid_t pid, int deadlineSec) {
    return waitFor(
        "end of process " + std::to_string(pid), [&] { return hasEnded(pid); }, deadlineSec);
}

// ---- SystemTest ----

void SystemTest::TearDown() {
    // A program that was told to end, or a fork that is about to become another program, may need a moment.
    EXPECT_TRUE(service.waitFor(
        "nothing left behind", [this] { return service.leftovers().empty(); }, 5))
        << service.leftovers();
    if (HasFailure()) std::fputs(service.logs().c_str(), stderr);
}

pid_t SystemTest::runningDaemon() {
    const RunResult started = service.startDaemon();
    EXPECT_EQ(started.exitCode, 0) << testing::PrintToString(started);
    EXPECT_TRUE(service.waitForStarts(1));
    return service.daemonPid();
}

pid_t SystemTest::runningInForeground(const std::vector<std::string>& options) {
    std::vector<std::string> arguments{"-d"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const pid_t program = service.begin({.arguments = arguments});
    EXPECT_TRUE(service.waitFor("the PID file", [&] { return service.daemonPid() == program; }));
    return program;
}

void SystemTest::stopDaemon(pid_t daemon, int signal) {
    ASSERT_GT(daemon, 1);
    ASSERT_EQ(kill(daemon, signal), 0);
    ASSERT_TRUE(service.waitForEnd(daemon));
    EXPECT_EQ(service.exitCodeOf(daemon), 0);
}
