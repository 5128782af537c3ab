#include "ZORBootstrapService.h"

#include <strings.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <memory>
#include <optional>

#include "TVLByteBuffer.h"
#include "TVLDocumentFile.h"
#include "TVLNumber.h"
#include "TVLOs.h"
#include "TVLThread.h"
#include "ZORBadConfigException.h"
#include "ZORChildProcess.h"
#include "ZORCmdLine.h"
#include "ZORCryptoHelper.h"
#include "ZOREnvironment.h"
#include "ZORFileInputStream.h"
#include "ZORLogger.h"
#include "ZORModes.h"
#include "ZORPropertyInserter.h"
#include "ZORSignalHandlerThread.h"
#include "ZORSpawnAction.h"

namespace {

ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("ZORBootstrapService");

constexpr const char* kDefaultServiceName = "Velmora 8";
constexpr const char* kDefaultPlatform = "linuxi38632";

constexpr ZORPatience kReadyPatience{50, 6};

void setProperty(const char* name, const char* value) {
    ZORPropertyInserter::getInstance()->add(name, value);
}

// A number among the attributes of the root element: what it is called in the log, the number that it is without the
// attribute, and how what is written there becomes that number.
struct RootNumber {
    const char* attribute;
    const char* name;
    const char* unit;
    std::optional<int> usual;  // none: as it was, from the beginning 0
    int (*fromWritten)(int);
};

int asItIs(int number) {
    return number;
}

constexpr const char* kStartupDelay = "startupDelaySec";

// Deliberate: the two of the pings have no other use; see BootstrapDocumentTest.RootAttributesAreReadAndLogged.
constexpr RootNumber kRootNumbers[] = {
    {kStartupDelay, "startup delay", " ms", std::nullopt, TVLNumber::secondsToMs},
    {"pingRetries", "startup ping retries", "", 5, asItIs},
    {"pingRetryIntervalSec", "startup ping retry interval", " sec", 2, asItIs},
};

// Deliberate: installed for no signal, since termination signals are awaited, not caught; see
// RulesTest.WhatIsKeptUnusedIsUsedByNothing.
[[maybe_unused]] void ignoreSignal(int /*signal*/) {}

[[maybe_unused]] void stopOnSignal(int /*signal*/) {
    if (ZORNTService::m_pThis != nullptr) ZORNTService::m_pThis->OnStop();
}

}  // namespace

char**& ZORBootstrapService::m_envp = ZOREnvironment::m_envp;

ZORBootstrapService::ZORBootstrapService()
    : ZORNTService(kDefaultServiceName), m_control(m_pidFile, m_supervisor), m_startup(kDefaultServiceName) {
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
    if (ZORModes::wantsHelp(cmdLine)) {
        displayHelp(cmdLine);
        return 1;
    }
    findHome();
    ZORModes::configureLogging(cmdLine);
    ZOREnvironment::keep(envp);
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
    if (cmdLine.getValue("-logconfig", given, 0) == 0)
        ZORPropertyInserter::expanded("${install_path}/bin/zorlogconfig.xml");
    return carryOut(ZORModes::modeOf(cmdLine), cmdLine) ? 1 : 0;
}

bool ZORBootstrapService::carryOut(ZORMode mode, ZORCmdLine& cmdLine) {
    switch (mode) {
        case ZORMode::None:
            return false;
        case ZORMode::Foreground:
            RunAsApplication();
            setExitCode(0);
            return true;
        case ZORMode::Ask:
            setExitCodeFrom(isRunningUnix());
            return true;
        case ZORMode::Stop:
            setExitCodeFrom(stopRunningUnix(cmdLine));
            return true;
        case ZORMode::Start:
            setExitCodeFrom(startDaemon(cmdLine));
            return true;
        case ZORMode::Daemon:
            setExitCode(0);
            runAsDaemon();
            return true;
    }
    return false;
}

void ZORBootstrapService::displayHelp(ZORCmdLine& /*cmdLine*/) {
    ZORConsole::getInstance()->prepare();
    printUnixHelp();
}

void ZORBootstrapService::printUnixHelp() {
    TVLByteBuffer text(256, 256);
    text << ZORModes::usage();
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
    std::string pidFile = "${install_path}/logs/";
    std::string path;
    const char* const configured = ZORPropertyInserter::getInstance()->get("configfile");
    if (configured != nullptr) {
        // A run with a document of its own never touches the daemon's PID file.
        path = configured;
        pidFile += "zor_cnfgtest_" + std::to_string(TVLOs::current().getpid());
    } else {
        path = std::string("${bin_path}/bootstrap_") + getPlatform() + ".xml";
        pidFile += "velbootstrap_service.pid";
    }
    m_pidFile.setPath(ZORPropertyInserter::expanded(pidFile.c_str()));
    path = ZORPropertyInserter::expanded(path.c_str());
    return loadBootstrapDocument(path) ? 1 : 0;
}

bool ZORBootstrapService::loadBootstrapDocument(const std::string& path) {
    logger->log(ZOR_INFO, "attempt to load config from \"%s\"", path.c_str());
    TVLIDOM_Document document;
    ZORFileInputStream stream(path.c_str());
    const auto cannotOpen = [&] {
        logger->log(ZOR_FATAL, "cannot open bootstrap config file \"%s\".", path.c_str());
    };
    const auto cannotParse = [&](const char* words) {
        logger->log(ZOR_FATAL, "Error parsing bootstrap.xml file = \"%s\", error string = \"%s\"",
                    path.c_str(), words);
    };
    if (!TVLDocumentFile::read(stream, document, {cannotOpen, cannotParse})) return false;
    if (!parseParamsOf(document.getDocumentElement(), path)) return false;
    ZORDaemonControl::noteWaitMarker();
    return true;
}

bool ZORBootstrapService::parseParamsOf(const TVLIDOM_Element& root, const std::string& path) {
    try {
        if (parseParams(root) != 0) return true;
    } catch (const ZORBadConfigException& exception) {
        logger->log(ZOR_FATAL, "%s", exception.getMessage());
    }
    logger->log(ZOR_FATAL, "Error processing bootstrap.xml file = \"%s\"", path.c_str());
    return false;
}

int ZORBootstrapService::Run() {
    m_semaMainThreadWait = TVLThreadSemaphore::createImmortal(0);
    for (ZORChildProcess* const child : getChildren()) {
        logger->log(ZOR_DEBUG, "ZORBootstrapService::Run() - starting \"%s\"", child->getName());
        child->start();
    }
    {
        ZORSignalHandlerThread signalThread(this);
        if (startThreads(signalThread)) {
            superviseUntilStopped();
        } else {
            stopWithoutSupervisor();
        }
        logger->log(ZOR_INFO, "Done.");
        m_pidFile.remove();
    }
    return 1;
}

void ZORBootstrapService::superviseUntilStopped() {
    logger->log(ZOR_DEBUG, "test ready...");
    if (askPCPifReady(kReadyPatience.tries, kReadyPatience.intervalSec) == 1) {
        logger->log(ZOR_INFO, "ZORBootstrapService::Run() - child process(es) is/are ready.");
    }
    waitForStop();
    // However the wait has ended, no child is left to itself.
    m_supervisor.finish();
}

bool ZORBootstrapService::startThreads(ZORSignalHandlerThread& signalThread) {
    try {
        signalThread.start();
        // Deliberate: a configured delay is a switch, its length is used nowhere; see
        // ServiceRunTest.AnyStartupDelayPausesFiveMilliseconds.
        if (m_rootNumbers[kStartupDelay] != 0) TVLThread::sleep(5);
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
    if (!TVLOs::redirectStandardStreams()) {
        logger->log(ZOR_ERROR, "runAsDaemon() - cannot redirect the standard streams, errno=%d", errno);
    }
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

int ZORBootstrapService::isRunningUnix() {
    logger->log(ZOR_INFO, "Testing to see if daemon is running.");
    logger->log(ZOR_DEBUG, "called isRunningUnix()");
    if (OnInit() != 0) return m_control.isRunning() ? 1 : 0;
    logger->log(ZOR_ERROR, "isRunningUnix() - OnInit() call failed.");
    return 0;
}

int ZORBootstrapService::stopRunningUnix(ZORCmdLine& cmdLine) {
    logger->log(ZOR_INFO, "Stopping daemon.");
    logger->log(ZOR_DEBUG, "called stopRunningUnix()");
    const ZORPatience patience = ZORDaemonControl::patienceOf(cmdLine, "-testDeadTries", "-testDeadInterval");
    if (OnInit() != 0) return m_control.stop(patience) ? 1 : 0;
    logger->log(ZOR_FATAL, "stopRunningUnix() - OnInit() call failed.");
    return 0;
}

int ZORBootstrapService::startDaemon(ZORCmdLine& cmdLine) {
    logger->log(ZOR_INFO, "Starting the daemon.");
    const ZORPatience patience =
        ZORDaemonControl::patienceOf(cmdLine, "-testReadyTries", "-testReadyInterval");
    if (OnInit() != 0) return m_control.start(*m_daemonSpawn, patience) ? 1 : 0;
    logger->log(ZOR_ERROR, "startDaemon() - OnInit() call failed.");
    return 0;
}

int ZORBootstrapService::parseParams(TVLIDOM_Element root) {
    readRootAttributes(root);
    m_supervisor.prepare(root);
    if (!prepareChildren(root)) return 0;
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
    for (const RootNumber& each : kRootNumbers) {
        int& number = m_rootNumbers[each.attribute];
        number = each.usual.value_or(number);
        const I18NString written = root.getAttribute(each.attribute);
        if (written.empty()) continue;
        number = each.fromWritten(TVLNumber::parse(written.c_str()));
        const std::string shown = std::to_string(number) + each.unit;
        logger->log(ZOR_DEBUG, "configured %s is %s.", each.name, shown.c_str());
    }
}

bool ZORBootstrapService::prepareChildren(const TVLIDOM_Element& root) {
    const TVLIDOM_NodeList processes = root.getElementsByTagName("process");
    if (processes.getLength() == 0) {
        logger->log(ZOR_ERROR, "no process elements.");
        return false;
    }
    for (std::size_t i = 0; i < processes.getLength(); ++i)
        prepareChild(TVLIDOM_Element(processes.item(i)));
    return true;
}

void ZORBootstrapService::prepareChild(const TVLIDOM_Element& process) {
    logger->log(ZOR_DEBUG, "processing config for process");
    auto child = std::make_unique<ZORChildProcess>();
    try {
        child->prepare(process);
        const TVLThreadGuard guard(m_lock);
        m_children.push_back(nullptr);
        m_children.back() = child.release();
    } catch (const ZORBadConfigException& exception) {
        // Deliberate: the others go on, even when none is left; see
        // BootstrapDocumentTest.ADocumentOfBadProcessesOnlyStillLoads.
        logger->log(ZOR_ERROR, "exception while processing configuration: \"%s\"", exception.getMessage());
    }
}

int ZORBootstrapService::findHome() {
    return ZOREnvironment::findHome(m_installRoot, m_binDirectory) ? 1 : 0;
}
