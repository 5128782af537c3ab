// Lines into pipes, terminals and sockets that nobody reads, in virtual time.
#include "TVLStreamWriter.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <csignal>
#include <functional>
#include <string>

#include "TVLFile.h"
#include "TestKit.h"
#include "VirtualOs.h"

namespace {

enum class Kind { Pipe, NonblockingPipe, Socket, MessageSocket };

std::string nameOf(const testing::TestParamInfo<Kind>& parameter) {
    return std::array{"Pipe", "NonblockingPipe", "Socket", "MessageSocket"}.at(
        static_cast<std::size_t>(parameter.param));
}

void PrintTo(Kind kind, std::ostream* out) {
    *out << nameOf({kind, 0});
}

// Two ends: the writer's as a stream, the reader's as a descriptor that never blocks.
class Link {
  public:
    explicit Link(Kind kind) {
        int ends[2] = {-1, -1};
        if (kind == Kind::Socket || kind == Kind::MessageSocket) {
            const int type = kind == Kind::Socket ? SOCK_STREAM : SOCK_SEQPACKET;
            EXPECT_EQ(socketpair(AF_UNIX, type, 0, ends), 0);
        } else {
            EXPECT_EQ(pipe(ends), 0);
            if (kind == Kind::NonblockingPipe) fcntl(ends[1], F_SETFL, O_NONBLOCK);
        }
        m_reader = ends[0];
        fcntl(m_reader, F_SETFL, fcntl(m_reader, F_GETFL) | O_NONBLOCK);
        m_flags = fcntl(ends[1], F_GETFL);
        m_stream.reset(fdopen(ends[1], "w"));
    }
    ~Link() {
        if (m_reader >= 0) close(m_reader);
    }
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    std::FILE* stream() const { return m_stream.get(); }
    bool flagsAreAsBefore() const { return fcntl(fileno(stream()), F_GETFL) == m_flags; }
    std::string read(std::size_t most = SIZE_MAX) const {
        std::string text;
        std::string block(65536, '\0');
        while (text.size() < most) {
            const ssize_t got = ::read(m_reader, block.data(), std::min(block.size(), most - text.size()));
            if (got <= 0) break;
            text.append(block, 0, static_cast<std::size_t>(got));
        }
        return text;
    }
    void closeReader() {
        close(m_reader);
        m_reader = -1;
    }

  private:
    int m_reader = -1;
    int m_flags = 0;
    TVLFilePtr m_stream;
};

// As in the service.
class IgnoredSigpipe {
  public:
    IgnoredSigpipe() : m_before(std::signal(SIGPIPE, SIG_IGN)) {}
    ~IgnoredSigpipe() { std::signal(SIGPIPE, m_before); }
    IgnoredSigpipe(const IgnoredSigpipe&) = delete;
    IgnoredSigpipe& operator=(const IgnoredSigpipe&) = delete;

  private:
    void (*m_before)(int);
};

std::string line(int number, std::size_t size = 200) {
    std::string text = std::to_string(number) + " ";
    text.resize(size - 1, 'x');
    return text + "\n";
}

class TVLStreamWriterTest : public testing::TestWithParam<Kind> {
  protected:
    void write(const std::string& text) {
        const int dropped = writer.dropped();
        const std::string notice = dropped == 0 ? "" : "dropped " + std::to_string(dropped) + "\n";
        writer.write(link.stream(), text, notice);
    }
    // Writes numbered lines until one is dropped; how many were written.
    int fill(std::size_t size = 200) {
        int number = 0;
        while (writer.dropped() == 0)
            write(line(number++, size));
        return number - 1;
    }
    static std::string lines(int count, std::size_t size = 200) {
        std::string text;
        for (int i = 0; i < count; ++i)
            text += line(i, size);
        return text;
    }

    VirtualOs os;
    Link link{GetParam()};
    TVLStreamWriter writer{link.stream()};
};

INSTANTIATE_TEST_SUITE_P(Kinds, TVLStreamWriterTest,
                         testing::Values(Kind::Pipe, Kind::NonblockingPipe, Kind::Socket,
                                         Kind::MessageSocket),
                         nameOf);

TEST_P(TVLStreamWriterTest, AReaderThatKeepsUpGetsEveryLineAtOnce) {
    for (int i = 0; i < 2000; ++i) {
        write(line(i));
        ASSERT_EQ(link.read(), line(i));
    }
    EXPECT_EQ(os.nowMs(), 0);
    EXPECT_TRUE(link.flagsAreAsBefore()) << "others share them";
}

TEST_P(TVLStreamWriterTest, IsWaitedForOneSecondInAll) {
    fill();
    EXPECT_EQ(os.nowMs(), 1000);
    for (int i = 0; i < 500; ++i)
        write(line(i));
    EXPECT_EQ(os.nowMs(), 1000);
    EXPECT_EQ(writer.dropped(), 501);
    EXPECT_TRUE(link.flagsAreAsBefore());
}

TEST_P(TVLStreamWriterTest, TellsWhatWasDroppedWhenItTakesDataAgain) {
    const int written = fill();
    write(line(7777));
    write(line(8888));
    std::string text = link.read();
    write("back\n");
    write("again\n");
    text += link.read();
    EXPECT_EQ(text, lines(written) + "dropped 3\nback\nagain\n");
    EXPECT_EQ(writer.dropped(), 0);
    EXPECT_EQ(os.nowMs(), 1000);
}

// Whatever the reader does: the time spent waiting is counted, not the lines.
TEST_P(TVLStreamWriterTest, AReaderThatDripsGetsNoMoreThanASecond) {
    std::function<void()> drip = [&] {
        link.read(1);
        os.at(os.nowMs() + 150, drip);
    };
    os.at(150, drip);
    for (int i = 0; i < 5000; ++i)
        write(line(i));
    EXPECT_LE(os.nowMs(), 1001 + 1000 / TVLStreamWriter::kRecovery);
    EXPECT_GT(writer.dropped(), 0);
}

TEST_P(TVLStreamWriterTest, AStallThatEndsInTimeLosesNothing) {
    std::string text;
    os.at(700, [&] { text += link.read(); });
    int number = 0;
    while (os.nowMs() == 0)
        write(line(number++));
    EXPECT_LE(os.nowMs(), 710);
    EXPECT_EQ(text + link.read(), lines(number));
    EXPECT_EQ(writer.dropped(), 0);
}

TEST_P(TVLStreamWriterTest, PatienceComesBackAtOneSecondAMinute) {
    fill();
    link.read();
    write("back\n");
    os.sleepMs(30000);
    const std::int64_t beginMs = os.nowMs();
    fill();
    EXPECT_NEAR(static_cast<double>(os.nowMs() - beginMs), 500, 20);
    link.read();
    os.sleepMs(3600000);
    write("back\n");
    const std::int64_t laterMs = os.nowMs();
    fill();
    EXPECT_EQ(os.nowMs() - laterMs, 1000) << "never more than a second";
}

TEST_P(TVLStreamWriterTest, AReaderThatHasGoneIsNotWaitedFor) {
    const IgnoredSigpipe ignored;
    link.closeReader();
    for (int i = 0; i < 2000; ++i)
        write(line(i));
    EXPECT_EQ(os.nowMs(), 0);
    EXPECT_EQ(writer.dropped(), 0) << "there is nobody to be told";
}

class LongLineTest : public TVLStreamWriterTest {};

INSTANTIATE_TEST_SUITE_P(Kinds, LongLineTest,
                         testing::Values(Kind::Pipe, Kind::NonblockingPipe, Kind::Socket), nameOf);

constexpr std::size_t kLong = 1 << 20;

TEST_P(LongLineTest, TheRestOfALineGoesOutBeforeAnythingElse) {
    write(line(1, kLong));
    EXPECT_EQ(os.nowMs(), 1000);
    EXPECT_EQ(writer.dropped(), 0) << "it has been begun";
    write(line(2));
    std::string text;
    for (int i = 0; i < 2000 && !text.ends_with("end\n"); ++i) {
        text += link.read();
        write("end\n");
    }
    text += link.read();
    ASSERT_TRUE(text.starts_with(line(1, kLong) + "dropped "));
    EXPECT_EQ(os.nowMs(), 1000) << "no more waiting until all has gone out";
}

TEST_P(LongLineTest, ALineThatIsReadMeanwhileIsWhole) {
    std::string text;
    for (std::int64_t ms = 5; ms < 2000; ms += 5)
        os.at(ms, [&] { text += link.read(); });
    write(line(1, kLong));
    EXPECT_EQ(text + link.read(), line(1, kLong));
    EXPECT_LT(os.nowMs(), 1000);
}

TEST_P(LongLineTest, DrippingDoesNotStretchALongLine) {
    std::function<void()> drip = [&] {
        link.read(4096);
        os.at(os.nowMs() + 90, drip);
    };
    os.at(90, drip);
    for (int i = 0; i < 10; ++i)
        write(line(i, kLong));
    EXPECT_LE(os.nowMs(), 1000 + 1000 / TVLStreamWriter::kRecovery);
}

// What is common to all kinds of streams.

class StreamsTest : public testing::Test {
  protected:
    VirtualOs os;
};

TEST_F(StreamsTest, ManyShortWaitsAddUp) {
    const Link link(Kind::Pipe);
    TVLStreamWriter writer(link.stream());
    std::function<void()> read = [&] {
        link.read(4096);
        os.at(os.nowMs() + 1, read);
    };
    os.at(1, read);
    for (int i = 0; i < 20000; ++i)
        writer.write(link.stream(), line(i), "");
    EXPECT_LE(os.nowMs(), 1000 + 1000 / TVLStreamWriter::kRecovery);
}

TEST_F(StreamsTest, TheEndOfAPipeIsNotHeldBack) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe(ends), 0);
    const TVLFilePtr stream(fdopen(ends[1], "w"));
    TVLStreamWriter writer(stream.get());
    writer.write(stream.get(), "line\n", "");
    const int elsewhere = open("/dev/null", O_WRONLY);
    ASSERT_EQ(dup2(elsewhere, ends[1]), ends[1]);
    close(elsewhere);
    char block[16];
    EXPECT_EQ(read(ends[0], block, sizeof block), 5);
    pollfd entry{ends[0], POLLIN, 0};
    poll(&entry, 1, 0);
    EXPECT_NE(entry.revents & POLLHUP, 0) << "the reader sees the end";
    writer.write(stream.get(), "line\n", "");
    close(ends[0]);
}

// One reader goes while it is waited for, and the next one comes.
TEST_F(StreamsTest, ANamedPipeHasReadersOneAfterTheOther) {
    const IgnoredSigpipe ignored;
    const InstallFolder folder;
    const std::string path = folder.path("temp/pipe");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int first = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const TVLFilePtr stream = TVLFile::openLog(path.c_str(), true);
    ASSERT_TRUE(stream);
    TVLStreamWriter writer(stream.get());
    os.at(400, [&] { close(first); });
    for (int i = 0; i < 2000; ++i)
        writer.write(stream.get(), line(i), "");
    EXPECT_LE(os.nowMs(), 410);
    EXPECT_EQ(writer.dropped(), 0);
    const int second = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    std::string text(1 << 20, '\0');
    read(second, text.data(), text.size());
    writer.write(stream.get(), "back\n", "");
    const ssize_t got = read(second, text.data(), text.size());
    EXPECT_EQ(text.substr(0, got < 0 ? 0 : static_cast<std::size_t>(got)), "back\n");
    close(second);
}

TEST_F(StreamsTest, StreamsToTheSamePlaceAreKnown) {
    const Link link(Kind::Pipe);
    const Link other(Kind::Pipe);
    const TVLFilePtr twin(fdopen(dup(fileno(link.stream())), "w"));
    const TVLFilePtr file(std::tmpfile());
    const TVLStreamWriter writer(link.stream());
    EXPECT_TRUE(writer.leadsTo(link.stream()));
    EXPECT_TRUE(writer.leadsTo(twin.get()));
    EXPECT_FALSE(writer.leadsTo(other.stream()));
    EXPECT_FALSE(writer.leadsTo(nullptr));
    EXPECT_FALSE(TVLStreamWriter(file.get()).leadsTo(file.get()));
    EXPECT_FALSE(TVLStreamWriter(nullptr).leadsTo(link.stream()));
}

TEST_F(StreamsTest, DevicesThatNeverBlockTakeEverything) {
    for (const char* const device : {"/dev/null", "/dev/full"}) {
        const TVLFilePtr stream = TVLFile::openLog(device, false);
        ASSERT_TRUE(stream);
        TVLStreamWriter writer(stream.get());
        for (int i = 0; i < 100; ++i)
            writer.write(stream.get(), line(i), "");
        EXPECT_EQ(writer.dropped(), 0) << device;
    }
    EXPECT_EQ(os.nowMs(), 0);
}

// The kernel moves a terminal's data in its own time, which is not the test's.
class TerminalTest : public StreamsTest {
  protected:
    TerminalTest() {
        EXPECT_EQ(openpty(&m_master, &m_slave, nullptr, nullptr, nullptr), 0);
        termios raw{};
        tcgetattr(m_slave, &raw);
        cfmakeraw(&raw);
        tcsetattr(m_slave, TCSANOW, &raw);
    }
    void writeUntilDropped(TVLStreamWriter& writer, std::FILE* stream) const {
        for (int i = 0; i < 10000 && writer.dropped() < 100; ++i)
            writer.write(stream, line(i), "");
        EXPECT_EQ(writer.dropped(), 100);
    }

    int m_master = -1;
    int m_slave = -1;
};

TEST_F(TerminalTest, IsWaitedForOneSecondAndToldAfterwards) {
    {
        const TVLFilePtr stream(fdopen(m_slave, "w"));
        TVLStreamWriter writer(stream.get());
        writeUntilDropped(writer, stream.get());
        EXPECT_LE(os.nowMs(), 1000 + 1000 / TVLStreamWriter::kRecovery);
        std::string text;
        std::string block(65536, '\0');
        for (int i = 0; i < 1000 && text.find("dropped\nback\n") == std::string::npos; ++i) {
            pollfd entry{m_master, POLLIN, 0};
            if (poll(&entry, 1, 100) > 0) {
                const ssize_t got = read(m_master, block.data(), block.size());
                text.append(block, 0, got < 0 ? 0 : static_cast<std::size_t>(got));
            }
            if (writer.dropped() > 0) writer.write(stream.get(), "back\n", "dropped\n");
        }
        const std::size_t notice = text.find("\ndropped\nback\n");
        ASSERT_NE(notice, std::string::npos);
        EXPECT_EQ((notice + 1) % line(0).size(), 0U) << "all lines before it are whole";
    }
    close(m_master);
}

// The other end of a terminal cannot be opened a second time, so that it can only be written carefully.
TEST_F(TerminalTest, WhatCannotBeOpenedAgainIsWrittenAsFarAsItIsReady) {
    {
        const TVLFilePtr stream(fdopen(m_master, "w"));
        TVLStreamWriter writer(stream.get());
        writeUntilDropped(writer, stream.get());
        EXPECT_LE(os.nowMs(), 1000 + 1000 / TVLStreamWriter::kRecovery);
    }
    close(m_slave);
}

}  // namespace
