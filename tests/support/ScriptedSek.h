// A security library that does what a test tells it.
//
// Purpose: built as libSEK_Crypto_Interface.so, with the 38 entry points; each returns the codes queued for
// it, or
//   behaves as the peer of the URI is told to. Everything that was called is noted down.
// Ownership: one instance in the process, reset() between tests.
// Threads: calls may come from several threads; scripting happens while none calls.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

class ScriptedSek {
  public:
    struct Answer {
        long code = 0;
        std::optional<std::string> details;  // what the failure says; none: the library has nothing to say
    };
    // How the other end of a URI behaves, unless codes are queued.
    struct Peer {
        bool refuses = false;       // connecting fails
        bool silent = false;        // connects and never answers: the poll times out
        std::string answer = "OK";  // what a read gives; longer answers are cut at the capacity
        std::function<void()> onConnect{};
        std::function<void(const std::string& command)> onCommand{};
        int connects = 0;
        std::vector<std::string> commands{};
    };
    struct Call {
        std::string entry;
        std::string text;      // document, URI or bytes sent; of an entry without a behaviour, spell()
        long number = 0;       // time limit of a poll, capacity of a read, length of a send
        std::string document;  // session document of a connect
        long flags = 0;        // of a send or a read; the events that a poll asks for
    };

    static ScriptedSek& instance();

    void reset();
    void queue(const std::string& entry, Answer answer);  // the next call of that entry returns this
    Peer& peer(const std::string& uri) { return m_peers[uri]; }
    // The next SEK_Poll that has no queued answer sets these bits.
    void setPollBits(std::uint16_t bits) { m_pollBits = bits; }

    const std::vector<Call>& calls() const { return m_calls; }
    std::size_t count(const std::string& entry) const;
    Call last(const std::string& entry) const;
    int openHandles() const { return static_cast<int>(m_handles.size()); }
    int unfreedDetails() const { return m_unfreedDetails; }
    // The arguments of a call as text: what went in on one side can be compared with what came out.
    template <typename... Arguments>
    static std::string spell(Arguments... arguments) {
        std::ostringstream text;
        ((text << readable(arguments) << ' '), ...);
        return text.str();
    }

    // Called when an entry point begins and when it ends, by the outermost one.
    std::function<void()> onEntry{};
    std::function<void()> onExit{};
    // Called in every call once it is noted and before it is answered: what is queued here is its answer. Another thread
    // must not call meanwhile.
    std::function<void(const std::string& entry, const std::string& text, long number)> onCall{};

    // Held by every entry point.
    class Mutex {
      public:
        void lock();
        void unlock();

      private:
        std::recursive_mutex m_mutex;
        int m_depth = 0;  // guarded by m_mutex
    };

    // For the entry points only.
    struct Handle {
        std::string uri;
        std::optional<std::string> lastDetails;
    };
    long note(const std::string& entry, const std::string& text = {}, long number = 0);
    std::optional<Answer> queued(const std::string& entry);
    char* handOut(const std::optional<std::string>& details);
    void takeBack(void* details);
    Mutex& mutex() { return m_mutex; }
    static long noteUnused(const char* entry, const std::string& arguments);

  private:
    friend struct ScriptedSekEntries;

    template <typename Argument>
    static auto readable(Argument argument) {
        if constexpr (std::is_pointer_v<Argument>) {
            return static_cast<const void*>(argument);
        } else {
            return argument;
        }
    }

    Mutex m_mutex;
    std::map<std::string, std::deque<Answer>> m_queues;
    std::map<std::string, Peer> m_peers;
    std::vector<Call> m_calls;
    std::optional<std::uint16_t> m_pollBits;
    std::list<std::unique_ptr<Handle>> m_handles;  // open ones; what a caller forgot goes with reset()
    int m_unfreedDetails = 0;
};
