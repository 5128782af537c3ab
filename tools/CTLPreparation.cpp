#include "CTLPreparation.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <system_error>

#include "CTLError.h"
#include "CTLInstance.h"
#include "TVLIDOM_Document.h"
#include "TVLRealOs.h"
#include "ZORBadConfigException.h"
#include "ZORCryptoHelper.h"
#include "ZOREnvironment.h"
#include "ZORLogger.h"
#include "ZORPropertyInserter.h"

namespace {

// The system, in which nothing can be made: the service would make the folder for temporary files if it is missing.
class UnchangedOs : public TVLRealOs {
  public:
    UnchangedOs() : m_before(install(this)) {}
    ~UnchangedOs() override { install(m_before); }

    int mkdirat(int /*folder*/, const char* /*path*/, mode_t /*mode*/) override { return refuse(); }
    int makeFolders(const char* /*path*/) override { return refuse(); }
    int unlinkat(int /*folder*/, const char* /*path*/, int /*flags*/) override { return refuse(); }
    pid_t fork() override { return refuse(); }

  private:
    static int refuse() {
        errno = EROFS;
        return -1;
    }

    TVLOs* m_before;
};

}  // namespace

CTLPreparation::CTLPreparation(const CTLInstance& instance) {
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
    m_usable = prepare();
}

CTLPreparation::~CTLPreparation() {
    m_service.reset();
    ZORCryptoHelper::TerminateCrypto();
    ZORLoggerFactory::getInstance()->reset();
    std::fclose(m_log);
    std::free(m_text);
}

bool CTLPreparation::prepare() {
    const UnchangedOs unchanged;
    ZORBootstrapService::setEnvironment();
    m_service->findHome();
    ZOREnvironment::keep(environ);
    if (!readStartupConfiguration()) return false;
    ZORBootstrapService::getPlatform();
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
