// Any bytes as a bootstrap document: parsed, and when they are XML, turned into children and actions, which are
// started and pinged where no time passes and no process is made.

#include <cerrno>
#include <cstring>
#include <string>

#include "FuzzService.h"
#include "ScriptedSek.h"
#include "TVLNumber.h"
#include "TestAccess.h"
#include "TestWorld.h"
#include "ZORBadConfigException.h"
#include "ZORCryptoHelper.h"
#include "ZORPropertyInserter.h"
#include "ZORSpawnAction.h"

using FuzzTarget::require;

namespace {

// An answer is read into as many bytes as are configured; more of them are a matter of memory, not of reading.
constexpr int kMostOfAnAnswer = 4096;

bool setUp() {
    FuzzService::begin();
    FuzzService::logEverythingToNowhere();
    ZORPropertyInserter::getInstance()->add("install_path", "/opt/product");
    ZORPropertyInserter::getInstance()->add("dispatcherPingTimeout", "60");
    return ZORCryptoHelper::InitializeCrypto() == 1;
}

bool asksForMuch(const TVLIDOM_Element& root) {
    const TVLIDOM_NodeList sends = root.getElementsByTagName("socketSend");
    for (std::size_t i = 0; i < sends.getLength(); ++i) {
        const I18NString size = TVLIDOM_Element(sends.item(i)).getAttribute("responseSize");
        if (TVLNumber::parse(size.c_str()) > kMostOfAnAnswer) return true;
    }
    return false;
}

// The forked child becomes its program, which fails, and ends.
void startAsChild(VirtualOs& os, ZORChildProcess& child) {
    os.forkIntoChild(ENOENT);
    const std::size_t before = os.executed().size();
    bool ended = false;
    try {
        child.start();
    } catch (const VirtualOs::ProcessExit&) {
        ended = true;
    }
    require(ended, "a forked child ends when its program cannot be executed");
    require(os.executed().size() == before + 1, "a forked child executes one program");
    const std::vector<std::string>& executed = os.executed().back();
    require(executed.size() >= 2, "a program gets its own name as an argument");
    require(executed[1] == executed[0] || executed[1] == "\"" + executed[0] + "\"",
            "the first argument is the path, quoted or not");
}

void checkChild(VirtualOs& os, ZORChildProcess* child) {
    require(child != nullptr, "a child is there");
    require(TestAccess::startAction(*child) != nullptr, "a prepared child can be started");
    require(TestAccess::stopAction(*child) != nullptr, "a prepared child can be stopped");
    startAsChild(os, *child);
    child->start();
    require(child->getProcessHandle() == os.lastPid(), "a child's handle is its process");
    require(child->isAlive() == 1, "a started child is alive");
}

void checkService(ZORBootstrapService& service, const TVLIDOM_Element& root) {
    VirtualOs os;
    for (ZORChildProcess* const child : service.getChildren())
        checkChild(os, child);
    if (asksForMuch(root)) return;
    TestAccess::supervisor(service).testAllProcesses();
    for (ZORChildProcess* const child : service.getChildren())
        child->getStopAction().execute();
    require(ScriptedSek::instance().openHandles() == 0, "every handle is closed");
    require(ScriptedSek::instance().unfreedDetails() == 0, "every detail text is freed");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool ready = setUp();
    require(ready, "set up");
    TVLIDOM_Document document;
    if (!FuzzService::parse(FuzzTarget::textOf(data, size), document)) return 0;
    const TVLIDOM_Element root = document.getDocumentElement();
    ScriptedSek::instance().reset();
    ZORBootstrapService service;
    try {
        if (service.parseParams(root) == 0) return 0;
        require(TestAccess::daemonSpawn(service) != nullptr,
                "an accepted document says how the daemon is started");
    } catch (const ZORBadConfigException& exception) {
        require(std::strlen(exception.getMessage()) > 0, "a refusal has a text");
        return 0;
    }
    checkService(service, root);
    return 0;
}
