// The service on a machine in virtual time.
//
// Purpose: puts a VirtualMachine behind the doorway of this process, and its security library in the place of the real
//   one, and tells the machine which children the service has. Several lives can be led, each on a machine of its own.
// Ownership: owns the machine; takes it away again, with the library that was loaded before put back, when destroyed. One
//   at a time. A service that has lived on a machine goes before it.
// Threads: the main thread.
// Units: seconds since the epoch.
// Errors: none.
#pragma once

#include <ctime>
#include <optional>
#include <vector>

#include "VirtualMachine.h"
#include "ZORBootstrapService.h"

class CTLSimulation {
  public:
    CTLSimulation();
    CTLSimulation(const CTLSimulation&) = delete;
    CTLSimulation& operator=(const CTLSimulation&) = delete;
    ~CTLSimulation();

    // A new machine; `wallClock` is what it shows in the beginning.
    VirtualMachine& begin(std::time_t wallClock = 0);
    VirtualMachine& machine() { return *m_machine; }
    // From now on the machine knows the children that this service has when it starts the first.
    void expect(ZORBootstrapService& service);
    // Heals all children and tells the service to stop, so that its run comes to an end.
    void conclude();

    static std::vector<VirtualChild> childrenOf(ZORBootstrapService& service);

  private:
    bool m_hadLibrary;
    std::optional<VirtualMachine> m_machine;
};
