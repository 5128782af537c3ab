// Starting and stopping an instance, and one of its children.
//
// Purpose: has the service's own commands, or the system's service manager, do it, shows the log meanwhile, and then
//   looks whether it is so: started is what has every child of the document answering, stopped what has neither the
//   daemon nor a child of it left. One child is ended by signals, which the supervisor answers by starting it again.
// Ownership: owns what it needs of the instance while a command runs.
// Threads: one, but for what CTLStatus starts and ends.
// Units: seconds.
// Errors: exit codes 0 it is so, 1 it is not, 128 and the number of a signal that ended the waiting; CTLError otherwise.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CTLAuthority.h"
#include "CTLInstance.h"
#include "CTLProcesses.h"

namespace CLI {
class App;
}

class CTLPreparation;
class CTLTerminal;
class CTLWaiting;
struct CTLChildStatus;
struct CTLStatus;

class CTLControl {
  public:
    CTLControl(CTLTerminal& terminal, const CTLInstance& instance, int timeoutSec);
    ~CTLControl();
    CTLControl(const CTLControl&) = delete;
    CTLControl& operator=(const CTLControl&) = delete;

    // The option --timeout, which several commands have.
    static void declareTimeout(CLI::App& command, int& timeoutSec);

    int start();
    int stop();
    int restart();
    // SIGTERM first, and SIGKILL when the child has not ended within that time.
    int restartChild(const std::string& name, int graceSec);

  private:
    int interruptibly(const std::function<int()>& work);
    bool byUnit(const char* verb, int& exitCode);
    int startDirectly();
    int stopDirectly();
    bool isSafeToAsk();
    int judgeStarted();
    CTLStatus statusNow(bool withExchanges);
    CTLChildStatus childNow(const std::string& name);
    void endChild(const CTLChildStatus& child, pid_t daemon, int graceSec);
    bool answers(const std::string& name);
    int complain(const std::string& text);
    void say(const std::string& text);

    CTLTerminal& m_terminal;
    CTLInstance m_instance;
    int m_timeoutSec;
    CTLProcesses m_processes;
    std::unique_ptr<CTLAuthority> m_authority;
    std::unique_ptr<CTLPreparation> m_preparation;
    std::unique_ptr<CTLWaiting> m_waiting;
};
