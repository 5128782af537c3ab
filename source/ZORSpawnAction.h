// Starts a program as a child process.
//
// Purpose: the start action of every child, a kind of stop action, and how the daemon itself is started.
// Ownership: owns its argument array.
// Threads: as ZORAction. A forked child does nothing but replace itself by the program.
// Units: "sync" in seconds; process ids as handles.
// Errors: prepare() throws ZORBadConfigException without a path. execute() returns the new process id, or -1
//   when no process could be made. A program that cannot be executed shows as a child that ends at once,
//   status 0.
#pragma once

#include <string>

#include "TVLByteBuffer.h"
#include "ZORAction.h"
#include "ZORArgVector.h"

class ZORSpawnAction : public ZORAction {
  public:
    ZORSpawnAction() = default;
    ~ZORSpawnAction() override;

    int executeImpl() override;
    void prepare(TVLIDOM_Element element) override;

    int spawn();
    int getProcessHandle() const {
        return m_pid;
    }  // of the last spawn, -1 before the first and after a failure
    void logSpawnParams(int level);
    // What is run, with all references replaced.
    const std::string& getPath() const { return m_path; }
    const ZORArgVector& getArguments() const { return m_args; }

  private:
    void preparePath(const TVLIDOM_Element& element);
    void becomeProgram();
    void describe(TVLByteBuffer& buffer) const;

    ZORArgVector m_args;
    std::string m_path;
    int m_sync = 0;
    int m_pid = -1;
};
