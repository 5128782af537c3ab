#include "InteropTest.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

TestPki::Issued InteropTest::identityWith(TestPki::Key key) const {
    TestPki::Request request{key == TestPki::Key::Rsa ? "rsa-server" : "ecdsa-server",
                             {"DNS:localhost", "IP:127.0.0.1", "IP:::1"}};
    request.key = key;
    return pki().issue(request);
}

void InteropTest::showCertificate(const TestPki::Issued& issued) const {
    writeSettings("[gateway]\nVerifyCAFile = " + authority() + "\nCertificate = " +
                  issued.certificate.string() + "\nPrivateKey = " + issued.key.string() + "\n");
}

std::string loopbackHost(int family) {
    return family == AF_INET6 ? "[::1]" : "127.0.0.1";
}

std::string familyName(int family) {
    return family == AF_INET6 ? "IPv6" : "IPv4";
}

std::string exchangeName(const testing::TestParamInfo<Exchange>& info) {
    const auto& [version, key, family] = info.param;
    const std::string option = version;
    std::string name;
    std::copy_if(option.begin(), option.end(), std::back_inserter(name),
                 [](unsigned char letter) { return std::isalnum(letter) != 0; });
    return name + (key == TestPki::Key::Rsa ? "Rsa" : "Ecdsa") + familyName(family);
}

namespace {

std::string urlOf(const std::string& scheme, const std::string& host, int family, const std::string& port) {
    return scheme + "://" + (host.empty() ? loopbackHost(family) : host) + ":" + port + "/";
}

std::vector<std::string> serverCommand(const TestPki::Issued& identity,
                                       const std::vector<std::string>& options, int family, int connections) {
    std::vector<std::string> command{"openssl", "s_server", family == AF_INET6 ? "-6" : "-4",
                                     // A port of 0 makes the system choose one.
                                     "-accept", loopbackHost(family) + ":0", "-naccept",
                                     std::to_string(connections), "-cert", identity.certificate.string(),
                                     "-key", identity.key.string()};
    command.insert(command.end(), options.begin(), options.end());
    return command;
}

}  // namespace

OpensslServer::OpensslServer(const TestPki::Issued& identity, const std::vector<std::string>& options,
                             int family, int connections)
    : m_family(family), m_program(serverCommand(identity, options, family, connections)) {
    const std::string announcement = m_program.waitForLine("ACCEPT ");
    if (announcement.empty()) throw std::runtime_error("openssl does not listen: " + m_program.words());
    m_port = announcement.substr(announcement.rfind(':') + 1);
}

std::string OpensslServer::url(const std::string& scheme, const std::string& host) const {
    return urlOf(scheme, host, m_family, m_port);
}

std::string OpensslServer::log() {
    m_program.waitForEnd();
    return m_program.words();
}

NginxServer::NginxServer(const fs::path& folder, const std::string& listenOptions, const std::string& lines,
                         int family)
    : m_family(family),
      m_port(bindToLoopback(family)),
      m_program(prepared(folder, configuration(address() + listenOptions, lines))) {
    // The listener is open when the event loop is chosen.
    if (m_program.waitForLine("event method").empty())
        throw std::runtime_error("nginx does not start: " + m_program.words());
}

std::string NginxServer::address() const {
    return loopbackHost(m_family) + ":" + std::to_string(portOf(m_port.get()));
}

// The command that serves from the folder, which it makes.
std::vector<std::string> NginxServer::prepared(const fs::path& folder, const std::string& configuration) {
    fs::create_directory(folder);
    std::ofstream(folder / "nginx.conf") << configuration;
    return {NGINX_PROGRAM, "-p", folder.string() + "/", "-c", "nginx.conf", "-e", "stderr"};
}

// Every path lies in the folder, so that the machine's own nginx is not touched.
std::string NginxServer::configuration(const std::string& listen, const std::string& lines) {
    std::string text =
        "daemon off;\nmaster_process off;\npid nginx.pid;\nerror_log stderr info;\n"
        "events {}\nhttp {\n  access_log off;\n  keepalive_timeout 5;\n";
    for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
        text += std::string("  ") + kind + "_temp_path " + kind + ";\n";
    return text + "  server {\n    listen " + listen + ";\n" + lines + "  }\n}\n";
}

std::string NginxServer::tls(const TestPki::Issued& identity, const std::string& version) {
    return "    ssl_certificate " + identity.certificate.string() + ";\n    ssl_certificate_key " +
           identity.key.string() + ";\n    ssl_protocols " + version + ";\n";
}

std::string NginxServer::url(const std::string& scheme, const std::string& host) const {
    return urlOf(scheme, host, m_family, std::to_string(portOf(m_port.get())));
}

std::string NginxServer::complaints() {
    m_program.interrupt();
    m_program.waitForEnd();
    std::istringstream log(m_program.words());
    std::string complaints;
    for (std::string line; std::getline(log, line);) {
        const bool isNews =
            line.find(" [notice] ") != std::string::npos ||
            (line.find(" [info] ") != std::string::npos && line.find("SSL") == std::string::npos);
        if (!isNews) complaints += line + "\n";
    }
    return complaints;
}
