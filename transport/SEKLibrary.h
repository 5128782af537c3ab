// The state of the library in the process: whether it is initialised, its TLS contexts and its live handles.
//
// Purpose: counts initialisations, builds a TLS context when the first connection needs it and again when the
//   settings it came from have changed and are good, and tells a live handle from any other pointer.
// Ownership: one instance, made on first use and never destroyed: a forked child that calls exit must not
//   run OpenSSL's cleanup. The last terminate releases the contexts. A handle's socket is shared with the
//   calls that use it.
// Threads: every member may be called by any thread; one mutex guards all fields.
// Units: none.
// Errors: members throw SEKFailure; find returns null for what is no live handle.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

#include "SEKLock.h"
#include "SEKSettings.h"

class SEKSocket;

class SEKLibrary {
  public:
    static SEKLibrary& instance();

    void initialize();
    void terminate();
    void requireInitialized() const;

    // The caller gets a reference of its own, so that a renewed context cannot pull this one away.
    SEKContextPtr contextFor(const std::string& serviceID, SEKRole role);

    void* add(const std::shared_ptr<SEKSocket>& socket);
    std::shared_ptr<SEKSocket> find(void* handle) const;
    // Takes the handle out of the library; null when it is none.
    std::shared_ptr<SEKSocket> remove(void* handle);

  private:
    SEKLibrary() = default;

    mutable SEKMutex m_mutex;
    int m_initializations SEK_GUARDED_BY(m_mutex) = 0;
    std::map<std::pair<std::string, SEKRole>, SEKSettings> m_settings SEK_GUARDED_BY(m_mutex);
    std::unordered_map<void*, std::shared_ptr<SEKSocket>> m_sockets SEK_GUARDED_BY(m_mutex);
};
