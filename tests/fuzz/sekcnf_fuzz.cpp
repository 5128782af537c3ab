// Any bytes as sek.cnf and two files that it may include, one of them by its folder, parted by form feeds: what is read from them, against OpenSSL's
// own reader; and the TLS context that is made of it never lets a peer pass unverified unless it is told to.

#include <openssl/conf.h>
#include <openssl/err.h>

#include <strings.h>
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "FuzzService.h"
#include "SEKConfiguration.h"
#include "SEKErrors.h"
#include "SEKSettings.h"
#include "TestPki.h"

using FuzzTarget::require;
using FuzzTarget::requireSame;

namespace {

constexpr const char* kSection = "gateway";

struct ConfFreer {
    void operator()(CONF* conf) const { NCONF_free(conf); }
};
using Commands = std::vector<std::pair<std::string, std::string>>;

std::string takePart(std::string& text) {
    const std::size_t end = std::min(text.find('\f'), text.size());
    std::string part = text.substr(0, end);
    text.erase(0, end + 1);
    return part;
}

std::optional<Commands> commandsOf(const STACK_OF(CONF_VALUE) * values) {
    if (values == nullptr) return std::nullopt;
    Commands commands;
    for (int i = 0; i < sk_CONF_VALUE_num(values); ++i) {
        const CONF_VALUE* const entry = sk_CONF_VALUE_value(values, i);
        commands.emplace_back(entry->name, entry->value == nullptr ? "" : entry->value);
    }
    return commands;
}

std::string spelt(const std::optional<Commands>& commands) {
    if (!commands) return "no such section";
    std::string text;
    for (const auto& [name, value] : *commands)
        text += name + " = " + value + "\n";
    return text;
}

// No value when OpenSSL's reader refuses the files.
std::optional<std::string> readByOpenssl() {
    const std::unique_ptr<CONF, ConfFreer> conf(NCONF_new(nullptr));
    long line = 0;
    const bool good = NCONF_load(conf.get(), SEKSettings::path, &line) > 0;
    std::optional<std::string> text;
    if (good) text = spelt(commandsOf(NCONF_get_section(conf.get(), kSection)));
    ERR_clear_error();
    return text;
}

// No value, and a text that says where, when this library refuses them.
std::optional<Commands> read() {
    std::vector<SEKFileStamp> sources;
    try {
        const SEKConfiguration configuration(SEKSettings::path, sources);
        require(!sources.empty(), "what is read leaves a stamp");
        const std::optional<Commands> commands = commandsOf(configuration.section(kSection));
        const std::optional<std::string> other = readByOpenssl();
        if (other) requireSame(*other, spelt(commands), "both readers read the same");
        return commands;
    } catch (const SEKFailure& reason) {
        require(!sources.empty(), "what cannot be read leaves a stamp, too");
        require(*reason.what() != '\0', "a refusal has a reason");
        return std::nullopt;
    }
}

bool saysNone(const std::optional<Commands>& commands) {
    bool none = false;
    for (const auto& [name, value] : commands.value_or(Commands())) {
        const std::string command = name.substr(name.find('.') + 1);
        if (strcasecmp(command.c_str(), "VerifyMode") == 0) none = value == "None";
    }
    return none;
}

void checkContext(const std::optional<Commands>& commands, SEKRole role) {
    try {
        const SEKSettings settings = SEKSettings::build(kSection, role);
        require(settings.context != nullptr, "good settings have a context");
        require(commands.has_value(), "good settings come from a section");
        const bool verifies = (SSL_CTX_get_verify_mode(settings.context.get()) & SSL_VERIFY_PEER) != 0;
        require(role == SEKRole::Server || verifies != saysNone(commands),
                "only the literal None switches the check of the peer off");
        require((SSL_CTX_get_options(settings.context.get()) & SSL_OP_NO_RENEGOTIATION) != 0,
                "what no setting may change is as it was");
    } catch (const SEKFailure& reason) {
        require(*reason.what() != '\0', "a refusal has a reason");
    }
}

// The trust store of the machine takes long to read, and certificates are there to be named.
bool setUp(const FuzzFolder& folder) {
    std::filesystem::create_directories(folder.path("configuration/more"));
    TestPki pki(folder.path("configuration"));
    pki.issueForLocalhost();
    setenv("SSL_CERT_FILE", pki.authorityFile().c_str(), 1);
    setenv("SSL_CERT_DIR", folder.path("configuration/more").c_str(), 1);
    return true;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const FuzzFolder folder;
    static const bool ready = setUp(folder);
    require(ready, "set up");
    std::string text = FuzzTarget::textOf(data, size);
    folder.write("configuration/sek.cnf", takePart(text));
    // Alone in its folder: OpenSSL has no order of files.
    folder.write("configuration/more/a.cnf", takePart(text));
    folder.write("configuration/included", text);
    const FuzzTarget::NothingLeftOpen check;
    const std::optional<Commands> commands = read();
    checkContext(commands, SEKRole::Client);
    checkContext(commands, SEKRole::Server);
    return 0;
}
