#include "CTLPinged.h"

#include "CTLDoorway.h"
#include "CTLPreparation.h"
#include "SEKErrors.h"
#include "SEKUri.h"
#include "ZORChildProcess.h"
#include "ZORSockSendAction.h"
#include "ZORSocketCommand.h"

namespace {

std::string portOf(const std::string& uri) {
    try {
        return std::to_string(SEKUri::parse(uri).port());
    } catch (const SEKFailure&) {
        return {};
    }
}

}  // namespace

std::vector<CTLPinged> CTLPinged::of(ZORBootstrapService& service) {
    std::vector<CTLPinged> all;
    for (ZORChildProcess* const child : service.getChildren()) {
        if (child->getPingAction() == nullptr) continue;
        all.push_back({child->getName(), portOf(child->getPingAction()->getCommand().getURI())});
    }
    return all;
}

std::vector<CTLPinged> CTLPinged::of(const CTLInstance& instance) {
    const CTLDoorway lookingOnly;
    CTLPreparation preparation(instance);
    return of(preparation.service());
}
