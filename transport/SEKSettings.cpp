#include "SEKSettings.h"

#include <fcntl.h>
#include <openssl/conf.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509_vfy.h>
#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>

#include "SEKErrors.h"

namespace {

struct ConfFreer {
    void operator()(CONF* conf) const { NCONF_free(conf); }
};
struct ConfContextFreer {
    void operator()(SSL_CONF_CTX* context) const { SSL_CONF_CTX_free(context); }
};
using ConfPtr = std::unique_ptr<CONF, ConfFreer>;
using ConfContextPtr = std::unique_ptr<SSL_CONF_CTX, ConfContextFreer>;

std::string octal(mode_t mode) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%04o", static_cast<unsigned>(mode & 07777U));
    return text.data();
}

bool sameName(const std::string& left, const char* right) {
    return strcasecmp(left.c_str(), right) == 0;
}

// VerifyCAFile, VerifyCAPath and VerifyCAStore, the commands that say whom to believe.
bool namesTrust(const std::string& name) {
    constexpr std::string_view beginning = "VerifyCA";
    return strncasecmp(name.c_str(), beginning.data(), beginning.size()) == 0;
}

// OpenSSL would ask on the terminal, which a daemon has none of.
int refusePassphrase(char*, int, int, void* asked) {
    *static_cast<bool*>(asked) = true;
    return -1;
}

}  // namespace

SEKFileStamp SEKFileStamp::of(const std::string& path) {
    SEKFileStamp stamp{path, {}, 0, -1};
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return stamp;
    stamp.modified = status.st_mtim;
    stamp.inode = status.st_ino;
    stamp.size = status.st_size;
    return stamp;
}

bool SEKFileStamp::isCurrent() const {
    const SEKFileStamp now = of(path);
    return now.modified.tv_sec == modified.tv_sec && now.modified.tv_nsec == modified.tv_nsec &&
           now.inode == inode && now.size == size;
}

// One build; the steps stand in the order in which they run.
class SEKSettingsBuilder {
  public:
    SEKSettingsBuilder(const std::string& serviceID, SEKRole role) : m_section(serviceID), m_role(role) {}

    SEKSettings build() {
        createContext();
        m_settings.sources.push_back(SEKFileStamp::of(SEKSettings::path));
        const ConfPtr file = readFile();
        if (file != nullptr) applySection(*file);
        requireIdentity();
        applyRevocationList();
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
        SSL_CTX_set_min_proto_version(context(), TLS1_2_VERSION);
        SSL_CTX_set_verify(context(), m_role == SEKRole::Client ? SSL_VERIFY_PEER : SSL_VERIFY_NONE, nullptr);
        SSL_CTX_set_default_passwd_cb(context(), refusePassphrase);
        SSL_CTX_set_default_passwd_cb_userdata(context(), &m_passphraseAsked);
    }

    // Null when there is no file; that is no error.
    static ConfPtr readFile() {
        struct stat status {};
        if (stat(SEKSettings::path, &status) != 0 && errno == ENOENT) return nullptr;
        // OpenSSL's reader would take a folder for an empty file, and so for the defaults.
        if (S_ISDIR(status.st_mode))
            throw SEKFailure(std::string("cannot read ") + SEKSettings::path + ": " +
                             SEKErrors::systemReason(EISDIR));
        ConfPtr file(NCONF_new(nullptr));
        long line = 0;
        if (file != nullptr && NCONF_load(file.get(), SEKSettings::path, &line) > 0) return file;
        const std::string where = line > 0 ? " line " + std::to_string(line) : "";
        throw SEKFailure(std::string("cannot read ") + SEKSettings::path + where + ": " +
                         SEKErrors::tlsReason());
    }

    void applySection(const CONF& file) {
        const STACK_OF(CONF_VALUE)* values = NCONF_get_section(&file, m_section.c_str());
        ERR_clear_error();
        if (values == nullptr) return;
        const ConfContextPtr commands(SSL_CONF_CTX_new());
        if (commands == nullptr) throw SEKFailure("cannot set up TLS: " + SEKErrors::tlsReason());
        // Both roles' commands are known in either role, so that one section serves a service's two sides.
        SSL_CONF_CTX_set_flags(commands.get(), SSL_CONF_FLAG_FILE | SSL_CONF_FLAG_CLIENT |
                                                   SSL_CONF_FLAG_SERVER | SSL_CONF_FLAG_CERTIFICATE |
                                                   SSL_CONF_FLAG_SHOW_ERRORS | SSL_CONF_FLAG_REQUIRE_PRIVATE);
        SSL_CONF_CTX_set_ssl_ctx(commands.get(), context());
        for (int i = 0; i < sk_CONF_VALUE_num(values); ++i) {
            const CONF_VALUE* entry = sk_CONF_VALUE_value(values, i);
            applyCommand(*commands, withoutPrefix(entry->name), entry->value);
        }
        finish(*commands);
    }

    static std::string withoutPrefix(const std::string& name) { return name.substr(name.find('.') + 1); }

    void applyCommand(SSL_CONF_CTX& commands, const std::string& name, const std::string& value) {
        noteFile(commands, name, value);
        if (sameName(name, "CRLFile")) {
            m_revocationList = value;
            return;
        }
        if (sameName(name, "VerifyMode") && sameName(value, "None")) {
            SSL_CTX_set_verify(context(), SSL_VERIFY_NONE, nullptr);
            return;
        }
        if (sameName(name, "PrivateKey")) {
            checkKeyFile(name, value);
            m_keyIsGiven = true;
        }
        if (sameName(name, "Certificate")) m_certificateFile = value;
        if (namesTrust(name)) m_trustIsGiven = true;
        const int result = SSL_CONF_cmd(&commands, name.c_str(), value.c_str());
        if (result <= 0) refuseCommand(name, value, result == -2 ? "unknown command" : reason());
    }

    void noteFile(SSL_CONF_CTX& commands, const std::string& name, const std::string& value) {
        const bool isFile = SSL_CONF_cmd_value_type(&commands, name.c_str()) == SSL_CONF_TYPE_FILE;
        if (isFile || sameName(name, "CRLFile")) m_settings.sources.push_back(SEKFileStamp::of(value));
    }

    void checkKeyFile(const std::string& command, const std::string& path) const {
        struct stat status {};
        if (stat(path.c_str(), &status) != 0) return;  // loading tells the reason
        if ((status.st_mode & (S_IRWXG | S_IRWXO)) == 0) return;
        throw SEKFailure(place() + " " + command + ": private key file " + path +
                         " can be read by others (mode " + octal(status.st_mode) + "): chmod 600 it");
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
        if (m_certificateFile.empty()) return;
        if (!m_keyIsGiven) checkKeyFile("Certificate", m_certificateFile);
        if (SSL_CTX_check_private_key(context()) <= 0)
            throw SEKFailure(place() + ": certificate and private key do not match: " + reason());
    }

    void requireIdentity() const {
        if (m_role == SEKRole::Server && SSL_CTX_get0_certificate(context()) == nullptr)
            throw SEKFailure(place() + ": no Certificate for the server's side");
    }

    X509_STORE* trustStore() const {
        X509_STORE* given = nullptr;
        SSL_CTX_get0_verify_cert_store(context(), &given);
        return given != nullptr ? given : SSL_CTX_get_cert_store(context());
    }

    void applyRevocationList() {
        if (m_revocationList.empty()) return;
        X509_LOOKUP* lookup = X509_STORE_add_lookup(trustStore(), X509_LOOKUP_file());
        if (lookup == nullptr || X509_load_crl_file(lookup, m_revocationList.c_str(), X509_FILETYPE_PEM) <= 0)
            refuseCommand("CRLFile", m_revocationList, reason());
        X509_VERIFY_PARAM_set_flags(SSL_CTX_get0_param(context()), X509_V_FLAG_CRL_CHECK);
    }

    // The system's trust store takes long to read, so only a context that verifies with it pays for it.
    void applyTrust() {
        if (m_trustIsGiven || SSL_CTX_get_verify_mode(context()) == SSL_VERIFY_NONE) return;
        if (SSL_CTX_set_default_verify_paths(context()) <= 0)
            throw SEKFailure("cannot read the system's trust store: " + reason());
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
        SSL_CTX_set_session_id_context(context(), reinterpret_cast<const unsigned char*>(id.data()),
                                       static_cast<unsigned>(id.size()));
        SSL_CTX_set_default_passwd_cb_userdata(context(), nullptr);
        SSL_CTX_set_default_passwd_cb(context(), nullptr);
    }

    std::string m_section;
    SEKRole m_role;
    SEKSettings m_settings;
    std::string m_revocationList;
    std::string m_certificateFile;
    bool m_keyIsGiven = false;
    bool m_trustIsGiven = false;
    bool m_passphraseAsked = false;
};

SEKSettings SEKSettings::build(const std::string& serviceID, SEKRole role) {
    ERR_clear_error();
    return SEKSettingsBuilder(serviceID, role).build();
}

bool SEKSettings::areCurrent() const {
    return std::all_of(sources.begin(), sources.end(),
                       [](const SEKFileStamp& source) { return source.isCurrent(); });
}
