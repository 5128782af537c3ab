// What the library asks of the system and of OpenSSL on the way, which its callers do not see.

#include <dlfcn.h>
#include <openssl/x509.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>

#include "TransportTest.h"

namespace {

std::atomic<int> readingsOfTheTrustStore{0};
std::atomic<int> lowestSocket{INT_MAX};

template <typename Function>
Function theSystems(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

int noted(int descriptor) {
    if (descriptor >= 0) lowestSocket = std::min(lowestSocket.load(), descriptor);
    return descriptor;
}

}  // namespace

// These stand before the real functions in this program, for the library, too.
extern "C" {

// Asked once for each reading of the system's trust store.
const char* X509_get_default_cert_file_env() {
    ++readingsOfTheTrustStore;
    return theSystems<const char* (*)()>("X509_get_default_cert_file_env")();
}

int socket(int family, int type, int protocol) noexcept {
    return noted(theSystems<int (*)(int, int, int)>("socket")(family, type, protocol));
}

int accept4(int listener, sockaddr* peer, socklen_t* length, int flags) {
    return noted(
        theSystems<int (*)(int, sockaddr*, socklen_t*, int)>("accept4")(listener, peer, length, flags));
}

}  // extern "C"

namespace {

class SystemCallsTest : public TlsTest {
  protected:
    void SetUp() override {
        TlsTest::SetUp();
        readingsOfTheTrustStore = 0;
    }
    bool handshakeWorks() const {
        TestPeer peer(tlsScript([](PeerConnection& connection) { connection.waitForEnd(); }));
        SekHandle handle;
        EXPECT_EQ(handle.connectUrl(peer.url("https")), SEK_HandshakePending);
        return handle.establish() == SEK_Ok;
    }
};

TEST_F(SystemCallsTest, TheSystemsTrustStoreIsReadOnceForManyConnections) {
    writeSettings("[gateway]\n");
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(handshakeWorks());
    EXPECT_EQ(readingsOfTheTrustStore, 1);
}

// Each connection looks again for good settings, which must cost next to nothing.
TEST_F(SystemCallsTest, TheSystemsTrustStoreIsNotReadWhileSettingsAreBadOrGone) {
    EXPECT_TRUE(handshakeWorks());
    writeSettings("[gateway]\nNonsense = 1\n");
    EXPECT_TRUE(handshakeWorks());
    std::filesystem::remove(configuration() / "sek.cnf");
    EXPECT_TRUE(handshakeWorks());
    EXPECT_TRUE(handshakeWorks());
    EXPECT_EQ(readingsOfTheTrustStore, 0);
}

// The exit code tells the step that failed.
int connectAndAcceptWithoutStreams() {
    for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        close(number);
    lowestSocket = INT_MAX;
    SekHandle listener;
    const std::uint16_t port = listener.listen("tcp");
    SekHandle client;
    if (client.connectUrl("tcp://127.0.0.1:" + std::to_string(port)) != SEK_Ok) return 1;
    if (SekHandle(listener.accept()).get() == nullptr) return 2;
    return lowestSocket > STDERR_FILENO ? 0 : 3;
}

// Another thread may write to a stream at any moment.
TEST_F(SystemCallsTest, NoSocketIsBornUnderTheNumberOfAStandardStream) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) _exit(connectAndAcceptWithoutStreams());
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
