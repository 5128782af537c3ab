#include "SystemRun.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <map>
#include <mutex>
#include <stdexcept>

#include "ScriptedSek.h"
#include "TVLThread.h"
#include "TestAccess.h"
#include "TestKit.h"
#include "TestWorld.h"
#include "World.h"
#include "ZORCryptoHelper.h"

namespace {

// Notes what every thread does.
class Recorder {
  public:
    // What is in `root` is told as in "ROOT".
    Recorder(VirtualOs& os, std::string root) : m_os(os), m_root(std::move(root)) {}

    void note(std::string what) {
        const std::int64_t nowMs = m_os.nowMs();
        const std::size_t at = what.find(m_root);
        if (at != std::string::npos) what.replace(at, m_root.size(), "ROOT");
        const std::lock_guard guard(m_mutex);
        m_deeds[TVLThread::currentThreadId()].push_back({nowMs, std::move(what)});
    }
    // The program that the calling thread has said it starts.
    std::string program() {
        static const std::string words = "Spawning child process:\nPath: ";
        const std::lock_guard guard(m_mutex);
        const std::vector<Deed>& deeds = m_deeds[TVLThread::currentThreadId()];
        if (deeds.empty()) return "";
        const std::size_t at = deeds.back().what.find(words);
        if (at == std::string::npos) return "";
        const std::size_t from = at + words.size();
        return deeds.back().what.substr(from, deeds.back().what.find('\n', from) - from);
    }
    void tell(Run& run) {
        const unsigned int self = TVLThread::currentThreadId();
        for (auto& [thread, deeds] : m_deeds)
            run.of(thread == self ? Agent::Main : agentOf(deeds)) = std::move(deeds);
    }

  private:
    static Agent agentOf(const std::vector<Deed>& deeds) {
        return deeds.front().what.starts_with("DEBUG ZORSignalHandlerThread ") ? Agent::Signals
                                                                               : Agent::Supervisor;
    }

    VirtualOs& m_os;
    std::string m_root;
    std::mutex m_mutex;
    std::map<unsigned int, std::vector<Deed>> m_deeds;
};

// Virtual time with the processes of a world.
class WorldOs : public VirtualOs {
  public:
    WorldOs(World& world, const std::string& root) : m_world(world), m_recorder(*this, root) {}

    Recorder& recorder() { return m_recorder; }
    // The next forks are those of a process that detaches itself: the test goes on as the child.
    void detach(int forks) { m_forksToDetach = forks; }

    pid_t fork() override {
        if (m_forksToDetach > 0) {
            --m_forksToDetach;
            m_recorder.note("fork 0");
            return 0;
        }
        return forkChild();
    }
    pid_t setsid() override {
        m_recorder.note("setsid");
        return 1;
    }
    pid_t forkChild() {
        int error = 0;
        const std::int64_t nowMs = this->nowMs();
        const std::string program = m_recorder.program();
        const int pid = [&] {
            const std::lock_guard guard(m_mutex);
            return m_world.fork(nowMs, program, error);
        }();
        m_recorder.note("fork " + std::to_string(pid));
        errno = error;
        return pid;
    }
    int kill(pid_t pid, int signal) override {
        int error = 0;
        const std::int64_t nowMs = this->nowMs();
        const int result = [&] {
            const std::lock_guard guard(m_mutex);
            return m_world.kill(nowMs, pid, signal, error);
        }();
        m_recorder.note("kill " + std::to_string(pid) + " " + std::to_string(signal) + ": " +
                        std::to_string(result));
        if (pid == 0 && World::endsService(signal)) raiseSignal(signal);
        errno = error;
        return result;
    }
    void sleepMs(std::int64_t durationMs) override {
        m_recorder.note("sleep " + std::to_string(durationMs));
        VirtualOs::sleepMs(durationMs);
    }
    void threadStarts() override {
        m_recorder.note("starts a thread");
        VirtualOs::threadStarts();
    }
    // Time that a peer takes.
    void passLatency(std::int64_t durationMs) {
        if (durationMs > 0) VirtualOs::sleepMs(durationMs);
    }

  private:
    World& m_world;
    std::mutex m_mutex;
    Recorder m_recorder;
    int m_forksToDetach = 0;
};

// Peers as the world has them, behind the scripted security library.
class Peers {
  public:
    Peers(World& world, WorldOs& os) : m_world(world), m_os(os) {
        sek().onCall = [this](const std::string& entry, const std::string& text, long number) {
            called(entry, text, number);
        };
    }
    ~Peers() { sek().onCall = nullptr; }
    Peers(const Peers&) = delete;
    Peers& operator=(const Peers&) = delete;

  private:
    static ScriptedSek& sek() { return ScriptedSek::instance(); }

    void called(const std::string& entry, const std::string& text, long number) {
        m_os.recorder().note(entry + argumentOf(entry, text, number));
        if (entry == "SEK_Socket") return answer(entry, m_world.handle(m_os.nowMs()));
        if (entry == "SEK_Connect_Url") return answer(entry, m_world.connect(m_os.nowMs(), text));
        if (entry == "SEK_EstablishSecure") return answer(entry, m_world.establish());
        if (entry == "SEK_Send") return answerSend();
        if (entry == "SEK_Poll") return answerPoll(number);
        if (entry == "SEK_Recv") return answerReceive();
    }
    static std::string argumentOf(const std::string& entry, const std::string& text, long number) {
        if (entry == "SEK_Socket") return text.find(">IPv6<") == std::string::npos ? " IPv4" : " IPv6";
        if (entry == "SEK_Connect_Url" || entry == "SEK_Send") return " " + text;
        if (entry == "SEK_Poll" || entry == "SEK_Recv") return " " + std::to_string(number);
        return "";
    }
    void answer(const std::string& entry, const Reply& reply) {
        m_os.passLatency(reply.latencyMs);
        sek().queue(entry, {reply.code, reply.details});
    }
    void answerSend() {
        const Reply reply = m_world.send();
        answer("SEK_Send", reply);
        if (reply.code == 0) m_world.sent(m_os.nowMs());
    }
    void answerPoll(long limitMs) {
        sek().setPollBits(m_world.exchange().readable ? 1 : 0);
        answer("SEK_Poll", m_world.poll(limitMs));
    }
    void answerReceive() {
        sek().peer(m_world.uri()).answer = m_world.exchange().answer;
        answer("SEK_Recv", m_world.receive());
    }

    World& m_world;
    WorldOs& m_os;
};

// A log destination that hands every line to the recorder.
class LogStream {
  public:
    LogStream(Recorder& recorder, const PingChildProcess& supervisor)
        : m_recorder(recorder),
          m_supervisor(supervisor),
          m_stream(fopencookie(this, "w", {nullptr, write, nullptr, nullptr})) {
        std::setvbuf(m_stream, m_buffer.data(), _IOFBF, m_buffer.size());
        ZORLoggerFactory* const factory = ZORLoggerFactory::getInstance();
        factory->reset();
        factory->setLevel(ZOR_DEBUG);
        factory->addFile(m_stream, 0);
    }
    ~LogStream() {
        ZORLoggerFactory::getInstance()->reset();
        std::fclose(m_stream);
    }
    LogStream(const LogStream&) = delete;
    LogStream& operator=(const LogStream&) = delete;

  private:
    static constexpr std::size_t kLevelAt = 26;  // after the time and two blanks
    static constexpr std::size_t kLevelSize = 5;
    static constexpr std::string_view kLeftOut = "ZORPropertyInserter ";  // the table says nothing of it
    static constexpr std::string_view kCycleEnds = "PingChildProcess entering timedWait";

    static ssize_t write(void* self, const char* data, std::size_t size) {
        static_cast<LogStream*>(self)->take(std::string(data, size));
        return static_cast<ssize_t>(size);
    }
    // "TIME  LEVEL t[ID] LOGGER TEXT\n"
    void take(const std::string& line) {
        const std::string level = line.substr(kLevelAt, line.find(' ', kLevelAt) - kLevelAt);
        const std::size_t logger = line.find("] ", kLevelAt + kLevelSize) + 2;
        if (line.compare(logger, kLeftOut.size(), kLeftOut) == 0) return;
        m_recorder.note(level + " " + line.substr(logger, line.size() - 1 - logger));
        if (line.compare(logger, kCycleEnds.size(), kCycleEnds) == 0) noteFlags();
    }
    void noteFlags() {
        m_recorder.note("flags " + std::to_string(TestAccess::allChildrenRunning(m_supervisor)) + " " +
                        std::to_string(TestAccess::allPingsAnswered(m_supervisor)) + " " +
                        std::to_string(TestAccess::fatalError(m_supervisor)));
    }

    Recorder& m_recorder;
    const PingChildProcess& m_supervisor;
    std::array<char, 65536> m_buffer{};
    std::FILE* m_stream;
};

// Fresh singletons and folder.
struct Place : ServiceTest {
    void TestBody() override {}

    explicit Place(const Scenario& scenario) {
        setProperty("greeting", "HELLO");
        setProperty("stopSignal", "15");
        if (!scenario.pingTimeout.empty()) setProperty("dispatcherPingTimeout", scenario.pingTimeout.c_str());
        if (!scenario.stopWaitTime.empty())
            setProperty("dispatcherStopWaitTime", scenario.stopWaitTime.c_str());
        setProperty("install_path", folder.path().c_str());
        setProperty("bin_path", folder.path("bin").c_str());
        setProperty("platform", "linuxi38632");
        setProperty("temp", folder.path("temp").c_str());
        if (scenario.waitForEver) folder.write("temp/zordaemonwait", "");
        folder.write("bin/bootstrap_linuxi38632.xml", scenario.document());
        if (!scenario.pidFileWritable) std::filesystem::remove(folder.path("logs"));
        writeStartup(
            "<networkConfiguration>" + scenario.network +
            "</networkConfiguration><components><component name=\"web\" version=\"10.1\"/></components>");
    }

    void placeLimitFile(const LimitFile& file) const {
        const std::string path = folder.path("bin/zor.failedPingLimit");
        std::filesystem::remove(path);
        if (!file.content) return;
        folder.write("bin/zor.failedPingLimit", *file.content);
        const timespec modified{static_cast<time_t>(file.modifiedSec), 0};
        const std::array<timespec, 2> times{modified, modified};
        if (utimensat(AT_FDCWD, path.c_str(), times.data(), 0) != 0) throw std::runtime_error("utimensat");
    }
    std::string root() const { return folder.path(); }
    std::string pidFile() const { return folder.path("logs/velbootstrap_service.pid"); }
};

void arrange(const Scenario& scenario, const Place& place, WorldOs& os) {
    for (const LimitFile& file : scenario.limitFiles)
        os.at(file.fromMs, [&place, file] { place.placeLimitFile(file); });
    for (std::size_t i = 0; i < scenario.stopAtMs.size(); ++i)
        os.at(scenario.stopAtMs[i], [&os, signal = scenario.stopSignals[i]] { os.raiseSignal(signal); });
}

// The security library as nobody has initialised it yet.
class Library {
  public:
    Library() { ScriptedSek::instance().reset(); }
    ~Library() { ZORCryptoHelper::TerminateCrypto(); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
};

// The test's own standard streams, which a process that detaches itself leads elsewhere.
class StandardStreams {
  public:
    StandardStreams() {
        for (int i = 0; i < kCount; ++i)
            m_kept.at(static_cast<std::size_t>(i)) = fcntl(i, F_DUPFD_CLOEXEC, kCount);
    }
    ~StandardStreams() {
        for (int i = 0; i < kCount; ++i) {
            dup2(m_kept.at(static_cast<std::size_t>(i)), i);
            close(m_kept.at(static_cast<std::size_t>(i)));
        }
    }
    StandardStreams(const StandardStreams&) = delete;
    StandardStreams& operator=(const StandardStreams&) = delete;

  private:
    static constexpr int kCount = 3;
    std::array<int, kCount> m_kept{};
};

int runMode(ZORBootstrapService& service, WorldOs& os, const Scenario& scenario) {
    if (!scenario.asDaemon) {
        service.RunAsApplication();
        return service.getExitCode();
    }
    const StandardStreams streams;
    os.detach(2);
    service.runAsDaemon();
    return service.getExitCode();
}

}  // namespace

Run runService(const Scenario& scenario) {
    const Place place(scenario);
    const Library library;
    World world(scenario);
    WorldOs os(world, place.root());
    const Peers peers(world, os);
    Run run;
    {
        ZORBootstrapService service;
        const LogStream log(os.recorder(), TestAccess::supervisor(service));
        arrange(scenario, place, os);
        if (scenario.isUnsupervised()) os.failNextWait();
        run.exitCode = runMode(service, os, scenario);
    }
    os.recorder().tell(run);
    run.alive = world.alive(os.nowMs());
    run.pidFileLeft = std::filesystem::exists(place.pidFile());
    run.handlesLeft = ScriptedSek::instance().openHandles();
    run.detailsLeft = ScriptedSek::instance().unfreedDetails();
    return run;
}
