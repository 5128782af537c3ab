// The service.
//
// Purpose: the one service object of the process. It turns a command line into a mode (run in the foreground,
//   run as the daemon, start, stop, ask), reads the configuration into properties, children and supervisor,
//   runs them, and controls a running daemon from a second invocation.
// Ownership: owns the children, the action that starts the daemon, and the supervisor. The semaphore of the
//   main thread is immortal.
// Threads: the main thread, but for WritePIDFile() and stopChildProcess(), which the signal thread calls.
// Units: intervals in seconds, the start-up delay in milliseconds.
// Errors: operations return 1 or 0 (-1: fatal for the readiness checks) and say why in the log.
//   prepareProperties() and initZORElement() throw ZORBadConfigException for a startup configuration that
//   cannot be read.
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <map>
#include <string>

#include "PingChildProcess.h"
#include "TVLIDOM_Node.h"
#include "TVLThreadSync.h"
#include "ZORDaemonControl.h"
#include "ZOREnvironment.h"
#include "ZORNTService.h"
#include "ZORPidFile.h"
#include "ZORStartupProperties.h"

class ZORChildProcess;
class ZORCmdLine;
class ZORSignalHandlerThread;
class ZORSpawnAction;
enum class ZORMode;

class ZORBootstrapService : public ZORNTService {
  public:
    ZORBootstrapService();
    ~ZORBootstrapService() override;
    int Run() override;  // 1, when told to stop and the children are down
    int OnInit() override;
    void OnStop() override;

    // Program entry and command modes.
    int ParseStandardArgs(ZORCmdLine& cmdLine, char** envp);  // always 1
    int processCmdLineUnix(ZORCmdLine& cmdLine);              // 1 when it carried out a mode
    void displayHelp(ZORCmdLine& cmdLine);
    static void printUnixHelp();
    static const char* getPlatform();

    // Life cycle.
    void WritePIDFile() const { m_pidFile.write(); }
    void stopChildProcess();
    void wakeupMainThread();
    int runAsDaemon();  // 0 in every process that returns from it

    // Control of a running daemon. The first three call OnInit(), the others rely on its having been called.
    int isRunningUnix();                       // 1 running, 0 not running or failed
    int stopRunningUnix(ZORCmdLine& cmdLine);  // 1 when the daemon is gone, 0 when it is not
    int startDaemon(ZORCmdLine& cmdLine);      // 1 ready or already running, 0 not
    // 1 when the PID file names a live process, whose id is stored.
    int getPid(int* pid) { return m_pidFile.read(*pid) ? 1 : 0; }
    // 1 when the daemon is gone, 0 when it is not.
    int waitTillDead(int tries, int intervalSec) {
        return m_control.waitTillDead({tries, intervalSec}) ? 1 : 0;
    }
    // 1 ready, 0 gave up, -1 fatal.
    int askPCPifReady(int tries, int intervalSec) { return m_control.askPCPifReady({tries, intervalSec}); }
    // Likewise; after a fatal answer the daemon has been told to stop.
    int testReadyByPinging(int tries, int intervalSec) {
        return m_control.testReadyByPinging({tries, intervalSec});
    }

    // Configuration.
    int parseParams(TVLIDOM_Element root);  // 1 when the bootstrap document is usable
    // 1 when the startup configuration has the service's element.
    int initZORElement() { return m_startup.findElement() ? 1 : 0; }
    void prepareProperties() { m_startup.prepare(); }
    void calculateProperties() { ZORStartupProperties::calculateMemory(); }
    // 1 when the parameter has a value of that type, which is stored.
    int getDataFromZORElement(I18NString& value, const char* name, const char* type) {
        return m_startup.read(value, name, type) ? 1 : 0;
    }
    void getJavaVendor() { m_startup.findJavaVendor(); }
    static void setEnvironment() { ZOREnvironment::applyFile(); }
    static char** getEnv() { return m_envp; }
    int findHome();  // 1 when both install paths are known
    // The options that stand for properties: -java_home=, -config= and $$name=.
    void applyOverrides(const ZORCmdLine& cmdLine);

    static int resolveSignal(I18NString& name);  // -1 for an unknown name

    // How the daemon is started; null until the bootstrap document has been read.
    const ZORSpawnAction* getDaemonSpawn() const { return m_daemonSpawn; }

    // Without the lock: the list is complete before other threads exist, and the supervisor ends before the children.
    std::list<ZORChildProcess*>& getChildren() TVL_UNCHECKED { return m_children; }

    PingChildProcess& getSupervisor() { return m_supervisor; }

    // The environment that the process was started with; what children receive.
    static char**& m_envp;

  private:
    friend class TestAccess;

    bool loadBootstrapDocument(const std::string& path);
    bool parseParamsOf(const TVLIDOM_Element& root, const std::string& path);
    void readRootAttributes(const TVLIDOM_Element& root);
    bool prepareChildren(const TVLIDOM_Element& root);
    void prepareChild(const TVLIDOM_Element& process);
    bool startThreads(ZORSignalHandlerThread& signalThread);
    void superviseUntilStopped();
    void stopWithoutSupervisor();
    void waitForStop();
    bool readStartupConfiguration();
    bool carryOut(ZORMode mode, ZORCmdLine& cmdLine);  // false when there is nothing to do
    void setExitCodeFrom(int succeeded) { setExitCode(succeeded != 0 ? 0 : 1); }

    std::string m_installRoot;
    std::string m_binDirectory;
    ZORPidFile m_pidFile;
    ZORSpawnAction* m_daemonSpawn = nullptr;  // owned; null until the bootstrap document has been read
    std::atomic<TVLThreadSemaphore*> m_semaMainThreadWait{nullptr};  // immortal; null until Run()
    TVLThreadMutex m_lock;  // held while the list of the children changes and while they are deleted
    std::list<ZORChildProcess*> m_children TVL_GUARDED_BY(m_lock);  // owned, in document order
    PingChildProcess m_supervisor;
    ZORDaemonControl m_control;
    ZORStartupProperties m_startup;
    // The numbers of the root element by their attributes; kRootNumbers lists them. One that is not there is 0.
    std::map<std::string, int, std::less<>> m_rootNumbers;
};
