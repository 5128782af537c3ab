#include "CTLPreparation.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <system_error>

#include "CTLDoorway.h"
#include "CTLError.h"
#include "CTLInstance.h"
#include "TVLIDOM_Document.h"
#include "ZORBadConfigException.h"
#include "ZORCmdLine.h"
#include "ZORCryptoHelper.h"
#include "ZOREnvironment.h"
#include "ZORLogger.h"
#include "ZORPropertyInserter.h"

CTLPreparation::CTLPreparation(const CTLInstance& instance, const std::vector<std::string>& arguments) {
    std::error_code error;
    std::filesystem::current_path(instance.bin(), error);
    if (error) throw CTLError(CTLError::kFailed, instance.bin().string() + ": " + error.message());
    m_log = open_memstream(&m_text, &m_size);
    if (m_log == nullptr) throw CTLError(CTLError::kFailed, "no memory");
    TVLIDOM_DOMImplementation::initialize();
    ZORLoggerFactory::getInstance()->reset();
    ZORLoggerFactory::getInstance()->setLevel(ZOR_DEBUG);
    ZORLoggerFactory::getInstance()->addFile(m_log, 0);
    m_service = std::make_unique<ZORBootstrapService>();
    m_usable = prepare(arguments);
}

CTLPreparation::~CTLPreparation() {
    m_service.reset();
    ZORCryptoHelper::TerminateCrypto();
    ZORLoggerFactory::getInstance()->reset();
    std::fclose(m_log);
    std::free(m_text);
}

bool CTLPreparation::prepare(std::vector<std::string> arguments) {
    const CTLDoorway lookingOnly;
    ZORBootstrapService::setEnvironment();
    m_service->findHome();
    ZOREnvironment::keep(environ);
    if (!readStartupConfiguration()) return false;
    std::vector<char*> pointers;
    pointers.reserve(arguments.size());
    for (std::string& argument : arguments)
        pointers.push_back(argument.data());
    m_service->applyOverrides(ZORCmdLine(static_cast<int>(pointers.size()), pointers.data()));
    return m_service->OnInit() != 0;
}

bool CTLPreparation::readStartupConfiguration() {
    ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("velbootstrapctl");  // never freed
    try {
        if (m_service->initZORElement() != 0) m_service->prepareProperties();
        return true;
    } catch (const ZORBadConfigException& exception) {
        logger->log(ZOR_FATAL, "%s", exception.getMessage());
        return false;
    }
}

std::vector<CTLLogLine> CTLPreparation::lines() const {
    std::fflush(m_log);
    std::istringstream log(std::string(m_text, m_size));
    return CTLLogLine::read(log);
}

void CTLPreparation::keepNoMore() {
    ZORLoggerFactory::getInstance()->reset();
}
