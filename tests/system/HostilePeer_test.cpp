// A peer that means harm as one child's address: the other children and the signals must not notice.

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <stdexcept>
#include <string>
#include <thread>

#include "ServiceUnderTest.h"

namespace {

// Answers a TLS handshake with messages that a client passes over, as fast as it can, as long as anybody listens.
class FloodingPeer {
  public:
    FloodingPeer() : m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (bind(m_listener, reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
            listen(m_listener, 8) != 0 ||
            getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length) != 0)
            throw std::runtime_error("flooding peer: no listener");
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this] { serve(); });
    }
    ~FloodingPeer() {
        m_isOver = true;
        shutdown(m_listener, SHUT_RDWR);
        m_thread.join();
        close(m_listener);
    }
    FloodingPeer(const FloodingPeer&) = delete;
    FloodingPeer& operator=(const FloodingPeer&) = delete;

    std::string authority() const { return "localhost:" + std::to_string(m_port); }
    std::string text() const { return "localhost (127.0.0.1:" + std::to_string(m_port) + ")"; }

  private:
    void serve() const {
        // A handshake record full of messages of the type 0 and the length 0.
        const std::string record = std::string("\x16\x03\x03\x40\x00", 5) + std::string(0x4000, '\0');
        while (!m_isOver) {
            const int connection = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (connection < 0) return;
            // Whoever stops reading without closing must not hold the end of the test.
            const timeval patience{1, 0};
            setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
            while (!m_isOver && send(connection, record.data(), record.size(), MSG_NOSIGNAL) > 0)
                continue;
            close(connection);
        }
    }

    int m_listener;
    int m_port = 0;
    std::atomic<bool> m_isOver{false};
    std::thread m_thread;
};

using HostilePeerTest = SystemTest;

TEST_F(HostilePeerTest, AFloodInTheHandshakeDelaysNeitherTheOtherChildrenNorTheEnd) {
    const FloodingPeer flood;
    const ReservedPort port;
    BootstrapXml document;
    document.children = {ChildXml{.name = "beta"}, ChildXml{}};
    document.children[0].ping =
        "<ping><socketSend URI=\"https://" + flood.authority() +
        "\" commandString=\"PING\" sockIOTimeoutSec=\"1\" responseSize=\"16\" responseOK=\"READY\"/></ping>";
    document.children[1].pinged(port);
    service.bootstrap(document);
    service.answer("READY");
    const pid_t program = runningInForeground();
    const auto answers = [&] {
        return service.countLogged("DEBUG", "ZORSockSendAction", "got response \"READY\"");
    };
    EXPECT_TRUE(service.waitFor("two answers of the healthy child", [&] { return answers() >= 2; }));
    EXPECT_TRUE(service.waitForLog("ERROR", "ZORSocketCommand",
                                   "failed to establish, SEK error: TLS handshake with " + flood.text() +
                                       " failed: the peer sent 1 MiB that do not finish the handshake "));
    // Long before the twelve seconds that a silent peer's handshake may take.
    ASSERT_EQ(kill(program, SIGTERM), 0);
    EXPECT_TRUE(service.waitForEnd(program, 10));
    EXPECT_EQ(service.exitCodeOf(program), 0);
}

}  // namespace
