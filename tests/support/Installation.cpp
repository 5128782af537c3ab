#include "Installation.h"

#include <unistd.h>

#include <filesystem>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

// Nobody is to be warned that a certificate ends soon.
constexpr long kYearSec = 31'536'000;

constexpr const char* kBootstrap = R"(<?xml version="1.0" encoding="UTF-8"?>
<bootstrap>
  <processManager pollIntervalsec="1" checkForShutdownIntervalms="100"/>
  <process name="dispatcher">
    <start>
      <spawn sync="1">
        <path>${bin_path}/sampledispatcher</path>
        <param>--listen=${dispatcherURI}</param>
        <param>--service=dispatcher</param>
      </spawn>
    </start>
    <stop type="socketSend">
      <socketSend URI="${dispatcherURI}" commandString="SHUTDOWN"/>
    </stop>
    <ping>
      <socketSend URI="${dispatcherURI}" commandString="PING" sockIOTimeoutSec="5" responseSize="64"
                  responseOK="READY" responseFatal="FATAL" responseRetry="STARTING" dependency="dispatcher"/>
    </ping>
  </process>
  <process name="helper">
    <start>
      <spawn>
        <path>${bin_path}/fakechild</path>
        <param>${install_path}/temp/helper</param>
      </spawn>
    </start>
    <stop type="signal">
      <signal signal="15"/>
    </stop>
  </process>
  <daemonSpawn>
    <path>${bin_path}/velbootstrapservice</path>
    <param>runAsDaemon</param>
    <param>-java_home=${java_home}</param>
  </daemonSpawn>
</bootstrap>
)";

constexpr const char* kStartup = R"(<?xml version="1.0" encoding="UTF-8"?>
<startupConfiguration xmlns:vrx="urn:velmora:startup" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"
                      xmlns:xsd="http://www.w3.org/2001/XMLSchema">
  <ZOR>
    <vrx:instances name="zor"><vrx:instance name="trial"/></vrx:instances>
    <vrx:parameter name="dispatcherPingTimeout">
      <vrx:value xsi:type="xsd:unsignedShort">60</vrx:value>
    </vrx:parameter>
    <vrx:parameter name="dispatcherStopWaitTime">
      <vrx:value xsi:type="xsd:unsignedShort">2</vrx:value>
    </vrx:parameter>
    <vrx:parameter name="dispatcherMaxMemory">
      <vrx:value xsi:type="xsd:unsignedInt">256</vrx:value>
    </vrx:parameter>
    <vrx:parameter name="shutdownPort">
      <vrx:value xsi:type="xsd:unsignedShort">9301</vrx:value>
    </vrx:parameter>
  </ZOR>
  <temp>../temp</temp>
  <internalDispatcher>https://localhost:9300/dispatch</internalDispatcher>
  <networkConfiguration>IPv4</networkConfiguration>
  <components>
    <component name="dispatcher" version="1.0"/>
  </components>
</startupConfiguration>
)";

constexpr const char* kSettings = R"(# Whom the pings believe.
[gateway]
VerifyCAFile = ../configuration/ca.pem
VerifyMode = Peer
MinProtocol = TLSv1.2

[dispatcher]
Certificate = ../configuration/dispatcher.pem
PrivateKey = ../configuration/dispatcher.key
)";

std::string loggingDocument() {
    std::string document = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<logConfiguration>\n";
    for (const std::string mode : {"run", "start", "stop", "isrunning", "default"}) {
        document.append("  <").append(mode).append(">\n    <logging level=\"INFO\">\n      <logFiles>");
        document.append("<file name=\"${install_path}/logs/velbootstrapservice.log\" append=\"true\"/>");
        document.append("</logFiles>\n    </logging>\n  </").append(mode).append(">\n");
    }
    return document + "</logConfiguration>\n";
}

std::string replacedAll(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

}  // namespace

Installation::Installation(ServiceUnderTest& service)
    : m_service(service), m_pki(service.path("configuration"), "ca", {.notAfterSec = kYearSec}) {
    // Others may look, as in an installation of the package's.
    mode("", 0755);
    writeDocuments();
    writeSettings();
    install(m_pki.issue({.name = "dispatcher",
                         .alternatives = {"DNS:localhost", "IP:127.0.0.1", "IP:::1"},
                         .notAfterSec = kYearSec}),
            "dispatcher");
}

void Installation::writeDocuments() const {
    fs::create_directories(m_service.path("temp/helper"));
    const std::string port = m_port.str();
    for (const auto& [file, content] :
         {std::pair<std::string, std::string>{bootstrap, kBootstrap}, {logging, loggingDocument()}}) {
        const std::string name = fs::path(file).filename().string();
        m_service.remove("bin/" + name);
        write(file, content);
        fs::create_symlink("../" + file, m_service.path("bin/" + name));
    }
    write(startup, replacedAll(kStartup, ":9300/", ":" + port + "/"));
}

void Installation::writeSettings() const {
    write(settings, kSettings);
}

// The files of a certificate bear the name that was asked for; those that the settings name are these two.
void Installation::install(const TestPki::Issued& issued, const std::string& name) const {
    for (const auto& [from, ending] : {std::pair{issued.certificate, ".pem"}, {issued.key, ".key"}}) {
        const fs::path to = m_service.path("configuration/" + name + ending);
        if (from != to) fs::rename(from, to);
    }
}

void Installation::replace(const std::string& file, const std::string& from, const std::string& to) const {
    std::string content = m_service.read(file);
    const std::size_t at = content.find(from);
    if (at == std::string::npos) throw std::runtime_error("not in " + file + ": " + from);
    write(file, content.replace(at, from.size(), to));
}

// A program there may be a further name of the one that was built, which keeps its own.
void Installation::mode(const std::string& file, unsigned bits) const {
    const fs::path path = m_service.path(file);
    if (fs::is_regular_file(path) && fs::hard_link_count(path) > 1) {
        const fs::path copy = path.string() + ".copy";
        fs::copy_file(path, copy);
        fs::rename(copy, path);
    }
    fs::permissions(path, static_cast<fs::perms>(bits));
}

void Installation::logsBelongToUser() const {
    constexpr uid_t user = 12345;
    constexpr gid_t group = 12346;
    for (const char* const file : {"logs", "temp", "configuration/dispatcher.key"}) {
        if (chown(m_service.path(file).c_str(), user, group) != 0)
            throw std::runtime_error("only root can give a file to a user");
    }
}

void Installation::dispatcherShows(const TestPki::Request& request) {
    install(m_pki.issue(request), "dispatcher");
}

void Installation::dispatcherOfAnotherAuthority() {
    TestPki other(m_service.path("temp"), "stranger");
    install(other.issueForLocalhost("dispatcher"), "dispatcher");
}

void Installation::serviceShowsItself() {
    install(m_pki.issueForClient("service"), "service");
    replace(settings, "VerifyMode = Peer\n",
            "VerifyMode = Peer\nCertificate = ../configuration/service.pem\n"
            "PrivateKey = ../configuration/service.key\n");
}

void Installation::occupyPort(const std::string& answer) {
    fs::create_directories(m_service.path("temp/stranger"));
    m_service.answer(answer, "stranger");
    m_stranger = std::make_unique<ExternalProgram>(std::vector<std::string>{
        m_service.path("bin/fakechild"), m_service.path("temp/stranger"), "port=" + m_port.str()});
    if (!m_service.waitFor("the stranger", [this] { return !m_service.childPids("stranger").empty(); }))
        throw std::runtime_error("nobody takes the port");
}

void Installation::startByHand() {
    if (m_service.run({"-start", "-testReadyInterval=1"}).exitCode != 0)
        throw std::runtime_error("the service does not start: " + m_service.read(log));
}

std::string Installation::plain(std::string text) const {
    text = replacedAll(std::move(text), m_service.path(), "");
    return replacedAll(std::move(text), ":" + m_port.str(), ":9300");
}
