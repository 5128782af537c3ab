// Standard output as a log destination that nobody reads: supervision and stopping go on.

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>

#include "ServiceUnderTest.h"

namespace {

enum class Kind { FullPipe, Terminal, Socket };

void PrintTo(Kind kind, std::ostream* out) {
    *out << std::array{"pipe", "terminal", "socket"}.at(static_cast<std::size_t>(kind));
}

// Where a program writes, full to the brim, and the other end, which is read when the test says so.
class FullOutput {
  public:
    explicit FullOutput(Kind kind) {
        std::array<int, 2> ends{-1, -1};
        if (kind == Kind::FullPipe) {
            EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        } else if (kind == Kind::Socket) {
            EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        } else {
            EXPECT_EQ(openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr), 0);
            termios raw{};
            tcgetattr(ends[1], &raw);
            cfmakeraw(&raw);
            tcsetattr(ends[1], TCSANOW, &raw);
        }
        m_reader = ends[0];
        m_writer = ends[1];
        fcntl(m_reader, F_SETFL, O_NONBLOCK);
        fill();
    }
    ~FullOutput() {
        close(m_reader);
        close(m_writer);
    }
    FullOutput(const FullOutput&) = delete;
    FullOutput& operator=(const FullOutput&) = delete;

    int writer() const { return m_writer; }
    bool isBlocking() const { return (fcntl(m_writer, F_GETFL) & O_NONBLOCK) == 0; }
    // What has come since the last call, without the filling.
    std::string read() const {
        std::string text(1 << 20, '\0');
        std::size_t size = 0;
        for (ssize_t got = 1; got > 0 && size < text.size();) {
            got = ::read(m_reader, text.data() + size, text.size() - size);
            if (got > 0) size += static_cast<std::size_t>(got);
        }
        text.resize(size);
        std::erase(text, '#');
        return text;
    }

  private:
    void fill() const {
        const int flags = fcntl(m_writer, F_GETFL);
        fcntl(m_writer, F_SETFL, flags | O_NONBLOCK);
        const std::string block(65536, '#');
        // The kernel passes a terminal's data on in its own time, and then there is room again.
        pollfd entry{m_writer, POLLOUT, 0};
        do {
            for (std::size_t size = block.size(); size > 0;) {
                if (write(m_writer, block.data(), size) < 0) size /= 2;
            }
        } while (poll(&entry, 1, 500) > 0);
        fcntl(m_writer, F_SETFL, flags);
    }

    int m_reader = -1;
    int m_writer = -1;
};

constexpr const char* kDropped = " lines were dropped here, because nobody read them.";
constexpr const char* kPinged = "process alpha pinged successfully.";

std::size_t occurrences(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

class StalledLogTest : public SystemTest {
  protected:
    pid_t superviseWithOutput(int output) {
        BootstrapXml document;
        document.children[0].pinged(m_port);
        service.bootstrap(document);
        service.answer("READY");
        const pid_t daemon = service.begin({.arguments = {"-d", "-stdoutLog=DEBUG"}, .output = output});
        EXPECT_TRUE(service.waitFor("the PID file", [&] { return service.daemonPid() == daemon; }));
        return daemon;
    }
    std::size_t pings() { return service.countLogged("DEBUG", "PingChildProcess", kPinged); }
    // The file takes each line only after standard output has, or has not.
    void expectPings(std::size_t more) {
        const std::size_t target = pings() + more;
        EXPECT_TRUE(service.waitFor("pings", [&] { return pings() >= target; }));
    }
    void expectStopInTime(pid_t daemon) {
        const auto begin = std::chrono::steady_clock::now();
        stopDaemon(daemon);
        // A wait or a ping that is in progress, two seconds before the ping, the first check, and the log's second.
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
        EXPECT_TRUE(service.logged("INFO", "ZORBootstrapService", "Done."));
        EXPECT_TRUE(service.inOrder({"INFO PingChildProcess no processes are alive."}));
    }

    ReservedPort m_port;
};

class UnreadOutputTest : public StalledLogTest, public testing::WithParamInterface<Kind> {};

INSTANTIATE_TEST_SUITE_P(Kinds, UnreadOutputTest,
                         testing::Values(Kind::FullPipe, Kind::Terminal, Kind::Socket));

TEST_P(UnreadOutputTest, ChildrenArePingedAndTheServiceStops) {
    const FullOutput output(GetParam());
    const pid_t daemon = superviseWithOutput(output.writer());
    expectPings(2);
    EXPECT_TRUE(output.isBlocking()) << "the descriptor is shared with its other holders";
    expectStopInTime(daemon);
    EXPECT_EQ(output.read(), "");
}

TEST_P(UnreadOutputTest, OneLineTellsWhatWasDropped) {
    const FullOutput output(GetParam());
    const pid_t daemon = superviseWithOutput(output.writer());
    expectPings(1);
    std::string text = output.read();
    ASSERT_TRUE(service.waitFor("lines again", [&] {
        text += output.read();
        return text.find(kPinged) != std::string::npos;
    }));
    stopDaemon(daemon);
    ASSERT_TRUE(service.waitFor("the last lines", [&] {
        text += output.read();
        return text.find(" Done.\n") != std::string::npos;
    }));
    EXPECT_EQ(occurrences(text, kDropped), 1U);
    const std::string first = ServiceUnderTest::normalised(text.substr(0, text.find('\n') + 1));
    EXPECT_EQ(first.rfind("WARN ZORLoggerFactory ", 0), 0U) << first;
    EXPECT_NE(first.find(kDropped), std::string::npos) << first;
}

// A reader that is stopped for a while, as by a terminal's user.
TEST_F(StalledLogTest, AStoppedReaderMissesLinesAndIsTold) {
    std::array<int, 2> ends{-1, -1};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    fcntl(ends[1], F_SETPIPE_SZ, 4096);
    const pid_t reader = fork();
    if (reader == 0) {
        const int file = open(service.path("temp/read").c_str(), O_WRONLY | O_CREAT, 0600);
        dup2(ends[0], STDIN_FILENO);
        dup2(file, STDOUT_FILENO);
        execl("/bin/cat", "cat", nullptr);
        _exit(127);
    }
    ASSERT_EQ(kill(reader, SIGSTOP), 0);
    const pid_t daemon = superviseWithOutput(ends[1]);
    expectPings(2);
    ASSERT_EQ(kill(reader, SIGCONT), 0);
    ASSERT_TRUE(service.waitFor("the notice", [&] {
        return service.exists("temp/read") && occurrences(service.read("temp/read"), kDropped) == 1;
    }));
    expectPings(1);
    ASSERT_EQ(kill(reader, SIGSTOP), 0);
    expectStopInTime(daemon);
    kill(reader, SIGCONT);
    close(ends[0]);
    close(ends[1]);
    ASSERT_TRUE(service.waitForEnd(reader)) << "nobody keeps the pipe open";
}

}  // namespace
