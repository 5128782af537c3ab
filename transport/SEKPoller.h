// Waiting for many handles at once.
//
// Purpose: the common ground of SEK_Poll and SEK_Select. An established TLS connection counts as readable
//   when application data or the end of the stream is there, not when a record without any has come.
// Ownership: shares the sockets while the wait lasts.
// Threads: one poller is used by one thread.
// Units: milliseconds.
// Errors: add throws SEKFailure for a socket that is not connected, wait when the system refuses to wait.
#pragma once

#include <poll.h>

#include <memory>
#include <vector>

#include "SEKDeadline.h"

class SEKSocket;

class SEKPoller {
  public:
    // What a caller asks for, and after wait what happened.
    struct Events {
        bool read = false;
        bool write = false;
        bool urgent = false;
        bool any() const { return read || write || urgent; }
    };

    void add(std::shared_ptr<SEKSocket> socket, Events wanted);
    // The number of entries to which something happened; 0 when the time is over.
    int wait(const SEKDeadline& deadline);
    const Events& happened(std::size_t index) const { return m_entries[index].happened; }

  private:
    struct Entry {
        std::shared_ptr<SEKSocket> socket;
        Events wanted;
        Events happened;
    };
    void collectInput();
    void collectEvents(std::size_t index);
    int countReady() const;

    std::vector<Entry> m_entries;
    std::vector<pollfd> m_waits;  // one per entry
};
