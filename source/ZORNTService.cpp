#include "ZORNTService.h"

#include <cstring>

#include "ZORLogger.h"

namespace {

// Deliberate: the class logs nothing, its name among the loggers is taken all the same; see
// RulesTest.WhatIsKeptUnusedIsUsedByNothing.
[[maybe_unused]] ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("ZORNTService");

}  // namespace

ZORNTService* ZORNTService::m_pThis = nullptr;

ZORNTService::ZORNTService(const char* name) {
    m_pThis = this;
    setServiceName(name);
}

ZORNTService::~ZORNTService() {
    if (m_pThis == this) m_pThis = nullptr;
}
int ZORNTService::Run() {
    return 0;
}
int ZORNTService::OnInit() {
    return 0;
}
void ZORNTService::OnStop() {}
void ZORNTService::OnInterrogate() {}
void ZORNTService::OnPause() {}
void ZORNTService::OnContinue() {}
void ZORNTService::OnShutdown() {}

void ZORNTService::setServiceName(const char* name) {
    m_serviceName.fill('\0');
    if (name != nullptr) std::memcpy(m_serviceName.data(), name, strnlen(name, m_serviceName.size() - 1));
}

int ZORNTService::RunAsApplication() {
    if (OnInit() == 0) return 0;
    m_runningAsApplication = 1;
    m_exitCode = 0;
    return Run();
}
