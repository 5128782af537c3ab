#include "ZORBootstrapService.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include "TVLByteBuffer.h"
#include "TVLConfigurationFactory.h"
#include "TVLFile.h"
#include "TVLFmDir.h"
#include "TVLIDOM_Helper.h"
#include "TVLIDOM_Parser.h"
#include "TVLNumber.h"
#include "TVLOs.h"
#include "TVLThread.h"
#include "ZORBadConfigException.h"
#include "ZORChildProcess.h"
#include "ZORCmdLine.h"
#include "ZORCryptoHelper.h"
#include "ZORFileInputStream.h"
#include "ZORHelpers.h"
#include "ZORLogger.h"
#include "ZORPidFileOwner.h"
#include "ZORPropertyInserter.h"
#include "ZORSignalHandlerThread.h"
#include "ZORSpawnAction.h"

namespace {

ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("ZORBootstrapService");

constexpr const char* kDefaultServiceName = "Velmora 8";
constexpr const char* kDefaultPlatform = "linuxi38632";
constexpr const char* kDefaultPort = "9300";
constexpr const char* kEnvironmentFile = "../configuration/zorEnvironmentVars.ini";

// A longer line of the Java preferences counts as several.
constexpr std::size_t kLongestPreference = 4095;

constexpr int kControlTries = 20;
constexpr int kControlIntervalSec = 6;
constexpr int kReadyTries = 50;
constexpr int kReadyIntervalSec = 6;

// Deliberate: "actvities"; see CommandModesTest.EverySpellingOfHelpShowsTheUsage.
constexpr const char* kUsage =
    "\nvelbootstrapservice - manage the Velmora Bootstrap Service daemon.\n"
    "\t-java_home is required unless the environment variable JAVA_HOME variable is defined.\n\n"
    "Usage:\n\n"
    "\tvelbootstrapservice -start [-testReadyTries=20] [-testReadyInterval=6] -install_root=... "
    "[-java_home=...]\n"
    "\t\tspawn a zor child process. Waits until the child process is ready,\n"
    "\t\tpolling it at intervals until it reports it is ready.  The number of\n"
    "\t\tpolls and the interval (seconds) can be specified by -testReadyTries\n"
    "\t\tand -testReadyInterval (defaults are as shown).\n"
    "\n"
    "\tvelbootstrapservice -stop [-testDeadTries=20] [-testDeadInterval=6] -install_root=... "
    "[-java_home=...]\n"
    "\t\tStop the zor child process. Waits until the child process is dead,\n"
    "\t\tchecking at intervals.  The number of checks and the interval (seconds)\n"
    "\t\tcan be specified by -testDeadTries and -testDeadInterval (defaults are as shown).\n"
    "\n"
    "\tvelbootstrapservice -isrunning -install_root=... [-java_home=...]\n"
    "\t\tTest if the zor child process is running. Exit code of 0 indicates\n"
    "\t\tthat the process is running.\n\n"
    "\tThe option -stdoutLog=DEBUG|INFO|WARN|ERROR|FATAL is optional for all\n"
    "\tflavours of the command line.  It causes log messages that describe the\n"
    "\tactvities of ZOR to be written to stdout.\n\n";

std::string expanded(const char* text) {
    std::string result = text;
    ZORPropertyInserter::getInstance()->insertProperties(result);
    return result;
}

void setProperty(const char* name, const char* value) {
    ZORPropertyInserter::getInstance()->add(name, value);
}

bool has(const ZORCmdLine& cmdLine, const char* option) {
    return cmdLine.find(option, 0) >= 0;
}

bool wantsHelp(const ZORCmdLine& cmdLine) {
    return cmdLine.getArgCount() == 0 || has(cmdLine, "-h") || has(cmdLine, "-help") || has(cmdLine, "-?");
}

// The section of the logging document for this invocation; the first match wins.
const char* loggingMode(const ZORCmdLine& cmdLine) {
    if (has(cmdLine, "-start")) return "start";
    if (has(cmdLine, "-stop")) return "stop";
    if (has(cmdLine, "-isrunning")) return "isrunning";
    // Deliberate: the last has no dash; it is the word that the starter passes to the daemon; see
    // CommandModesTest.TheLoggingModeFollowsItsOwnOrder.
    for (const char* const option : {"-run", "-d", "-win95", "runAsDaemon"}) {
        if (has(cmdLine, option)) return "run";
    }
    return "default";
}

std::string loggingDocument(const ZORCmdLine& cmdLine) {
    std::string path;
    if (cmdLine.getValue("-logconfig", path, 0) != 0) return path;
    path = "./zorlogconfig.xml";
    TVLConfigurationFactory::getInstance()->getFullPath(path);
    return path;
}

int numberOption(const ZORCmdLine& cmdLine, const char* option, int defaultValue) {
    cmdLine.getIntValue(option, defaultValue, 0);
    return defaultValue;
}

// A root attribute as a number, logged; absent or empty it leaves the value alone.
bool readNumber(const TVLIDOM_Element& root, const char* attribute, int& value) {
    const I18NString text = root.getAttribute(attribute);
    if (text.empty()) return false;
    value = TVLNumber::parse(text.c_str());
    return true;
}

// The port as the service has always cut it out. Deliberate: without a colon it is the whole text; see
// StartupPropertiesTest.AUriWithoutAPortIsItsOwnPort.
std::string portOf(const std::string& uri) {
    const std::size_t slashes = uri.find("//");
    const std::size_t colon = uri.find(':', slashes == std::string::npos ? 0 : slashes + 2);
    const std::size_t end = uri.find('/', colon);
    return uri.substr(colon + 1, end - colon - 1);
}

struct Parameter {
    const char* name;
    const char* type;
};
constexpr std::array kParameters{Parameter{"dispatcherStopWaitTime", "xsd:unsignedShort"},
                                 Parameter{"dispatcherPingTimeout", "xsd:unsignedShort"},
                                 Parameter{"dispatcherMaxMemory", "xsd:unsignedInt"},
                                 Parameter{"shutdownPort", "xsd:unsignedShort"}};

// Java home and vendor as another component of the product has noted them.
struct JavaPreferences {
    std::string home;
    std::string vendor;
};

// `from` to the end of the line, without its last `dropped` bytes.
std::string restOfLine(const std::string& line, std::size_t from, std::size_t dropped) {
    return line.size() < from + dropped ? std::string() : line.substr(from, line.size() - from - dropped);
}

// The next line with its line feed, at most `most` bytes of it; moves `at` behind it.
std::string nextLine(const std::string& text, std::size_t& at, std::size_t most) {
    const std::size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
    const std::size_t from = at;
    at = std::min(end, from + most);
    return text.substr(from, at - from);
}

JavaPreferences readJavaPreferences(const std::string& text) {
    JavaPreferences preferences;
    for (std::size_t at = 0; at < text.size();) {
        const std::string line = nextLine(text, at, kLongestPreference).c_str();
        if (line.find("java_home=") != std::string::npos) {
            // Deliberate: the last byte goes, line feed or not; see
            // JavaVendorTest.AHomeWithoutALineFeedLosesItsLastCharacter.
            preferences.home = restOfLine(line, 10, 1);
        } else if (line.find("java_vendor=") != std::string::npos) {
            preferences.vendor = restOfLine(line, 12, 0);
        }
    }
    return preferences;
}

const char* knownVendor(const std::string& vendor) {
    if (vendor.find("Sun") != std::string::npos) return "Sun";
    if (vendor.find("Orv") != std::string::npos) return "Orv";
    return "";
}

// What the environment keeps pointing to for the rest of the process. The list, never destroyed, also holds
// what the environment has let go of since, so that nothing looks lost at the end.
char* immortalCopy(const std::string& text) {
    static auto* const copies = new std::vector<char*>;
    char* const copy = strdup(text.c_str());
    if (copy == nullptr) throw TVLOutOfMemoryError(__FILE__, __LINE__);
    copies->push_back(copy);
    return copy;
}

void redirectStandardStreams() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        ::close(descriptor);
    // Becomes descriptor 0. Children inherit all three as they are.
    const int null = ::open("/dev/null", O_RDWR);
    if (null < 0 || dup(null) < 0 || dup(null) < 0) {
        logger->log(ZOR_ERROR, "runAsDaemon() - cannot redirect the standard streams, errno=%d", errno);
        TVLOs::occupyStandardStreams();
    }
}

// What root writes in another user's folder is that user's, and that user's word about a process of root's counts
// for nothing.
void warnOfOthersFile(const std::string& path, std::FILE* file) {
    const std::uint32_t owner = TVLFile::ownerOf(file).value_or(0);
    if (geteuid() != 0 || owner == 0) return;
    logger->log(
        ZOR_WARN,
        "PID file \"%s\" belongs to the user with id %s, so commands will not find this process. Run the "
        "service and its commands as that user.",
        path.c_str(), std::to_string(owner).c_str());
}

// Deliberate: installed for no signal, since termination signals are awaited, not caught; see
// RulesTest.WhatIsKeptUnusedIsUsedByNothing.
[[maybe_unused]] void ignoreSignal(int /*signal*/) {}

[[maybe_unused]] void stopOnSignal(int /*signal*/) {
    if (ZORNTService::m_pThis != nullptr) ZORNTService::m_pThis->OnStop();
}

}  // namespace

char** ZORBootstrapService::m_envp = nullptr;

ZORBootstrapService::ZORBootstrapService() : ZORNTService(kDefaultServiceName) {
    m_supervisor.setZORPointer(this);
}

ZORBootstrapService::~ZORBootstrapService() {
    // The supervisor must have ended before what it works on goes.
    m_supervisor.finish();
    const TVLThreadGuard guard(m_lock);
    try {
        for (ZORChildProcess* const child : m_children)
            delete child;
        delete m_daemonSpawn;
    } catch (...) {
        // The process ends next; what could not be deleted goes with it.
    }
}

// ---- Program entry and command modes ----

int ZORBootstrapService::ParseStandardArgs(ZORCmdLine& cmdLine, char** envp) {
    setEnvironment();
    if (wantsHelp(cmdLine)) {
        displayHelp(cmdLine);
        return 1;
    }
    findHome();
    configureLogging(cmdLine);
    keepEnvironment(envp);
    if (!readStartupConfiguration()) return 1;
    applyOverrides(cmdLine);
    if (ZORPropertyInserter::getInstance()->get("java_home") == nullptr) {
        logger->log(ZOR_FATAL,
                    "A value for JAVA_HOME must be provided either as an environment variable or with the "
                    "-java_home= command line argument.");
        return 1;
    }
    if (processCmdLineUnix(cmdLine) == 0) displayHelp(cmdLine);
    return 1;
}

void ZORBootstrapService::configureLogging(const ZORCmdLine& cmdLine) {
    ZORLoggerFactory* const factory = ZORLoggerFactory::getInstance();
    factory->prepare(loggingDocument(cmdLine).c_str(), loggingMode(cmdLine));
    std::string level;
    if (cmdLine.getValue("-stdoutLog", level, 0) == 0) return;
    factory->addFile(stdout, 0);
    factory->setLevel(level.c_str());
}

void ZORBootstrapService::keepEnvironment(char** envp) {
    if (envp == nullptr) return;
    if (ZORLoggerFactory::getInstance()->getLevel() > ZOR_INFO) {
        logger->log(ZOR_DEBUG, "envp is...");
        for (char** entry = envp; *entry != nullptr; ++entry)
            logger->log(ZOR_DEBUG, "%s", *entry);
    }
    m_envp = envp;
}

bool ZORBootstrapService::readStartupConfiguration() {
    TVLByteBuffer errorText(256, 256);
    try {
        // Without the service's element the start goes on, without its properties.
        if (initZORElement() != 0) prepareProperties();
        return true;
    } catch (const ZORBadConfigException& exception) {
        // Deliberate: spelt so; see CommandModesTest.AStartupConfigurationThatCannotBeReadEndsTheCommand.
        errorText << "Error occured processing configuration. Error message:\n" << exception.getMessage();
    }
    logger->log(ZOR_FATAL, "%s", errorText.str());
    std::fputs(errorText.str(), stderr);
    return false;
}

void ZORBootstrapService::applyOverrides(const ZORCmdLine& cmdLine) {
    std::string value;
    if (cmdLine.getValue("-java_home", value, 0) != 0) setProperty("java_home", value.c_str());
    if (cmdLine.getValue("-config", value, 0) != 0) setProperty("configfile", value.c_str());
    getPlatform();
    bool overridden = false;
    for (const ZORCLArg& arg : cmdLine.getArgs()) {
        if (arg.getName().rfind("$$", 0) != 0 || !arg.hasValue()) continue;
        setProperty(arg.getName().c_str() + 2, arg.getValue());
        overridden = true;
    }
    if (overridden) calculateProperties();
}

int ZORBootstrapService::processCmdLineUnix(ZORCmdLine& cmdLine) {
    std::string installRoot;
    if (cmdLine.getValue("-install_root", installRoot, 0) != 0) {
        m_installRoot = installRoot;
        m_binDirectory = installRoot + "/bin";
    }
    // The name itself is not needed any more; its expansion shows in the log.
    std::string given;
    if (cmdLine.getValue("-logconfig", given, 0) == 0) expanded("${install_path}/bin/zorlogconfig.xml");
    // The first that matches wins, whatever the order on the command line.
    if (has(cmdLine, "-d")) {
        RunAsApplication();
        setExitCode(0);
    } else if (has(cmdLine, "-isRunning")) {
        setExitCodeFrom(isRunningUnix());
    } else if (has(cmdLine, "-stop")) {
        setExitCodeFrom(stopRunningUnix(cmdLine));
    } else if (has(cmdLine, "-start")) {
        setExitCodeFrom(startDaemon(cmdLine));
    } else if (has(cmdLine, "runAsDaemon")) {
        setExitCode(0);
        runAsDaemon();
    } else {
        return 0;
    }
    return 1;
}

void ZORBootstrapService::displayHelp(ZORCmdLine& /*cmdLine*/) {
    ZORConsole::getInstance()->prepare();
    printUnixHelp();
}

void ZORBootstrapService::printUnixHelp() {
    TVLByteBuffer text(256, 256);
    text << kUsage;
    ZORConsole::getInstance()->print(text);
}

const char* ZORBootstrapService::getPlatform() {
    ZORPropertyInserter* const properties = ZORPropertyInserter::getInstance();
    if (properties->get("platform") == nullptr) properties->add("platform", kDefaultPlatform);
    return properties->get("platform");
}

// ---- Life cycle ----

int ZORBootstrapService::OnInit() {
    ZORCryptoHelper::InitializeCrypto();
    ZORPropertyInserter* const properties = ZORPropertyInserter::getInstance();
    m_pidFilePath = "${install_path}/logs/";
    std::string path;
    if (const char* const configured = properties->get("configfile"); configured != nullptr) {
        // A run with a document of its own never touches the daemon's PID file.
        path = configured;
        m_pidFilePath += "zor_cnfgtest_" + std::to_string(getpid());
    } else {
        path = std::string("${bin_path}/bootstrap_") + getPlatform() + ".xml";
        m_pidFilePath += "velbootstrap_service.pid";
    }
    properties->insertProperties(m_pidFilePath);
    properties->insertProperties(path);
    return loadBootstrapDocument(path);
}

int ZORBootstrapService::loadBootstrapDocument(const std::string& path) {
    logger->log(ZOR_INFO, "attempt to load config from \"%s\"", path.c_str());
    TVLIDOM_Parser parser;
    TVLIDOM_Document document;
    ZORFileInputStream stream(path.c_str());
    if (stream.isOpen() == 0) {
        logger->log(ZOR_FATAL, "cannot open bootstrap config file \"%s\".", path.c_str());
        return 0;
    }
    if (parser.parse(stream, document) != 1) {
        logger->log(ZOR_FATAL, "Error parsing bootstrap.xml file = \"%s\", error string = \"%s\"",
                    path.c_str(), parser.getErrorString().c_str());
        return 0;
    }
    const int result = parseParamsOf(document.getDocumentElement(), path);
    if (result != 0) noteDaemonWaitMarker();
    return result;
}

int ZORBootstrapService::parseParamsOf(const TVLIDOM_Element& root, const std::string& path) {
    int result = 0;
    try {
        result = parseParams(root);
    } catch (const ZORBadConfigException& exception) {
        logger->log(ZOR_FATAL, "%s", exception.getMessage());
    }
    if (result == 0) logger->log(ZOR_FATAL, "Error processing bootstrap.xml file = \"%s\"", path.c_str());
    return result;
}

void ZORBootstrapService::noteDaemonWaitMarker() {
    const std::string marker = expanded("${temp}/zordaemonwait");
    logger->log(ZOR_DEBUG, "m_sDaemonWaitFileName is \"%s\"", marker.c_str());
    // Deliberate: the marker stays open for the rest of the process; see
    // DaemonLifeTest.TheMarkersDescriptorStaysInTheDaemon.
    if (TVLFile::openForReading(marker.c_str(), TVLFile::kMostOfARecord).release() != nullptr)
        setProperty("daemonWaitIndefinitely", "true");
}

int ZORBootstrapService::Run() {
    m_semaMainThreadWait = TVLThreadSemaphore::createImmortal(0);
    for (ZORChildProcess* const child : m_children) {
        logger->log(ZOR_DEBUG, "ZORBootstrapService::Run() - starting \"%s\"", child->getName());
        child->start();
    }
    {
        ZORSignalHandlerThread signalThread(this);
        if (startThreads(signalThread)) {
            logger->log(ZOR_DEBUG, "test ready...");
            if (askPCPifReady(kReadyTries, kReadyIntervalSec) == 1) {
                logger->log(ZOR_INFO, "ZORBootstrapService::Run() - child process(es) is/are ready.");
            }
            waitForStop();
            // However the wait has ended, no child is left to itself.
            m_supervisor.finish();
        } else {
            stopWithoutSupervisor();
        }
        logger->log(ZOR_INFO, "Done.");
        TVLFile::remove(m_pidFilePath.c_str());
    }
    return 1;
}

bool ZORBootstrapService::startThreads(ZORSignalHandlerThread& signalThread) {
    try {
        signalThread.start();
        // Deliberate: a configured delay is a switch, its length is used nowhere; see
        // ServiceRunTest.AnyStartupDelayPausesFiveMilliseconds.
        if (m_startupDelayMs != 0) TVLThread::sleep(5);
        m_supervisor.start();
        return true;
    } catch (const TVLThreadResourceError& error) {
        logger->log(ZOR_FATAL, "ZORBootstrapService::Run() - cannot start a thread: %s", error.getMessage());
        return false;
    }
}

// Without a supervisor nobody would ever stop the children that already run.
void ZORBootstrapService::stopWithoutSupervisor() {
    m_supervisor.stopProcesses();
    if (m_supervisor.waitForDeath() == 0) m_supervisor.killProcesses();
}

void ZORBootstrapService::waitForStop() {
    logger->log(ZOR_DEBUG, "ZORBootstrapService::Run() - calls m_semaMainThreadWait->wait()");
    try {
        m_semaMainThreadWait.load()->wait();
        logger->log(ZOR_INFO, "ZORBootstrapService::Run() - returned from m_semaMainThreadWait->wait()");
    } catch (const TVLThreadResourceError&) {
        logger->log(ZOR_ERROR, "wait() threw a TVLThreadResourceError Exception ");
    }
}

void ZORBootstrapService::WritePIDFile() const {
    const int pid = getpid();
    const TVLFilePtr file = TVLFile::openForAllToRead(m_pidFilePath.c_str());
    const bool written = file && std::fprintf(file.get(), "%d\n", pid) > 0 && std::fflush(file.get()) == 0;
    if (!written) {
        logger->log(
            ZOR_WARN,
            "Process ID could not be written to file.  The velbootstrapservice -stop command will not "
            "work. Use 'kill -9' instead.");
        return;
    }
    logger->log(ZOR_INFO, "Velmora Bootstrap Service running as process %d.", pid);
    warnOfOthersFile(m_pidFilePath, file.get());
}

void ZORBootstrapService::stopChildProcess() {
    TVLThreadSemaphore* const mainThread = m_semaMainThreadWait.load();
    if (mainThread != nullptr) m_supervisor.stop(mainThread);
}

void ZORBootstrapService::OnStop() {
    // Immortal: the supervisor may still be inside the post when this thread goes on.
    TVLThreadSemaphore* const finished = TVLThreadSemaphore::createImmortal(0);
    m_supervisor.stop(finished);
    logger->log(ZOR_INFO, "Waiting for processes to stop.");
    finished->wait();
    logger->log(ZOR_INFO, "Done wait for processes to stop.");
    wakeupMainThread();
}

void ZORBootstrapService::wakeupMainThread() {
    logger->log(ZOR_INFO, "signal main thread to wake (and die).");
    if (TVLThreadSemaphore* const mainThread = m_semaMainThreadWait.load(); mainThread != nullptr) {
        mainThread->post();
    }
}

int ZORBootstrapService::runAsDaemon() {
    TVLOs& os = TVLOs::current();
    const pid_t first = os.fork();
    if (first < 0) logger->log(ZOR_ERROR, "runAsDaemon() - fork failed, errno=%d", errno);
    if (first != 0) return 0;
    redirectStandardStreams();
    os.setsid();
    const pid_t second = os.fork();
    if (second < 0) logger->log(ZOR_ERROR, "runAsDaemon() - fork failed, errno=%d", errno);
    if (second != 0) return 0;
    RunAsApplication();
    return 0;
}

int ZORBootstrapService::resolveSignal(I18NString& name) {
    return strcasecmp(name.c_str(), "sigterm") == 0 ? SIGTERM : -1;
}

// ---- Control of a running daemon ----

int testPID(int pid, ZORLogger* pidLogger) {
    int result = -1;
    if (pid < 1) {
        errno = ESRCH;  // 0 and below name process groups, among them this process's own
    } else {
        result = TVLOs::current().kill(pid, 0);
    }
    if (result == 0) return 1;
    // Deliberate: a process of another user counts as not running; see
    // TestPidTest.AProcessThatCannotBeSignalledCountsAsNotRunning.
    pidLogger->log(ZOR_DEBUG, "testPID() - sigsend failed, errno=%d", errno);
    return 0;
}

namespace {

// To whom a PID file belongs decides which processes it may name; from here on the id means the process that has it
// now. One that it may not name is as little the daemon as one that may not be signalled.
bool mayBeNamed(int pid, std::optional<uid_t> owner) {
    if (!owner || TVLOs::current().holdProcess(pid, *owner) == 0) return true;
    logger->log(ZOR_DEBUG, "testPID() - sigsend failed, errno=%d", errno);
    return false;
}

}  // namespace

int ZORBootstrapService::getPid(int* pid) {
    struct stat status {};
    if (stat(m_pidFilePath.c_str(), &status) != 0) {
        const std::string error = std::to_string(errno);
        logger->log(ZOR_DEBUG, "getPID() - stat() failed on file: %s errno=%s", m_pidFilePath.c_str(),
                    error.c_str());
        return 0;
    }
    TVLFilePtr file = TVLFile::openForReading(m_pidFilePath.c_str(), TVLFile::kMostOfARecord);
    if (!file) {
        logger->log(ZOR_DEBUG, "getPID() - couldn't open \"%s\".", m_pidFilePath.c_str());
        return 0;
    }
    std::array<char, 64> line{};
    if (std::fgets(line.data(), static_cast<int>(line.size()), file.get()) == nullptr) return 0;
    const std::optional<uid_t> owner = ZORPidFileOwner::of(file.get(), m_pidFilePath);
    file.reset();
    *pid = TVLNumber::parse(line.data());
    logger->log(ZOR_DEBUG, "isRunningUnix() - testing pid %d to see if process is alive.", *pid);
    if (mayBeNamed(*pid, owner) && testPID(*pid, logger) != 0) return 1;
    // Deliberate: worded so; see DaemonControlTest.AStalePidFileIsLeftInPlace.
    logger->log(ZOR_DEBUG, "process may not be not alive but pid file is hanging around.");
    *pid = 0;
    return 0;
}

int ZORBootstrapService::isRunningUnix() {
    logger->log(ZOR_INFO, "Testing to see if daemon is running.");
    logger->log(ZOR_DEBUG, "called isRunningUnix()");
    if (OnInit() == 0) {
        logger->log(ZOR_ERROR, "isRunningUnix() - OnInit() call failed.");
        return 0;
    }
    int pid = 0;
    const int alive = getPid(&pid);
    logger->log(ZOR_DEBUG, "isRunningUnix() - process is %s.", alive != 0 ? "alive" : "dead");
    logger->log(ZOR_INFO, "Process is %s.", alive != 0 ? "running" : "not running");
    return alive;
}

int ZORBootstrapService::stopRunningUnix(ZORCmdLine& cmdLine) {
    logger->log(ZOR_INFO, "Stopping daemon.");
    logger->log(ZOR_DEBUG, "called stopRunningUnix()");
    if (OnInit() == 0) {
        logger->log(ZOR_FATAL, "stopRunningUnix() - OnInit() call failed.");
        return 0;
    }
    int pid = 0;
    if (getPid(&pid) == 0) {
        logger->log(ZOR_INFO, "stopRunningUnix() - process is dead, nothing to stop.");
        return 1;
    }
    logger->log(ZOR_INFO, "daemon process is alive, so will signal it to stop.");
    logger->log(ZOR_DEBUG, "stopRunningUnix() - process is alive, so will kill it with SIGTERM [PID: %d]",
                pid);
    signalDaemon(pid);
    const int tries = numberOption(cmdLine, "-testDeadTries", kControlTries);
    const int intervalSec = numberOption(cmdLine, "-testDeadInterval", kControlIntervalSec);
    logger->log(ZOR_INFO, "Waiting for daemon to stop....");
    return waitTillDead(tries, intervalSec);
}

void ZORBootstrapService::signalDaemon(int pid) {
    std::string text = "Tell process to stop by sending SIGTERM, pid=" + std::to_string(pid);
    if (TVLOs::current().kill(pid, SIGTERM) == 0) {
        logger->log(ZOR_DEBUG, "%s", text.c_str());
        return;
    }
    text += ", kill failed, errno=" + std::to_string(errno);
    logger->log(ZOR_ERROR, "%s", text.c_str());
    logger->log(ZOR_ERROR, "Failed to signal the daemon process: it may not stop.");
}

int ZORBootstrapService::waitTillDead(int tries, int intervalSec) {
    if (tries == 0) return 0;
    for (int i = 0; i < tries; ++i) {
        logger->log(ZOR_DEBUG, "waitTillDead() - test if ZOR daemon is alive.");
        int pid = 0;
        if (getPid(&pid) == 0) {
            logger->log(ZOR_INFO, "Daemon has stopped.");
            return 1;
        }
        logger->log(ZOR_DEBUG, "waitTillDead() - ZOR daemon (process id %d) is still alive, so wait a bit.",
                    pid);
        TVLThread::sleep(TVLNumber::secondsToMs(intervalSec));
    }
    logger->log(ZOR_ERROR, "waitTillDead() - daemon is still alive, but we aren't going to wait any more.");
    return 0;
}

int ZORBootstrapService::startDaemon(ZORCmdLine& cmdLine) {
    logger->log(ZOR_INFO, "Starting the daemon.");
    if (OnInit() == 0) {
        logger->log(ZOR_ERROR, "startDaemon() - OnInit() call failed.");
        return 0;
    }
    int pid = 0;
    if (getPid(&pid) != 0) {
        logger->log(ZOR_WARN, "startDaemon() - daemon is already running, will not attempt to start it.");
        return 1;
    }
    if (m_daemonSpawn->execute() <= 0) {
        logger->log(ZOR_ERROR, "startDaemon() - failed to spawn ZOR daemon.");
        return 0;
    }
    logger->log(ZOR_INFO, "startDaemon() - spawned daemon, waiting for child processes to be ready.");
    const int tries = numberOption(cmdLine, "-testReadyTries", kControlTries);
    const int intervalSec = numberOption(cmdLine, "-testReadyInterval", kControlIntervalSec);
    const int ready = testReadyByPinging(tries, intervalSec);
    if (ready != -1) return ready;
    logger->log(ZOR_DEBUG, "startDaemon() - Fatal error happened, waiting for daemon to stop....");
    waitTillDead(tries, intervalSec);
    return 0;
}

int ZORBootstrapService::testReadyByPinging(int tries, int intervalSec) {
    for (int i = 0; i < tries; ++i) {
        logger->log(ZOR_DEBUG, "testReadyByPinging() - test if spawned process is alive.");
        const char* pause = "testReadyByPinging() - spawned process is not yet alive, so sleep a bit";
        int pid = 0;
        if (getPid(&pid) != 0) {
            logger->log(
                ZOR_DEBUG,
                "testReadyByPinging() - spawned process is alive, so see if all children were pinged OK.");
            const int failed = m_supervisor.testAllProcesses();
            if (failed == 0) {
                logger->log(ZOR_INFO, "testReadyByPinging() - pinged all children successfully.");
                return 1;
            }
            if (failed == -1) return stopAfterFatalError();
            pause = "testReadyByPinging() - child processes not yet ready so sleep a bit";
        }
        logger->log(ZOR_DEBUG, pause);
        TVLThread::sleep(TVLNumber::secondsToMs(intervalSec));
    }
    logger->log(ZOR_ERROR, "testReadyByPinging() - child processes not yet ready, giving up.");
    return 0;
}

int ZORBootstrapService::stopAfterFatalError() {
    logger->log(ZOR_INFO, "testReadyByPinging() - detected fatal errors, stop all processes.");
    int pid = 0;
    if (getPid(&pid) == 0) {
        logger->log(ZOR_INFO, "testReadyByPinging() - process is dead, nothing to stop.");
        return -1;
    }
    logger->log(ZOR_DEBUG,
                "testReadyByPinging() - daemon process is alive, so will kill it with SIGTERM [PID: %d]",
                pid);
    signalDaemon(pid);
    return -1;
}

int ZORBootstrapService::askPCPifReady(int tries, int intervalSec) {
    const bool indefinitely = ZORPropertyInserter::getInstance()->get("daemonWaitIndefinitely") != nullptr;
    for (int counted = 0; counted < tries;) {
        logger->log(ZOR_DEBUG, "askPCPifReady() - ask if spawned process is alive.");
        if (m_supervisor.isReady() != 0) {
            logger->log(ZOR_DEBUG, "askPCPifReady() - PCP reports all children are OK.");
            return 1;
        }
        if (m_supervisor.hasFatalError() != 0) {
            logger->log(ZOR_ERROR, "askPCPifReady() - some child processes got fatal errors, return -1.");
            return -1;
        }
        logger->log(ZOR_DEBUG,
                    "askPCPifReady() - PCP reports some child processes not yet ready so sleep a bit");
        TVLThread::sleep(TVLNumber::secondsToMs(intervalSec));
        if (indefinitely) {
            logger->log(ZOR_DEBUG, "askPCPifReady() - waiting indefinitely");
        } else {
            ++counted;
        }
    }
    logger->log(ZOR_ERROR, "askPCPifReady() - child processes not yet ready, giving up.");
    return 0;
}

// ---- Bootstrap document ----

int ZORBootstrapService::parseParams(TVLIDOM_Element root) {
    readRootAttributes(root);
    m_supervisor.prepare(root);
    if (prepareChildren(root) == 0) return 0;
    const TVLIDOM_Element daemonSpawn(root.getElementsByTagName("daemonSpawn").item(0));
    if (daemonSpawn.isNull()) {
        logger->log(ZOR_FATAL, "required element \"daemonSpawn\" is missing.");
        return 0;
    }
    delete m_daemonSpawn;
    m_daemonSpawn = new ZORSpawnAction;
    m_daemonSpawn->prepare(daemonSpawn);
    return 1;
}

void ZORBootstrapService::readRootAttributes(const TVLIDOM_Element& root) {
    int delaySec = 0;
    if (readNumber(root, "startupDelaySec", delaySec)) {
        m_startupDelayMs = TVLNumber::secondsToMs(delaySec);
        logger->log(ZOR_DEBUG, "configured startup delay is %d ms.", m_startupDelayMs);
    }
    m_pingRetries = 5;
    m_pingRetryIntervalSec = 2;
    if (readNumber(root, "pingRetries", m_pingRetries)) {
        logger->log(ZOR_DEBUG, "configured startup ping retries is %d.", m_pingRetries);
    }
    if (readNumber(root, "pingRetryIntervalSec", m_pingRetryIntervalSec)) {
        logger->log(ZOR_DEBUG, "configured startup ping retry interval is %d sec.", m_pingRetryIntervalSec);
    }
}

int ZORBootstrapService::prepareChildren(const TVLIDOM_Element& root) {
    const TVLIDOM_NodeList processes = root.getElementsByTagName("process");
    if (processes.getLength() == 0) {
        logger->log(ZOR_ERROR, "no process elements.");
        return 0;
    }
    for (std::size_t i = 0; i < processes.getLength(); ++i) {
        logger->log(ZOR_DEBUG, "processing config for process");
        auto child = std::make_unique<ZORChildProcess>();
        try {
            child->prepare(TVLIDOM_Element(processes.item(i)));
            m_children.push_back(nullptr);
            m_children.back() = child.release();
        } catch (const ZORBadConfigException& exception) {
            // Deliberate: the others go on, even when none is left; see
            // BootstrapDocumentTest.ADocumentOfBadProcessesOnlyStillLoads.
            logger->log(ZOR_ERROR, "exception while processing configuration: \"%s\"",
                        exception.getMessage());
        }
    }
    return 1;
}

// ---- Startup configuration ----

int ZORBootstrapService::initZORElement() {
    try {
        m_zorElement = TVLConfigurationFactory::getInstance()->getElement("ZOR");
    } catch (const TVLConfigurationException& exception) {
        throw ZORBadConfigException(exception.getMessage());
    }
    if (!m_zorElement.isNull()) return 1;
    logger->log(ZOR_ERROR, "failed to find ZOR element in bootstrap config (via CFGAPI)");
    return 0;
}

int ZORBootstrapService::getDataFromZORElement(I18NString& value, const char* name, const char* type) {
    const TVLIDOM_Element parameter =
        TVLIDOM_Helper::findFirstElementWithAttribute(m_zorElement, "vrx:parameter", "name", name);
    if (parameter.isNull()) {
        TVLByteBuffer text(256, 256);
        text.printf("Failed to find parameter \"%s\" in startup config ZOR element.", name);
        logger->log(ZOR_WARN, "%s", text.str());
        return 0;
    }
    const TVLIDOM_Element typed =
        TVLIDOM_Helper::findFirstElementWithAttribute(parameter, "vrx:value", "xsi:type", type);
    if (typed.isNull()) {
        logger->log(ZOR_WARN, "Failed to find value of type \"%s\" for parameter named \"%s\".", type, name);
        return 0;
    }
    // Deliberate: a value that does not begin with text is no value and worth no message; see
    // StartupPropertiesTest.AValueThatBeginsWithACommentIsNoneAndWorthNoMessage.
    const TVLIDOM_Node first = typed.getFirstChild();
    if (first.getNodeType() != TVLIDOM_Node::TEXT_NODE) return 0;
    value = first.getNodeValue();
    return 1;
}

void ZORBootstrapService::prepareProperties() {
    setProperty("CRLF", "\n");
    if (const char* const javaHome = std::getenv("JAVA_HOME"); javaHome != nullptr) {
        setProperty("java_home", javaHome);
    }
    std::string instanceName;
    if (!m_zorElement.isNull()) {
        const TVLIDOM_Element instances =
            TVLIDOM_Helper::findFirstElementWithAttribute(m_zorElement, "vrx:instances", "name", "zor");
        instanceName =
            TVLIDOM_Helper::findFirstElementWithName(instances, "vrx:instance").getAttribute("name").str();
        addParameterProperties();
    }
    try {
        addTempProperty();
        addDispatcherProperties(instanceName);
        if (TVLConfigurationFactory::getInstance()->getString("networkConfiguration") == "IPv6") {
            setProperty("ip_protocol", "IPv6");
        }
    } catch (const TVLConfigurationException& exception) {
        throw ZORBadConfigException(exception.getMessage());
    }
    getJavaVendor();
}

void ZORBootstrapService::addParameterProperties() {
    for (const Parameter& parameter : kParameters) {
        I18NString value;
        if (getDataFromZORElement(value, parameter.name, parameter.type) == 0) continue;
        setProperty(parameter.name, value.c_str());
        if (std::strcmp(parameter.name, "dispatcherMaxMemory") == 0) calculateProperties();
    }
}

void ZORBootstrapService::addTempProperty() {
    const I18NString temp = TVLConfigurationFactory::getInstance()->getElement("temp").getTextContent();
    setProperty("temp", temp.c_str());
    if (TVLFmDir::exists(temp.c_str())) {
        logger->log(ZOR_DEBUG, "Confirmed that temp directory \"%s\" does exist.", temp.c_str());
        return;
    }
    logger->log(ZOR_WARN, "Temp directory \"%s\" does not exist, will try to create.", temp.c_str());
    if (TVLFmDir::createWithParents(temp.c_str())) {
        logger->log(ZOR_WARN, "Temp directory \"%s\" was created successfully.", temp.c_str());
    } else {
        logger->log(ZOR_FATAL, "Failed to create temp directory \"%s\".", temp.c_str());
    }
}

void ZORBootstrapService::addDispatcherProperties(const std::string& instanceName) {
    const I18NString uri =
        TVLConfigurationFactory::getInstance()->getElement("internalDispatcher").getTextContent();
    const std::string port = portOf(uri.str());
    setProperty("dispatcherURI", uri.c_str());
    setProperty("dispatcherPort", port.c_str());
    setProperty("contentManagerURI", uri.c_str());
    std::string serviceName = instanceName.empty() ? kDefaultServiceName : instanceName;
    if (port != kDefaultPort) serviceName += ":" + port;
    setProperty("serviceName", serviceName.c_str());
}

void ZORBootstrapService::calculateProperties() {
    const char* const maxMemory = ZORPropertyInserter::getInstance()->get("dispatcherMaxMemory");
    if (maxMemory == nullptr) return;
    const int memory = TVLNumber::parse(maxMemory);
    for (const int divisor : {2, 3, 4}) {
        const std::string name = "dispatcherMaxMemoryBy" + std::to_string(divisor);
        setProperty(name.c_str(), std::to_string(memory / divisor).c_str());
    }
}

// ---- Environment, install paths and Java home ----

void ZORBootstrapService::setEnvironment() {
    const std::optional<std::string> text = TVLFile::read(kEnvironmentFile, TVLFile::kMostOfAList);
    if (!text) return;
    for (std::size_t at = 0; at < text->size();) {
        std::string line = nextLine(*text, at, text->size());
        if (line.back() == '\n') line.pop_back();
        if (!line.empty() && line[0] != '#') putenv(immortalCopy(line));
    }
}

int ZORBootstrapService::findHome() {
    TVLConfigurationFactory* const configuration = TVLConfigurationFactory::getInstance();
    m_installRoot = "..";
    configuration->getFullPath(m_installRoot);
    m_binDirectory = ".";
    configuration->getFullPath(m_binDirectory);
    if (m_installRoot.empty()) {
        logger->log(ZOR_FATAL, "Install home directory has not been specified");
        return 0;
    }
    if (m_binDirectory.empty()) {
        logger->log(ZOR_FATAL, "Install bin directory has not been specified");
        return 0;
    }
    setProperty("install_path", m_installRoot.c_str());
    setProperty("bin_path", m_binDirectory.c_str());
    return 1;
}

void ZORBootstrapService::getJavaVendor() {
    const std::string path = expanded("${temp}/zor.prefs");
    const std::optional<std::string> text = TVLFile::read(path.c_str(), TVLFile::kMostOfAList);
    if (!text) {
        logger->log(ZOR_DEBUG, "ZOR Java properties file \"%s\" is NOT found.", path.c_str());
        setProperty("java_vendor", "");
        return;
    }
    logger->log(ZOR_DEBUG, "ZOR Java properties file \"%s\" is found.", path.c_str());
    const JavaPreferences preferences = readJavaPreferences(*text);
    const std::string absoluteHome = TVLFmDir::resolveByChangingInto(preferences.home.c_str());
    logger->log(ZOR_DEBUG, "AbsJavaHomeInFile =\"%s\"", absoluteHome.c_str());
    if (absoluteHome.empty()) {
        logger->log(ZOR_DEBUG,
                    "Java home in the ZOR Java properties file is empty, no need to check java vendor. "
                    "JavaHomeInFile=\"%s\", JavaHomeInZOR=\"%s\"",
                    preferences.home.c_str(), nullptr);
        setProperty("java_vendor", "");
        return;
    }
    setProperty("java_vendor", knownVendor(preferences.vendor));
}
