#include "TestWorld.h"

#include <stdexcept>

bool CycleOs::waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                        std::int64_t deadlineMs) {
    if (onTimedWait && deadlineMs != kForever) {
        lock.unlock();
        const bool cut = onTimedWait(++m_timedWaits);
        lock.lock();
        if (cut) return true;
    }
    return VirtualOs::waitUntil(condition, lock, deadlineMs);
}

std::string ChildXml::text() const {
    std::string stop = "<socketSend URI='" + stopUri() + "' commandString='STOP'/>";
    if (stopType == "signal") stop = "<signal signal='15'/>";
    if (stopType == "spawn") stop = "<spawn><path>/bin/stop-" + name + "</path></spawn>";
    std::string xml = "<process name='" + name + "'><start><spawn " + spawnAttributes + "><path>/bin/" +
                      name + "</path></spawn></start><stop type='" + stopType + "'>" + stop + "</stop>";
    if (ping) {
        xml +=
            "<ping><socketSend URI='" + pingUri() + "' commandString='PING' " + pingAttributes + "/></ping>";
    }
    return xml + "</process>";
}

WorldTest::WorldTest() {
    sek.reset();
    ZORCryptoHelper::InitializeCrypto();
}

WorldTest::~WorldTest() {
    ZORCryptoHelper::TerminateCrypto();
}

std::string WorldTest::documentText(const std::vector<ChildXml>& children, const std::string& manager,
                                    const std::string& rootAttributes) {
    std::string xml = "<bootstrap " + rootAttributes + ">" + manager;
    for (const ChildXml& child : children)
        xml += child.text();
    return xml +
           "<daemonSpawn><path>${bin_path}/velbootstrapservice</path><param>runAsDaemon</param></daemonSpawn>"
           "</bootstrap>";
}

void WorldTest::begin(const std::vector<ChildXml>& children, const std::string& manager) {
    const XmlText document(documentText(children, manager));
    ASSERT_EQ(service.parseParams(document.root()), 1);
    for (const ChildXml& configured : children)
        answers(configured.name, "READY");
    for (ZORChildProcess* const each : service.getChildren())
        each->start();
}

void WorldTest::runCycles(int cycles, const std::function<void()>& look) {
    os.onTimedWait = [&, cycles](int wait) {
        const auto [first, last] = m_before.equal_range(wait);
        for (auto event = first; event != last; ++event)
            event->second();
        if (wait <= cycles) return false;
        if (look) look();
        supervisor.stop(&finished);
        return true;
    };
    supervisor.run();
    os.onTimedWait = nullptr;
}

void WorldTest::before(int cycle, std::function<void()> event) {
    m_before.emplace(cycle, std::move(event));
}

ZORChildProcess& WorldTest::child(const std::string& name) {
    for (ZORChildProcess* const each : service.getChildren()) {
        if (each->getName() == name) return *each;
    }
    throw std::out_of_range("no child named " + name);
}

VirtualOs::Process& WorldTest::processOf(const std::string& name) {
    return os.process(child(name).getProcessHandle());
}
