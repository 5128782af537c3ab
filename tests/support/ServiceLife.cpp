#include "ServiceLife.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <new>
#include <sstream>

#include "TVLThrowable.h"

namespace {

std::size_t openDescriptors() {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                                                  std::filesystem::directory_iterator()));
}

// Cheaper than taking all lines apart: nearly all are DEBUG.
std::vector<std::string> linesAboveDebug(const std::string& log) {
    constexpr std::size_t kLevelAt = 26;
    std::vector<std::string> lines;
    std::istringstream text(log);
    for (std::string line; std::getline(text, line);) {
        if (line.size() <= kLevelAt || line.compare(kLevelAt, 5, "DEBUG") == 0) continue;
        const std::size_t rest = line.find("] ", kLevelAt);
        if (rest == std::string::npos) continue;
        const std::string level = line.substr(kLevelAt, line.find(' ', kLevelAt) - kLevelAt);
        lines.push_back(level + " " + line.substr(rest + 2));
    }
    return lines;
}

}  // namespace

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

ServiceLifeTest::ServiceLifeTest() {
    setProperty("install_path", folder.path().c_str());
    setProperty("bin_path", folder.path("bin").c_str());
    setProperty("temp", folder.path("temp").c_str());
    setProperty("dispatcherPingTimeout", "30");
    setProperty("dispatcherStopWaitTime", "3");
    configure("");
}

void ServiceLifeTest::configure(const std::string& rootAttributes) {
    ChildXml alpha{"alpha"};
    alpha.spawnAttributes = "sync='3'";  // a pause after the start
    const ChildXml gamma{.name = "gamma", .ping = false, .stopType = "signal"};
    folder.write("bin/bootstrap_linuxi38632.xml",
                 documentText({alpha, ChildXml{"beta"}, gamma}, "<processManager pollIntervalsec='30'/>",
                              rootAttributes));
}

Life ServiceLifeTest::live(const Action& action) {
    Life life;
    sek.reset();
    log.clear();
    m_signalledMs = -1;
    const std::size_t descriptors = openDescriptors();
    {
        StagedOs staged;
        FailingOs failing(staged);
        if (m_refuse) m_refuse(failing);
        ZORBootstrapService lived;
        run(staged, lived, life, action);
        note(staged, life);
        if (m_look) m_look(failing);
    }
    life.descriptorsKept = openDescriptors() - descriptors;
    return life;
}

void ServiceLifeTest::run(StagedOs& staged, ZORBootstrapService& lived, Life& life, const Action& action) {
    life.thrown = !carryOut([&] { life.initialized = lived.OnInit() == 1; });
    if (!life.initialized) return;
    prepare(staged, lived, life);
    staged.watch([&](int moment) {
        if (action) action(staged, moment);
    });
    life.thrown = !carryOut([&] { life.result = lived.Run(); });
    staged.watchNoMore();
}

bool ServiceLifeTest::carryOut(const std::function<void()>& step) const {
    bool isDone = false;
    if (m_enter) m_enter();
    try {
        step();
        isDone = true;
    } catch (const std::bad_alloc&) {
    } catch (const TVLOutOfMemoryError&) {
    }
    if (m_leave) m_leave();
    return isDone;
}

void ServiceLifeTest::raise(StagedOs& staged, int signal) {
    std::int64_t none = -1;
    m_signalledMs.compare_exchange_strong(none, staged.VirtualOs::nowMs());
    staged.raiseSignal(signal);
}

std::string ServiceLifeTest::complaintsAboutLines(const Life& life) {
    std::ostringstream text;
    for (const char* const once :
         {"INFO ZORSignalHandlerThread Signalled to shutdown.",
          "INFO PingChildProcess Child process supervisor has been told to stop",
          "INFO PingChildProcess stopping child process(es).", "INFO ZORBootstrapService Done."}) {
        if (life.count(once) != 1) text << life.count(once) << " times: " << once << "\n";
    }
    if (life.lines.empty() || life.lines.back() != "INFO ZORBootstrapService Done.")
        text << "the last line is another\n";
    return text.str();
}

std::string ServiceLifeTest::complaintsAbout(const Life& life, std::int64_t longestStopMs) {
    std::ostringstream text;
    if (!life.initialized) text << "the service was not initialised\n";
    if (life.thrown) text << "it ran out of memory\n";
    if (life.result != 1) text << "the run returned " << life.result << "\n";
    const std::int64_t unnoticedMs = life.supervised ? 0 : kIntervalMs;
    if (life.endedMs - life.signalledMs > unnoticedMs + longestStopMs)
        text << "signalled at " << life.signalledMs << ", ended at " << life.endedMs << "\n";
    for (const pid_t pid : life.left)
        text << "process " << pid << " is left\n";
    for (const std::string& wrong : life.wrongs)
        text << wrong << "\n";
    if (!life.pidFileDuringTheStop) text << "the PID file went before the children\n";
    if (life.pidFileLeft) text << "the PID file is left\n";
    if (life.descriptorsKept != 0) text << life.descriptorsKept << " descriptors kept\n";
    if (life.threadsKept != 0) text << life.threadsKept << " threads kept\n";
    if (life.handlesKept != 0) text << life.handlesKept << " connections kept\n";
    if (life.detailsKept != 0) text << life.detailsKept << " detail texts kept\n";
    text << complaintsAboutLines(life);
    if (text.str().empty()) return "";
    return text.str() + "--- log\n" + joined(life.lines);
}

void ServiceLifeTest::prepare(StagedOs& staged, ZORBootstrapService& lived, Life& life) {
    staged.allowProcesses(kChildren);
    staged.mustEndBefore(10 * kEndsMs);
    // The first connection needs a handshake in two turns.
    sek.queue("SEK_Connect_Url", {-15, {}});
    sek.queue("SEK_EstablishSecure", {-23, {}});
    for (const char* const name : {"alpha", "beta"}) {
        answers(name, "READY");
        stopPeer(name).onCommand = [this, &staged, &lived, &life, name](const std::string&) {
            takeStop(staged, lived, life, name);
        };
    }
    staged.at(kFallsSilentMs, [this] { fallsSilent("alpha"); });
    staged.at(kEndsMs, [this, &staged, &life] {
        life.livingBeforeTheStop = static_cast<int>(staged.livingProcesses().size());
        raise(staged, SIGTERM);
    });
    if (m_stubborn.count("gamma") != 0) staged.refuseTerm();
}

void ServiceLifeTest::takeStop(StagedOs& staged, ZORBootstrapService& lived, Life& life,
                               const std::string& name) {
    if (!folder.exists("logs/velbootstrap_service.pid")) life.pidFileDuringTheStop = false;
    pingPeer(name).silent = false;
    if (m_stubborn.count(name) != 0) return;
    for (ZORChildProcess* const each : lived.getChildren()) {
        if (each->getName() == name) staged.endProcess(each->getProcessHandle());
    }
}

void ServiceLifeTest::note(StagedOs& staged, Life& life) {
    life.moments = staged.moments();
    life.endedMs = staged.nowMs();
    life.signalledMs = m_signalledMs;
    const std::string raw = log.raw();
    life.supervised = raw.find("entering timedWait") < raw.find("has been told to stop");
    life.lines = linesAboveDebug(raw);
    life.wrongs = staged.wrongs();
    life.threadsKept = staged.threads();
    life.kills = staged.kills();
    life.left = staged.livingProcesses();
    life.starts = staged.lastPid() - 1000;
    life.pidFileLeft = folder.exists("logs/velbootstrap_service.pid");
    life.handlesKept = sek.openHandles();
    life.detailsKept = sek.unfreedDetails();
}
