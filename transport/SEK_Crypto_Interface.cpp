#include "SEK_Crypto_Interface.h"

#include <openssl/rand.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "SEKEntry.h"
#include "SEKPoller.h"
#include "SEK_HandleSet.h"

using SEKEntry::forHandle;
using SEKEntry::forThread;

namespace {

std::string requiredText(const char* text, const char* what) {
    if (text == nullptr) throw SEKFailure(std::string("no ") + what + " given");
    return text;
}

template <typename Type>
Type& required(Type* place, const char* what) {
    if (place == nullptr) throw SEKFailure(std::string("no ") + what + " given");
    return *place;
}

std::size_t checkedSize(long length, const void* memory) {
    if (length < 0) throw SEKFailure("negative length");
    if (memory == nullptr && length > 0) throw SEKFailure("no memory given");
    return static_cast<std::size_t>(length);
}

int checkedInt(long value) {
    return static_cast<int>(
        std::clamp<long>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

void refuseFlags(long flags) {
    if (flags != 0) throw SEKFailure("flags are not supported");
}

SEKPoller::Events eventsOf(const SEK_Pollfd& entry) {
    return {(entry.events & SEK_Readable) != 0, (entry.events & SEK_Writable) != 0, false};
}

std::uint16_t bitsOf(const SEKPoller::Events& events) {
    unsigned bits = 0;
    if (events.read) bits |= SEK_Readable;
    if (events.write) bits |= SEK_Writable;
    return static_cast<std::uint16_t>(bits);
}

// Tells the caller what was sent, also when sending failed on the way.
struct CountOnExit {
    explicit CountOnExit(long* place) : m_place(place) {}
    ~CountOnExit() {
        if (m_place != nullptr) *m_place = static_cast<long>(value);
    }
    CountOnExit(const CountOnExit&) = delete;
    CountOnExit& operator=(const CountOnExit&) = delete;
    std::size_t value = 0;

  private:
    long* m_place;
};

// Null handles are passed over, as negative descriptors are by poll(2).
long pollEntries(SEK_Pollfd* entries, std::size_t count, const SEKDeadline& deadline) {
    SEKPoller poller;
    std::vector<SEK_Pollfd*> watched;
    for (std::size_t i = 0; i < count; ++i) {
        entries[i].revents = 0;
        if (entries[i].handle == nullptr) continue;
        poller.add(SEKEntry::socketOf(entries[i].handle), eventsOf(entries[i]));
        watched.push_back(&entries[i]);
    }
    const int ready = poller.wait(deadline);
    for (std::size_t i = 0; i < watched.size(); ++i)
        watched[i]->revents = bitsOf(poller.happened(i));
    return ready > 0 ? SEK_Ok : SEK_TimedOut;
}

// One of the three sets of a select, with the places of its handles in the poller.
class WatchedSet {
  public:
    WatchedSet(SEK_Handle_Set* set, SEKPoller& poller, SEKPoller::Events wanted, std::size_t& next)
        : m_set(set), m_first(next) {
        if (set == nullptr) return;
        if (set->count > SEK_HandleSetCapacity) throw SEKFailure("handle set beyond its capacity");
        for (std::uint32_t i = 0; i < set->count; ++i) {
            poller.add(SEKEntry::socketOf(set->handles[i]), wanted);
            ++next;
        }
    }

    // Leaves only the handles to which something happened; their number.
    long keepReady(const SEKPoller& poller) {
        if (m_set == nullptr) return 0;
        std::uint32_t kept = 0;
        for (std::uint32_t i = 0; i < m_set->count; ++i) {
            if (poller.happened(m_first + i).any()) m_set->handles[kept++] = m_set->handles[i];
        }
        m_set->count = kept;
        return static_cast<long>(kept);
    }

  private:
    SEK_Handle_Set* m_set;
    std::size_t m_first;
};

SEKDeadline deadlineOf(const timeval* limit) {
    if (limit == nullptr) return SEKDeadline(-1);
    if (limit->tv_sec < 0 || limit->tv_usec < 0 || limit->tv_usec >= 1'000'000)
        throw SEKFailure("bad time limit");
    // Whatever is longer than this is as good as no limit, and cannot overflow.
    const std::int64_t seconds = std::min<std::int64_t>(limit->tv_sec, 2'000'000);
    return SEKDeadline(seconds * 1000 + (limit->tv_usec + 999) / 1000);
}

}  // namespace

extern "C" {

long SEK_CryptoInitialize(char* document, char*, char** details) {
    return forThread(details, [&] {
        checkServiceDocument(document, "initializeDocument");
        SEKLibrary::instance().initialize();
        return long{SEK_Ok};
    });
}

long SEK_CryptoTerminate(char* document, char*, char** details) {
    return forThread(details, [&] {
        checkServiceDocument(document, "terminateDocument");
        SEKLibrary::instance().terminate();
        return long{SEK_Ok};
    });
}

long SEK_CryptoFree(void* memory, char*) {
    std::free(memory);
    return SEK_Ok;
}

long SEK_CryptoGetLastErrorDetails(void* handle, char*, char** details) {
    if (details == nullptr) return SEK_Failed;
    const std::shared_ptr<SEKSocket> socket = SEKLibrary::instance().find(handle);
    // A failure caused by a wrong handle has its text at the thread.
    SEKEntry::handOut(SEKEntry::placeOfDetails(socket.get()), details);
    return SEK_Ok;
}

long SEK_Socket(void** handle, char* sessionDocument, char*, char** details) {
    return forThread(details, [&] {
        void*& place = required(handle, "place for the handle");
        place = nullptr;
        SEKLibrary::instance().requireInitialized();
        place = SEKLibrary::instance().add(std::make_shared<SEKSocket>(SEKSession::parse(sessionDocument)));
        return long{SEK_Ok};
    });
}

long SEK_Bind(void* handle, sockaddr_storage* address, long length, char*) {
    return forHandle(handle, [&](SEKSocket& socket) {
        socket.bind(SEKAddress::checked(address, length, socket.family()));
        return long{SEK_Ok};
    });
}

long SEK_Bind_Url(void* handle, char* url, char*) {
    return forHandle(handle, [&](SEKSocket& socket) {
        socket.bindUrl(requiredText(url, "URL"));
        return long{SEK_Ok};
    });
}

long SEK_Listen(void* handle, long backlog, char*) {
    return forHandle(handle, [&](SEKSocket& socket) {
        socket.listen(checkedInt(backlog));
        return long{SEK_Ok};
    });
}

long SEK_Accept(void* handle, void** accepted, sockaddr_storage* peer, long* length, char*) {
    return forHandle(handle, [&](SEKSocket& socket) {
        void*& place = required(accepted, "place for the handle");
        place = nullptr;
        SEKAddress from;
        const std::shared_ptr<SEKSocket> connection = socket.accept(from);
        if (peer != nullptr) from.copyTo(peer, length);
        place = SEKLibrary::instance().add(connection);
        return long{SEK_Ok};
    });
}

long SEK_Connect(void* handle, sockaddr_storage* address, long length, char*) {
    return forHandle(handle, [&](SEKSocket& socket) {
        socket.connect(SEKAddress::checked(address, length, socket.family()));
        return long{SEK_Ok};
    });
}

long SEK_Connect_Url(void* handle, char* url, char* sessionDocument) {
    return forHandle(handle, [&](SEKSocket& socket) {
        const bool isReady = socket.connectUrl(requiredText(url, "URL"), sessionDocument);
        return long{isReady ? SEK_Ok : SEK_HandshakePending};
    });
}

long SEK_EstablishSecure(void* handle, char*) {
    return forHandle(
        handle, [](SEKSocket& socket) { return long{socket.establishSecure() ? SEK_Ok : SEK_CallAgain}; });
}

long SEK_SocketSecurityOp(void* handle, char* operation, char** result, char*) {
    if (operation == nullptr || std::string_view(operation) != "describePeer")
        return SEKEntry::refuse(handle);
    if (result != nullptr) *result = nullptr;
    return forHandle(handle, [&](SEKSocket& socket) {
        char*& place = required(result, "place for the result");
        place = SEKErrors::copyText(socket.describePeer());
        if (place == nullptr) throw SEKFailure("no memory");
        return long{SEK_Ok};
    });
}

long SEK_GetSockName(void* handle, sockaddr_storage* address, long* length, char*) {
    return forHandle(handle, [&](SEKSocket& socket) {
        socket.localAddress().copyTo(address, length);
        return long{SEK_Ok};
    });
}

long SEK_GetPeerName(void* handle, sockaddr_storage* address, long* length, char*) {
    return forHandle(handle, [&](SEKSocket& socket) {
        socket.peerAddress().copyTo(address, length);
        return long{SEK_Ok};
    });
}

long SEK_GetSockOpt(void* handle, long option, void* value, long* length, char*) {
    return forHandle(handle, [&](SEKSocket& socket) {
        long& room = required(length, "length");
        auto size = static_cast<socklen_t>(checkedInt(static_cast<long>(checkedSize(room, value))));
        socket.getOption(checkedInt(option), value, size);
        room = static_cast<long>(size);
        return long{SEK_Ok};
    });
}

long SEK_SetSockOpt(void* handle, long option, const void* value, long length, char*) {
    return forHandle(handle, [&](SEKSocket& socket) {
        const auto size = static_cast<socklen_t>(checkedInt(static_cast<long>(checkedSize(length, value))));
        socket.setOption(checkedInt(option), value, size);
        return long{SEK_Ok};
    });
}

long SEK_Send(void* handle, const void* data, long length, long flags, long* sent, char*) {
    if (sent != nullptr) *sent = 0;
    return forHandle(handle, [&](SEKSocket& socket) {
        const std::size_t size = checkedSize(length, data);
        refuseFlags(flags);
        CountOnExit count(sent);
        socket.send(static_cast<const char*>(data), size, count.value);
        return long{SEK_Ok};
    });
}

long SEK_Recv(void* handle, void* buffer, long capacity, long flags, long* received, char*) {
    if (received != nullptr) *received = 0;
    return forHandle(handle, [&](SEKSocket& socket) {
        const std::size_t room = checkedSize(capacity, buffer);
        refuseFlags(flags);
        long& count = required(received, "place for the number of bytes");
        count = static_cast<long>(socket.receive(static_cast<char*>(buffer), room));
        return long{SEK_Ok};
    });
}

long SEK_Select(SEK_Handle_Set* readSet, SEK_Handle_Set* writeSet, SEK_Handle_Set* exceptSet,
                const timeval* timeLimit, long* ready, char*, char** details) {
    if (ready != nullptr) *ready = 0;
    return forThread(details, [&] {
        SEKLibrary::instance().requireInitialized();
        SEKPoller poller;
        std::size_t next = 0;
        WatchedSet reading(readSet, poller, {true, false, false}, next);
        WatchedSet writing(writeSet, poller, {false, true, false}, next);
        WatchedSet urgent(exceptSet, poller, {false, false, true}, next);
        poller.wait(deadlineOf(timeLimit));
        const long count = reading.keepReady(poller) + writing.keepReady(poller) + urgent.keepReady(poller);
        if (ready != nullptr) *ready = count;
        return long{count > 0 ? SEK_Ok : SEK_TimedOut};
    });
}

long SEK_Poll(SEK_Pollfd* entries, long count, long timeLimitMs, char*, char** details) {
    return forThread(details, [&] {
        SEKLibrary::instance().requireInitialized();
        return pollEntries(entries, checkedSize(count, entries), SEKDeadline(timeLimitMs));
    });
}

long SEK_CloseHandle(void** handle, char*, char** details) {
    return forThread(details, [&] {
        void*& place = required(handle, "place of the handle");
        if (place == nullptr) {
            SEKLibrary::instance().requireInitialized();
            return long{SEK_Ok};
        }
        const std::shared_ptr<SEKSocket> socket = SEKLibrary::instance().remove(place);
        if (socket == nullptr) throw SEKFailure("not a handle of this library");
        place = nullptr;
        return long{SEK_Ok};
    });
}

long SEK_GetRandomData(unsigned long length, void* buffer, char*) {
    return forThread(nullptr, [&] {
        SEKLibrary::instance().requireInitialized();
        if (buffer == nullptr && length > 0) throw SEKFailure("no memory given");
        if (RAND_bytes_ex(nullptr, static_cast<unsigned char*>(buffer), length, 0) != 1)
            throw SEKFailure("no random data: " + SEKErrors::tlsReason());
        return long{SEK_Ok};
    });
}

}  // extern "C"
