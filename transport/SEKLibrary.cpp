#include "SEKLibrary.h"

#include <openssl/crypto.h>

#include "SEKErrors.h"
#include "SEKSocket.h"

SEKLibrary& SEKLibrary::instance() {
    static SEKLibrary* const library = new SEKLibrary;
    return *library;
}

void SEKLibrary::initialize() {
    const SEKGuard guard(m_mutex);
    // The first initialisation of OpenSSL in the process decides: without this it would clean up in every
    // forked child that exits. Everything dear (trust store, settings) waits for the first TLS connection.
    if (m_initializations == 0 && OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) != 1)
        throw SEKFailure("cannot initialise OpenSSL: " + SEKErrors::tlsReason());
    ++m_initializations;
}

void SEKLibrary::terminate() {
    const SEKGuard guard(m_mutex);
    if (m_initializations == 0) throw SEKFailure("the library is not initialised");
    if (--m_initializations == 0) m_settings.clear();
}

void SEKLibrary::requireInitialized() const {
    const SEKGuard guard(m_mutex);
    if (m_initializations == 0) throw SEKFailure("the library is not initialised");
}

SEKContextPtr SEKLibrary::contextFor(const std::string& serviceID, SEKRole role) {
    const SEKGuard guard(m_mutex);
    if (m_initializations == 0) throw SEKFailure("the library is not initialised");
    const auto key = std::make_pair(serviceID, role);
    auto found = m_settings.find(key);
    if (found == m_settings.end())
        found = m_settings.emplace(key, SEKSettings::build(serviceID, role)).first;
    else if (!found->second.areCurrent())
        found->second.renew(serviceID, role);
    SSL_CTX* const context = found->second.context.get();
    if (SSL_CTX_up_ref(context) != 1) throw SEKFailure("cannot set up TLS: " + SEKErrors::tlsReason());
    return SEKContextPtr(context);
}

void* SEKLibrary::add(const std::shared_ptr<SEKSocket>& socket) {
    const SEKGuard guard(m_mutex);
    m_sockets.emplace(socket.get(), socket);
    return socket.get();
}

std::shared_ptr<SEKSocket> SEKLibrary::find(void* handle) const {
    const SEKGuard guard(m_mutex);
    const auto found = m_sockets.find(handle);
    return found == m_sockets.end() ? nullptr : found->second;
}

std::shared_ptr<SEKSocket> SEKLibrary::remove(void* handle) {
    const SEKGuard guard(m_mutex);
    const auto found = m_sockets.find(handle);
    if (found == m_sockets.end()) return nullptr;
    std::shared_ptr<SEKSocket> socket = std::move(found->second);
    m_sockets.erase(found);
    return socket;
}
