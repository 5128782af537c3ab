#include "SEKAddress.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>

#include <cerrno>
#include <future>
#include <utility>

#include "SEKErrors.h"
#include "SEKSocket.h"

namespace {

// Set by a test that wants a name server that stays silent until the promise is kept.
std::shared_future<void> silence;

// Set by a test that wants no thread to be had.
bool areThreadsRefused = false;

using ThreadStarter = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

using Resolver = int (*)(const char*, const char*, const addrinfo*, addrinfo**);

Resolver systemResolver() {
    static const auto resolver = reinterpret_cast<Resolver>(dlsym(RTLD_NEXT, "getaddrinfo"));
    return resolver;
}

// Two addresses behind one name, as the system's resolver would list them.
int resolveToTwo(const char* service, const addrinfo* hints, addrinfo** result) {
    const int first = systemResolver()("127.0.0.2", service, hints, result);
    return first != 0 ? first : systemResolver()("127.0.0.1", service, hints, &(*result)->ai_next);
}

bool isAskedFor(const char* host, const char* name) {
    return host != nullptr && std::string(host) == name;
}

}  // namespace

// Stands before the system's function in this program.
extern "C" int getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** result) {
    const bool wantsFigures = (hints->ai_flags & AI_NUMERICHOST) != 0;
    if (wantsFigures) return systemResolver()(host, service, hints, result);
    if (host != nullptr && std::string(host).find("ocal") != std::string::npos) return EAI_FAIL;
    if (isAskedFor(host, "two.example")) return resolveToTwo(service, hints, result);
    // Listed with an IPv6 address only, as some machines have their own name.
    if (isAskedFor(host, "six.example"))
        return hints->ai_family == AF_INET6 ? systemResolver()("::1", service, hints, result)
                                            : EAI_ADDRFAMILY;
    if (isAskedFor(host, "silent.example")) {
        const std::shared_future<void> untilThen = silence;
        untilThen.wait();
        return EAI_AGAIN;
    }
    return systemResolver()(host, service, hints, result);
}

// This one, too.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                              void* argument) {
    static const auto starter = reinterpret_cast<ThreadStarter>(dlsym(RTLD_NEXT, "pthread_create"));
    return areThreadsRefused ? EAGAIN : starter(thread, attributes, start, argument);
}

namespace {

SEKSession session(int family = AF_INET) {
    SEKSession result;
    result.serviceID = "gateway";
    result.family = family;
    return result;
}

class Listener {
  public:
    explicit Listener(const char* address, int family = AF_INET) : m_socket(session(family)) {
        m_socket.bind(
            SEKAddress::resolve(address, 0, family, SEKAddress::Use::Bind, SEKDeadline(-1)).front());
        m_socket.listen(4);
    }
    std::string portText() const {
        const std::string text = m_socket.localAddress().text();
        return text.substr(text.rfind(':'));
    }

  private:
    SEKSocket m_socket;
};

TEST(SEKAddressTest, EveryAddressIsTriedInTurn) {
    const Listener listener("127.0.0.1");
    SEKSocket socket(session());
    EXPECT_TRUE(socket.connectUrl("tcp://two.example" + listener.portText(), nullptr));
    EXPECT_EQ(socket.peerAddress().text(), "127.0.0.1" + listener.portText());
}

TEST(SEKAddressTest, AFailureNamesEveryAddress) {
    std::string port;
    {
        const Listener listener("127.0.0.1");
        port = listener.portText();
    }
    SEKSocket socket(session());
    try {
        socket.connectUrl("tcp://two.example" + port, nullptr);
        FAIL() << "connected";
    } catch (const SEKFailure& failure) {
        EXPECT_EQ(failure.what(), "cannot connect to two.example" + port + " (IPv4): 127.0.0.2" + port +
                                      ": Connection refused; 127.0.0.1" + port + ": Connection refused");
    }
}

// It is the usual host of a child, and its pings must not depend on a name server.
TEST(SEKAddressTest, LocalhostIsThisMachineWithoutALookUp) {
    for (const char* const name :
         {"localhost", "LocalHost", "localhost.", "web.localhost", "a.b.LOCALHOST", "web.localhost."}) {
        for (const auto& [family, text] :
             {std::pair(AF_INET, "127.0.0.1:80"), std::pair(AF_INET6, "[::1]:80")}) {
            const auto found =
                SEKAddress::resolve(name, 80, family, SEKAddress::Use::Connect, SEKDeadline(-1));
            ASSERT_EQ(found.size(), 1U);
            EXPECT_EQ(found.front().text(), text);
        }
    }
}

TEST(SEKAddressTest, NamesThatOnlyLookLikeLocalhostAreLookedUp) {
    for (const char* const name : {"notlocalhost", "localhost.example", "localhost..", "local"})
        EXPECT_THROW(SEKAddress::resolve(name, 80, AF_INET, SEKAddress::Use::Connect, SEKDeadline(5'000)),
                     SEKFailure)
            << name;
}

TEST(SEKAddressTest, AThreadThatCannotBeStartedIsToldWithTheName) {
    areThreadsRefused = true;
    try {
        SEKAddress::resolve("two.example", 80, AF_INET, SEKAddress::Use::Connect, SEKDeadline(1'000));
        ADD_FAILURE() << "resolved";
    } catch (const SEKFailure& failure) {
        EXPECT_STREQ(
            failure.what(),
            "cannot resolve two.example (IPv4): cannot start a thread: Resource temporarily unavailable");
    }
    areThreadsRefused = false;
}

TEST(SEKAddressTest, ANameWithAnIPv6AddressOnlyIsReachedOverIPv6) {
    const Listener listener("::1", AF_INET6);
    SEKSocket socket(session(AF_INET6));
    EXPECT_TRUE(socket.connectUrl("tcp://six.example" + listener.portText(), nullptr));
    EXPECT_EQ(socket.peerAddress().text(), "[::1]" + listener.portText());
}

TEST(SEKAddressTest, ANameWithAnIPv6AddressOnlyIsUnknownToIPv4) {
    SEKSocket socket(session());
    try {
        socket.connectUrl("tcp://six.example:9300", nullptr);
        FAIL() << "connected";
    } catch (const SEKFailure& failure) {
        EXPECT_STREQ(failure.what(),
                     "cannot resolve six.example (IPv4): Address family for hostname not supported");
    }
}

TEST(SEKAddressTest, ASilentNameServerEndsAtTheDeadline) {
    std::promise<void> release;
    silence = release.get_future().share();
    try {
        SEKAddress::resolve("silent.example", 80, AF_INET, SEKAddress::Use::Connect, SEKDeadline(20));
        FAIL() << "resolved";
    } catch (const SEKFailure& failure) {
        EXPECT_STREQ(failure.what(), "cannot resolve silent.example (IPv4): no answer in time");
    }
    release.set_value();
}

TEST(SEKAddressTest, FamiliesHaveTheNamesOfTheSessionDocument) {
    EXPECT_STREQ(SEKAddress::familyName(AF_INET), "IPv4");
    EXPECT_STREQ(SEKAddress::familyName(AF_INET6), "IPv6");
}

TEST(SEKAddressTest, PrintsBothFamilies) {
    const auto textOf = [](const char* host, int family) {
        return SEKAddress::resolve(host, 9300, family, SEKAddress::Use::Connect, SEKDeadline(-1))
            .front()
            .text();
    };
    EXPECT_EQ(textOf("127.0.0.1", AF_INET), "127.0.0.1:9300");
    EXPECT_EQ(textOf("::1", AF_INET6), "[::1]:9300");
}

TEST(SEKAddressTest, LinkLocalAddressesMayNameTheirZone) {
    const SEKAddress address =
        SEKAddress::resolve("fe80::1%lo", 1, AF_INET6, SEKAddress::Use::Connect, SEKDeadline(-1)).front();
    EXPECT_EQ(address.text(), "[fe80::1%lo]:1");
}

}  // namespace
