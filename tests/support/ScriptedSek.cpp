#include "ScriptedSek.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "SEK_Crypto_Interface.h"

ScriptedSek& ScriptedSek::instance() {
    static auto* const script = new ScriptedSek;
    return *script;
}

void ScriptedSek::reset() {
    m_queues.clear();
    m_peers.clear();
    m_calls.clear();
    m_pollBits.reset();
    m_handles.clear();
    m_unfreedDetails = 0;
}

void ScriptedSek::queue(const std::string& entry, Answer answer) {
    m_queues[entry].push_back(std::move(answer));
}

std::size_t ScriptedSek::count(const std::string& entry) const {
    return static_cast<std::size_t>(
        std::count_if(m_calls.begin(), m_calls.end(), [&](const Call& call) { return call.entry == entry; }));
}

ScriptedSek::Call ScriptedSek::last(const std::string& entry) const {
    const auto found =
        std::find_if(m_calls.rbegin(), m_calls.rend(), [&](const Call& call) { return call.entry == entry; });
    return found == m_calls.rend() ? Call{} : *found;
}

void ScriptedSek::Mutex::lock() {
    m_mutex.lock();
    if (m_depth++ == 0 && instance().onEntry) instance().onEntry();
}

void ScriptedSek::Mutex::unlock() {
    if (--m_depth == 0 && instance().onExit) instance().onExit();
    m_mutex.unlock();
}

long ScriptedSek::note(const std::string& entry, const std::string& text, long number) {
    m_calls.push_back({entry, text, number, {}, 0});
    if (onCall) onCall(entry, text, number);
    return 0;
}

std::optional<ScriptedSek::Answer> ScriptedSek::queued(const std::string& entry) {
    auto& queue = m_queues[entry];
    if (queue.empty()) return std::nullopt;
    Answer answer = queue.front();
    queue.pop_front();
    return answer;
}

char* ScriptedSek::handOut(const std::optional<std::string>& details) {
    if (!details) return nullptr;
    ++m_unfreedDetails;
    return strdup(details->c_str());
}

void ScriptedSek::takeBack(void* details) {
    --m_unfreedDetails;
    std::free(details);
}

// The stateful entry points.
struct ScriptedSekEntries {
    using Handle = ScriptedSek::Handle;

    static ScriptedSek& script() { return ScriptedSek::instance(); }
    static Handle* handle(void* raw) { return static_cast<Handle*>(raw); }

    // A call that reports its failure through an argument.
    static long withDetails(const char* entry, const char* text, char** details) {
        const std::lock_guard guard(script().mutex());
        script().note(entry, text == nullptr ? "" : text);
        const auto answer = script().queued(entry);
        if (!answer) return 0;
        if (details != nullptr) *details = script().handOut(answer->details);
        return answer->code;
    }

    // A call that leaves its failure with the handle.
    static std::optional<long> onHandle(const char* entry, void* raw, const std::string& text, long number) {
        script().note(entry, text, number);
        const auto answer = script().queued(entry);
        if (!answer) return std::nullopt;
        if (raw != nullptr) handle(raw)->lastDetails = answer->details;
        return answer->code;
    }

    static long fail(void* raw, const char* details) {
        handle(raw)->lastDetails = details;
        return -1;
    }

    static long connect(void* raw, const char* url, const char* document) {
        const std::lock_guard guard(script().mutex());
        handle(raw)->uri = url;
        handle(raw)->lastDetails.reset();
        const auto code = onHandle("SEK_Connect_Url", raw, url, 0);
        script().m_calls.back().document = document;
        if (code) return *code;
        ScriptedSek::Peer& peer = script().peer(url);
        ++peer.connects;
        if (peer.onConnect) peer.onConnect();
        return peer.refuses ? fail(raw, "refused") : 0;
    }

    static long send(void* raw, const void* data, long length, long flags, long* sent) {
        std::function<void(const std::string&)> reaction;
        const std::string command(static_cast<const char*>(data), static_cast<std::size_t>(length));
        {
            const std::lock_guard guard(script().mutex());
            const auto code = onHandle("SEK_Send", raw, command, length);
            script().m_calls.back().flags = flags;
            if (code) return *code;
            ScriptedSek::Peer& peer = script().peer(handle(raw)->uri);
            peer.commands.push_back(command);
            reaction = peer.onCommand;
        }
        if (sent != nullptr) *sent = length;
        if (reaction) reaction(command);
        return 0;
    }

    static long receive(void* raw, void* buffer, long capacity, long flags, long* received) {
        const std::lock_guard guard(script().mutex());
        const long code = onHandle("SEK_Recv", raw, "", capacity).value_or(0);
        script().m_calls.back().flags = flags;
        if (code < 0) return code;
        const std::string& answer = script().peer(handle(raw)->uri).answer;
        const std::size_t size = std::min(answer.size(), static_cast<std::size_t>(capacity));
        std::memcpy(buffer, answer.data(), size);
        *received = static_cast<long>(size);
        return code;
    }

    static long poll(SEK_Pollfd* entries, long count, long limitMs, char** details) {
        const std::lock_guard guard(script().mutex());
        script().note("SEK_Poll", std::to_string(count), limitMs);
        script().m_calls.back().flags = entries->events;
        const auto answer = script().queued("SEK_Poll");
        if (script().m_pollBits) entries->revents = *script().m_pollBits;
        if (answer) {
            if (details != nullptr) *details = script().handOut(answer->details);
            return answer->code;
        }
        if (script().peer(handle(entries->handle)->uri).silent) return SEK_TimedOut;
        entries->revents = entries->events;
        return 0;
    }

    static long closeHandle(void** raw) {
        const std::lock_guard guard(script().mutex());
        script().note("SEK_CloseHandle");
        // One that cannot be closed stays with the caller.
        if (const auto answer = script().queued("SEK_CloseHandle")) return answer->code;
        script().m_handles.remove_if([&](const auto& open) { return open.get() == *raw; });
        *raw = nullptr;
        return 0;
    }

    static long socket(void** raw, const char* document, char** details) {
        const long code = withDetails("SEK_Socket", document, details);
        if (code < 0) return code;
        const std::lock_guard guard(script().mutex());
        *raw = script().m_handles.emplace_back(std::make_unique<Handle>()).get();
        return code;
    }

    static long lastDetails(void* raw, char** details) {
        const std::lock_guard guard(script().mutex());
        script().note("SEK_CryptoGetLastErrorDetails");
        *details = script().handOut(raw == nullptr ? std::nullopt : handle(raw)->lastDetails);
        return 0;
    }
};

namespace {

using Entries = ScriptedSekEntries;

}  // namespace

long ScriptedSek::noteUnused(const char* entry, const std::string& arguments) {
    return Entries::withDetails(entry, arguments.c_str(), nullptr);
}

extern "C" {

long SEK_CryptoInitialize(char* document, char*, char** details) {
    return Entries::withDetails("SEK_CryptoInitialize", document, details);
}
long SEK_CryptoTerminate(char* document, char*, char** details) {
    return Entries::withDetails("SEK_CryptoTerminate", document, details);
}
long SEK_CryptoFree(void* memory, char*) {
    const std::lock_guard guard(Entries::script().mutex());
    Entries::script().note("SEK_CryptoFree");
    Entries::script().takeBack(memory);
    return 0;
}
long SEK_CryptoGetLastErrorDetails(void* handle, char*, char** details) {
    return Entries::lastDetails(handle, details);
}
long SEK_Socket(void** handle, char* document, char*, char** details) {
    return Entries::socket(handle, document, details);
}
long SEK_Connect_Url(void* handle, char* url, char* document) {
    return Entries::connect(handle, url, document);
}
long SEK_EstablishSecure(void* handle, char*) {
    const std::lock_guard guard(Entries::script().mutex());
    return Entries::onHandle("SEK_EstablishSecure", handle, "", 0).value_or(0);
}
long SEK_Send(void* handle, const void* data, long length, long flags, long* sent, char*) {
    return Entries::send(handle, data, length, flags, sent);
}
long SEK_Recv(void* handle, void* buffer, long capacity, long flags, long* received, char*) {
    return Entries::receive(handle, buffer, capacity, flags, received);
}
long SEK_Poll(SEK_Pollfd* entries, long count, long timeLimitMs, char*, char** details) {
    return Entries::poll(entries, count, timeLimitMs, details);
}
long SEK_CloseHandle(void** handle, char*, char**) {
    return Entries::closeHandle(handle);
}
}  // extern "C"
