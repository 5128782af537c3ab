// Sends a signal to a process.
//
// Purpose: the stop action of a child whose "stop" element has the type "signal".
// Ownership, threads: as ZORAction.
// Units: the signal is a number; names are not understood and read as 0.
// Errors: prepare() throws ZORBadConfigException without a signal. execute() returns what kill does: 0 or -1.
//   Deliberate: the target is not checked. Until the supervisor has set it, it is 0 and the signal reaches
//   the service's whole process group; see ZORSignalActionTest.WithoutATargetItSignalsTheWholeGroup.
#pragma once

#include "ZORAction.h"

class ZORSignalAction : public ZORAction {
  public:
    ZORSignalAction() = default;
    ~ZORSignalAction() override;

    int executeImpl() override;
    void prepare(TVLIDOM_Element element) override;
};
