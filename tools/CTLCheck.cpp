#include "CTLCheck.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <map>
#include <optional>
#include <set>

#include "CTLFolderCheck.h"
#include "CTLListener.h"
#include "CTLNearest.h"
#include "CTLReferences.h"
#include "CTLServiceWords.h"
#include "CTLTlsCheck.h"
#include "SEKUri.h"
#include "TVLFile.h"
#include "TVLIDOM_Helper.h"
#include "ZORCLArg.h"
#include "ZORChildProcess.h"
#include "ZOREnvironment.h"
#include "ZORLogger.h"
#include "ZORPropertyInserter.h"
#include "ZORSpawnAction.h"

namespace fs = std::filesystem;
using Kind = CTLDocument::Kind;
using Severity = CTLFinding::Severity;

namespace {

// Enough for any document written by hand. Beyond that the service, too, would need a very long time.
constexpr double kMostText = 64.0 * 1024 * 1024;

const char* rootOf(Kind kind) {
    if (kind == Kind::Bootstrap) return "bootstrap";
    return kind == Kind::Logging ? "logConfiguration" : "startupConfiguration";
}

// What the properties will be made of, before the service makes them.
std::map<std::string, std::string> valuesIn(const CTLDocument& startup, const CTLInstance& instance) {
    std::map<std::string, std::string> values{{"install_path", instance.folder().string()},
                                              {"bin_path", instance.bin().string()}};
    const auto element = [&](const char* name) {
        return TVLIDOM_Helper::findFirstElementWithName(startup.root(), name);
    };
    values["temp"] = element("temp").getTextContent().str();
    for (const char* const name : {"dispatcherURI", "contentManagerURI", "dispatcherPort"})
        values[name] = element("internalDispatcher").getTextContent().str();
    values["serviceName"] = element("vrx:instance").getAttribute("name").str() + values["dispatcherPort"];
    const TVLIDOM_NodeList parameters = startup.root().getElementsByTagName("vrx:parameter");
    for (std::size_t i = 0; i < parameters.getLength(); ++i) {
        const TVLIDOM_Element parameter(parameters.item(i));
        if (CTLReferences::ofTheService().count(parameter.getAttribute("name").str()) == 0) continue;
        values[parameter.getAttribute("name").str()] += parameter.getTextContent().str();
    }
    if (const char* const home = std::getenv("JAVA_HOME"); home != nullptr) values["java_home"] = home;
    return values;
}

// The environment file wins.
void addJavaHome(const CTLInstance& instance, std::map<std::string, std::string>& values) {
    const std::optional<std::string> text =
        TVLFile::read(instance.environmentFile().c_str(), TVLFile::kMostOfAList);
    if (!text) return;
    for (const std::string& entry : ZOREnvironment::entriesOf(*text)) {
        if (entry.starts_with("JAVA_HOME=")) values["java_home"] = entry.substr(10);
    }
}

// What the daemon's own command line defines.
std::set<std::string> definedBy(const ZORSpawnAction* daemonSpawn) {
    std::set<std::string> names;
    if (daemonSpawn == nullptr) return names;
    for (const char* const word : daemonSpawn->getArguments()) {
        const ZORCLArg argument(word);
        if (argument.getName().starts_with("$$")) names.insert(argument.getName().substr(2));
    }
    return names;
}

}  // namespace

CTLCheck::~CTLCheck() = default;

CTLPreparation* CTLCheck::preparation() {
    return m_preparation && m_preparation->isUsable() ? m_preparation.get() : nullptr;
}

// ---- Documents ----

const CTLDocument& CTLCheck::open(const fs::path& file, Kind expected) {
    m_documents.push_back(std::make_unique<CTLDocument>(file));
    const CTLDocument& document = *m_documents.back();
    if (!document.isParsed()) {
        m_findings.add(document.error());
        return document;
    }
    const Kind kind = expected == Kind::Unknown ? document.kind() : expected;
    const std::string root = document.root().getTagName().str();
    if (kind == Kind::Unknown) {
        m_findings.add(document.at(
            Severity::Error, "schema", document.root(), "",
            "<" + root + "> begins no document of the service" +
                CTLNearest::question(
                    root, {rootOf(Kind::Bootstrap), rootOf(Kind::Logging), rootOf(Kind::Startup)})));
        return document;
    }
    m_schemas.validate(document, kind, m_findings);
    return document;
}

void CTLCheck::checkInstance(const CTLInstance& instance) {
    const CTLDocument& bootstrap = open(instance.bootstrapDocument(), Kind::Bootstrap);
    const CTLDocument& logging = open(instance.loggingDocument(), Kind::Logging);
    const CTLDocument& startup = open(instance.startupDocument(), Kind::Startup);
    CTLFolderCheck folders(instance, m_findings);
    folders.checkPrograms();
    folders.checkEnvironmentFile();
    folders.checkLogs();
    folders.checkLimitFile();
    if (canBePrepared(bootstrap, startup)) {
        prepare(instance, bootstrap, startup);
        folders.checkJavaHome();
        if (logging.isParsed()) folders.checkLogging(logging);
        if (startup.isParsed()) folders.checkStartup(startup);
    }
    checkUnchanged();
}

void CTLCheck::checkFiles(const std::vector<std::string>& files) {
    for (const std::string& file : files)
        open(fs::absolute(file).lexically_normal(), Kind::Unknown);
    checkUnchanged();
}

// As the option "-config=" has it.
void CTLCheck::prepareIn(const CTLInstance& instance) {
    const auto first = std::find_if(m_documents.begin(), m_documents.end(), [](const auto& document) {
        return document->kind() == Kind::Bootstrap && access(document->file().c_str(), R_OK) == 0;
    });
    if (first == m_documents.end()) return;
    ZORPropertyInserter::getInstance()->add("configfile", (*first)->file().c_str());
    const CTLDocument startup(instance.startupDocument());
    if (canBePrepared(**first, startup)) prepare(instance, **first, startup);
}

// Somebody who writes while they are read gets findings of something that is not there any more.
void CTLCheck::checkUnchanged() {
    for (const auto& document : m_documents) {
        if (document->isCurrent()) continue;
        m_findings.add({Severity::Warning,
                        "changed",
                        document->file(),
                        {},
                        "",
                        "has changed while it was checked: check it once more"});
    }
}

// ---- The service's own preparation ----

// A value that refers to itself would keep the service, and this, for ever.
bool CTLCheck::canBePrepared(const CTLDocument& bootstrap, const CTLDocument& startup) {
    if (!bootstrap.isParsed()) return false;
    if (startup.isThere() && !startup.isParsed()) return false;
    const CTLInstance instance(fs::path(startup.file()).parent_path().parent_path());
    std::map<std::string, std::string> values = valuesIn(startup, instance);
    addJavaHome(instance, values);
    std::string name;
    const double longest = CTLReferences::longestOf(values, name);
    const double all = static_cast<double>(bootstrap.text().size()) +
                       longest * static_cast<double>(CTLReferences::namesIn(bootstrap.text()).size());
    if (all <= kMostText) return true;
    const bool isEndless = longest == std::numeric_limits<double>::infinity();
    m_findings.add({Severity::Error,
                    "reference",
                    name == "java_home" ? instance.environmentFile().string() : startup.file(),
                    {},
                    "",
                    "${" + name + "} " +
                        (isEndless ? "refers to itself: no command of the service would ever end"
                                   : "makes the texts longer than the service can be expected to take")});
    return false;
}

void CTLCheck::prepare(const CTLInstance& instance, const CTLDocument& bootstrap,
                       const CTLDocument& startup) {
    m_preparation = std::make_unique<CTLPreparation>(instance);
    const std::vector<CTLLogLine> lines = m_preparation->lines();
    // What is asked of the service's classes from here on is no preparation any more.
    ZORLoggerFactory::getInstance()->setLevel(ZOR_FATAL);
    CTLServiceWords words(bootstrap, startup, m_findings);
    words.read(lines);
    checkChildren(instance, bootstrap, words);
}

void CTLCheck::checkChildren(const CTLInstance& instance, const CTLDocument& bootstrap,
                             const CTLServiceWords& words) {
    ZORBootstrapService& service = m_preparation->service();
    const CTLReferences references(definedBy(service.getDaemonSpawn()));
    CTLChildCheck children(bootstrap, references, m_findings);
    children.checkTexts();
    children.checkDaemonSpawn(service.getDaemonSpawn());
    auto child = service.getChildren().begin();
    for (const CTLServiceWords::Process& process : words.processes()) {
        if (!process.isTaken || child == service.getChildren().end()) continue;
        children.checkChild(process.element, **child++);
        ++m_children;
    }
    CTLTlsCheck(bootstrap, children.addresses(), m_findings).check();
    // With a document in place of its own the instance's service may run or not.
    const bool isOwn = bootstrap.file() == instance.bootstrapDocument().string();
    int pid = 0;
    if (isOwn && service.getPid(&pid) == 0) checkPorts(bootstrap, children.addresses());
}

void CTLCheck::checkPorts(const CTLDocument& bootstrap,
                          const std::vector<CTLChildCheck::Address>& addresses) {
    std::set<std::uint16_t> looked;
    for (const CTLChildCheck::Address& address : addresses) {
        const SEKUri uri = SEKUri::parse(address.uri);
        if (!CTLListener::isHere(uri.host()) || !looked.insert(uri.port()).second) continue;
        const std::optional<std::string> listener = CTLListener::on(uri.port());
        if (!listener) continue;
        m_findings.add(bootstrap.at(Severity::Error, "port", address.element, "URI",
                                    "the service does not run, but " + *listener + " listens on port " +
                                        std::to_string(uri.port()) + ", where this child would"));
    }
}
