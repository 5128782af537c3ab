#include "ZORCryptoHelper.h"

#include "ZORLogger.h"

namespace {

ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("ZORCryptoHelper");

constexpr const char* kLibraryName = "SEK_Crypto_Interface";

// Not constant: the library's interface takes plain character pointers.
char initializeDocument[] =
    "<?xml version=\"1.0\" "
    "encoding=\"UTF-8\"?><initializeDocument><serviceID>BTSV</serviceID></initializeDocument>";
char terminateDocument[] = "<terminateDocument><serviceID>BTSV</serviceID></terminateDocument>";

void logFailure(TVLCrypto& crypto, const char* codeFormat, long code, const char* detailsFormat,
                char* details) {
    logger->log(ZOR_FATAL, codeFormat, static_cast<int>(code));
    if (details == nullptr) return;
    logger->log(ZOR_FATAL, detailsFormat, details);
    crypto.SEK_CryptoFree(details, nullptr);
}

}  // namespace

TVLCrypto* ZORCryptoHelper::m_pCryptoLib = nullptr;

int ZORCryptoHelper::InitializeCrypto() {
    if (m_pCryptoLib != nullptr) return 1;
    m_pCryptoLib = new TVLCrypto(kLibraryName);
    if (m_pCryptoLib->isOpen() == 0) {
        logger->log(ZOR_FATAL, "failed to initialize crypto.");
        return 0;
    }
    char* details = nullptr;
    const long code = m_pCryptoLib->SEK_CryptoInitialize(initializeDocument, nullptr, &details);
    if (code == SEK_Ok) return 1;
    logFailure(*m_pCryptoLib, "SEK_CryptoInitialize failed, return code: %d ", code,
               "SEK_CryptoInitialize failed, SEK error details: %s ", details);
    return 0;
}

void ZORCryptoHelper::TerminateCrypto() {
    if (m_pCryptoLib == nullptr) return;
    char* details = nullptr;
    const long code = m_pCryptoLib->SEK_CryptoTerminate(terminateDocument, nullptr, &details);
    if (code != SEK_Ok) {
        logFailure(*m_pCryptoLib, "SEK_CryptoTerminate failed, return code: %d ", code,
                   "SEK_CryptoTerminate failed, SEK error details: %s ", details);
    }
    delete m_pCryptoLib;
    m_pCryptoLib = nullptr;
}
