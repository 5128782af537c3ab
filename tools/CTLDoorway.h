// The doorway to the system for whoever only looks.
//
// Purpose: as long as it lives, the service's own classes make no folders, remove nothing, start nothing and take no
//   pauses: what they would do to an instance beyond reading it is refused, and the pauses that they make for a peer's sake
//   are added up instead.
// Ownership: puts itself in the place of the present doorway, and that one back in the end.
// Threads: any thread may call it; it is made and ended while there is one.
// Units: milliseconds.
// Errors: what is refused fails with EROFS.
#pragma once

#include <cstdint>

#include "TVLRealOs.h"

class CTLDoorway final : public TVLRealOs {
  public:
    CTLDoorway() : m_before(install(this)) {}
    ~CTLDoorway() override { install(m_before); }

    int makeFolders(const char* path) override;
    int mkdirat(int folder, const char* path, mode_t mode) override;
    int unlinkat(int folder, const char* path, int flags) override;
    pid_t fork() override;
    void sleepMs(std::int64_t durationMs) override;

    // The pauses that this thread was spared, since it asked last.
    static std::int64_t takeSparedMs();

  private:
    TVLOs* m_before;
};
