#include "ZORSocketCommand.h"

#include <string_view>

#include "SEK_Crypto_Interface.h"
#include "TVLConfigurationFactory.h"
#include "TVLCrypto.h"
#include "TVLNumber.h"
#include "TVLThread.h"
#include "ZORCryptoHelper.h"
#include "ZORLogger.h"

#define ZOR_CRYPTO_SCHEMA "http://schemas.velmora.example/sek/crypto/1/"
#define ZOR_SESSION_DOCUMENT(family)                                                                     \
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"                                                         \
    "<sessionConfigDocument xmlns=\"" ZOR_CRYPTO_SCHEMA                                                  \
    "\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xsi:schemaLocation=\"" ZOR_CRYPTO_SCHEMA \
    "crypto.xsd\"><serviceID>gateway</serviceID><protocolFamily>" family                                 \
    "</protocolFamily></sessionConfigDocument>"

namespace {

ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("ZORSocketCommand");

constexpr int kRetryBudget = 5;

// Not constant: the library's interface takes plain character pointers.
char sessionDocumentIPv4[] = ZOR_SESSION_DOCUMENT("IPv4");
char sessionDocumentIPv6[] = ZOR_SESSION_DOCUMENT("IPv6");

// The host part as the service has always cut it: up to the last colon of the whole URI. Deliberate: a colon
// in the path makes the host part run up to it, and without "//" the host starts at the second character; see
// ZORSocketCommandTest.AColonInThePathSelectsIPv6.
std::string_view hostOf(std::string_view uri) {
    const std::size_t start = uri.find("//") + 2;
    std::size_t end = uri.rfind(':');
    if (end == std::string_view::npos || end < start) end = uri.find('/', start);
    if (start >= uri.size()) return {};
    return uri.substr(start, end == std::string_view::npos ? end : end - start);
}

}  // namespace

ZORSocketCommand::ZORSocketCommand(const char* uri, const char* command, int timeoutSec)
    : m_command(command), m_uri(uri), m_timeoutSec(timeoutSec) {}

ZORSocketCommand::~ZORSocketCommand() {
    close();
}

int ZORSocketCommand::sendCommand() {
    if (connect() != 0) return -1;
    long sent = 0;
    const long result = m_crypto->SEK_Send(m_handle, m_command.data(), static_cast<long>(m_command.size()), 0,
                                           &sent, nullptr);
    if (result == SEK_Ok) return 1;
    logLastError("failed to send, SEK error: %s ");
    return -1;
}

int ZORSocketCommand::getResponse(int capacity, char* buffer) {
    if (m_timeoutSec != -1 && !waitForAnswer()) return -1;
    long received = 0;
    if (m_crypto->SEK_Recv(m_handle, buffer, capacity, 0, &received, nullptr) >= 0) {
        return static_cast<int>(received);
    }
    logLastError("SEK_recv failed, SEK error: %s ");
    return -1;
}

bool ZORSocketCommand::waitForAnswer() {
    SEK_Pollfd entry{m_handle, SEK_Readable, 0};
    char* details = nullptr;
    const long result =
        m_crypto->SEK_Poll(&entry, 1, TVLNumber::secondsToMs(m_timeoutSec), nullptr, &details);
    const bool readable = (entry.revents & SEK_Readable) != 0;
    if (result < 0) {
        logAndFree("SEK_Poll failed, SEK error: %s ", details);
        return false;
    }
    if (readable) return true;
    if (result == SEK_TimedOut) {
        logger->log(ZOR_ERROR, "no response,  SEK_Poll timed out.");
    } else {
        logger->log(ZOR_ERROR, "SEK_Poll succeeded but socket not ready for reading.  This is unexpected.");
    }
    return false;
}

void ZORSocketCommand::close() {
    if (m_crypto != nullptr && m_handle != nullptr) m_crypto->SEK_CloseHandle(&m_handle, nullptr, nullptr);
    // Closed or lost; and the library may be gone before the next call. connect() fetches it anew.
    m_handle = nullptr;
    m_crypto = nullptr;
}

int ZORSocketCommand::connect() {
    m_crypto = ZORCryptoHelper::GetCrypto();
    // Gives the peer time between attempts.
    TVLThread::sleep(kPauseBeforeConnectMs);
    char* const document = getSessionConfigDoc();
    return createHandle(document) && connectInTurns(document) ? 0 : -1;
}

bool ZORSocketCommand::createHandle(char* document) {
    char* details = nullptr;
    if (m_crypto->SEK_Socket(&m_handle, document, nullptr, &details) >= 0) return true;
    logAndFree("failed to create SEK handle: %s ", details);
    return false;
}

// Connect, and as long as the library asks for it establish the secure layer and connect again.
bool ZORSocketCommand::connectInTurns(char* document) {
    int budget = kRetryBudget;  // shared by repeated connects and repeated establishes
    for (;;) {
        const long connected = m_crypto->SEK_Connect_Url(m_handle, m_uri.data(), document);
        if (connected == SEK_Ok) return true;
        logLastError("failed to connect, SEK error: %s ");
        if (connected != SEK_HandshakePending) return false;
        if (!establish(budget)) return false;
        if (budget-- <= 0) return false;
    }
}

bool ZORSocketCommand::establish(int& budget) {
    for (;;) {
        const long established = m_crypto->SEK_EstablishSecure(m_handle, nullptr);
        if (established == SEK_Ok) return true;
        logLastError("failed to establish, SEK error: %s ");
        if (established != SEK_CallAgain || budget-- <= 0) return false;
    }
}

char* ZORSocketCommand::getSessionConfigDoc() {
    // Deliberate: the shutdown command goes out over IPv4 whatever the URI says; see
    // ZORSocketCommandTest.ShutdownGoesOutOverIPv4WhateverTheURISays.
    if (m_command == "SHUTDOWN") return sessionDocumentIPv4;
    const std::string_view host = hostOf(m_uri);
    if (host.find(':') != std::string_view::npos) return sessionDocumentIPv6;
    if (host.find('.') != std::string_view::npos) return sessionDocumentIPv4;
    return isConfiguredForIPv6() ? sessionDocumentIPv6 : sessionDocumentIPv4;
}

// A startup configuration that cannot be read must not end the thread that pings.
bool ZORSocketCommand::isConfiguredForIPv6() {
    if (m_isConfiguredForIPv6) return *m_isConfiguredForIPv6;
    try {
        m_isConfiguredForIPv6 =
            TVLConfigurationFactory::getInstance()->getString("networkConfiguration") == "IPv6";
        return *m_isConfiguredForIPv6;
    } catch (const TVLConfigurationException& exception) {
        logger->log(ZOR_ERROR, "%s", exception.getMessage());
        return false;
    }
}

void ZORSocketCommand::logLastError(const char* format) {
    char* details = nullptr;
    m_crypto->SEK_CryptoGetLastErrorDetails(m_handle, nullptr, &details);
    logAndFree(format, details);
}

void ZORSocketCommand::logAndFree(const char* format, char* details) {
    if (details == nullptr) return;
    logger->log(ZOR_ERROR, format, details);
    m_crypto->SEK_CryptoFree(details, nullptr);
}
