#include "CTLSimulation.h"

#include <csignal>

#include "ZORChildProcess.h"
#include "ZORCryptoHelper.h"
#include "ZORLogger.h"
#include "ZORSockSendAction.h"

namespace {

constexpr int kSilence = -1;  // a level below all others

bool closeLibrary() {
    const bool wasOpen = ZORCryptoHelper::GetCrypto() != nullptr;
    ZORCryptoHelper::TerminateCrypto();
    return wasOpen;
}

VirtualChild asVirtual(ZORChildProcess& child) {
    VirtualChild made{.name = child.getName()};
    if (ZORSockSendAction* const ping = child.getPingAction(); ping != nullptr) {
        made.pingUri = ping->getCommand().getURI();
        made.pingCommand = ping->getCommand().getCommand();
        if (!ping->getResponseOK().empty()) made.usualAnswer = made.answer = ping->getResponseOK();
    }
    if (auto* const stop = dynamic_cast<ZORSockSendAction*>(&child.getStopAction()); stop != nullptr) {
        made.stopUri = stop->getCommand().getURI();
        made.stopCommand = stop->getCommand().getCommand();
    }
    return made;
}

}  // namespace

CTLSimulation::CTLSimulation() : m_hadLibrary(closeLibrary()) {}

// What the service says of its library it has said before.
CTLSimulation::~CTLSimulation() {
    ZORLoggerFactory* const factory = ZORLoggerFactory::getInstance();
    const int level = factory->getLevel();
    factory->setLevel(kSilence);
    ZORCryptoHelper::TerminateCrypto();
    m_machine.reset();
    if (m_hadLibrary) ZORCryptoHelper::InitializeCrypto();
    factory->setLevel(level);
}

VirtualMachine& CTLSimulation::begin(std::time_t wallClock) {
    m_machine.reset();
    return m_machine.emplace(wallClock);
}

std::vector<VirtualChild> CTLSimulation::childrenOf(ZORBootstrapService& service) {
    std::vector<VirtualChild> children;
    for (ZORChildProcess* const child : service.getChildren())
        children.push_back(asVirtual(*child));
    return children;
}

void CTLSimulation::expect(ZORBootstrapService& service) {
    m_machine->askForChildren([&service] { return childrenOf(service); });
}

void CTLSimulation::conclude() {
    m_machine->giveUp();
    m_machine->with([](std::vector<VirtualChild>& children) {
        for (VirtualChild& child : children) {
            child.recover();
            child.endsAfterMs = 0;
        }
    });
    m_machine->raiseSignal(SIGTERM);
}
