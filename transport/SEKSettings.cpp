#include "SEKSettings.h"

#include <openssl/conf.h>
#include <openssl/err.h>
#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "SEKConfiguration.h"
#include "SEKErrors.h"
#include "SEKRevocation.h"
#include "SEKTrust.h"
#include "SEKVerification.h"

namespace {

struct ConfContextFreer {
    void operator()(SSL_CONF_CTX* context) const { SSL_CONF_CTX_free(context); }
};
struct SslFreer {
    void operator()(SSL* ssl) const { SSL_free(ssl); }
};
struct StoreFreer {
    void operator()(X509_STORE* store) const { X509_STORE_free(store); }
};
struct CiphersFreer {
    void operator()(STACK_OF(SSL_CIPHER) * ciphers) const { sk_SSL_CIPHER_free(ciphers); }
};
using ConfContextPtr = std::unique_ptr<SSL_CONF_CTX, ConfContextFreer>;

std::string octal(mode_t mode) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%04o", static_cast<unsigned>(mode & 07777U));
    return text.data();
}

bool sameName(const std::string& left, const char* right) {
    return strcasecmp(left.c_str(), right) == 0;
}

bool beginsWith(const std::string& name, const std::string& beginning) {
    return strncasecmp(name.c_str(), beginning.c_str(), beginning.size()) == 0;
}

// OpenSSL would ask on the terminal, which a daemon has none of.
int refusePassphrase(char*, int, int, void* asked) {
    *static_cast<bool*>(asked) = true;
    return -1;
}

// A link that leads nowhere is no absent file.
bool isFileThere() {
    struct stat status {};
    return lstat(SEKSettings::path, &status) == 0 || errno != ENOENT;
}

// With these suites a peer needs no certificate.
bool goesWithoutCertificate(const SSL_CIPHER* cipher) {
    const int kind = SSL_CIPHER_get_auth_nid(cipher);
    return kind == NID_auth_null || kind == NID_auth_psk || kind == NID_auth_srp;
}

}  // namespace

// One build; the steps stand in the order in which they run.
class SEKSettingsBuilder {
  public:
    SEKSettingsBuilder(const std::string& serviceID, SEKRole role) : m_section(serviceID), m_role(role) {}

    SEKSettings build() {
        createContext();
        applyFile();
        requireIdentity();
        requireSoundSuites();
        applyRevocation();
        applyTrust();
        enforce();
        return std::move(m_settings);
    }

  private:
    SSL_CTX* context() const { return m_settings.context.get(); }
    std::string place() const { return std::string(SEKSettings::path) + " [" + m_section + "]"; }

    void createContext() {
        m_settings.context.reset(
            SSL_CTX_new(m_role == SEKRole::Client ? TLS_client_method() : TLS_server_method()));
        if (context() == nullptr) throw SEKFailure("cannot set up TLS: " + SEKErrors::tlsReason());
        if (SSL_CTX_set_min_proto_version(context(), TLS1_2_VERSION) != 1)
            throw SEKFailure("cannot set up TLS: " + SEKErrors::tlsReason());
        SSL_CTX_set_verify(context(), m_role == SEKRole::Client ? SSL_VERIFY_PEER : SSL_VERIFY_NONE, nullptr);
        SSL_CTX_set_default_passwd_cb(context(), refusePassphrase);
        SSL_CTX_set_default_passwd_cb_userdata(context(), &m_passphraseAsked);
    }

    // Without the file the defaults hold.
    void applyFile() {
        m_settings.hasFile = isFileThere();
        if (!m_settings.hasFile) {
            m_settings.sources.push_back(SEKFileStamp::of(SEKSettings::path));
            return;
        }
        const SEKConfiguration file(SEKSettings::path, m_settings.sources);
        const STACK_OF(CONF_VALUE)* const values = file.section(m_section);
        if (values == nullptr) throw SEKFailure(place() + ": no such section");
        applySection(*values);
    }

    void applySection(const STACK_OF(CONF_VALUE) & values) {
        const ConfContextPtr commands(SSL_CONF_CTX_new());
        if (commands == nullptr) throw SEKFailure("cannot set up TLS: " + SEKErrors::tlsReason());
        // Both roles' commands are known in either role, so that one section serves a service's two sides.
        SSL_CONF_CTX_set_flags(commands.get(), SSL_CONF_FLAG_FILE | SSL_CONF_FLAG_CLIENT |
                                                   SSL_CONF_FLAG_SERVER | SSL_CONF_FLAG_CERTIFICATE |
                                                   SSL_CONF_FLAG_SHOW_ERRORS | SSL_CONF_FLAG_REQUIRE_PRIVATE);
        SSL_CONF_CTX_set_ssl_ctx(commands.get(), context());
        for (int i = 0; i < sk_CONF_VALUE_num(&values); ++i) {
            const CONF_VALUE* entry = sk_CONF_VALUE_value(&values, i);
            applyCommand(*commands, withoutPrefix(entry->name), entry->value);
        }
        applyVerifyMode(*commands);
        finish(*commands);
    }

    static std::string withoutPrefix(const std::string& name) { return name.substr(name.find('.') + 1); }

    void applyCommand(SSL_CONF_CTX& commands, const std::string& name, const std::string& value) {
        if (takesAuthorities(commands, name, value)) return;
        checkFiles(commands, name, value);
        if (sameName(name, "CRLFile")) return m_revocationLists.push_back(value);
        if (sameName(name, "CRLCheck")) return applyExtent(value);
        if (sameName(name, "VerifyMode")) {
            m_verifyMode = value;
            return;
        }
        if (sameName(name, "PrivateKey")) checkKeyFile(name, value);
        if (sameName(name, "Certificate")) m_certificateFiles.push_back(value);
        if (sameName(name, "CipherString")) m_cipherString = value;
        handOver(commands, name, value);
    }

    void handOver(SSL_CONF_CTX& commands, const std::string& name, const std::string& value) {
        const int result = SSL_CONF_cmd(&commands, name.c_str(), value.c_str());
        if (result <= 0) refuseCommand(name, value, result == -2 ? "unknown command" : reason());
    }

    void applyExtent(const std::string& value) {
        try {
            m_revocation.setExtent(value);
        } catch (const SEKFailure& why) {
            refuseCommand("CRLCheck", value, why.what());
        }
        m_extent = value;
    }

    // OpenSSL adds the values of several lines up, and a value with a minus takes the check away.
    void applyVerifyMode(SSL_CONF_CTX& commands) {
        if (!m_verifyMode.has_value()) return;
        if (*m_verifyMode == "None") {
            SSL_CTX_set_verify(context(), SSL_VERIFY_NONE, nullptr);
            return;
        }
        handOver(commands, "VerifyMode", *m_verifyMode);
        if (!verifies())
            refuseCommand("VerifyMode", *m_verifyMode,
                          "the peer would not be verified, which only the value None may say");
    }

    bool verifies() const { return (SSL_CTX_get_verify_mode(context()) & SSL_VERIFY_PEER) != 0; }

    // VerifyCAFile and its like, which say whom to believe, and ChainCAFile and its like, which complete the own chain.
    // OpenSSL would read some of what they name during a handshake.
    bool takesAuthorities(SSL_CONF_CTX& commands, const std::string& name, const std::string& value) {
        const bool isTrust = beginsWith(name, "VerifyCA");
        if (!isTrust && !beginsWith(name, "ChainCA")) return false;
        const int type = SSL_CONF_cmd_value_type(&commands, name.c_str());
        if (type == SSL_CONF_TYPE_UNKNOWN) return false;
        if (isTrust) m_trustIsGiven = true;
        try {
            return addAuthorities(isTrust ? Authorities::ToVerify : Authorities::ToComplete, type, value);
        } catch (const SEKFailure& why) {
            refuseCommand(name, value, why.what());
        }
    }

    enum class Authorities { ToVerify, ToComplete };

    // False for a store that only OpenSSL can open.
    bool addAuthorities(Authorities purpose, int type, const std::string& value) {
        SEKTrust trust(storeFor(purpose), m_settings.sources);
        if (type == SSL_CONF_TYPE_STORE) return trust.addStore(value);
        if (type == SSL_CONF_TYPE_DIR)
            trust.addFolders(value);
        else
            trust.addFile(value);
        return true;
    }

    // OpenSSL's macros for these calls hide casts that the compiler flags refuse.
    X509_STORE& storeFor(Authorities purpose) const {
        const bool isTrust = purpose == Authorities::ToVerify;
        X509_STORE* store = nullptr;
        if (SSL_CTX_ctrl(context(), isTrust ? SSL_CTRL_GET_VERIFY_CERT_STORE : SSL_CTRL_GET_CHAIN_CERT_STORE,
                         0, static_cast<void*>(&store)) <= 0)
            throw SEKFailure(SEKErrors::tlsReason());
        if (store != nullptr) return *store;
        std::unique_ptr<X509_STORE, StoreFreer> made(X509_STORE_new());
        if (made == nullptr ||
            SSL_CTX_ctrl(context(), isTrust ? SSL_CTRL_SET_VERIFY_CERT_STORE : SSL_CTRL_SET_CHAIN_CERT_STORE,
                         0, made.get()) <= 0)
            throw SEKFailure(SEKErrors::tlsReason());
        return *made.release();
    }

    // Leaves the stamps of what the command names, which OpenSSL then reads by itself, at once.
    void checkFiles(SSL_CONF_CTX& commands, const std::string& name, const std::string& value) {
        const int type =
            sameName(name, "CRLFile") ? SSL_CONF_TYPE_FILE : SSL_CONF_cmd_value_type(&commands, name.c_str());
        try {
            if (type == SSL_CONF_TYPE_FILE) checkFile(value);
            if (type == SSL_CONF_TYPE_DIR) SEKFile::checkFolder(value, m_settings.sources);
            if (type == SSL_CONF_TYPE_STORE) checkStore(SEKTrust::pathOf(value));
        } catch (const SEKFailure& why) {
            refuseCommand(name, value, why.what());
        }
    }

    void checkFile(const std::string& path) {
        m_settings.sources.push_back(SEKFileStamp::of(path));
        SEKFile::check(path);
    }

    void checkKeyFile(const std::string& command, const std::string& path) const {
        const SEKFileStamp file = SEKFileStamp::of(path);
        if (!file.isThere)
            throw SEKFailure(place() + " " + command + ": private key file " + path + ": " +
                             SEKErrors::systemReason(file.error));
        const mode_t mode = file.status.st_mode;
        if ((mode & (S_IRWXG | S_IRWXO)) == 0) return;
        throw SEKFailure(place() + " " + command + ": private key file " + path +
                         " can be read by others (mode " + octal(mode) + "): chmod 600 it");
    }

    void checkStore(const std::string& path) {
        if (path.empty()) return;
        if (S_ISDIR(SEKFileStamp::of(path).status.st_mode))
            SEKFile::checkFolder(path, m_settings.sources);
        else
            checkFile(path);
    }

    std::string reason() {
        const std::string words = SEKErrors::tlsReason();
        return m_passphraseAsked ? "the private key is encrypted, which is not supported" : words;
    }

    [[noreturn]] void refuseCommand(const std::string& name, const std::string& value,
                                    const std::string& why) const {
        throw SEKFailure(place() + " " + name + " = " + value + ": " + why);
    }

    // Takes the key from the certificate's file where none is named.
    void finish(SSL_CONF_CTX& commands) {
        if (SSL_CONF_CTX_finish(&commands) <= 0)
            throw SEKFailure(place() + ": no private key for the certificate: " + reason());
        if (m_certificateFiles.empty()) return;
        for (const std::string& file : m_certificateFiles) {
            if (SEKFile::read(file, SEKFile::materialLimit).find("PRIVATE") != std::string::npos)
                checkKeyFile("Certificate", file);
        }
        if (SSL_CTX_check_private_key(context()) <= 0)
            throw SEKFailure(place() + ": certificate and private key do not match: " + reason());
    }

    void requireIdentity() const {
        if (m_role == SEKRole::Server && SSL_CTX_get0_certificate(context()) == nullptr)
            throw SEKFailure(place() + ": no Certificate for the server's side");
    }

    // Without encryption this is no TLS, and suites without certificates would let a peer pass that has none.
    void requireSoundSuites() const {
        const std::unique_ptr<SSL, SslFreer> probe(SSL_new(context()));
        if (probe == nullptr) throw SEKFailure("cannot set up TLS: " + SEKErrors::tlsReason());
        const std::unique_ptr<STACK_OF(SSL_CIPHER), CiphersFreer> ciphers(
            SSL_get1_supported_ciphers(probe.get()));
        ERR_clear_error();
        // There may be none: no protocol is left, or there is no memory. The one that a handshake comes to is judged then.
        for (int i = 0; i < sk_SSL_CIPHER_num(ciphers.get()); ++i)
            requireSound(*sk_SSL_CIPHER_value(ciphers.get(), i));
    }

    void requireSound(const SSL_CIPHER& cipher) const {
        const std::string name = SSL_CIPHER_get_name(&cipher);
        if (SSL_CIPHER_get_cipher_nid(&cipher) == NID_undef)
            refuseSuites("nothing would be encrypted with " + name);
        if (verifies() && goesWithoutCertificate(&cipher))
            refuseSuites("the peer would not be verified, because " + name +
                         " needs no certificate; only VerifyMode = None may say that");
    }

    [[noreturn]] void refuseSuites(const std::string& why) const {
        refuseCommand("CipherString", m_cipherString.empty() ? "of the system" : m_cipherString, why);
    }

    X509_STORE* trustStore() const {
        X509_STORE* given = nullptr;
        if (SSL_CTX_get0_verify_cert_store(context(), &given) <= 0) throw SEKFailure(SEKErrors::tlsReason());
        return given != nullptr ? given : SSL_CTX_get_cert_store(context());
    }

    void applyRevocation() {
        if (m_revocationLists.empty()) {
            if (!m_extent.empty()) refuseCommand("CRLCheck", m_extent, "there is no CRLFile");
            return;
        }
        for (const std::string& path : m_revocationLists) {
            try {
                m_revocation.load(path, *trustStore());
            } catch (const SEKFailure& why) {
                refuseCommand("CRLFile", path, why.what());
            }
        }
        m_revocation.enforce(*context());
    }

    // The system's trust store takes long to read, so only a context that verifies with it pays for it.
    void applyTrust() {
        if (m_trustIsGiven || SSL_CTX_get_verify_mode(context()) == SSL_VERIFY_NONE) return;
        try {
            SEKTrust(*SSL_CTX_get_cert_store(context()), m_settings.sources).addSystem();
        } catch (const SEKFailure& why) {
            throw SEKFailure(std::string("cannot read the system's trust store: ") + why.what());
        }
    }

    // What no setting may change, and what the two ends of a connection rely on.
    void enforce() {
        SSL_CTX_set_options(context(), SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
        SSL_CTX_clear_options(context(), SSL_OP_IGNORE_UNEXPECTED_EOF);
        SSL_CTX_set_mode(context(), SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
        // One record a call, so that a flood of records without data cannot outlast a deadline.
        SSL_CTX_clear_mode(context(), SSL_MODE_AUTO_RETRY);
        SSL_CTX_set_session_cache_mode(context(), SSL_SESS_CACHE_OFF);
        const std::string id = m_section.substr(0, SSL_MAX_SSL_SESSION_ID_LENGTH);
        if (SSL_CTX_set_session_id_context(context(), reinterpret_cast<const unsigned char*>(id.data()),
                                           static_cast<unsigned>(id.size())) != 1)
            throw SEKFailure("cannot set up TLS: " + SEKErrors::tlsReason());
        const bool isSparing = m_revocation.extent() == SEKRevocation::Extent::Available;
        SSL_CTX_set_verify(context(), SSL_CTX_get_verify_mode(context()),
                           isSparing ? SEKVerification::sparing : SEKVerification::strict);
        SSL_CTX_set_default_passwd_cb_userdata(context(), nullptr);
        SSL_CTX_set_default_passwd_cb(context(), nullptr);
    }

    std::string m_section;
    SEKRole m_role;
    SEKSettings m_settings;
    SEKRevocation m_revocation;
    std::vector<std::string> m_revocationLists;
    std::string m_extent;
    std::vector<std::string> m_certificateFiles;
    std::string m_cipherString;
    std::optional<std::string> m_verifyMode;
    bool m_trustIsGiven = false;
    bool m_passphraseAsked = false;
};

SEKSettings SEKSettings::build(const std::string& serviceID, SEKRole role) {
    ERR_clear_error();
    return SEKSettingsBuilder(serviceID, role).build();
}

void SEKSettings::renew(const std::string& serviceID, SEKRole role) {
    // What would hold without the file is dear to build and does not count here.
    if (hasFile && !isFileThere()) return;
    try {
        SEKSettings fresh = build(serviceID, role);
        if (fresh.hasFile || !hasFile) *this = std::move(fresh);
    } catch (const std::exception&) {
        // A file in the midst of a change, or a slip of the pen, must not cut off what works. Whoever starts
        // anew with the file is told what is wrong with it.
        ERR_clear_error();
    }
}

bool SEKSettings::areCurrent() const {
    return std::all_of(sources.begin(), sources.end(),
                       [](const SEKFileStamp& source) { return source.isCurrent(); });
}
