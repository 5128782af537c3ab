// A security library that does what a test tells it.
//
// Purpose: built as libSEK_Crypto_Interface.so, with the 38 entry points; each returns the codes queued for
// it, or
//   behaves as the peer of the URI is told to. Everything that was called is noted down.
// Ownership: one instance in the process, reset() between tests.
// Threads: calls may come from several threads; scripting happens while none calls.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
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
        std::string text;  // document, URI or bytes sent, where there are any
        long number = 0;   // time limit of a poll, capacity of a read, length of a send
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
    int openHandles() const { return m_openHandles; }
    int unfreedDetails() const { return m_unfreedDetails; }

    // For the entry points only.
    struct Handle {
        std::string uri;
        std::optional<std::string> lastDetails;
    };
    long note(const std::string& entry, const std::string& text = {}, long number = 0);
    std::optional<Answer> queued(const std::string& entry);
    char* handOut(const std::optional<std::string>& details);
    void takeBack(void* details);
    std::recursive_mutex& mutex() { return m_mutex; }

  private:
    friend struct ScriptedSekEntries;

    std::recursive_mutex m_mutex;
    std::map<std::string, std::deque<Answer>> m_queues;
    std::map<std::string, Peer> m_peers;
    std::vector<Call> m_calls;
    std::optional<std::uint16_t> m_pollBits;
    int m_openHandles = 0;
    int m_unfreedDetails = 0;
};
